// The counts of a run, and the metrics file, which shows them in the text format of Prometheus.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "base/CAoutcome.h"
#include "base/CAwhen.h"

// The counts of a run. It has no lock: callers that share one between threads must lock it.
struct CATally {
    static constexpr std::size_t kSources = 2;
    static constexpr std::size_t kClasses = 5;

    std::array<std::array<std::int32_t, kVerdicts>, kSources> urls{};
    std::array<std::int32_t, kClasses> responses{};  // by status class, 1xx first
    std::array<std::int32_t, kDrops> drops{};
    std::int64_t bytes = 0;
    std::int32_t answers200 = 0;
    std::int32_t agedHits = 0;  // those of answers200 that were served from the cache

    // Counts one URL, whose response has this size in bytes; `status` is 0 without a response.
    void count(_source source, CAVerdict verdict, std::int32_t status, std::int64_t size);
};

// What the metrics file shows besides the counts.
struct CARunEnd {
    std::time_t started = 0;
    std::int32_t seconds = 0;
    std::int32_t queueLeft = 0;  // URLs that were not requested before the run ended
};

// Writes the counts of a run to the file `path`, which is replaced in one step. Symbolic links are
// followed to the file that they name; anything that is not a regular file is not replaced.
// Failures are traced and written to the error log. One thread at a time.
void CAWriteMetrics(const std::string &path, const CATally &tally, const CARunEnd &end);

// The file that is written when `path` is configured: `path`, or the file that its symbolic links
// lead to. It need not exist. Any thread.
[[nodiscard]] std::string CAMetricsTarget(const std::string &path);

// False when the name belongs to anything but a regular file; true when it is free. Any thread.
[[nodiscard]] bool CAIsReplaceable(const std::string &target);
