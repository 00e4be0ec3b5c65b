#include "url/CAhost.h"

#include <cstring>
#include <memory>

#include "HTHash.h"
#include "HTMemory.h"
#include "HTString.h"
#include "base/CAtrace.h"

CAHostTable ht;

namespace {

// The key of the table. Each record derives from it, so a look-up needs no record of its own.
struct HostName {
    std::string_view name;
};

}  // namespace

struct CAHost : HostName {
    explicit CAHost(std::string_view hostName) : copy(strndup(hostName.data(), hostName.size()))
    {
        name = {copy.get(), copy == nullptr ? 0 : hostName.size()};
    }

    const HeapString copy;  // null when memory is out
    std::int32_t hits = 0;
    std::uint32_t count = 0;  // the one to which `hits` belongs
};

namespace {

constexpr std::uint32_t kHostBuckets = 1009;

std::string_view nameOf(const void *host)
{
    return static_cast<const HostName *>(host)->name;
}

int HostComparator(const void *a, const void *b)
{
    return nameOf(a) == nameOf(b) ? 0 : 1;
}

std::uint32_t HostHasher(std::uint32_t size, const void *host)
{
    return ElfHash(size, nameOf(host));
}

CAHost *find(HashTable *hosts, std::string_view name)
{
    const HostName probe{name};
    return static_cast<CAHost *>(static_cast<HostName *>(HashLookup(hosts, &probe)));
}

// A new host with no hits; null (reported) when memory is out.
CAHost *add(HashTable *hosts, std::string_view name)
{
    auto record = std::make_unique<CAHost>(name);
    if (record->copy == nullptr) {
        HTOutOfMemory("server/refetchd/CAURL", "addHits", __LINE__, name.size() + 1);
        return nullptr;
    }
    return HashAdd(hosts, static_cast<HostName *>(record.get())) == 0 ? record.release() : nullptr;
}

}  // namespace

CAHostTable::CAHostTable()
    : mutex_(new PMutex),
      hosts_(HashCreateKeyed(kHostBuckets, HostComparator, HostHasher, nameOf, 0))
{
}

CAHost *CAHostTable::findLocked(std::string_view host) const
{
    return last_ != nullptr && last_->name == host ? last_ : find(hosts_, host);
}

void CAHostTable::addHits(std::string_view host, std::int32_t n)
{
    CATrace("Adding...... %d hit(s) for host \"%.*s\".\n", n, CALength(host), host.data());
    bool isNew = false;
    {
        const PMutexGuard guard(*mutex_);
        CAHost *record = findLocked(host);
        isNew = record == nullptr;
        if (isNew) {
            record = add(hosts_, host);
        }
        if (record == nullptr) {
            return;  // this host is not counted
        }
        last_ = record;
        if (record->count != count_) {
            record->count = count_;
            record->hits = 0;
        }
        if (__builtin_add_overflow(record->hits, n, &record->hits)) {
            record->hits = n < 0 ? INT32_MIN : INT32_MAX;
        }
    }
    if (isNew) {
        CATrace("Added....... new host \"%.*s\" to host table.\n", CALength(host), host.data());
    }
}

void CAHostTable::beginCount()
{
    const PMutexGuard guard(*mutex_);
    ++count_;
}

std::int32_t CAHostTable::getHits(std::string_view host)
{
    std::int32_t hits = 0;
    bool known = false;
    {
        const PMutexGuard guard(*mutex_);
        if (const CAHost *const record = findLocked(host); record != nullptr) {
            known = true;
            hits = record->count == count_ ? record->hits : 0;
        }
    }
    if (!known) {
        CATrace("Never....... hit site \"%.*s\".\n", CALength(host), host.data());
    }
    return hits;
}
