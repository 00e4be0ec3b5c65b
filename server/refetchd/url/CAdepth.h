// The order of a breadth-first crawl.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

class CAURL;

// Hands out URLs by depth, the shallowest first, and a deeper one only when no shallower one waits
// or is in work: every page is then met first on one of the shortest ways to it, whatever the
// number of clients. Within a depth the most requested go first, and else those that came first.
// What waits for its
// host elsewhere is neither waiting nor in work here. It has no lock; the URLs stay whoever's they
// were.
class CADepthOrder {
public:
    void put(CAURL *url);
    // The next URL, which is in work then; null when none waits, or only deeper ones than those in
    // work.
    CAURL *take();
    // Any URL that waits, which is not in work then; null when none does.
    CAURL *drain();
    // One of this depth is no longer in work. What it led to was put before.
    void finished(std::int32_t depth);

private:
    using Rank = std::pair<std::int32_t, std::int32_t>;  // depth, hits below 0

    std::multimap<Rank, CAURL *> waiting_;
    std::map<std::int32_t, std::size_t> inWork_;  // how many, by depth
};
