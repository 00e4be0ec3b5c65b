// Lines of the proxy's hits file: hits, percent and URL, separated by white space. Any thread.
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr std::size_t kMaxHitsLine = 1024;  // characters of a line, at most

// The words of a line. They lie in it, and each ends with a NUL.
struct CAHitsLine {
    std::string_view hits;
    std::string_view percent;
    std::string_view url;
};

// True for a line to skip: one that begins with its line feed, or with the '#' of a comment.
[[nodiscard]] bool CAIsBlankHitsLine(const char *line);

// Splits a line into `*words`, which are valid as long as the line, and puts a NUL behind each;
// what follows the URL is ignored. False, with both in any state, when it has fewer than three
// words, or when hits or percent are longer than any number can be.
[[nodiscard]] bool CASplitHitsLine(char *line, CAHitsLine *words);
