#include "HTArgs.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "GuardedText.h"
#include "HTString.h"

namespace {

TEST(HTArgs, LineFallsIntoOtherWords)
{
    std::string tooMany;
    for (int i = 0; i < 51; ++i) {
        tooMany += "x ";
    }
    const struct {
        std::string line;
        std::vector<std::string> words;
    } rows[] = {
        {" \t\n\x01\x1f", {}},
        {"a\x01 b\v c\x7f\xff\n", {"a", "b", "c\x7f\xff"}},
        {"a#b #c d", {"a#b"}},
        {R"(a\ b\#c \#d \n\)", {"a b#c", "#d", R"(\n\)"}},
        {"a\\\tb", {"a\tb"}},
        {R"("a  b" "" "#c" "a\ b\" c)", {"a  b", "", "#c", R"(a\ b\)", "c"}},
        {R"(a"b c"d "" "x \" y)", {"ab cd", "", R"(x \)", "y"}},
        {R"(a "b c)", {"a", "\"b", "c"}},
        {tooMany, std::vector<std::string>(50, "x")},
    };
    for (const auto &row : rows) {
        const GuardedText line(row.line);
        char *words[kMaxArgs];
        const int count = parse_args(line.data(), words);
        EXPECT_EQ(std::vector<std::string>(words, words + count), row.words) << row.line;
        EXPECT_STREQ(count < kMaxArgs ? words[kMaxArgs - 1] : "", "");
    }
}

TEST(HTString, OwnedStringIsFreedBeforeItIsCopied)
{
    char *field = nullptr;
    HTSACat(&field, "ab");
    EXPECT_STREQ(HTSACat(&field, "cd"), "abcd");
    EXPECT_STREQ(HTSACopy(&field, field + 2), "cd");
    EXPECT_EQ(HTSACopy(&field, nullptr), nullptr);
}

TEST(HTString, ByteOfAWordIsTakenForAnother)
{
    for (std::size_t i = 0; i < std::size_t{20} * 20 * 256; ++i) {
        const std::size_t size = i / 256 % 20 + 1;
        const std::size_t at = i / 256 / 20 % size;
        const char c = static_cast<char>(i % 256);
        std::string text(size, 'a');
        text[at] = c;
        std::string other(size, 'A');
        EXPECT_EQ(HTHasControl(text), HTIsControl(c)) << i;
        EXPECT_EQ(HTEqualsNoCase(text, other), HTLower(c) == 'a') << i;
        other[at] = static_cast<char>(c ^ ' ');
        EXPECT_EQ(HTEqualsNoCase(text, other), HTIsLetter(c)) << i;
    }
}

}  // namespace
