// Which URLs are ignored, wanted or limited. Many threads call these functions at once, without a
// lock: the lists are only read, and each match takes its scratch memory from the caller's pool.
#include <cstdlib>
#include <cstring>

#include "HTString.h"
#include "HTWorkThread.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "url/CAURL.h"

namespace {

constexpr bool kCaseSensitive = true;
constexpr bool kAnyCase = false;

const HTPattern *patternOf(const HTList *entry)
{
    return static_cast<const HTPattern *>(entry->object);
}

bool matches(const HTPattern *pattern, const char *text, bool caseSensitive, HTPool *pool)
{
    const HTPoolScope scope(pool);
    return HTPattern_match(pattern, nullptr, text, caseSensitive, pool) != nullptr;
}

// The first pattern of the list that matches the URL's text, or null.
const HTPattern *firstMatch(const HTList *patterns, const char *text)
{
    HTPool *const pool = &HTThread_context()->pool;
    for (const HTList *entry = patterns->next; entry != nullptr; entry = entry->next) {
        if (matches(patternOf(entry), text, kCaseSensitive, pool)) {
            return patternOf(entry);
        }
    }
    return nullptr;
}

}  // namespace

int CAConfig::ignoreURL(const CAURL *url) const
{
    if (ignoreCount == 0) {
        return 0;
    }
    const char *const text = url->stringitize();
    const HTPattern *const pattern = firstMatch(ignorePatterns, text);
    if (pattern == nullptr) {
        return 0;
    }
    if (CATraceOn()) {
        const HeapString form(HTPattern_stringitize(pattern));
        CATrace("Ignoring.... URL \"%s\" - matched pattern \"%s\".\n", text, form.get());
    }
    return 1;
}

int CAConfig::onlyCheck(const CAURL *url) const
{
    if (onlyCount == 0) {
        return 0;
    }
    const char *const text = url->stringitize();
    const HTPattern *const pattern = firstMatch(onlyPatterns, text);
    if (pattern == nullptr) {
        return 1;
    }
    if (CATraceOn()) {
        const HeapString form(HTPattern_stringitize(pattern));
        CATrace("Passing..... only-check for URL \"%s\" - matched pattern \"%s\".\n", text,
                form.get());
    }
    return 0;
}

int CAConfig::queryURL(const CAURL *url) const
{
    return std::strchr(url->stringitize(), '?') != nullptr ? 1 : 0;
}

int CAConfig::cacheThisQuery(const CAURL *url) const
{
    if (cacheAllQueries != 0) {
        return 1;
    }
    HTPool *const pool = &HTThread_context()->pool;
    const char *const text = url->stringitize();
    for (const HTList *entry = queryPatterns->next; entry != nullptr; entry = entry->next) {
        const HTPoolScope scope(pool);
        if (HTPattern_url_match(patternOf(entry), nullptr, text, pool) != nullptr) {
            return 1;
        }
    }
    return 0;
}

std::int32_t CAConfig::getMaxHits(std::string_view host, HTPool *pool) const
{
    if (hostLimits == nullptr) {
        return 0;
    }
    const HTPoolScope scope(pool);
    const char *const name = pool->copy(host.data(), host.size());
    for (const HTList *entry = hostLimits->next; entry != nullptr; entry = entry->next) {
        const auto *const limit = static_cast<const HostLimit *>(entry->object);
        if (limit->pattern == nullptr || matches(limit->pattern, name, kAnyCase, pool)) {
            return limit->max;
        }
    }
    return 0;
}
