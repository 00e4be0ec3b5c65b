// Lines of the proxy's hits file: hits, percent and URL, separated by white space. Any thread.
#pragma once

#include <array>
#include <cstddef>

inline constexpr std::size_t kMaxHitsLine = 1024;  // characters of a line, at most

struct CAHitsLine {
    std::array<char, kMaxHitsLine + 1> hits;
    std::array<char, kMaxHitsLine + 1> percent;
    std::array<char, kMaxHitsLine + 1> url;
};

// True for a line to skip: one that begins with its line feed, or with the '#' of a comment.
[[nodiscard]] bool CAIsBlankHitsLine(const char *line);

// Splits a line of at most kMaxHitsLine characters into `*words`; what follows the URL is ignored.
// False, with `*words` in any state, when it has fewer than three words, or when hits or percent
// are longer than any number can be.
[[nodiscard]] bool CASplitHitsLine(const char *line, CAHitsLine *words);
