// The line of progress that a run writes to standard error.
#pragma once

#include <cstddef>
#include <cstdint>

// The values in the line.
struct CAProgress {
    std::int32_t done = 0;        // URLs finished
    std::int32_t succeeded = 0;   // those answered with status 200
    std::int32_t queued = 0;      // URLs that wait
    std::int32_t busy = 0;        // worker threads that hold a URL
    std::int32_t elapsed = 0;     // seconds
    std::int32_t maxRuntime = 0;  // seconds; below 1: no limit
    std::int32_t proxyAway = -1;  // seconds for which the proxy is waited for; below 0: it is there
    std::int32_t paused = -1;     // seconds for which `maxload` lasts; below 0: requests start
};

// Writes the line, with a line feed and a NUL, into `buffer` of `size` bytes; cut off when that is
// too short. Any thread.
void CAFormatProgress(char *buffer, std::size_t size, const CAProgress &progress);

// Decides when a line is due. Master thread.
class CAProgressClock {
public:
    // To be called again and again, with the seconds since the start of the run. True when
    // `interval` seconds (below 1: never) have passed since the start or the last line.
    [[nodiscard]] bool isDue(std::int32_t elapsed, std::int32_t interval);

private:
    std::int32_t last_ = 0;
};
