#include "refetchd.h"

#include <cstring>

#include "HTShared.h"
#include "url/CArest.h"

// The order of these two is the order of their life: `ht` is built after `ac` and goes before it.
CAConfig ac;
CAHostTable ht;

char *g_catrace_filename = nullptr;
char *g_ca_service_prefix = nullptr;
char *g_ca_hits_filename = nullptr;
std::time_t g_ca_timestarted = 0;
CAQueue *urlQueue = nullptr;
std::atomic<std::uint32_t> currentRun = 0;
CARestTable *const restingHosts = new CARestTable;
HashTable *processedUrls = nullptr;
CAWorkerThread **workerThreads = nullptr;
std::atomic<std::int32_t> done = 0;
char refetchd_LocaleString[kLocaleNameSize] = "";
char *WWW_locpath = nullptr;

std::uint32_t UrlHasher(std::uint32_t size, const void *key)
{
    return ElfHash(size, static_cast<const char *>(key));
}

int UrlComparator(const void *a, const void *b)
{
    return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

void CARecordProcessed(const CAURL *url)
{
    const char *const text = url->holdText();
    if (text != nullptr && HashAddUnique(processedUrls, const_cast<char *>(text)) != 0) {
        HTShared_release(text);
    }
}
