// The counts of a run, and the metrics file, which shows them in the text format of Prometheus.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <map>
#include <string>

#include "base/CAoutcome.h"
#include "base/CAwhen.h"
#include "report/CAverdict.h"

// The counts of a run. It has no lock: callers that share one between threads must lock it.
struct CATally {
    static constexpr std::size_t kSources = 2;
    static constexpr std::size_t kClasses = 5;

    std::array<std::array<std::int32_t, kVerdicts>, kSources> urls{};
    std::array<std::int32_t, kClasses> responses{};  // by status class, 1xx first
    std::array<std::int32_t, kDrops> drops{};        // distinct URLs
    std::int64_t moreDrops = 0;                      // links beyond the limits of CADropped
    // The URLs whose verdict is "failed" are the sum of these two: exchanges without a complete
    // response, by reason; and complete ones with an error status (below 200, or from 400), by this
    // status. One that is not between 100 and 599 is counted as 0.
    std::array<std::int32_t, kFailures> failures{};
    std::map<std::int32_t, std::int32_t> statuses;
    std::int64_t bytes = 0;
    std::int32_t answers200 = 0;
    // Those of answers200 that were served from the cache: because it ignored the agent's request,
    // and because the origin failed.
    std::int32_t agedHits = 0;
    std::int32_t oldCopies = 0;
    // Pages that were not searched for links: without a length or chunks, and compressed ones.
    std::int32_t unframed = 0;
    std::int32_t coded = 0;

    // Counts one URL that was requested, or that was to be requested when the run ended.
    // `isOldCopy` as in CAJudgement.
    void count(_source source, CAVerdict verdict, bool isOldCopy, const CAExchange &exchange);
};

// What the metrics file shows besides the counts.
struct CARunEnd {
    std::time_t started = 0;
    std::int32_t seconds = 0;
    std::int32_t queueLeft = 0;    // URLs that were not requested before the run ended
    bool stopped = false;          // by a signal
    double proxyWait = 0;          // seconds for which the proxy could not be reached
    double loadWait = 0;           // seconds for which `maxload` let no request start
    std::int32_t loadPauses = -1;  // how often; below 0: it is not set, and neither is shown
    std::int32_t slowdowns = -1;   // how often `latencylimit` took a client from a host; the same
};

// Writes the counts of a run to the file `path`, which is replaced in one step. Symbolic links are
// followed to the file that they name; anything that is not a regular file is not replaced.
// Failures are traced and written to the error log. One thread at a time.
void CAWriteMetrics(const std::string &path, const CATally &tally, const CARunEnd &end);
