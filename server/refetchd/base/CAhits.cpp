#include "base/CAhits.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kMaxNumber = 19;  // characters

// Copies the word that begins at `*at` or behind the white space there, and moves `*at` behind it.
// What does not fit is the next word. False when there is none.
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
