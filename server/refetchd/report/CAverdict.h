// Judges exchanges (a request and its response): how one ended, whether a retry is worthwhile, and
// what the headers of the response show about the cache that sent it. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/CAoutcome.h"

// Header values of a response; empty for a header that is absent. Of a header that occurs more than
// once it is the last value, because a cache adds its own behind those that it received; only of
// "Vary:" it is all of them.
struct CACacheHeaders {
    std::string_view age = {};
    std::string_view cacheControl = {};
    std::string_view cacheStatus = {};
    std::string_view date = {};
    std::string_view via = {};
    std::string_view xCache = {};
    std::string_view xCacheLookup = {};
    std::string_view xVarnish = {};
    std::string_view vary = {};
};

// One request and what came back.
struct CAExchange {
    std::int32_t status = 0;              // 0: no status line came
    CAFailure failure = CAFailure::None;  // why the response is missing or incomplete
    std::int64_t bytes = 0;               // of the response
    std::int64_t started = 0;             // milliseconds since the epoch
    std::int64_t milliseconds = 0;        // from the start to the last byte
    CACacheHeaders headers = {};          // of the response
    std::int32_t variant = 0;             // from 1; 0: there are no variants
    CAUnsearched unsearched = CAUnsearched::None;
    // What the TLS library says about a failure, a static text; empty: nothing.
    std::string_view reason = {};
};

// The judgement on an exchange.
struct CAJudgement {
    CAVerdict verdict = CAVerdict::Failed;  // never Dropped
    std::int32_t age = -1;  // of the cache's copy, in seconds; -1: unknown, or no copy was served
    std::string why;        // the reason of a failure; empty without one
};

// Judges an exchange. The header values may be malformed in any way.
//
// Caches between proxy and origin may have added some of the headers. The proxy's own can be
// recognised when it names itself in "Via:", as Squid and Varnish do, and Traffic Server if
// configured so.
[[nodiscard]] CAJudgement CAJudge(const CAExchange &exchange);

// True when the exchange broke off before a status line, in a way that a retry may overcome.
[[nodiscard]] bool CAIsWorthRetrying(const CAExchange &exchange);

// The pause, in seconds, before the next request to the host of a response: 0 unless the status is
// 429 or 503, otherwise the number in `retryAfter`, at least 1, or 10 when that holds no number.
[[nodiscard]] std::int64_t CAAskedRest(std::int32_t status, std::string_view retryAfter);
