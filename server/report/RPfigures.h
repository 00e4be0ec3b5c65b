// What a report shows: the figures that were collected from the logs. Plain data.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "RPverdict.h"

// A day, as the number of days since 1 January 1970.
using RPDay = std::int32_t;

// A run of the agent. Times are in milliseconds, moments since the epoch.
struct RPRun {
    std::size_t machine = 0;  // index of RPFigures::machines
    std::int64_t start = 0;
    std::int64_t end = 0;
    RPCounts counts{};
    std::int64_t left = -1;  // URLs in the queue at the end; -1: not logged
    bool stopped = false;
};

// A night is the time from noon of the day before until noon of `day`, local time.
struct RPNight {
    RPDay day = 0;
    RPCounts counts{};
    std::int64_t bytes = 0;
    std::int64_t runs = 0;
    std::vector<std::int64_t> milliseconds = {};  // the duration of its runs, by machine

    // That of the machine which took longest.
    [[nodiscard]] std::int64_t duration() const;
};

// URLs with the same verdict and reason.
struct RPGroup {
    RPVerdict verdict = RPVerdict::Failed;
    std::string why;
    std::int64_t count = 0;
    std::vector<std::string> examples;  // some of the URLs, the first ones
};

struct RPHost {
    std::string name;
    RPCounts counts{};
    std::int64_t bytes = 0;
    std::int64_t milliseconds = 0;

    void add(const RPHost &other);
};

struct RPSlow {
    std::string url;
    std::int64_t milliseconds = 0;
    RPVerdict verdict = RPVerdict::Unknown;
};

struct RPStatus {
    std::int64_t status = 0;  // 0: no answer
    std::int64_t count = 0;
    std::int64_t bytes = 0;
};

// The last night in detail.
struct RPDetails {
    std::int64_t first = 0;           // the first request, and the end of the last one
    std::int64_t last = 0;            // (0: none)
    std::vector<RPRun> runs;          // in order of their start; at most kRuns, the last ones
    std::vector<RPGroup> groups;      // of URLs that are not fresh: failures, then others
    std::vector<RPGroup> drops;       // largest first
    std::vector<RPSlow> slowest;      // slowest first
    std::vector<RPHost> hosts;        // most requests first
    RPHost otherHosts;                // those beyond the limit of distinct hosts
    std::vector<RPStatus> statuses;   // in their order
    std::vector<std::size_t> silent;  // of several machines, those without a request

    static constexpr std::size_t kRuns = 48;
};

struct RPFigures {
    std::int64_t now = 0;               // when the report is made, in seconds since the epoch
    std::vector<std::string> machines;  // their names
    std::vector<RPNight> nights;        // consecutive days; the last one has lines. Empty: none has
    RPDetails details;                  // of the last night
    std::int64_t lines = 0;             // read
    std::int64_t badLines = 0;          // of these, not understood
    std::string firstBad;               // where the first of them is
    std::vector<std::string> problems;  // logs that could not be read, or not to the end

    [[nodiscard]] const RPNight &night() const { return nights.back(); }
};
