// Threads, mutexes, sleeps and clocks: a thin layer over POSIX threads with integer handles, and
// the guard through which all other code takes a lock. Every function may be called from any
// thread.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <ctime>

#include "HTAttributes.h"

// Handles are as wide as a pointer; 0 means none.
using pmutex = std::uintptr_t;
using HTThreadHandle = std::uintptr_t;
using HTThreadRoutine = void *(*)(void *);

// Starts `routine(arg)` on a new joinable thread. Returns its handle, or 0 (traced when the
// library's thread trace is on) when no thread could be made. Pass every handle once to
// JoinThread() or DetachThread(); otherwise the thread's resources stay allocated until the process
// ends.
[[nodiscard]] HTThreadHandle StartThread(HTThreadRoutine routine, void *arg);
// The same on a stack of 256 KiB.
[[nodiscard]] HTThreadHandle lmc_StartThread(HTThreadRoutine routine, void *arg);

// The text of an error number; never null, not to be freed.
const char *HTStrerror(int error);

// Waits for the thread's end. 0, or an error number. A handle of 0 gives ESRCH.
int JoinThread(HTThreadHandle thread);
// Lets the system free the thread's resources as soon as it ends. 0, or an error number.
int DetachThread(HTThreadHandle thread);

// The calling thread.
HTThreadHandle OsThreadMyself();

// A new mutex of the adaptive kind (locking it twice from one thread deadlocks); 0 when memory is
// out, and the caller then runs without a lock.
[[nodiscard]] pmutex pmutex_create();
// Frees the mutex; 0 does nothing. One that is still locked is left as it is.
void pmutex_destroy(pmutex handle);
// Lock and unlock; 0, or an error number. `handle` must not be 0.
int pmutex_request(pmutex handle);
int pmutex_release(pmutex handle);

// Sleeps the calling thread for `ms` milliseconds (both functions are the same); 0 returns at once.
// Returns 0, or -1 with errno set: a signal ends the sleep early (EINTR) and the rest is not slept.
int millisleep(std::uint32_t ms);
int HTSleep(std::uint32_t ms);

// Seconds since the epoch (both functions are the same).
std::time_t getsecondcount();
std::time_t HTtime();

// The time since the system was started, in whole seconds and in milliseconds; the time that it
// slept counts. For all durations: changes of the wall clock do not touch it.
std::time_t HTUptime();
std::int64_t HTUptimeMillis();

// Milliseconds that wrap about every 49.6 days: (seconds mod 4,290,000) * 1000 + milliseconds.
std::uint32_t getmillicount();

// Blocks SIGPIPE and SIGALRM for the calling thread, so that writing to a peer that has closed the
// connection fails instead of ending the process. Every thread calls this when it starts.
void HTBlockSignals();

// Owns one mutex, or none: every operation on a PMutex without a mutex does nothing.
class HT_CAPABILITY("mutex") PMutex {
public:
    PMutex() : handle_(pmutex_create()) {}
    // Takes `handle` over; 0 means no locking.
    explicit PMutex(pmutex handle) : handle_(handle) {}
    ~PMutex() { pmutex_destroy(handle_); }
    PMutex(const PMutex &) = delete;
    PMutex &operator=(const PMutex &) = delete;

    void lock() HT_ACQUIRE()
    {
        if (handle_ != 0) {
            pmutex_request(handle_);
        }
    }
    void unlock() HT_RELEASE()
    {
        if (handle_ != 0) {
            pmutex_release(handle_);
        }
    }

private:
    friend class PCondition;

    const pmutex handle_;
};

// Lets threads wait for a change of what a PMutex guards.
class PCondition {
public:
    PCondition();
    ~PCondition();
    PCondition(const PCondition &) = delete;
    PCondition &operator=(const PCondition &) = delete;

    // The time in so many milliseconds, for waitUntil().
    [[nodiscard]] static std::timespec timeIn(std::uint32_t ms);
    // Unlocks the mutex, waits to be woken, and locks it again. False when the time has come; true
    // otherwise, for which there need not be a reason. Without a mutex (memory was out) it sleeps.
    bool waitUntil(PMutex &mutex, const std::timespec &time) HT_REQUIRES(mutex);
    // Wakes one thread that waits, or all of them; the mutex need not be held.
    void wakeOne();
    void wakeAll();

private:
    pthread_cond_t condition_;
};

// Holds a PMutex from its construction to the end of its scope.
class HT_SCOPED_CAPABILITY PMutexGuard {
public:
    explicit PMutexGuard(PMutex &mutex) HT_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~PMutexGuard() HT_RELEASE() { mutex_.unlock(); }
    PMutexGuard(const PMutexGuard &) = delete;
    PMutexGuard &operator=(const PMutexGuard &) = delete;

private:
    PMutex &mutex_;
};
