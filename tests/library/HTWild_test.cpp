#include "HTWild.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

#include "GuardedText.h"
#include "HTString.h"

namespace {

struct PatternFree {
    void operator()(HTPattern *pattern) const { HTPattern_free(pattern); }
};
using Pattern = std::unique_ptr<HTPattern, PatternFree>;

Pattern compiled(const char *text)
{
    return Pattern(HTPattern_new(text));
}

enum class How { Exact, IgnoreCase, Url };

struct MatchCase {
    const char *name;
    How how;
    const char *pattern;
    const char *text;
    const char *filled;  // null: no match
    const char *replacement = "<*|*|*>";

    friend void PrintTo(const MatchCase &row, std::ostream *os) { *os << row.name; }
};

class Match : public testing::TestWithParam<MatchCase> {};

TEST_P(Match, GivesAnotherAnswer)
{
    const MatchCase &row = GetParam();
    const Pattern pattern = compiled(row.pattern);
    const Pattern replacement = compiled(row.replacement);
    HTPool pool;
    const auto match = [&](const std::string &text, const HTPattern *fill) {
        const GuardedText guarded(text);
        return row.how == How::Url ? HTPattern_url_match(pattern.get(), fill, guarded.data(), &pool)
                                   : HTPattern_match(pattern.get(), fill, guarded.data(),
                                                     row.how == How::Exact, &pool);
    };
    EXPECT_STREQ(match(row.text, replacement.get()), row.filled);
    EXPECT_STREQ(match(row.text, nullptr), row.filled == nullptr ? nullptr : row.text);
}

const std::array<MatchCase, 23> kMatches = {{
    {"UserDirectoryAsFile", How::Exact, "*u", "file:/~u", nullptr},
    {"CutEscapeIsText", How::Url, "*%4", "a%4", "<a||>"},
    {"StarAndEmptyText", How::Exact, "*", "", "<||>"},
    {"EmptyPattern", How::Exact, "", "", nullptr},
    {"NoStar", How::Exact, "abc", "abc", "<||>"},
    {"StarsInARow", How::Exact, "**a**", "bac", "<b|c|>"},
    {"ExtensionInCapitalsFolded", How::IgnoreCase, "*.gif", "a.GIF", "<a||>"},
    {"OverlapIsNotRetried", How::Exact, "*aa", "aaa", nullptr},
    {"RetriesOfTwoStars", How::Exact, "*ab*cd", "abxcdabcdxcd", "<|xcdabcdx|>"},
    {"EscapedStar", How::Exact, R"(a\**)", "a*b", "<b||>"},
    {"BackslashAtTheEndIsALineFeed", How::Exact, "a\\", "a\n", "<||>"},
    {"CapturesTooMany", How::Exact, "*a*b*c", "1a2b3c", "1-2", "*-*"},
    {"UserDirectoryByStar", How::Exact, "*", "/~u", nullptr},
    {"UserDirectoryByLiteral", How::Exact, "/*", "/~u", nullptr},
    {"UserDirectorySpeltOut", How::Exact, "/~*", "/~u", "<u||>"},
    {"UserDirectoryBehindTheSlash", How::Exact, "http://h/*", "http://h/~u", nullptr},
    {"UserDirectoryInsideAStar", How::Exact, "*.gif", "http://h/~u/a.gif", "<http://h/~u/a||>"},
    {"UserDirectoryDecoding", How::Url, "/*", "/~u", "<~u||>"},
    {"EscapedBlank", How::Url, "a b*", "a%20b%2", "<%2||>"},
    {"EscapedLetterEitherCase", How::Url, "jk", "%6a%6B", "<||>"},
    {"DecodingIsCaseSensitive", How::Url, "a", "A", nullptr},
    {"StarDoesNotSplitAnEscape", How::Url, "*1*", "%41%31", "<%41||>"},
    {"OverlapIsRetriedDecoding", How::Url, "*aa", "aaa", "<a||>"},
}};
INSTANTIATE_TEST_SUITE_P(HTWild, Match, testing::ValuesIn(kMatches),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(HTWild, ManyStarsTakeExponentialTime)
{
    std::string stars;
    for (int i = 0; i < 100; ++i) {
        stars += "*aa";
    }
    const std::string text(5000, 'a');
    HTPool pool;
    EXPECT_EQ(
        HTPattern_match(compiled((stars + "*b").c_str()).get(), nullptr, text.c_str(), true, &pool),
        nullptr);
    EXPECT_STREQ(HTPattern_url_match(compiled((stars + "*").c_str()).get(), compiled("*x").get(),
                                     text.c_str(), &pool),
                 "x");
}

TEST(HTWild, TemplateTextIsLost)
{
    EXPECT_STREQ(HeapString(HTPattern_stringitize(nullptr)).get(), "");
    EXPECT_STREQ(HeapString(HTPattern_stringitize(compiled(R"(a**b\*\c*)").get())).get(), "a*b*c*");
    const char *const text = "abc";
    EXPECT_EQ(HTPattern_firstWild(compiled("*b").get(), text), text);
    EXPECT_EQ(HTPattern_firstWild(compiled("ab*").get(), text), text + 2);
    EXPECT_EQ(HTPattern_firstWild(compiled("abc").get(), text), nullptr);
}

}  // namespace
