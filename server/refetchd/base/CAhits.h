// Lines of the proxy's hits file: hits, percent and URL, divided by white space.
#pragma once

#include <array>
#include <cstddef>

inline constexpr std::size_t kMaxHitsLine = 1024;  // characters of a line, at most

struct CAHitsLine {
    std::array<char, kMaxHitsLine + 1> hits;
    std::array<char, kMaxHitsLine + 1> percent;
    std::array<char, kMaxHitsLine + 1> url;
};

// True for a line that holds nothing: an empty one, or a comment.
[[nodiscard]] bool CAIsBlankHitsLine(const char *line);

// Splits a line of at most kMaxHitsLine characters. False when it does not hold three words, or
// when hits or percent are too long to be a number.
[[nodiscard]] bool CASplitHitsLine(const char *line, CAHitsLine *words);
