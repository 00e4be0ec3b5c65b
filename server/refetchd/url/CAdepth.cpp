#include "url/CAdepth.h"

#include <algorithm>
#include <numeric>

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

std::size_t CADepthOrder::shallowerInWork(std::int32_t depth) const
{
    return static_cast<std::size_t>(std::count_if(
        inWork_.begin(), inWork_.end(), [depth](const auto &url) { return url.second < depth; }));
}

std::size_t CADepthOrder::shallowerAside(std::int32_t depth) const
{
    return std::accumulate(aside_.begin(), aside_.lower_bound(depth), std::size_t{0},
                           [](std::size_t sum, const auto &level) { return sum + level.second; });
}

CADepthOrder::Taken CADepthOrder::take(std::int64_t now)
{
    if (waiting_.empty() || isHeld_) {
        return {};
    }
    const auto first = waiting_.begin();
    const std::int32_t depth = first->first.first;
    const std::size_t shallower = shallowerInWork(depth) + shallowerAside(depth);
    if (shallower > 0 && (wait_ < 1 || now - lastTime_ < wait_)) {
        return {};
    }
    std::erase_if(inWork_, [depth](const auto &url) { return url.second < depth; });
    aside_.erase(aside_.begin(), aside_.lower_bound(depth));
    inWork_.emplace(++lastTicket_, depth);
    lastTime_ = now;
    return {.url = remove(first), .ticket = lastTicket_, .overtaken = shallower};
}

void CADepthOrder::putAside(const Taken &taken)
{
    inWork_.erase(taken.ticket);
    ++aside_[taken.url->depth()];
}

CADepthOrder::Ticket CADepthOrder::takeBack(const CAURL &url, std::int64_t now)
{
    const auto at = aside_.find(url.depth());
    if (at == aside_.end()) {
        return 0;  // a deeper level has begun early
    }
    if (--at->second == 0) {
        aside_.erase(at);
    }
    inWork_.emplace(++lastTicket_, url.depth());
    lastTime_ = now;
    return lastTicket_;
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

void CADepthOrder::finished(Ticket ticket)
{
    inWork_.erase(ticket);
}
