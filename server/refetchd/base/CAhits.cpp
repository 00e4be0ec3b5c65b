#include "base/CAhits.h"

#include <cstring>

namespace {

constexpr std::size_t kMaxNumber = 19;  // digits of the largest signed 64-bit number
constexpr const char *kBlanks = " \t\n\v\f\r";

// Gives the next word, which is empty when none is left, ends it with a NUL, and moves `*at` behind
// that.
std::string_view takeWord(char **at)
{
    char *const word = *at + std::strspn(*at, kBlanks);
    const std::size_t length = std::strcspn(word, kBlanks);
    char *const end = word + length;
    *at = *end == '\0' ? end : end + 1;
    *end = '\0';
    return {word, length};
}

}  // namespace

bool CAIsBlankHitsLine(const char *line)
{
    return *line == '\n' || *line == '#';
}

bool CASplitHitsLine(char *line, CAHitsLine *words)
{
    words->hits = takeWord(&line);
    words->percent = takeWord(&line);
    words->url = takeWord(&line);
    return !words->url.empty() && words->hits.size() <= kMaxNumber &&
           words->percent.size() <= kMaxNumber;
}
