// The table of requests per host.
#pragma once

#include <cstdint>
#include <string_view>

#include "HTHash.h"
#include "htthread.h"

// How many requests were charged to one host, named as in the URL: "h" and "h:8080" are two hosts.
struct CAHost;

// Requests per host. Any thread may call; the table's own mutex guards every look-up and update.
// Hosts live until the process ends, the table's contents too: a worker may still count while the
// process is ending.
class CAHostTable {
public:
    CAHostTable();

    // Adds `n` (1 for addHit) to the host's count, which saturates; a new host starts at 0.
    void addHits(std::string_view host, std::int32_t n);
    void addHit(std::string_view host) { addHits(host, 1); }
    // The host's count; 0 (traced) for one never seen.
    [[nodiscard]] std::int32_t getHits(std::string_view host);

private:
    PMutex *const mutex_;
    HashTable *const hosts_ HT_GUARDED_BY(*mutex_);  // of CAHost
};

extern CAHostTable ht;
