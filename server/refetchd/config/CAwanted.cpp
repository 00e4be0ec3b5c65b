#include "config/CAwanted.h"

#include <string_view>

#include "HTString.h"
#include "HTWorkThread.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "url/CAURL.h"
#include "url/CAhost.h"
#include "url/CAprocessed.h"
#include "url/CAqueue.h"

namespace {

bool jumpsFromHost(const CAURL &found, const CAURL &page)
{
    if (ac.delveAcrossHosts != 0) {
        return false;
    }
    const std::string_view from = page.host();
    const std::string_view to = found.host();
    if (from == to) {
        return false;
    }
    CATrace("URL......... %s will be ignored: jump from host %.*s to %.*s.\n", found.stringitize(),
            CALength(from), from.data(), CALength(to), to.data());
    return true;
}

bool hostIsExhausted(const CAURL &found)
{
    const std::string_view name = found.host();
    const std::int32_t max = ac.getMaxHits(name, &HTThread_context()->pool);
    if (max == 0 && !CATraceOn()) {
        return false;  // otherwise the trace shows which hosts are new
    }
    const std::int32_t hits = ht.getHits(name);
    if (max == 0 || hits < max) {
        return false;
    }
    CATrace("Host........ %.*s: %d hits, %d max --> ignoring \"%s\".\n", CALength(name),
            name.data(), hits, max, found.stringitize());
    return true;
}

}  // namespace

CADrop CAObjection(const CAURL &found, const CAURL &page)
{
    CAUrlKey key(found);
    return CAObjection(found, page, &key);
}

CADrop CAObjection(const CAURL &found, const CAURL &page, CAUrlKey *key)
{
    const char *const text = found.stringitize();
    if (found.depth() > ac.delveDepth) {
        CATrace("URL......... %s is too deep (%d > %d).\n", text, found.depth(), ac.delveDepth);
        return CADrop::DelveDepth;
    }
    if (ac.ignoreURL(&found) != 0) {
        return CADrop::IgnoreUrl;
    }
    if (ac.onlyCheck(&found) != 0) {
        return CADrop::OnlyUrl;
    }
    if (ac.queryURL(&found) != 0 && ac.cacheThisQuery(&found) == 0) {
        CATrace("URL......... %s will be ignored: query string.\n", text);
        return CADrop::CacheQueries;
    }
    if (jumpsFromHost(found, page)) {
        return CADrop::DelveAcrossHosts;
    }
    if (key->isProcessed()) {
        CATrace("URL......... %s will be ignored: already processed.\n", text);
        return CADrop::Processed;
    }
    return hostIsExhausted(found) ? CADrop::MaxHostUrls : CADrop::None;
}

CADrop CASeedObjection(const CAURL &found, const CAURL &from)
{
    const char *const text = found.stringitize();
    const bool isPage = found.role() == CARole::Page;
    if (isPage && ac.queryURL(&found) != 0 && ac.cacheThisQuery(&found) == 0) {
        CATrace("Not loading... URL with ? \"%s\".\n", text);
        return CADrop::CacheQueries;
    }
    if (!HTEqualsNoCase(found.host(), from.host()) && jumpsFromHost(found, from)) {
        return CADrop::DelveAcrossHosts;
    }
    if (isPage ? CAIsProcessed(text) : CAIsSitemapRead(text)) {
        return CADrop::Processed;
    }
    if (const CADrop limit = CALinkLimit(); limit != CADrop::None) {
        CATrace("Ignoring.... URL \"%s\" (%s).\n", text, CALimitText(limit));
        return limit;
    }
    return hostIsExhausted(found) ? CADrop::MaxHostUrls : CADrop::None;
}

int CAURL::interesting(const CAURL *parent) const
{
    return CAObjection(*this, *parent) == CADrop::None ? 1 : 0;
}

CADrop CALinkLimit()
{
    if (urlQueue->getLength() >= ac.maxQueueDepth) {
        return CADrop::MaxQueueDepth;
    }
    // Without a limit `maxUrls` is the number at which the total stops: it must not be compared.
    const bool isLimited = ac.maxUrls != kUnlimited;
    const std::int32_t queued =
        ac.limitsPerRun != 0 ? urlQueue->getEnqueuedOfRun() : urlQueue->getTotalEnqueued();
    return isLimited && queued >= ac.maxUrls ? CADrop::MaxUrls : CADrop::None;
}

const char *CALimitText(CADrop limit)
{
    return limit == CADrop::MaxQueueDepth ? "queue full" : "hit max #URLs";
}
