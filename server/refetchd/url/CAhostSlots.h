// How many requests each host gets at a time, for `hostconnections` and `latencylimit`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "HTSipHash.h"

class CAURL;

struct CAHostLimits {
    std::int32_t connections = 0;    // most requests at a time; below 1: no limit
    std::int32_t clients = 0;        // worker threads, so that no host can have more requests
    std::int64_t latencyMillis = 0;  // for the median of a host's answers; below 1: none
};

// Gives each host slots for requests, and keeps the URLs that wait for one, first come, first
// served. A host that answers too slowly loses slots, one at a time, down to one, and gets them
// back when it is fast again. No lock: CAQueue uses it under its own.
class CAHostSlots {
public:
    // What is known of a host; valid as long as somebody has a slot of it.
    struct Host {
        std::string_view name;            // of the entry
        std::int32_t slots = 0;           // given out at a time
        std::int32_t taken = 0;           // by requests, and by URLs that are called
        std::int32_t peak = 0;            // the most that were taken since `slots` changed
        std::list<CAURL *> waiting;       // for a slot
        std::vector<std::int64_t> times;  // milliseconds of the latest answers, a ring
        std::size_t answers = 0;          // since `slots` changed
    };

    // What answered() has changed.
    struct Change {
        std::string host;
        std::int64_t median = 0;  // milliseconds
        std::size_t answers = 0;  // of which it is the median
        std::int32_t slots = 0;   // that the host has from now on; 0: nothing has changed
        bool isLoss = false;
    };

    // Starts giving out slots; before this there are no limits.
    void limit(const CAHostLimits &limits);

    // Takes a slot of `host`; null when none is free.
    [[nodiscard]] Host *enter(std::string_view host);
    // Gives a slot back; a URL that waits for it is called.
    void leave(Host *host);
    // Lets `url` wait for a slot of its host, behind those that wait already.
    void hold(CAURL *url);
    // The URL that was called first, which enters its host, with its slot; null when there is none.
    [[nodiscard]] CAURL *takeCalled(Host **slot);
    // Any URL that waits or is called, without a slot; null when there is none. To be called until
    // then.
    [[nodiscard]] CAURL *drain();

    // Notes how long an answer of the host took, and adapts its number of slots.
    Change answered(Host *host, std::int64_t milliseconds);

    // Forgets the hosts without requests, and how fast they were. To be called when nothing waits.
    void forget();

private:
    // So many answers are looked at; a host is judged by no fewer than kLeast since its last
    // change.
    static constexpr std::size_t kAnswers = 50;
    static constexpr std::size_t kLeast = 10;

    [[nodiscard]] std::int32_t mostSlots() const;
    [[nodiscard]] Host *find(std::string_view name);
    void call(Host *host);
    void drainWaiting();
    [[nodiscard]] static std::int64_t median(const std::vector<std::int64_t> &times);
    Change judge(Host *host);

    CAHostLimits limits_;
    std::unordered_map<std::string, Host, HTKeyedHasher, std::equal_to<>> hosts_;
    std::deque<CAURL *> called_;   // a slot is kept for each
    std::deque<CAURL *> drained_;  // on their way out
    std::size_t waiting_ = 0;      // for a slot, of all hosts
};
