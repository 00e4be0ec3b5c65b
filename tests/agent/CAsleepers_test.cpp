#include "base/CAsleepers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

constexpr std::uint32_t kLong = 60000;

// Each sleep that misses its news lasts a minute.
TEST(CASleepers, MissNewsOrAreCalledForNothing)
{
    constexpr int kPieces = 20000;
    CASleepers sleepers;
    std::atomic<int> offered = 0;
    std::atomic<int> taken = 0;
    const auto work = [&] {
        while (taken < kPieces) {
            const CASleepers::News seen = sleepers.news();
            int left = offered;
            if (left > 0 && offered.compare_exchange_strong(left, left - 1)) {
                if (++taken == kPieces) {
                    sleepers.wakeAll();
                }
            } else if (left == 0 && taken < kPieces) {
                sleepers.sleep(seen, kLong);
            }
        }
    };
    const std::int64_t begin = HTUptimeMillis();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(work);
    }
    for (int i = 0; i < kPieces; ++i) {
        ++offered;
        sleepers.wakeOne();
        if (i % 64 == 0) {
            std::this_thread::yield();
        }
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_LT(HTUptimeMillis() - begin, kLong / 2);
    EXPECT_EQ(taken, kPieces);
}

TEST(CASleepers, WakeWithoutNewsOrStayForOldNews)
{
    CASleepers sleepers;
    const CASleepers::News seen = sleepers.news();
    const std::int64_t begin = HTUptimeMillis();
    sleepers.sleep(seen, 20);
    EXPECT_GE(HTUptimeMillis() - begin, 19);
    sleepers.wakeOne();
    sleepers.sleep(seen, kLong);
    EXPECT_LT(HTUptimeMillis() - begin, kLong / 2);
}

}  // namespace
