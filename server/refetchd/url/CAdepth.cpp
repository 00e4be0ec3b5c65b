#include "url/CAdepth.h"

#include <algorithm>

#include "url/CAURL.h"

void CADepthOrder::put(CAURL *url)
{
    const auto at = waiting_.emplace(Rank{url->depth(), -std::max(url->hits(), 0)}, url);
    byText_.try_emplace(url->stringitize(), at);
}

void CADepthOrder::sink(std::string_view text, std::int32_t depth)
{
    const auto found = byText_.find(text);
    if (found == byText_.end() || found->second->first.first <= depth) {
        return;
    }
    CAURL *const url = remove(found->second);
    url->setDepth(depth);
    put(url);
}

CAURL *CADepthOrder::take()
{
    if (waiting_.empty() || isHeld_) {
        return nullptr;
    }
    const auto first = waiting_.begin();
    const std::int32_t depth = first->first.first;
    if (!inWork_.empty() && inWork_.begin()->first < depth) {
        return nullptr;
    }
    ++inWork_[depth];
    return remove(first);
}

CAURL *CADepthOrder::drain()
{
    return waiting_.empty() ? nullptr : remove(waiting_.begin());
}

CAURL *CADepthOrder::remove(Waiting::iterator at)
{
    CAURL *const url = at->second;
    const auto indexed = byText_.find(url->stringitize());
    if (indexed != byText_.end() && indexed->second == at) {
        byText_.erase(indexed);
    }
    waiting_.erase(at);
    return url;
}

void CADepthOrder::finished(std::int32_t depth)
{
    const auto at = inWork_.find(depth);
    if (at != inWork_.end() && --at->second == 0) {
        inWork_.erase(at);
    }
}
