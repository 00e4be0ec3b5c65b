#include "HTWild.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

#include "GuardedText.h"
#include "HTString.h"

namespace {

using Pattern = std::unique_ptr<HTPattern, decltype(&HTPattern_free)>;

Pattern compiled(const char *text)
{
    return {HTPattern_new(text), HTPattern_free};
}

enum class How { Exact, IgnoreCase, Url };

struct MatchRow {
    const char *name;
    How how;
    const char *pattern;
    const char *text;
    const char *filled;  // null: no match
    const char *replacement = "<*|*|*>";

    friend void PrintTo(const MatchRow &row, std::ostream *out) { *out << row.name; }
};

class Match : public testing::TestWithParam<MatchRow> {};

TEST_P(Match, GivesAnotherAnswer)
{
    const MatchRow &row = GetParam();
    const Pattern pattern = compiled(row.pattern);
    const Pattern replacement = compiled(row.replacement);
    const GuardedText text(row.text);
    HTPool pool;
    const auto match = [&](const HTPattern *fill) {
        return row.how == How::Url ? HTPattern_url_match(pattern.get(), fill, text.data(), &pool)
                                   : HTPattern_match(pattern.get(), fill, text.data(),
                                                     row.how == How::Exact, &pool);
    };
    EXPECT_STREQ(match(replacement.get()), row.filled);
    EXPECT_STREQ(match(nullptr), row.filled == nullptr ? nullptr : row.text);
}

const std::array<MatchRow, 22> kRows = {{
    {"UserDirectoryAsFile", How::Exact, "*u", "file:/~u", nullptr},
    {"CutEscapeIsText", How::Url, "*%4", "a%4", "<a||>"},
    {"StarAndEmptyText", How::Exact, "*", "", "<||>"},
    {"EmptyPattern", How::Exact, "", "", nullptr},
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
INSTANTIATE_TEST_SUITE_P(HTWild, Match, testing::ValuesIn(kRows),
                         testing::PrintToStringParamName());

TEST(HTWild, ManyStarsTakeExponentialTime)
{
    std::string stars;
    for (int i = 0; i < 100; ++i) {
        stars += "*aa";
    }
    const std::string text(5000, 'a');
    HTPool pool;
    const Pattern pattern = compiled((stars + "*b").c_str());
    EXPECT_EQ(HTPattern_match(pattern.get(), nullptr, text.c_str(), true, &pool), nullptr);
    EXPECT_EQ(HTPattern_url_match(pattern.get(), nullptr, text.c_str(), &pool), nullptr);
}

TEST(HTWild, TemplateTextIsLost)
{
    EXPECT_STREQ(HeapString(HTPattern_stringitize(nullptr)).get(), "");
    EXPECT_STREQ(HeapString(HTPattern_stringitize(compiled(R"(a**b\*\c*)").get())).get(), "a*b*c*");
}

}  // namespace
