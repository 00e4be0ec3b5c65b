#include "HTArgs.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "HTString.h"
#include "tfprintf.h"

namespace {

bool isEscape(const char *at)
{
    return at[0] == '\\' && (at[1] == ' ' || at[1] == '\t' || at[1] == '#');
}

// `number` counts the directive's own word as 0.
void traceOpenQuote(int number, const char *quote)
{
    if (HTTrace_on(kTraceArguments)) {
        tfprintf(stderr,
                 "Config...... closing quote missing in argument %d: %s. Ignoring quote...\n",
                 number, quote);
    }
}

// Ends the word that begins at `word` and closes it up over its quotes and backslashes. Returns
// where the search for the next word begins. Sets `*isOpen` when nothing closes a quote in it.
char *cutWord(char *word, int number, bool *isOpen)
{
    char *in = word;
    char *out = word;
    while (*in != '\0' && !HTIsBlank(*in)) {
        if (*in == '"') {
            char *const closing = std::strchr(in + 1, '"');
            if (closing != nullptr) {
                const auto length = static_cast<std::size_t>(closing - in - 1);
                std::memmove(out, in + 1, length);
                out += length;
                in = closing + 1;
                continue;
            }
            *isOpen = true;
            traceOpenQuote(number, in);
        } else if (isEscape(in)) {
            ++in;
        }
        *out++ = *in++;
    }
    char *const next = *in == '\0' ? in : in + 1;
    *out = '\0';
    return next;
}

}  // namespace

int parse_args(char *line, char **words, bool *openQuote)
{
    bool isOpen = false;
    std::fill_n(words, kMaxArgs, line + std::strlen(line));
    int count = 0;
    for (char *at = line; count < kMaxArgs; ++count) {
        at = std::find_if_not(at, at + std::strlen(at), HTIsBlank);
        if (*at == '\0' || *at == '#') {
            break;
        }
        words[count] = at;
        at = cutWord(at, count, &isOpen);
    }
    if (openQuote != nullptr) {
        *openQuote = isOpen;
    }
    return count;
}
