// What is said about a run at its end, on standard error and by the exit status.
#pragma once

#include <cstdint>
#include <string>

#include "report/CAmetrics.h"

// The run that a closing line is about.
struct CAClosing {
    std::int32_t run = 1;
    std::int32_t runs = 1;  // in all; below 1: the agent runs for ever
    std::int32_t seconds = 0;
    std::int32_t queueLeft = 0;
    bool stopped = false;          // by a signal
    std::int64_t proxyWait = 0;    // milliseconds for which the proxy could not be reached
    bool isProxyAway = false;      // it still could not when the run ended
    std::int64_t loadWait = 0;     // milliseconds for which `maxload` let no request start
    std::int32_t loadPauses = -1;  // how often; below 0: it is not set
    std::int32_t slowdowns = -1;   // how often `latencylimit` took a client from a host; the same
};

// "run 1 of 1 in 312 s: 534 requested: 401 refreshed, ...; 0 left in the queue". Without a line
// end. Counts of 0 are left out.
[[nodiscard]] std::string CAClosingLine(const CATally &tally, const CAClosing &closing);

// Where a bad run went wrong, for its advice.
struct CAAdviceContext {
    std::string proxy;             // "host:port"
    std::int32_t readTimeout = 0;  // seconds
    bool isStress = false;         // copies of any age were asked for
};

// What is probably wrong when nothing was requested, or more than half of the requests failed, or
// were served from the cache or could not be judged; and where to read on. Without a line end;
// empty when none of it is the case.
[[nodiscard]] std::string CAAdvice(const CATally &tally, const CAAdviceContext &context);

// "the proxy HOST:PORT could not be reached for 12 s and was waited for.", or "... up to the end of
// the run."; empty when it was always there.
[[nodiscard]] std::string CAAwayText(const CAClosing &closing, const std::string &proxy);

// "maxload: no request was started for 12 s."; empty when there was no pause.
[[nodiscard]] std::string CAPausedText(const CAClosing &closing);

// "77 pages were not searched for links: REASON."
[[nodiscard]] std::string CAUnsearchedText(std::int32_t pages, const std::string &reason);

// The exit status after a run: 3 when more than `percent` percent of its requests failed; 4 when
// more than so many were served from the cache or are unknown; otherwise 0, also when `percent` is
// below 0.
[[nodiscard]] int CAExitStatus(const CATally &tally, std::int32_t percent);
