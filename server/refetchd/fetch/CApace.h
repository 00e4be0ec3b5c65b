// What holds back the next request of a client besides the budget of requests: the load of the
// machine (`maxload`), the time that the client's last answer took (`delayfactor`), and the gradual
// start of a run (`slowstart`). All times are those of HTUptimeMillis().
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

// While the machine is busier than `maxload` allows, no request starts. A pause begins when the
// load of the last minute for each processor is above the limit, and ends when it is no more than
// nine tenths of it. isPaused() is for any thread, all else for the thread that watches the runs.
class CALoadPause {
public:
    // The run is over: its pause ends, and the next run counts its own.
    void endRun();
    // Begins or ends a pause (traced). `load` is that for each processor; below 0: it is not known
    // (traced once), which ends a pause.
    void look(double load, std::int64_t now);
    [[nodiscard]] bool isPaused() const { return isPaused_; }

    // How many pauses have begun in this run, how long all of them have lasted, and how long the
    // current one has (0 without one).
    [[nodiscard]] std::int32_t pauses() const { return pauses_; }
    [[nodiscard]] std::int64_t millisOfRun(std::int64_t now) const;
    [[nodiscard]] std::int64_t millis(std::int64_t now) const;

private:
    std::atomic<bool> isPaused_ = false;  // by itself: nothing else is read because of it
    std::int32_t pauses_ = 0;
    std::int64_t since_ = 0;   // when the current pause began
    std::int64_t before_ = 0;  // the time of the earlier pauses
    bool saidUnknown_ = false;
};

// The process's pause. Never deleted: a worker thread that is left behind at the end may ask it.
extern CALoadPause &loadPause;

// A new run begins now, for `slowstart` and `maxload`; looks at the load at once. To be called
// before the worker threads find a URL of that run. The thread that watches the runs.
void CABeginPace(std::int64_t now);
// Looks at the load of the machine if `maxload` is set. The same thread, again and again in a run.
void CAWatchLoad();

// What holds back one client. For its worker thread only.
class CAClientPace {
public:
    // For client `index`, from 0, of ac.numClients.
    explicit CAClientPace(std::int32_t index);

    // An exchange of run `run` has just ended, with or without success, after so many milliseconds.
    void noteAnswer(std::int64_t milliseconds, std::uint32_t run, std::int64_t now);
    // The milliseconds until the next request may start, as far as is known now; 0: it may start,
    // and if it is the first one of the run, the client begins (traced with `slowstart`, except for
    // the first client).
    [[nodiscard]] std::int64_t millisToWait(std::int64_t now);

private:
    const std::int32_t index_;
    const std::int64_t startsAfter_;  // milliseconds after the start of each run
    std::int64_t begun_ = -1;         // the start of the run that the client has begun last
    std::int64_t notBefore_ = 0;      // the pause after the last answer ends then,
    std::uint32_t answeredIn_ = 0;    // or with this run
};

// Null when none of the three directives is set: nothing holds the client back then.
[[nodiscard]] std::unique_ptr<CAClientPace> CANewClientPace(std::int32_t index);
