// The table of what is charged to each host, for `maxhosturls`.
#pragma once

#include <cstdint>
#include <string_view>

#include "HTHash.h"
#include "htthread.h"

// What is charged to one host. Hosts are named as in the URL: "h" and "h:8080" are two hosts.
struct CAHost;

// Counts, for `maxhosturls`, what is charged to each host since beginCount(): 1 for each
// URL that is queued, but for a URL of the hits file its number of hits. Any thread may call; the
// table's own mutex guards every look-up and update. Neither the table's contents nor its mutex are
// ever freed, because a worker thread may still count while the process is ending.
class CAHostTable {
public:
    CAHostTable();

    // Adds `n` (1 for addHit) to the host's count (traced), which saturates; a new host starts at
    // 0. Without memory a new host is not counted (reported).
    void addHits(std::string_view host, std::int32_t n);
    void addHit(std::string_view host) { addHits(host, 1); }
    // Starts to count anew: all hosts are at 0.
    void beginCount();
    // The host's count; 0 (traced) for an unknown host.
    [[nodiscard]] std::int32_t getHits(std::string_view host);

private:
    [[nodiscard]] CAHost *findLocked(std::string_view host) const HT_REQUIRES(*mutex_);

    PMutex *const mutex_;
    HashTable *const hosts_ HT_GUARDED_BY(*mutex_);   // of CAHost
    CAHost *last_ HT_GUARDED_BY(*mutex_) = nullptr;   // charged last; often the next one, too
    std::uint32_t count_ HT_GUARDED_BY(*mutex_) = 0;  // the number of the current count
};

extern CAHostTable ht;
