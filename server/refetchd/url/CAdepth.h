// The order of a breadth-first crawl.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "HTSipHash.h"

class CAURL;

// Hands out URLs level by level, for `breadthfirst`: a URL follows only when no shallower one waits
// or is in work (handed out, and not yet finished()). Within a level the most requested URLs come
// first; equal ones keep the order of their arrival.
//
// An answer that takes too long holds back deeper URLs no longer than waitAtMost() says: the next
// level then begins early, and nothing waits any more for the shallower URLs that are in work.
//
// A page that waits may be found again at a smaller depth: it was found as a link, and then a
// frame, an image or a redirection leads to it from a page of the same level as the link's page.
// sink() lowers its depth then. A level begins only when the one above is finished, so the page
// cannot have been requested before that. Unless a level begins early, each page is therefore
// requested at its smallest depth, whatever the number of worker threads, and once, unless it is a
// seed that is named several times.
//
// A URL that waits in the table of resting hosts (CArest.h) neither waits nor is in work here, so
// deeper URLs may be requested before it, and pages that it leads to be found too late. No lock:
// the queue's lock protects it. It never deletes a URL.
class CADepthOrder {
public:
    // Adds a URL that waits. It must not be deleted while it is here.
    void put(CAURL *url);
    // Lowers the URL with this text to `depth`, if it waits here and is deeper than that.
    void sink(std::string_view text, std::int32_t depth);
    // Names a URL in work; 0 names none. No two URLs of a process have the same.
    using Ticket = std::uint64_t;

    struct Taken {
        CAURL *url = nullptr;
        Ticket ticket = 0;
        std::size_t overtaken = 0;  // not 0: its level begins early, with so many URLs in work
    };

    // Lets a level begin early when the last shallower URL was taken so many milliseconds ago;
    // below 1: never, which is the initial value.
    void waitAtMost(std::int64_t milliseconds) { wait_ = milliseconds; }
    // Takes the next URL, which is in work from then on. Null when none waits, when those that wait
    // are deeper than one in work, and from hold() to release(). `now` is in milliseconds.
    Taken take(std::int64_t now);
    void hold() { isHeld_ = true; }
    void release() { isHeld_ = false; }
    [[nodiscard]] bool isHeld() const { return isHeld_; }
    // Puts a URL aside that was taken and may not be requested yet: it still counts as waiting, but
    // take() does not return it. takeBack() puts it in work after all.
    void putAside(const Taken &taken);
    [[nodiscard]] Ticket takeBack(const CAURL &url, std::int64_t now);
    // Takes out any URL that waits, without putting it in work; null when none waits.
    CAURL *drain();
    // A URL is no longer in work. To be called after the URLs found on it were put. Does nothing
    // when the URL was overtaken, or its level closed.
    void finished(Ticket ticket);
    // Nothing is in work any more: what a run leaves in work does not concern the next one.
    void closeLevels()
    {
        inWork_.clear();
        aside_.clear();
    }

private:
    using Rank = std::pair<std::int32_t, std::int32_t>;  // depth, then hits as a negative number
    using Waiting = std::multimap<Rank, CAURL *>;

    CAURL *remove(Waiting::iterator at);
    [[nodiscard]] std::size_t shallowerInWork(std::int32_t depth) const;
    [[nodiscard]] std::size_t shallowerAside(std::int32_t depth) const;

    Waiting waiting_;
    // Index by text; the text is the CAURL's own. Of a seed that is listed twice only the first is
    // in it, which does no harm: seeds have depth 0 and cannot sink.
    std::unordered_map<std::string_view, Waiting::iterator, HTKeyedHasher> byText_;
    bool isHeld_ = false;
    std::map<Ticket, std::int32_t> inWork_;  // the depths that the URLs had when they were taken
    std::map<std::int32_t, std::size_t> aside_;  // URLs put aside, by depth
    Ticket lastTicket_ = 0;
    std::int64_t lastTime_ = 0;  // when the last URL was taken
    std::int64_t wait_ = 0;
};
