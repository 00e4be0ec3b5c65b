// The variants in which each URL is requested: sets of the headers that visitors send, because a
// cache keeps a copy for each of them when a page says "Vary:".
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class CAConfigLines;

inline constexpr std::size_t kMaxVariants = 100;

struct CAHeader {
    std::string name;
    std::string value;
};

// One `variant` line.
struct CAVariant {
    std::vector<CAHeader> headers;

    // What a request for this variant contains, made by CACompleteVariants().
    std::string accept;     // in place of the agent's own; empty: that is sent
    std::string userAgent;  // the same
    std::string lines;      // all other headers, those of `requestheader` first; with CR LF

    [[nodiscard]] bool has(std::string_view name) const;
};

// Reads the current line. Returns why it is refused, as a static text; null when it is not, and
// then `*variant` has its headers.
[[nodiscard]] const char *CAReadVariant(CAConfigLines *line, CAVariant *variant);

// The headers in the form of a `variant` line.
[[nodiscard]] std::string CATextOf(const CAVariant &variant);

// Makes the parts of the requests. `common` is the text of the `requestheader` lines, each of which
// is in all variants that have no header of its name; null: there are none.
void CACompleteVariants(std::vector<CAVariant> *variants, const char *common);

// The names of all headers in `common` and in the variants.
[[nodiscard]] std::vector<std::string> CASentNames(const std::vector<CAVariant> &variants,
                                                   const char *common);
