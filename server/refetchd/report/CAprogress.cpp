#include "report/CAprogress.h"

#include <algorithm>
#include <array>
#include <cstdio>

bool CAProgressClock::isDue(std::int32_t elapsed, std::int32_t interval)
{
    last_ = elapsed < last_ ? 0 : last_;  // a new run has begun
    if (interval < 1 || elapsed - last_ < interval) {
        return false;
    }
    last_ = elapsed;
    return true;
}

void CAFormatProgress(char *buffer, std::size_t size, const CAProgress &progress)
{
    std::array<char, 32> left{"no limit"};
    if (progress.maxRuntime > 0) {
        std::snprintf(left.data(), left.size(), "%d s left",
                      std::max(0, progress.maxRuntime - progress.elapsed));
    }
    std::array<char, 48> away{};
    if (progress.proxyAway >= 0) {
        std::snprintf(away.data(), away.size(), ", proxy away for %d s", progress.proxyAway);
    }
    std::array<char, 48> paused{};
    if (progress.paused >= 0) {
        std::snprintf(paused.data(), paused.size(), ", paused by maxload for %d s",
                      progress.paused);
    }
    std::snprintf(buffer, size,
                  "Progress.... %d done, %d succeeded, %d queued, %d busy, %.1f URLs/s, %s%s%s\n",
                  progress.done, progress.succeeded, progress.queued, progress.busy,
                  static_cast<double>(progress.done) / std::max(1, progress.elapsed), left.data(),
                  away.data(), paused.data());
}
