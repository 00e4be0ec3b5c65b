#include "CAhits.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr std::size_t kMaxNumber = 19;  // characters

}  // namespace

bool CAIsBlankHitsLine(const char *line)
{
    return *line == '\n' || *line == '#';
}

bool CASplitHitsLine(const char *line, CAHitsLine *words)
{
    const int found = std::sscanf(line, "%1024s %1024s %1024s", words->hits.data(),
                                  words->percent.data(), words->url.data());
    return found == 3 && std::strlen(words->hits.data()) <= kMaxNumber &&
           std::strlen(words->percent.data()) <= kMaxNumber;
}
