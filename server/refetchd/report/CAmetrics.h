// The counts of a run, and the file to which they are written in the text format of Prometheus.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "base/CAoutcome.h"
#include "base/CAwhen.h"

// The counts. Whoever shares one locks.
struct CATally {
    static constexpr std::size_t kSources = 2;
    static constexpr std::size_t kClasses = 5;

    std::array<std::array<std::int32_t, kVerdicts>, kSources> urls{};
    std::array<std::int32_t, kClasses> responses{};  // by the class of their status
    std::array<std::int32_t, kDrops> drops{};
    std::int64_t bytes = 0;
    std::int32_t answers200 = 0;
    std::int32_t agedHits = 0;  // of these, served from the cache

    // Counts one URL; `status` is 0 without an answer.
    void count(_source source, CAVerdict verdict, std::int32_t status, std::int64_t bytes);
};

// What else the file says of a run.
struct CARunEnd {
    std::time_t started = 0;
    std::int32_t seconds = 0;
    std::int32_t queueLeft = 0;  // URLs that nobody asked for
};

// Writes the counts of a run to the file `path`, which is replaced in one step. Symbolic links are
// followed to the file that they name, and what is not a regular file is left alone. Failures are
// traced and in the error log. One thread at a time.
void CAWriteMetrics(const std::string &path, const CATally &tally, const CARunEnd &end);

// The file that is written when `path` is configured: itself, or the end of its symbolic links, be
// it there or not.
[[nodiscard]] std::string CAMetricsTarget(const std::string &path);

// False when something else than a regular file has that name.
[[nodiscard]] bool CAIsReplaceable(const std::string &target);
