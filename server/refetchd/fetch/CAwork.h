// The worker threads and the two limits that pace them all together.
#pragma once

#include <atomic>
#include <cstdint>

#include "htthread.h"

// The record of one worker. The master thread makes, starts, stops and deletes it; the worker's own
// thread tells in it what it is doing. The flags are single words: each is written by one side and
// polled by the other once a second, and the default (sequentially consistent) order lets the
// master conclude from "not busy" that what the worker enqueued is in the queue.
class CAWorkerThread {
public:
    explicit CAWorkerThread(std::int32_t index) : index_(index) {}
    ~CAWorkerThread() = default;
    CAWorkerThread(const CAWorkerThread &) = delete;
    CAWorkerThread &operator=(const CAWorkerThread &) = delete;

    // Starts ClientThread for this record. Returns the thread's handle, 0 when none could be made
    // (the record then reports running and idle for ever).
    HTThreadHandle start();
    // Tells the worker to end after its current URL.
    void stop() { keepGoing_ = 0; }
    [[nodiscard]] std::int32_t shouldKeepGoing() const { return keepGoing_; }

    // The worker has left its loop. It does not touch its record afterwards.
    void notRunning() { running_ = 0; }
    [[nodiscard]] std::int32_t areYouRunning() const { return running_; }

    // Busy while the worker holds a URL.
    void makeBusy() { busy_ = 1; }
    void makeIdle() { busy_ = 0; }
    [[nodiscard]] std::int32_t areYouBusy() const { return busy_; }

    // URLs answered with status 200.
    void incrementSuccesses() { ++successes_; }
    [[nodiscard]] std::int32_t getSuccesses() const { return successes_; }

    // URLs that are done with, whatever came of them.
    void incrementFinished() { ++finished_; }
    [[nodiscard]] std::int32_t getFinished() const { return finished_; }

    // Waits until a worker that is not running any more is gone altogether; gives up the thread of
    // one that still runs. Each at most once, by the master thread; nothing for a thread never
    // made.
    void join() { JoinThread(thread_); }
    void abandon() { DetachThread(thread_); }

    // The request budget: at most `max` URLs are started between two renewals, below 1 any number.
    // 1 when one more may be started now (counted), else 0.
    [[nodiscard]] static std::int32_t mayISendRequest();
    // Gives back a start that mayISendRequest() has granted and that was not made.
    static void returnRequest();
    static std::int32_t resetCountPerSecond(std::int32_t max);

    // The connection limit (ac.maxConnections, below 1 none). 1 when a connection may be made
    // (counted), else 0; and 1 when one was given back, 0 when none was out.
    [[nodiscard]] static std::int32_t mayIHaveAConnection();
    static std::int32_t releaseAConnection();

private:
    // Guards the budget and CAConnection::connectionCount, so that neither limit is exceeded (but
    // that a right which is given back just behind a renewal counts once more). It lives until the
    // process ends, as a worker may.
    static PMutex *const mutex;
    static std::int32_t countPerSecond HT_GUARDED_BY(*mutex);     // granted since the renewal
    static std::int32_t maxCountPerSecond HT_GUARDED_BY(*mutex);  // the budget

    const std::int32_t index_;  // from 0; people see one more
    HTThreadHandle thread_ = 0;
    std::atomic<std::int32_t> keepGoing_ = 0;
    std::atomic<std::int32_t> running_ = 1;
    std::atomic<std::int32_t> busy_ = 0;
    std::atomic<std::int32_t> successes_ = 0;
    std::atomic<std::int32_t> finished_ = 0;
};

// ac.numClients worker records; null until the workers are started. The master thread clears each
// entry whose worker it deletes.
extern CAWorkerThread **workerThreads;

// Changes with the end of each run: what was taken before is not tried again in the next.
extern std::atomic<std::uint32_t> currentRun;

// Every wait of the agent's is a poll at this interval.
inline constexpr std::uint32_t kPollMilliseconds = 1000;

// The body of a worker's thread; `arg` is its index in `workerThreads`. Returns null.
void *ClientThread(void *arg);
