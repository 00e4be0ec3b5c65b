#include "base/CAhits.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kMaxNumber = 19;  // digits of the largest signed 64-bit number

// Skips white space, copies the word that follows, and moves `*at` behind it. What does not fit
// into `*word` is left for the next call. False when no word is left.
template <std::size_t Size>
bool takeWord(const char **at, std::array<char, Size> *word)
{
    *at += std::strspn(*at, " \t\n\v\f\r");
    const std::size_t length = std::min(std::strcspn(*at, " \t\n\v\f\r"), Size - 1);
    *std::copy_n(*at, length, word->data()) = '\0';
    *at += length;
    return length != 0;
}

}  // namespace

bool CAIsBlankHitsLine(const char *line)
{
    return *line == '\n' || *line == '#';
}

bool CASplitHitsLine(const char *line, CAHitsLine *words)
{
    return takeWord(&line, &words->hits) && takeWord(&line, &words->percent) &&
           takeWord(&line, &words->url) && std::strlen(words->hits.data()) <= kMaxNumber &&
           std::strlen(words->percent.data()) <= kMaxNumber;
}
