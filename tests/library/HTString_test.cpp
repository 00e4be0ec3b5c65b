#include "HTString.h"

#include <gtest/gtest.h>

namespace {

TEST(HTString, OwnedStringIsFreedBeforeItIsCopied)
{
    char *field = nullptr;
    HTSACat(&field, "ab");
    EXPECT_STREQ(HTSACat(&field, "cd"), "abcd");
    EXPECT_STREQ(HTSACopy(&field, field + 2), "cd");
    EXPECT_EQ(HTSACopy(&field, nullptr), nullptr);
}

}  // namespace
