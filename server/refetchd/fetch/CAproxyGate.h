// Whether the proxy can be reached. With `retries`, no URL is lost while it cannot: the worker
// threads wait at this gate until it can, or until their run ends.
#pragma once

#include <atomic>
#include <cstdint>

#include "htthread.h"

// The gate is open at first. A worker thread that cannot connect closes it. Then one of those that
// wait tries to connect again and again, after longer and longer pauses, and opens the gate when it
// succeeds. Any thread may call.
class CAProxyGate {
public:
    // The proxy cannot be reached (traced once), or can be (traced).
    void close();
    void open();
    [[nodiscard]] bool isOpen() const { return closedSince_ == 0; }

    // True for one caller at a time, until that calls endProbe(): it is the one who tries.
    [[nodiscard]] bool beginProbe() { return !isProbed_.exchange(true); }
    void endProbe() { isProbed_ = false; }
    // The pause before the next try: 0.1 s, and twice as much each time up to 10 s; 0.1 s again
    // once the gate was open.
    [[nodiscard]] std::int32_t nextPauseMillis();

    // For how long the gate has been closed in this run, the present time included; and for how
    // long in one piece up to now.
    [[nodiscard]] std::int64_t closedMillis() const;
    [[nodiscard]] std::int64_t awayMillis() const;
    // A new run begins.
    void restart();

private:
    static constexpr std::int32_t kFirstPause = 100;
    static constexpr std::int32_t kLongestPause = 10000;

    mutable PMutex mutex_;                       // for changes, and for what belongs together
    std::atomic<std::int64_t> closedSince_ = 0;  // HTUptimeMillis(); 0: open
    std::int64_t countedFrom_ HT_GUARDED_BY(mutex_) = 0;  // the part of it in this run
    std::int64_t before_ HT_GUARDED_BY(mutex_) = 0;       // earlier pieces of this run
    std::atomic<std::int32_t> pause_ = kFirstPause;
    std::atomic<bool> isProbed_ = false;
};

// The process's gate. Never deleted: a worker thread that is left behind at the end may use it.
extern CAProxyGate &proxyGate;
