#include "HTMemory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

TEST(HTPool, ScopeGivesBackTooMuchOrTooLittle)
{
    HTPool pool;
    char *const outside = pool.copy("outside");
    const std::size_t before = pool.held();
    for (int round = 0; round < 2; ++round) {
        const HTPoolScope scope(&pool);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(pool.alloc(1)) % alignof(std::max_align_t), 0U);
        char *const large = static_cast<char *>(pool.alloc(100'000));
        std::memset(large, round, 100'000);
        {
            const HTPoolScope inner(&pool);
            std::memset(pool.alloc(50'000), 7, 50'000);
        }
        EXPECT_EQ(large[99'999], round);
    }
    EXPECT_EQ(pool.held(), before);
    EXPECT_STREQ(outside, "outside");
}

}  // namespace
