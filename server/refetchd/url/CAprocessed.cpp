#include "url/CAprocessed.h"

#include <cstring>
#include <functional>
#include <set>
#include <string>

#include "HTShared.h"
#include "htthread.h"
#include "url/CAURL.h"

HashTable *processedUrls = nullptr;

namespace {

constexpr std::uint32_t kBuckets = 1009;

void release(void *text, void * /*context*/)
{
    HTShared_release(static_cast<const char *>(text));
}

}  // namespace

std::uint32_t UrlHasher(std::uint32_t size, const void *key)
{
    return ElfHash(size, static_cast<const char *>(key));
}

int UrlComparator(const void *a, const void *b)
{
    return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

HashTable *CANewProcessedUrls()
{
    return HashCreateKeyed(
        kBuckets, UrlComparator, UrlHasher,
        [](const void *key) { return std::string_view(static_cast<const char *>(key)); }, 1);
}

const HashProbe &CAUrlKey::probe()
{
    if (!probe_) {
        probe_.emplace(processedUrls, url_.stringitize());
    }
    return *probe_;
}

bool CAUrlKey::isProcessed()
{
    return HashLookup(probe()) != nullptr;
}

bool CAUrlKey::record()
{
    const char *const text = url_.holdText();
    const int failed = text == nullptr ? 0 : HashAddUnique(probe(), const_cast<char *>(text));
    if (failed != 0) {
        HTShared_release(text);
    }
    return failed <= 0;  // below 0, without memory, it is not recorded and may be queued again
}

bool CARecordProcessed(const CAURL *url)
{
    return CAUrlKey(*url).record();
}

bool CAIsProcessed(const char *text)
{
    return HashLookup(processedUrls, text) != nullptr;
}

void CAForgetProcessed(const char *text)
{
    release(HashRemove(processedUrls, text), nullptr);
}

namespace {

// Never deleted, because a worker thread may outlive the last run.
struct Sitemaps {
    PMutex mutex;
    std::set<std::string, std::less<>> texts HT_GUARDED_BY(mutex);
};
Sitemaps &sitemaps = *new Sitemaps;

}  // namespace

bool CARecordSitemap(std::string_view text)
{
    const PMutexGuard guard(sitemaps.mutex);
    return sitemaps.texts.emplace(text).second;
}

bool CAIsSitemapRead(std::string_view text)
{
    const PMutexGuard guard(sitemaps.mutex);
    return sitemaps.texts.contains(text);
}

void CAForgetAllProcessed()
{
    HashDrain(processedUrls, release, nullptr);
    const PMutexGuard guard(sitemaps.mutex);
    sitemaps.texts.clear();
}
