// Wildcard matches: with its own stars filled in, a pattern must give the text back, and it must
// match a URL in which every character of that text is escaped.
//
// Input: a line with the pattern, then the text.
#include <memory>

#include "Fuzz.h"
#include "GuardedText.h"
#include "HTString.h"
#include "HTWild.h"

constexpr char kHexDigits[] = "0123456789aBcDeF";

void fuzz(std::string_view input)
{
    const std::string given = untilNul(takeLine(&input).substr(0, 64));
    const std::string text = untilNul(input.substr(0, 1100));  // enough to need scratch memory
    const GuardedText guarded(text);
    const std::unique_ptr<HTPattern, void (*)(HTPattern *)> pattern(HTPattern_new(given.c_str()),
                                                                    HTPattern_free);
    HTPool pool;
    std::string escaped;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        escaped.append("%").append(1, kHexDigits[byte / 16]).append(1, kHexDigits[byte % 16]);
    }
    const GuardedText guardedEscapes(escaped);
    require(
        HTPattern_match(pattern.get(), nullptr, guarded.data(), true, &pool) == nullptr ||
            HTPattern_url_match(pattern.get(), nullptr, guardedEscapes.data(), &pool) != nullptr,
        "match of escapes");
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
