#include "tfprintf.h"

#include <gtest/gtest.h>

namespace {

HT_PRINTF(1, 2) std::size_t lengthOf(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const std::size_t length = va_list_length(format, args);
    va_end(args);
    return length;
}

TEST(VaListLength, ArgumentIsCountedOrTakenWrongly)
{
    const char *volatile none = nullptr;  // what it is the compiler need not know
    EXPECT_EQ(lengthOf("100%% sure%d%5ld%s", 1, 2L, none), 18U + 20 + 20 + 6);
    EXPECT_EQ(lengthOf("%c%p%.2f%Lg%s", 'x', static_cast<void *>(nullptr), 1.0, 2.0L, "abc"),
              13U + 5 + 10 + 20 + 20 + 3);
    EXPECT_EQ(lengthOf("%-*.*s%.*s", 9, 2, "abc", -1, "abc"), 10U + 2 + 3);
}

}  // namespace
