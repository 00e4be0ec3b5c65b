// Threads that sleep until there is something for them to do, or their time is over.
#pragma once

#include <atomic>
#include <cstdint>

#include "htthread.h"

// Whoever brings news wakes one sleeper or all of them. A thread that is about to sleep reads
// news() first, looks for something to do, and passes to sleep() what it read: so no news is
// missed. While nobody sleeps, news takes neither a lock nor a system call. Any thread may call.
class CASleepers {
public:
    using News = std::uint32_t;

    // Changes with each call of wakeOne() and wakeAll().
    [[nodiscard]] News news() const { return news_; }
    // Returns when the thread is woken, after so many milliseconds, or at once if there was news
    // since `seen`.
    void sleep(News seen, std::uint32_t milliseconds);
    // Each call wakes another one of those that sleep.
    void wakeOne();
    void wakeAll();

private:
    PMutex mutex_;
    PCondition woken_;
    std::uint32_t calls_ HT_GUARDED_BY(mutex_) = 0;  // for sleepers that have not returned yet
    // These two in the default (sequentially consistent) order: either the thread that brings news
    // sees the sleeper, or the sleeper sees the news.
    std::atomic<News> news_ = 0;
    std::atomic<std::uint32_t> sleeping_ = 0;  // changed under the lock
};
