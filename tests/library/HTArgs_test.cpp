#include "HTArgs.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "GuardedText.h"

namespace {

struct LineRow {
    const char *name;
    const char *line;
    std::vector<std::string> words;

    friend void PrintTo(const LineRow &row, std::ostream *out) { *out << row.name; }
};

class Line : public testing::TestWithParam<LineRow> {};

TEST_P(Line, SplitsIntoOtherWords)
{
    const GuardedText line(GetParam().line);
    std::array<char *, kMaxArgs> words{};
    const int count = parse_args(line.data(), words.data());
    EXPECT_EQ(std::vector<std::string>(words.begin(), words.begin() + count), GetParam().words);
    EXPECT_STREQ(words.back(), "");  // as all that are left over
}

const std::array<LineRow, 8> kRows = {{
    {"EveryControlCharacterSeparates", "\001a\037b\t c\n", {"a", "b", "c"}},
    {"BytesAbove127AreOrdinary", "\xe4\xff \x7f", {"\xe4\xff", "\x7f"}},
    {"CommentEndsTheLine", "a b#c #d e", {"a", "b#c"}},
    {"EscapedHashAndBlank", R"(a\ b \#c \n\)", {"a b", "#c", R"(\n\)"}},
    {"QuotedWord", R"("a  b" "" "#c")", {"a  b", "", "#c"}},
    {"QuotesInsideAWord", R"(a"b c"d"e f" g)", {"ab cde f", "g"}},
    {"BackslashInQuotesStays", R"("a\ b\" c)", {R"(a\ b\)", "c"}},
    {"OpenQuoteIsOrdinary", "a \"b c", {"a", "\"b", "c"}},
}};
INSTANTIATE_TEST_SUITE_P(HTArgs, Line, testing::ValuesIn(kRows), testing::PrintToStringParamName());

TEST(HTArgs, WordBehindTheLastSlotIsStored)
{
    std::string line(3 * kMaxArgs, ' ');
    for (std::size_t i = 0; i < line.size(); i += 2) {
        line[i] = 'w';
    }
    std::array<char *, kMaxArgs + 1> words{};
    EXPECT_EQ(parse_args(line.data(), words.data()), kMaxArgs);
    EXPECT_EQ(words.back(), nullptr);
}

}  // namespace
