#include "fetch/CAproxyGate.h"

#include <algorithm>

#include "base/CAtrace.h"

CAProxyGate &proxyGate = *new CAProxyGate;

void CAProxyGate::close()
{
    const PMutexGuard guard(mutex_);
    if (closedSince_ == 0) {
        countedFrom_ = std::max<std::int64_t>(HTUptimeMillis(), 1);
        closedSince_ = countedFrom_;
        pause_ = kFirstPause;
        CATrace("Net......... the proxy cannot be reached, waiting for it.\n");
    }
}

void CAProxyGate::open()
{
    const PMutexGuard guard(mutex_);
    if (closedSince_ != 0) {
        const std::int64_t now = HTUptimeMillis();
        CATrace("Net......... the proxy can be reached again, after %d ms.\n",
                static_cast<int>(now - closedSince_));
        before_ += now - countedFrom_;
        closedSince_ = 0;
    }
}

std::int32_t CAProxyGate::nextPauseMillis()
{
    const std::int32_t pause = pause_;
    pause_ = std::min(2 * pause, kLongestPause);
    return pause;
}

std::int64_t CAProxyGate::closedMillis() const
{
    const PMutexGuard guard(mutex_);
    return before_ + (closedSince_ == 0 ? 0 : HTUptimeMillis() - countedFrom_);
}

std::int64_t CAProxyGate::awayMillis() const
{
    const std::int64_t since = closedSince_;
    return since == 0 ? 0 : HTUptimeMillis() - since;
}

void CAProxyGate::restart()
{
    const PMutexGuard guard(mutex_);
    before_ = 0;
    countedFrom_ = HTUptimeMillis();
    pause_ = kFirstPause;
}
