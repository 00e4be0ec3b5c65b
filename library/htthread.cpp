#include "htthread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/time.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "tfprintf.h"

namespace {

constexpr std::size_t kSmallStack = 0x40000;
constexpr int kAdaptiveKind = PTHREAD_MUTEX_ADAPTIVE_NP;  // kind 3: spins briefly, not recursive

pthread_attr_t initializedAttributes()
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    return attributes;
}

HTThreadHandle create(const pthread_attr_t *attributes, HTThreadRoutine routine, void *arg)
{
    pthread_t thread = 0;
    const int rc = pthread_create(&thread, attributes, routine, arg);
    if (rc != 0) {
        if (HTTrace_on(kTraceThread)) {
            tfprintf(stderr, "pthread_create failed. rc=%d %s\n", rc, HTStrerror(rc));
        }
        return 0;
    }
    return thread;
}

// Spins for `moments` times about ten nanoseconds, leaving the core to its other hardware thread.
void relax(int moments)
{
    for (int i = 0; i < moments; ++i) {
#if defined(__x86_64__)
        __builtin_ia32_pause();
#elif defined(__aarch64__)
        asm volatile("yield");
#endif
    }
}

pthread_mutex_t *mutexOf(pmutex handle)
{
    return reinterpret_cast<pthread_mutex_t *>(handle);
}

}  // namespace

HTThreadHandle StartThread(HTThreadRoutine routine, void *arg)
{
    static const pthread_attr_t attributes = initializedAttributes();
    return create(&attributes, routine, arg);
}

HTThreadHandle lmc_StartThread(HTThreadRoutine routine, void *arg)
{
    pthread_attr_t attributes = initializedAttributes();
    if (pthread_attr_setstacksize(&attributes, kSmallStack) != 0 && HTTrace_on(kTraceThread)) {
        tfprintf(stderr, "pthread_setstacksize failed?\n");
    }
    const HTThreadHandle thread = create(&attributes, routine, arg);
    pthread_attr_destroy(&attributes);
    return thread;
}

const char *HTStrerror(int error)
{
    const char *const text = strerrordesc_np(error);
    return text == nullptr ? "unknown error" : text;
}

int JoinThread(HTThreadHandle thread)
{
    return thread == 0 ? ESRCH : pthread_join(thread, nullptr);
}

int DetachThread(HTThreadHandle thread)
{
    return thread == 0 ? ESRCH : pthread_detach(thread);
}

HTThreadHandle OsThreadMyself()
{
    return pthread_self();
}

pmutex pmutex_create()
{
    auto *const mutex = static_cast<pthread_mutex_t *>(std::calloc(1, sizeof(pthread_mutex_t)));
    if (mutex == nullptr) {
        return 0;
    }
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, kAdaptiveKind);
    pthread_mutex_init(mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return reinterpret_cast<pmutex>(mutex);
}

void pmutex_destroy(pmutex handle)
{
    if (handle != 0 && pthread_mutex_destroy(mutexOf(handle)) == 0) {
        std::free(mutexOf(handle));
    }
}

int pmutex_request(pmutex handle)
{
    // A thread that finds the mutex taken pauses, longer each time, and then yields. Trying without
    // a pause would slow down the holder, which often takes the mutex again before another thread
    // gets to run.
    constexpr int kTries = 20;
    constexpr int kPauses = 4;  // tries that are followed by a pause, the first by 64 moments
    for (int tries = 0; tries < kTries; ++tries) {
        const int rc = pthread_mutex_trylock(mutexOf(handle));
        if (rc != EBUSY) {
            return rc;
        }
        if (tries < kPauses) {
            relax(64 << tries);
        } else {
            sched_yield();
        }
    }
    return pthread_mutex_lock(mutexOf(handle));
}

int pmutex_release(pmutex handle)
{
    return pthread_mutex_unlock(mutexOf(handle));
}

PCondition::PCondition() : condition_{}
{
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition_, &attributes);
    pthread_condattr_destroy(&attributes);
}

PCondition::~PCondition()
{
    pthread_cond_destroy(&condition_);
}

timespec PCondition::timeIn(std::uint32_t ms)
{
    constexpr long kSecond = 1'000'000'000;
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    const long nanoseconds = time.tv_nsec + (ms % 1000) * 1'000'000L;
    time.tv_sec += ms / 1000 + nanoseconds / kSecond;
    time.tv_nsec = nanoseconds % kSecond;
    return time;
}

bool PCondition::waitUntil(PMutex &mutex, const timespec &time)
{
    if (mutex.handle_ == 0) {
        return clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR;
    }
    return pthread_cond_timedwait(&condition_, mutexOf(mutex.handle_), &time) != ETIMEDOUT;
}

void PCondition::wakeOne()
{
    pthread_cond_signal(&condition_);
}

void PCondition::wakeAll()
{
    pthread_cond_broadcast(&condition_);
}

int millisleep(std::uint32_t ms)
{
    const timespec duration = {.tv_sec = ms / 1000, .tv_nsec = (ms % 1000) * 1'000'000L};
    return nanosleep(&duration, nullptr);
}

int HTSleep(std::uint32_t ms)
{
    return millisleep(ms);
}

std::time_t getsecondcount()
{
    return std::time(nullptr);
}

std::time_t HTtime()
{
    return std::time(nullptr);
}

std::time_t HTUptime()
{
    return HTUptimeMillis() / 1000;
}

std::int64_t HTUptimeMillis()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

std::uint32_t getmillicount()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<std::uint32_t>(now.tv_sec % 4'290'000) * 1000 +
           static_cast<std::uint32_t>(now.tv_usec) / 1000;
}

void HTBlockSignals()
{
    for (const int number : {SIGPIPE, SIGALRM}) {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, number);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
    }
}
