#include "HTArgs.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "GuardedText.h"

namespace {

struct LineCase {
    const char *name;
    const char *line;
    std::vector<std::string> words;

    friend void PrintTo(const LineCase &row, std::ostream *os) { *os << row.name; }
};

class Line : public testing::TestWithParam<LineCase> {};

TEST_P(Line, SplitsIntoOtherWords)
{
    const GuardedText line(GetParam().line);
    std::array<char *, kMaxArgs> words{};
    const int count = parse_args(line.data(), words.data());
    EXPECT_EQ(std::vector<std::string>(words.begin(), words.begin() + count), GetParam().words);
    for (auto unused = words.begin() + count; unused != words.end(); ++unused) {
        EXPECT_STREQ(*unused, "");
    }
}

const std::array<LineCase, 8> kLines = {{
    {"EveryControlCharacterSeparates", "\001a\037b\t c\n", {"a", "b", "c"}},
    {"BytesAbove127AreOrdinary", "\xe4\xff \x7f", {"\xe4\xff", "\x7f"}},
    {"CommentEndsTheLine", "a b#c #d e", {"a", "b#c"}},
    {"EscapedHashAndBlank", R"(a\ b \#c \n\)", {"a b", "#c", R"(\n\)"}},
    {"QuotedWord", R"("a  b" "" "#c")", {"a  b", "", "#c"}},
    {"QuotesInsideAWord", R"(a"b c"d"e f" g)", {"ab cde f", "g"}},
    {"BackslashInQuotesStays", R"("a\ b\" c)", {R"(a\ b\)", "c"}},
    {"OpenQuoteIsOrdinary", "a \"b c", {"a", "\"b", "c"}},
}};
INSTANTIATE_TEST_SUITE_P(HTArgs, Line, testing::ValuesIn(kLines),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(HTArgs, WordBehindTheLastSlotIsStored)
{
    std::string line;
    for (int i = 0; i < kMaxArgs + 2; ++i) {
        line += "w" + std::to_string(i) + " ";
    }
    std::array<char *, kMaxArgs + 1> words{};
    EXPECT_EQ(parse_args(line.data(), words.data()), kMaxArgs);
    EXPECT_STREQ(words[kMaxArgs - 1], "w49");
    EXPECT_EQ(words[kMaxArgs], nullptr);
}

}  // namespace
