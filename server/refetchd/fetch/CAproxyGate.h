// Whether the proxy can be reached. With `retries`, no URL is lost while it cannot: the worker
// threads put theirs back into the queue and wait at this gate.
#pragma once

#include <atomic>
#include <cstdint>

#include "htthread.h"

// The gate is open at first. A worker thread that cannot connect closes it. Then one of those that
// wait tries to connect again and again, after longer and longer pauses, and opens the gate when it
// succeeds. Worker threads that still have a connection go on meanwhile: a proxy that only refuses
// further connections is not away. Any thread may call.
class CAProxyGate {
public:
    // A connection could not be made (traced once), or could be (traced).
    void close();
    void open();
    [[nodiscard]] bool isOpen() const { return state_ == State::Open; }
    // The proxy has answered on another connection while the gate is closed.
    void noteAnswer();
    // True when nothing has been answered since the gate was closed.
    [[nodiscard]] bool isAway() const { return state_ == State::Away; }

    // True for one caller at a time, until that calls endProbe(): it is the one who tries.
    [[nodiscard]] bool beginProbe() { return !isProbed_.exchange(true); }
    void endProbe() { isProbed_ = false; }
    // The pause before the next try: 0.1 s, and twice as much each time up to 10 s; 0.1 s again
    // once the gate was open.
    [[nodiscard]] std::int32_t nextPauseMillis();

    // For how long the proxy has been away in this run; and in one piece up to now.
    [[nodiscard]] std::int64_t awayMillisOfRun() const;
    [[nodiscard]] std::int64_t awayMillis() const;
    // A new run begins.
    void restart();

private:
    enum class State : std::uint8_t {
        Open,
        Away,
        Refusing,  // no further connections, but answers on others
    };
    static constexpr std::int32_t kFirstPause = 100;
    static constexpr std::int32_t kLongestPause = 10000;

    void leaveAwayLocked(State next) HT_REQUIRES(mutex_);

    mutable PMutex mutex_;
    std::atomic<State> state_ = State::Open;              // changed under the lock
    std::int64_t since_ HT_GUARDED_BY(mutex_) = 0;        // Away: since when, by HTUptimeMillis()
    std::int64_t countedFrom_ HT_GUARDED_BY(mutex_) = 0;  // the part of it in this run
    std::int64_t before_ HT_GUARDED_BY(mutex_) = 0;       // earlier pieces of this run
    std::atomic<std::int32_t> pause_ = kFirstPause;
    std::atomic<bool> isProbed_ = false;
};

// The process's gate. Never deleted: a worker thread that is left behind at the end may use it.
extern CAProxyGate &proxyGate;
