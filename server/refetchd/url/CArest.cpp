#include "url/CArest.h"

#include <algorithm>

#include "url/CAURL.h"
#include "url/CAqueue.h"

CARestTable &restingHosts = *new CARestTable;

std::int64_t CARestTable::rest(std::string_view host, std::time_t now, std::int64_t seconds)
{
    const std::time_t until = now + std::clamp<std::int64_t>(seconds, 0, kLongestRest);
    const PMutexGuard guard(mutex_);
    const auto at = hosts_.try_emplace(std::string(host)).first;
    at->second.until = std::max(at->second.until, until);
    return at->second.until - now;
}

bool CARestTable::park(CAURL *url, std::time_t now)
{
    const PMutexGuard guard(mutex_);
    const auto at = hosts_.find(url->host());
    if (at == hosts_.end() || at->second.until <= now) {
        return false;
    }
    at->second.waiting.push_back(url);
    ++parked_;
    return true;
}

void CARestTable::release(std::time_t now, CAQueue *queue)
{
    std::deque<CAURL *> due;
    {
        const PMutexGuard guard(mutex_);
        for (auto at = hosts_.begin(); at != hosts_.end();) {
            if (at->second.until > now) {
                ++at;
                continue;
            }
            due.insert(due.end(), at->second.waiting.begin(), at->second.waiting.end());
            at = hosts_.erase(at);
        }
    }
    for (CAURL *const url : due) {
        queue->requeue(url);
        --parked_;  // only now, so that the URL is always counted here or in the queue
    }
}
