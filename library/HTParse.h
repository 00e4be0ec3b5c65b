// Splits a URL into its parts. Any thread, on a buffer of its own.
#pragma once

#include <cstddef>
#include <string_view>

// Each part points into the scanned buffer, or is null when the URL lacks it. A query stays inside
// `absolute` or `relative`.
struct HTURIParts {
    char *access;    // scheme, without the colon
    char *host;      // between "//" and the next "/"; may hold ":port"
    char *absolute;  // path without its leading "/"
    char *relative;  // what begins neither with "/" nor with a scheme that is followed by "/"
    char *anchor;    // fragment, behind the first "#"
};

// Fills `parts` from the NUL-terminated URL of `length` bytes in `buffer`, and writes NULs into it
// to end each part.
//
// A colon at index 0 or 1 does not end a scheme ("c:/dir"); the pseudo scheme "URL:" is skipped.
// Without a scheme "//h/p" is a path, not a host.
void HTParse_scan(char *buffer, HTURIParts *parts, std::size_t length);

// The same parts as views of the text that was split; data() is null for one that is missing.
struct HTURIViews {
    std::string_view access;
    std::string_view host;
    std::string_view absolute;
    std::string_view relative;
    std::string_view anchor;  // ends at the next "#"
};

// Splits as HTParse_scan() does, but writes nothing. `text` has no NUL.
[[nodiscard]] HTURIViews HTParse_split(std::string_view text);
