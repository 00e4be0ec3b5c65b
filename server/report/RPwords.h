// Figures, times and texts as people read them. Any thread, except those that say otherwise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "RPfigures.h"

// What separates groups of three digits in the texts below: a thin space.
inline constexpr std::string_view kRPThinSpace = "\u202f";

[[nodiscard]] std::string RPNumber(std::int64_t number);

// A duration such as "340 ms", "5.2 s", "5 min 12 s" and "1 h 3 min".
[[nodiscard]] std::string RPDuration(std::int64_t milliseconds);

// A size such as "812 B", "4.3 kB" and "1.2 GB".
[[nodiscard]] std::string RPBytes(std::int64_t bytes);

// The share of `part` in `whole`: "0 %", "under 1 %", "42 %", "100 %"; only all is 100 %.
[[nodiscard]] std::string RPShare(std::int64_t part, std::int64_t whole);

// The first `limit` bytes of a text in UTF-8, without a part of a character at their end.
[[nodiscard]] std::string_view RPUpTo(std::string_view text, std::size_t limit);

// "1 page", "2 pages".
[[nodiscard]] std::string RPPlural(std::int64_t count, std::string_view one, std::string_view many);

// What a group of URLs is called: its reason, behind the name of the verdict unless that is clear.
[[nodiscard]] std::string RPReason(RPVerdict verdict, const std::string &why);

// Days and moments in local time: "Sunday, 22 November 2026", "22 Nov", "22 Nov, 02:00:05". The
// moment is in milliseconds since the epoch.
[[nodiscard]] std::string RPLongDay(RPDay day);
[[nodiscard]] std::string RPShortDay(RPDay day);
[[nodiscard]] std::string RPMoment(std::int64_t milliseconds);

// What the morning is like.
enum class RPMood : std::uint8_t { Fine, Look, Wrong };

struct RPMorning {
    RPMood mood = RPMood::Fine;
    std::string headline = {};            // a sentence
    std::vector<std::string> notes = {};  // more sentences
};

// Judges the figures, and says what is probably wrong.
[[nodiscard]] RPMorning RPJudge(const RPFigures &figures);
