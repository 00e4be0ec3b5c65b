// Small values of directives: "when" words, which say for which URLs a feature applies, and
// durations. Any thread.
#pragma once

#include <cstdint>
#include <string_view>

// Where a URL came from: the administrator's own list or the proxy's hits file. Links and
// redirections inherit it.
enum _source : std::int32_t {
    SOURCE_CONFIG = 0,
    SOURCE_HITS = 1,
};

// For which source of URLs a feature applies.
enum _when : std::int32_t {
    NEVER = 0,
    ALWAYS = 1,
    ADMIN_ONLY = 2,  // only SOURCE_CONFIG
    TOPN_ONLY = 3,   // only SOURCE_HITS
};

// Standardizes `text` in place (HTString.h) and reads it as a "when" word; an unknown word means
// NEVER.
_when CAParseWhen(char *text);

// "NEVER", "ALWAYS", "ADMIN_ONLY" or "TOPN_ONLY"; "NEVER" for any other value.
const char *CAWhenString(_when when);

// "admin" or "topn".
std::string_view CASourceName(_source source);

// 1 when a feature set to `when` applies to URLs of source `source`, else 0.
int CAMatchWhen(_when when, _source source);

// Reads a duration such as "90", "1:30:15" or "2 hours 30 min" and stores its seconds in `*seconds`
// (saturated, never wrapped). A single bare number is multiplied by `defaultUnit` seconds. `text`
// is lower-cased and trimmed in place. Returns 1, or 0 for null, blank or malformed text; malformed
// text is traced, and leaves the sum of the fields before the error in `*seconds`.
//
//     value := { [number] unit | [number] [':'] }    colon fields are hours, minutes, seconds
//
// A unit without a number counts 0. A last number without a unit, behind other fields, is the next
// colon field: "1 hour 30" is 31 hours.
int parse_time(char *text, int defaultUnit, long *seconds);
