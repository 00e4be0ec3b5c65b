#include "base/CAsleepers.h"

void CASleepers::sleep(News seen, std::uint32_t milliseconds)
{
    const std::timespec end = PCondition::timeIn(milliseconds);
    const PMutexGuard guard(mutex_);
    ++sleeping_;
    while (calls_ == 0 && news_ == seen && woken_.waitUntil(mutex_, end)) {
    }
    // Whoever returns will look for work. So a call that was meant for another thread has reached
    // one as well, and that other thread has seen the news.
    calls_ -= calls_ > 0 ? 1 : 0;
    --sleeping_;
}

void CASleepers::wakeOne()
{
    ++news_;
    if (sleeping_ == 0) {
        return;
    }
    {
        const PMutexGuard guard(mutex_);
        if (calls_ >= sleeping_) {
            return;
        }
        ++calls_;
    }
    woken_.wakeOne();
}

void CASleepers::wakeAll()
{
    ++news_;
    {
        const PMutexGuard guard(mutex_);
        calls_ = sleeping_;
    }
    woken_.wakeAll();
}
