#include "HTWild.h"

#include <gtest/gtest.h>

#include <memory>

#include "HTString.h"

namespace {

using Pattern = std::unique_ptr<HTPattern, decltype(&HTPattern_free)>;

Pattern compiled(const char *text)
{
    return {HTPattern_new(text), HTPattern_free};
}

// Whether there is a match at all is for the fuzz target.
TEST(HTWild, StarStandsForAnotherText)
{
    enum How { Exact, IgnoreCase, Url };
    const struct {
        How how;
        const char *pattern;
        const char *text;
        const char *filled;
        const char *replacement = "<*|*|*>";
    } rows[] = {
        {Exact, "**a**", "bac", "<b|c|>"},
        {IgnoreCase, "*.gif", "a.GIF", "<a||>"},
        {Exact, "*ab*cd", "abxcdabcdxcd", "<|xcdabcdx|>"},
        {Exact, R"(a\**)", "a*b", "<b||>"},
        {Exact, "*a*b*c", "1a2b3c", "1-2", "*-*"},
        {Url, "/*", "/~u", "<~u||>"},
        {Url, "a b*", "a%20b%2", "<%2||>"},
        {Url, "*1*", "%41%31", "<%41||>"},
    };
    for (const auto &row : rows) {
        const Pattern pattern = compiled(row.pattern);
        const Pattern fill = compiled(row.replacement);
        HTPool pool;
        EXPECT_STREQ(
            row.how == Url
                ? HTPattern_url_match(pattern.get(), fill.get(), row.text, &pool)
                : HTPattern_match(pattern.get(), fill.get(), row.text, row.how == Exact, &pool),
            row.filled);
    }
    EXPECT_STREQ(HeapString(HTPattern_stringitize(compiled(R"(a**b\*\c*)").get())).get(), "a*b*c*");
}

}  // namespace
