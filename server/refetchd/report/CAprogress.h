// The line of progress that a run writes to standard error.
#pragma once

#include <cstddef>
#include <cstdint>

// The counts of the line.
struct CAProgress {
    std::int32_t done = 0;
    std::int32_t succeeded = 0;
    std::int32_t queued = 0;
    std::int32_t busy = 0;
    std::int32_t elapsed = 0;     // seconds
    std::int32_t maxRuntime = 0;  // seconds; below 1: no limit
};

// Writes the line, with its end and a NUL, into `buffer`, cut off where that is too short.
void CAFormatProgress(char *buffer, std::size_t size, const CAProgress &progress);

// Says when a line is due. The master thread's.
class CAProgressClock {
public:
    // True once in each `interval` seconds of a run (below 1: never), `elapsed` seconds after its
    // start.
    [[nodiscard]] bool isDue(std::int32_t elapsed, std::int32_t interval);

private:
    std::int32_t last_ = 0;
};
