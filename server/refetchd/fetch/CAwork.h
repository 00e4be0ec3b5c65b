// The worker threads, and the limits on requests and connections of all of them together. Traces,
// settings (`numclients`) and some code call a worker thread a client.
#pragma once

#include <atomic>
#include <cstdint>

#include "fetch/CArunNumber.h"
#include "htthread.h"

class CAURL;

// The record of one worker thread. The main thread makes and starts it, the master thread stops and
// deletes it, and the worker thread shows in it what it is doing. Each flag is written by one side
// and polled by the other. They are atomics in the default (sequentially consistent) order, so when
// the master thread sees "not busy", the URLs that the worker enqueued are in the queue.
class CAWorkerThread {
public:
    explicit CAWorkerThread(std::int32_t index) : index_(index) {}
    ~CAWorkerThread() = default;
    CAWorkerThread(const CAWorkerThread &) = delete;
    CAWorkerThread &operator=(const CAWorkerThread &) = delete;

    // Starts ClientThread for this record. Returns the thread's handle, or 0 when no thread could
    // be created; the record then shows a running, idle worker for ever.
    HTThreadHandle start();
    // Asks the worker thread to end; an exchange that is in progress is finished first.
    void stop() { keepGoing_ = 0; }
    [[nodiscard]] std::int32_t shouldKeepGoing() const { return keepGoing_; }

    // The worker thread has left its loop, and does not touch its record any more.
    void notRunning();
    [[nodiscard]] std::int32_t areYouRunning() const { return running_; }

    // Busy while the worker thread holds a URL.
    void makeBusy();
    void makeIdle();
    [[nodiscard]] std::int32_t areYouBusy() const { return busy_; }
    // True while any worker thread is busy, or has not left its loop.
    [[nodiscard]] static bool isAnyBusy() { return busyWorkers > 0; }
    [[nodiscard]] static bool isAnyRunning() { return runningWorkers > 0; }

    // URLs answered with status 200.
    void incrementSuccesses() { ++successes_; }
    [[nodiscard]] std::int32_t getSuccesses() const { return successes_; }

    // URLs whose last exchange has ended (of the first variant, if there are several), with or
    // without success; not those that were given up.
    void incrementFinished() { ++finished_; }
    [[nodiscard]] std::int32_t getFinished() const { return finished_; }

    // join() waits for the end of a thread that is no longer running, abandon() detaches one that
    // still is. The master thread calls one of them, once. Neither does anything when no thread
    // could be created.
    void join() { JoinThread(thread_); }
    void abandon() { DetachThread(thread_); }

    // The request budget: at most `max` requests between two calls of resetCountPerSecond(), any
    // number when `max` is below 1.
    // Takes one request from the budget: 1, or 0 when it is used up. Any thread may call this and
    // the functions below.
    [[nodiscard]] static std::int32_t mayISendRequest();
    // Gives back a request that mayISendRequest() granted and that was not sent.
    static void returnRequest();
    // Starts a new second, with `max` as its budget. Returns 1.
    static std::int32_t resetCountPerSecond(std::int32_t max);

    // The limit on connections to the proxy (ac.maxConnections; below 1 there is none, and nothing
    // is counted). Connections that are made for a single URL are not limited.
    // 1 when a connection may be made (counted), else 0.
    [[nodiscard]] static std::int32_t mayIHaveAConnection();
    // 1 when a connection was given back or there is no limit, 0 when none was granted.
    static std::int32_t releaseAConnection();

private:
    // Guards the budget and CAConnection::connectionCount, so that neither limit is exceeded. One
    // exception: a request granted before a reset and given back after it can be granted again in
    // the new second. Never deleted, because a worker thread may outlive the last run.
    static PMutex *const mutex;
    static std::int32_t countPerSecond HT_GUARDED_BY(*mutex);     // granted since the reset
    static std::int32_t maxCountPerSecond HT_GUARDED_BY(*mutex);  // the budget

    // How many threads are busy, or were started and have not left their loops.
    static std::atomic<std::int32_t> busyWorkers;
    static std::atomic<std::int32_t> runningWorkers;

    const std::int32_t index_;  // from 0; traces show one more
    HTThreadHandle thread_ = 0;
    std::atomic<std::int32_t> keepGoing_ = 0;
    std::atomic<std::int32_t> running_ = 1;
    std::atomic<std::int32_t> busy_ = 0;
    std::atomic<std::int32_t> successes_ = 0;
    std::atomic<std::int32_t> finished_ = 0;
};

// ac.numClients worker records; null until the worker threads are started. The master thread sets
// the entry of each worker that it deletes to null.
extern CAWorkerThread **workerThreads;

// Interval of all polling, except for a shorter one with `breadthfirst` (CAwork.cpp).
inline constexpr std::uint32_t kPollMilliseconds = 1000;

// Reports a URL, in all variants that are left, as failed because the proxy cannot be reached. Any
// thread that owns the URL.
void CATellUnreached(CAURL *url);

// The body of a worker thread; `arg` is its index in `workerThreads`. Returns null.
void *ClientThread(void *arg);
