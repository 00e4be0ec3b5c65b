// Wildcard matches: with its own stars filled in, a pattern must give the text back.
//
// Input: a line with the pattern, then the text.
#include <memory>

#include "Fuzz.h"
#include "GuardedText.h"
#include "HTString.h"
#include "HTWild.h"

void fuzz(std::string_view input)
{
    const std::string given = untilNul(takeLine(&input).substr(0, 64));
    const std::string text = untilNul(input.substr(0, 1100));  // enough to need scratch memory
    const GuardedText guarded(text);
    const std::unique_ptr<HTPattern, void (*)(HTPattern *)> pattern(HTPattern_new(given.c_str()),
                                                                    HTPattern_free);
    HTPool pool;
    for (const char *const how : {"exact", "any case", "url"}) {
        const auto match = [&](const HTPattern *replacement) {
            return *how == 'u'
                       ? HTPattern_url_match(pattern.get(), replacement, guarded.data(), &pool)
                       : HTPattern_match(pattern.get(), replacement, guarded.data(), *how == 'e',
                                         &pool);
        };
        const char *const copy = match(nullptr);
        const char *const filled = match(pattern.get());
        require((copy == nullptr) == (filled == nullptr), "same answer");
        require(copy == nullptr || (copy == text && !given.empty()), "a copy");
        if (filled != nullptr && *how != 'u') {
            require(*how == 'e' ? filled == text : strcasecmp(filled, text.c_str()) == 0, how);
        }
    }
}
