// Judges exchanges: how one ended, whether another one may do better, and what the answer's headers
// say of the cache that sent it.
#pragma once

#include <cstdint>
#include <string>
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

// One request and what came back.
struct CAExchange {
    std::int32_t status = 0;              // 0: no status line came
    CAFailure failure = CAFailure::None;  // why the answer is missing or not whole
    std::int64_t bytes = 0;               // of the response
    std::int64_t started = 0;             // milliseconds since the epoch
    std::int64_t milliseconds = 0;        // from the start to the last byte
    CACacheHeaders headers = {};          // of the answer
};

// What an exchange came to.
struct CAJudgement {
    CAVerdict verdict = CAVerdict::Failed;  // never Dropped
    std::int32_t age = -1;  // of the cache's copy in seconds; -1: not known, or not its copy
    std::string why;        // the reason of a failure; empty: none
};

// Judges an exchange. Any thread; the values of the headers may be anything.
//
// Headers of caches beyond the proxy may be among the answer's. The proxy's own are known where it
// names itself in "Via:", as Squid and Varnish do, and Traffic Server when it is configured so.
[[nodiscard]] CAJudgement CAJudge(const CAExchange &exchange);

// True when the exchange broke before an answer, so that another one may bring one.
[[nodiscard]] bool CAIsWorthRetrying(const CAExchange &exchange);

// For how many seconds an answer with this status and this value of "Retry-After:" (empty: none)
// asks to leave its host alone; 0 for not at all.
[[nodiscard]] std::int64_t CAAskedRest(std::int32_t status, std::string_view retryAfter);
