#include "HTString.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

TEST(HTString, WordIsClassifiedWrongly)
{
    std::string answers;
    for (std::string word : {"o-N", "EN_ABLED", "None", "Dis-abled", "", "yes!", "nothing"}) {
        std::string same = word;
        answers += positive(word.data()) ? '+' : negative(same.data()) ? '-' : '?';
    }
    EXPECT_EQ(answers, "++--???");
}

TEST(HTString, OwnedStringIsFreedBeforeItIsCopied)
{
    char *field = nullptr;
    HTSACat(&field, "ab");
    EXPECT_STREQ(HTSACat(&field, "cd"), "abcd");
    EXPECT_STREQ(HTSACopy(&field, field + 2), "cd");
    EXPECT_EQ(HTSACopy(&field, nullptr), nullptr);
}

TEST(HTString, NumberBeyond32BitsWraps)
{
    EXPECT_EQ(HTInteger("99999999999999999999"), INT32_MAX);
    EXPECT_EQ(HTInteger("-4294967297"), INT32_MIN);
}

}  // namespace
