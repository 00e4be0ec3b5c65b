#include "fetch/CApace.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "base/CAtrace.h"
#include "config/CAargument.h"
#include "config/CAcfg.h"
#include "fetch/CArunNumber.h"
#include "htthread.h"

CALoadPause &loadPause = *new CALoadPause;

namespace {

// The settings with a fraction are in thousandths.
constexpr std::int64_t kOne = 1000;

// When the current run began. Written by the thread that watches the runs and read by the worker
// threads, which see a run's URLs only after its start because the queue has a lock.
std::atomic<std::int64_t> runBegan = 0;

// The load average of the last minute for each processor; below 0 when it is not known. The C
// library asks the kernel itself, so that this works in the service, which sees no /proc/loadavg.
double readLoad()
{
    double load = 0;
    if (getloadavg(&load, 1) != 1) {
        return -1;
    }
    return load / static_cast<double>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
}

}  // namespace

void CALoadPause::endRun()
{
    if (isPaused_) {
        CATrace("Load........ the pause ends with the run.\n");
    }
    isPaused_ = false;
    pauses_ = 0;
    before_ = 0;
}

void CALoadPause::look(double load, std::int64_t now)
{
    const double limit = static_cast<double>(ac.maxLoad) / kOne;
    if (load < 0 && !std::exchange(saidUnknown_, true)) {
        CATrace("Load........ is not known: maxload does not apply.\n");
    }
    if (!isPaused_ && load > limit) {
        isPaused_ = true;
        since_ = now;
        ++pauses_;
        CATrace("Load........ is %.2f for each processor, above %s: no request starts.\n", load,
                CADecimalText(ac.maxLoad).c_str());
    } else if (isPaused_ && 10 * load <= 9 * limit) {
        before_ += now - since_;
        isPaused_ = false;
        if (load >= 0) {
            CATrace("Load........ is %.2f for each processor: requests start again.\n", load);
        }
    }
}

std::int64_t CALoadPause::millis(std::int64_t now) const
{
    return isPaused_ ? now - since_ : 0;
}

std::int64_t CALoadPause::millisOfRun(std::int64_t now) const
{
    return before_ + millis(now);
}

void CABeginPace(std::int64_t now)
{
    runBegan = now;
    CAWatchLoad();
}

void CAWatchLoad()
{
    if (ac.maxLoad > 0) {
        loadPause.look(readLoad(), HTUptimeMillis());
    }
}

namespace {

// Client 0 starts at once, the last one after `slowstart` seconds.
std::int64_t startOf(std::int32_t index)
{
    const std::int64_t others = std::max(ac.numClients - 1, 1);
    return std::max(ac.slowStart, 0) * kOne * index / others;
}

}  // namespace

CAClientPace::CAClientPace(std::int32_t index) : index_(index), startsAfter_(startOf(index)) {}

void CAClientPace::noteAnswer(std::int64_t milliseconds, std::uint32_t run, std::int64_t now)
{
    constexpr std::int64_t kLongest = 10000;
    if (ac.delayFactor > 0) {
        notBefore_ = now + std::min(milliseconds * ac.delayFactor / kOne, kLongest);
        answeredIn_ = run;
    }
}

std::int64_t CAClientPace::millisToWait(std::int64_t now)
{
    constexpr std::int64_t kLookAgain = 250;
    const std::int64_t began = runBegan;
    const std::int64_t start = began + startsAfter_;
    const std::int64_t answered = answeredIn_ == currentRun ? notBefore_ : 0;
    const std::int64_t paused = loadPause.isPaused() ? now + kLookAgain : 0;
    const std::int64_t next = std::max({start, answered, paused});
    if (next > now) {
        return next - now;
    }
    if (startsAfter_ > 0 && std::exchange(begun_, began) != began) {
        CATrace("Slow start.. client thread #%d begins.\n", index_ + 1);
    }
    return 0;
}

std::unique_ptr<CAClientPace> CANewClientPace(std::int32_t index)
{
    const bool isPaced = ac.maxLoad > 0 || ac.delayFactor > 0 || ac.slowStart > 0;
    return isPaced ? std::make_unique<CAClientPace>(index) : nullptr;
}
