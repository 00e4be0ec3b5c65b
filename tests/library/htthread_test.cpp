#include "htthread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <csignal>

namespace {

TEST(htthread, MillisOverflowOrMissTheWrap)
{
    EXPECT_EQ(HTMillisOf(4'290'000, 5'000), 5U);
    EXPECT_EQ(HTMillisOf(4'289'999, 999'999), 4'289'999'999U);
}

// Leaves the size of its stack in `*arg`, or 0 when one of the blocked signals cut a sleep short.
void *sleepThroughSignals(void *arg)
{
    HTBlockSignals();
    pthread_kill(pthread_self(), SIGALRM);
    pthread_kill(pthread_self(), SIGPIPE);
    auto *const size = static_cast<std::size_t *>(arg);
    const std::uint32_t start = getmillicount();
    if (millisleep(0) == 0 && HTSleep(20) == 0 && getmillicount() - start >= 19) {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, size);
        pthread_attr_destroy(&attributes);
    }
    return nullptr;
}

TEST(htthread, SignalIsNotBlockedOrSmallStackIsLarge)
{
    std::size_t size = 0;
    EXPECT_EQ(JoinThread(lmc_StartThread(sleepThroughSignals, &size)), 0);
    EXPECT_GE(size, 0x40000U);
    EXPECT_LE(size, 4 * 0x40000U);  // sanitizers add some of their own
    EXPECT_EQ(JoinThread(0), ESRCH);
    pmutex_destroy(0);
}

}  // namespace
