#include "HTLookup.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <string_view>

#include "HTInet.h"
#include "htthread.h"

struct HTLookupJob {
    std::string name;
    sa_family_t family = AF_UNSPEC;
    in_port_t port = 0;
    sockaddr_storage result{};  // written by the thread until it sets the flag
    std::atomic<bool> isOver = false;
};

sockaddr_storage HTLookUp(const char *name, sa_family_t family, in_port_t port)
{
    sockaddr_storage result{};
    sockaddr_in v4{};
    sockaddr_in6 v6{};
    v4.sin_port = port;
    v6.sin6_port = port;
    if (family == AF_INET && HTParseInet(&v4, name, nullptr) == 0) {
        std::memcpy(&result, &v4, sizeof v4);
    } else if (family == AF_INET6 && HTParseInet6(&v6, name, nullptr) == 0) {
        std::memcpy(&result, &v6, sizeof v6);
    }
    return result;
}

namespace {

// Threads in the resolver.
constinit std::atomic<std::int32_t> threadsAtWork{0};

bool isAddress(std::string_view name)
{
    return name.starts_with('[') ||
           HTHostPart(name).find_first_not_of("0123456789.") == std::string_view::npos;
}

void *work(void *arg)
{
    const std::unique_ptr<std::shared_ptr<HTLookupJob>> job(
        static_cast<std::shared_ptr<HTLookupJob> *>(arg));
    (*job)->result = HTLookUp((*job)->name.c_str(), (*job)->family, (*job)->port);
    --threadsAtWork;
    (*job)->isOver = true;
    return nullptr;
}

// Starts a thread for the job, which then shares it. False when that is not possible.
bool start(const std::shared_ptr<HTLookupJob> &job)
{
    if (++threadsAtWork > HTLookup::kMost) {
        --threadsAtWork;
        return false;
    }
    auto share = std::make_unique<std::shared_ptr<HTLookupJob>>(job);
    const HTThreadHandle thread = lmc_StartThread(work, share.get());
    if (thread == 0) {
        --threadsAtWork;
        return false;
    }
    static_cast<void>(share.release());  // the thread deletes it
    DetachThread(thread);
    return true;
}

}  // namespace

HTLookup::HTLookup(const char *name, sa_family_t family, in_port_t port)
    : job_(std::make_shared<HTLookupJob>())
{
    job_->name = name;
    job_->family = family;
    job_->port = port;
    if (isAddress(name)) {
        job_->result = HTLookUp(name, family, port);
        job_->isOver = true;
    } else {
        isStarted_ = start(job_);
    }
}

HTLookup::~HTLookup() = default;

std::int32_t HTLookup::working()
{
    return threadsAtWork;
}

bool HTLookup::wait(std::int32_t milliseconds)
{
    constexpr std::int64_t kLongestSleep = 16;
    const std::int64_t begin = HTUptimeMillis();
    std::int64_t left = milliseconds;
    for (std::int64_t sleep = 1; !job_->isOver && left > 0;
         sleep = std::min(2 * sleep, kLongestSleep)) {
        HTSleep(static_cast<std::uint32_t>(std::min(sleep, left)));
        isStarted_ = isStarted_ || start(job_);
        left = milliseconds - (HTUptimeMillis() - begin);
    }
    return job_->isOver;
}

sockaddr_storage HTLookup::address() const
{
    return job_->isOver ? job_->result : sockaddr_storage{};
}
