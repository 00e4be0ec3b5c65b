#include "url/CAdepth.h"

#include <algorithm>

#include "url/CAURL.h"

void CADepthOrder::put(CAURL *url)
{
    waiting_.emplace(Rank{url->depth(), -std::max(url->hits(), 0)}, url);
}

CAURL *CADepthOrder::take()
{
    if (waiting_.empty()) {
        return nullptr;
    }
    const auto first = waiting_.begin();
    const std::int32_t depth = first->first.first;
    if (!inWork_.empty() && inWork_.begin()->first < depth) {
        return nullptr;
    }
    CAURL *const url = first->second;
    waiting_.erase(first);
    ++inWork_[depth];
    return url;
}

CAURL *CADepthOrder::drain()
{
    if (waiting_.empty()) {
        return nullptr;
    }
    CAURL *const url = waiting_.begin()->second;
    waiting_.erase(waiting_.begin());
    return url;
}

void CADepthOrder::finished(std::int32_t depth)
{
    const auto at = inWork_.find(depth);
    if (at != inWork_.end() && --at->second == 0) {
        inWork_.erase(at);
    }
}
