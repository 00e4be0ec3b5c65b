// Hosts that asked for a pause ("Retry-After:"). While such a host rests, the worker threads park
// its URLs here instead of requesting them.
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

// Any thread may call, except release(). Times are those of HTUptime(). URLs that wait belong to
// the table.
class CARestTable {
public:
    // Lets `host` rest for `seconds` (0 to 3600, other values are limited to that) from `now`. A
    // rest that ends later stays as it is. Returns the seconds from `now` to the end of the rest.
    std::int64_t rest(std::string_view host, std::time_t now, std::int64_t seconds);
    // Takes over `url` if its host rests at the time `now`; false if not.
    bool park(CAURL *url, std::time_t now);
    // Requeues the URLs whose hosts' rests have ended by `now`; kForEver: all. Master thread.
    void release(std::time_t now, CAQueue *queue);

    static constexpr std::time_t kForEver = std::numeric_limits<std::time_t>::max();

    // Number of URLs that wait.
    [[nodiscard]] std::int32_t parked() const { return parked_; }

private:
    struct Host {
        std::time_t until = 0;
        std::deque<CAURL *> waiting;
    };

    static constexpr std::int64_t kLongestRest = 3600;

    PMutex mutex_;
    std::map<std::string, Host, std::less<>> hosts_ HT_GUARDED_BY(mutex_);
    std::atomic<std::int32_t> parked_ = 0;  // increased under the lock, decreased without it
};

// The process's table. Never deleted: a worker thread that is left behind at the end may use it.
extern CARestTable &restingHosts;
