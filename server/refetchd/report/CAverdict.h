// What an answer's headers say of the cache that sent it.
#pragma once

#include <cstdint>
#include <ctime>
#include <string_view>

#include "base/CAoutcome.h"

// Values of an answer's headers, empty for a header that is absent. Of one that stands more than
// once it is the last: a cache puts its own behind what it got.
struct CACacheHeaders {
    std::string_view age = {};
    std::string_view cacheControl = {};
    std::string_view cacheStatus = {};
    std::string_view date = {};
    std::string_view via = {};
    std::string_view xCache = {};
    std::string_view xCacheLookup = {};
    std::string_view xVarnish = {};
};

struct CAJudgement {
    CAVerdict verdict;
    std::int32_t age;  // of the cache's copy in seconds; -1: not known, or not its copy
};

// Judges the answer to a request that was sent at `requested` and took so many seconds; `status` is
// 0 when none came. Never CAVerdict::Dropped. Any thread; the values may be anything.
//
// The headers of caches beyond the one next to us may be among them. They are told from its own
// where it names itself in "Via:", as Squid and Varnish do, and Traffic Server when told to.
[[nodiscard]] CAJudgement CAJudge(std::int32_t status, const CACacheHeaders &headers,
                                  std::time_t requested, std::int32_t took);
