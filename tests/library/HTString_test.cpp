#include "HTString.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

// The answer to one word: '+', '-' or, for neither, '?'.
char answer(std::string word)
{
    std::string copy = word;
    return positive(copy.data()) ? '+' : negative(word.data()) ? '-' : '?';
}

TEST(HTString, WordIsClassifiedWrongly)
{
    std::string answers;
    for (const char *const word : {"o-N", "EN_ABLED", "None", "Dis-abled", "", "yes!", "nothing"}) {
        answers += answer(word);
    }
    EXPECT_EQ(answers, "++--???");
}

TEST(HTString, OwnedStringIsFreedBeforeItIsCopied)
{
    char *field = nullptr;
    HTSACat(&field, "ab");
    HTSACat(&field, "cd");
    HTSACat(&field, nullptr);
    EXPECT_STREQ(field, "abcd");
    EXPECT_STREQ(HTSACopy(&field, field + 2), "cd");
    EXPECT_EQ(HTSACopy(&field, nullptr), nullptr);
}

TEST(HTString, NumberBeyond32BitsWraps)
{
    EXPECT_EQ(HTInteger(" -7x"), -7);
    EXPECT_EQ(HTInteger("99999999999999999999"), INT32_MAX);
    EXPECT_EQ(HTInteger("-4294967297"), INT32_MIN);
}

}  // namespace
