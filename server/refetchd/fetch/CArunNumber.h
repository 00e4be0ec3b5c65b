// The number of the current run, by which the worker threads notice that theirs has ended.
#pragma once

#include <atomic>
#include <cstdint>

// Changes at the end of each run, so that a URL dequeued in one run is not retried in the next.
extern std::atomic<std::uint32_t> currentRun;

// Has each worker thread that still connects (with a time limit) or reads an answer for a run
// before the current one give that up, which it does within kPatienceMilliseconds; but a TLS
// handshake goes on. Master thread, after the change of `currentRun`.
void CAGiveUpAnswers();

// True when that was called for this run. Any thread.
[[nodiscard]] bool CAIsGivenUp(std::uint32_t run);

// A worker thread that waits for its peer looks this often whether its run is given up.
inline constexpr int kPatienceMilliseconds = 250;
