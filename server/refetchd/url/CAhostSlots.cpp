#include "url/CAhostSlots.h"

#include <algorithm>
#include <array>

#include "url/CAURL.h"

void CAHostSlots::limit(const CAHostLimits &limits)
{
    limits_ = limits;
}

std::int32_t CAHostSlots::mostSlots() const
{
    const std::int32_t clients = std::max(limits_.clients, 1);
    return limits_.connections < 1 ? clients : std::min(limits_.connections, clients);
}

CAHostSlots::Host *CAHostSlots::find(std::string_view name)
{
    auto at = hosts_.find(name);
    if (at == hosts_.end()) {
        at = hosts_.try_emplace(std::string(name)).first;
        at->second.name = at->first;
        at->second.slots = mostSlots();
    }
    return &at->second;
}

CAHostSlots::Host *CAHostSlots::enter(std::string_view host)
{
    Host *const entry = find(host);
    if (entry->taken >= entry->slots) {
        return nullptr;
    }
    ++entry->taken;
    entry->peak = std::max(entry->peak, entry->taken);
    return entry;
}

void CAHostSlots::leave(Host *host)
{
    --host->taken;
    call(host);
    if (host->taken == 0 && limits_.latencyMillis < 1) {
        hosts_.erase(hosts_.find(host->name));  // nothing of it is worth knowing
    }
}

void CAHostSlots::hold(CAURL *url)
{
    find(url->host())->waiting.push_back(url);
    ++waiting_;
}

// Calls the URLs for which the host has free slots.
void CAHostSlots::call(Host *host)
{
    while (host->taken < host->slots && !host->waiting.empty()) {
        ++host->taken;
        host->peak = std::max(host->peak, host->taken);
        called_.push_back(host->waiting.front());
        host->waiting.pop_front();
        --waiting_;
    }
}

CAURL *CAHostSlots::takeCalled(Host **slot)
{
    if (called_.empty()) {
        return nullptr;
    }
    CAURL *const url = called_.front();
    called_.pop_front();
    *slot = find(url->host());
    return url;
}

CAURL *CAHostSlots::drain()
{
    if (drained_.empty()) {
        for (CAURL *const url : called_) {
            --find(url->host())->taken;
        }
        drained_.swap(called_);
        drainWaiting();
    }
    if (drained_.empty()) {
        return nullptr;
    }
    CAURL *const url = drained_.front();
    drained_.pop_front();
    return url;
}

// Does not look at the hosts when nothing waits: a caller empties the rest of a queue with it.
void CAHostSlots::drainWaiting()
{
    if (waiting_ == 0) {
        return;
    }
    for (auto &[name, host] : hosts_) {
        drained_.insert(drained_.end(), host.waiting.begin(), host.waiting.end());
        host.waiting.clear();
    }
    waiting_ = 0;
}

CAHostSlots::Change CAHostSlots::answered(Host *host, std::int64_t milliseconds)
{
    if (limits_.latencyMillis < 1) {
        return {};
    }
    if (host->times.size() < kAnswers) {
        host->times.push_back(milliseconds);
    } else {
        host->times[host->answers % kAnswers] = milliseconds;
    }
    ++host->answers;
    return host->answers < kLeast ? Change{} : judge(host);
}

// No heap memory is used, because the queue is locked meanwhile.
std::int64_t CAHostSlots::median(const std::vector<std::int64_t> &times)
{
    std::array<std::int64_t, kAnswers> copy{};
    auto *const end = std::copy(times.begin(), times.end(), copy.begin());
    auto *const middle = copy.begin() + times.size() / 2;
    std::nth_element(copy.begin(), middle, end);
    return *middle;
}

// Takes a slot from the host, or gives it one back. A host that had fewer requests at a time than
// it has slots would not notice the loss of one, so it loses all that it did not use as well; and
// it gets one back only when it uses all that it has.
CAHostSlots::Change CAHostSlots::judge(Host *host)
{
    Change change{.host = {}, .median = median(host->times), .answers = host->times.size()};
    const std::int32_t used = std::min(host->slots, host->peak);
    if (change.median > limits_.latencyMillis && used > 1) {
        change.slots = used - 1;
        change.isLoss = true;
    } else if (change.median < limits_.latencyMillis / 2 && host->slots < mostSlots() &&
               host->peak >= host->slots) {
        change.slots = host->slots + 1;
    } else {
        return {};
    }
    change.host = host->name;
    host->slots = change.slots;
    host->peak = host->taken;
    host->times.clear();
    host->answers = 0;
    call(host);
    return change;
}

void CAHostSlots::forget()
{
    std::erase_if(hosts_, [](const auto &entry) { return entry.second.taken == 0; });
}
