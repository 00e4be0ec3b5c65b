#include "fetch/CAproxyGate.h"

#include <algorithm>

#include "base/CAtrace.h"

CAProxyGate &proxyGate = *new CAProxyGate;

void CAProxyGate::close()
{
    const PMutexGuard guard(mutex_);
    if (state_ == State::Open) {
        pause_ = kFirstPause;
        CATrace("Net......... the proxy cannot be reached, waiting for it.\n");
    }
    if (state_ != State::Away) {
        since_ = HTUptimeMillis();
        countedFrom_ = since_;
        state_ = State::Away;
    }
}

void CAProxyGate::open()
{
    const PMutexGuard guard(mutex_);
    if (state_ != State::Open) {
        CATrace("Net......... the proxy can be reached again.\n");
        leaveAwayLocked(State::Open);
    }
}

void CAProxyGate::noteAnswer()
{
    if (isAway()) {
        const PMutexGuard guard(mutex_);
        leaveAwayLocked(state_ == State::Away ? State::Refusing : state_.load());
    }
}

void CAProxyGate::leaveAwayLocked(State next)
{
    if (state_ == State::Away) {
        before_ += HTUptimeMillis() - countedFrom_;
    }
    state_ = next;
}

std::int32_t CAProxyGate::nextPauseMillis()
{
    const std::int32_t pause = pause_;
    pause_ = std::min(2 * pause, kLongestPause);
    return pause;
}

std::int64_t CAProxyGate::awayMillisOfRun() const
{
    const PMutexGuard guard(mutex_);
    return before_ + (state_ == State::Away ? HTUptimeMillis() - countedFrom_ : 0);
}

std::int64_t CAProxyGate::awayMillis() const
{
    const PMutexGuard guard(mutex_);
    return state_ == State::Away ? HTUptimeMillis() - since_ : 0;
}

void CAProxyGate::restart()
{
    const PMutexGuard guard(mutex_);
    before_ = 0;
    countedFrom_ = HTUptimeMillis();
    pause_ = kFirstPause;
}
