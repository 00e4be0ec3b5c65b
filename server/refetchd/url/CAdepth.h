// The order of a breadth-first crawl.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

class CAURL;

// Hands out URLs by depth, the shallowest first, and a deeper one only when no shallower one waits
// or is in work. Within a depth the most requested go first, and then those that came first.
//
// A page that waits may be found once more on a shorter way: a frame, an image or a redirection
// leads to it from a page of its own level, and it was found as a link before. sink() then gives it
// that depth. Since a level begins only when the one above is done with, no page has been asked for
// by then, so each is requested once, and at the depth of its shortest way, whatever the number of
// worker threads.
//
// A URL that waits elsewhere, because its host rests, neither waits nor is in work here. There is
// no lock; the URLs stay their owner's.
class CADepthOrder {
public:
    void put(CAURL *url);
    // Gives the URL of this text that waits, if there is one, this depth when that is less than its
    // own.
    void sink(std::string_view text, std::int32_t depth);
    // The next URL, which is in work then; null when none waits, or only deeper ones than those in
    // work.
    CAURL *take();
    // Any URL that waits, which is not in work then; null when none does.
    CAURL *drain();
    // One of this depth is no longer in work. What it led to was put before.
    void finished(std::int32_t depth);

private:
    using Rank = std::pair<std::int32_t, std::int32_t>;  // depth, hits below 0
    using Waiting = std::multimap<Rank, CAURL *>;

    CAURL *remove(Waiting::iterator at);

    Waiting waiting_;
    // By text, which is the record's. Of seeds that are named twice only the first is here: seeds
    // cannot sink.
    std::unordered_map<std::string_view, Waiting::iterator> byText_;
    std::map<std::int32_t, std::size_t> inWork_;  // how many, by depth
};
