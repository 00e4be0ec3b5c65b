// Hosts that asked to be left alone for a while ("Retry-After:"), and their URLs that wait for it.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <deque>
#include <limits>
#include <map>
#include <string>
#include <string_view>

#include "htthread.h"

class CAQueue;
class CAURL;

// Any thread may call. Times are those of HTtime(). The URLs that wait belong to the table.
class CARestTable {
public:
    // Leaves `host` alone for `seconds` from `now`, an hour at most, or longer when that was said
    // before. Returns for how long.
    std::int64_t rest(std::string_view host, std::time_t now, std::int64_t seconds);
    // Takes `url` over when its host rests at the time `now`; false otherwise.
    bool park(CAURL *url, std::time_t now);
    // Enqueues again what waits for no longer than `now`; kForEver: all. The master thread.
    void release(std::time_t now, CAQueue *queue);

    static constexpr std::time_t kForEver = std::numeric_limits<std::time_t>::max();

    // URLs that wait.
    [[nodiscard]] std::int32_t parked() const { return parked_; }

private:
    struct Host {
        std::time_t until = 0;
        std::deque<CAURL *> waiting;
    };

    static constexpr std::int64_t kLongestRest = 3600;

    PMutex mutex_;
    std::map<std::string, Host, std::less<>> hosts_ HT_GUARDED_BY(mutex_);
    std::atomic<std::int32_t> parked_ = 0;  // grows under the lock
};

// The process's table. It is never deleted, because a worker thread that is left behind may use it.
extern CARestTable &restingHosts;
