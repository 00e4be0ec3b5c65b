// Run control: the master thread watches one run after another until the repeats are over.
#pragma once

#include <cstdint>

// Makes ac.numClients workers and starts their threads. Returns how many threads could be started;
// a worker without one (traced) is idle for ever. Main thread, once, before the master thread
// starts.
std::int32_t CAStartWorkers();

// The master thread's body; `arg` is ignored. Returns null, with `done` set, when the last run is
// over; never when the repeat count says "for ever".
void *run_loop(void *arg);

// Watches one run to its end: the queue has run dry and every worker is idle, or the run time is
// up. Then writes the summary and cleans up. Master thread.
void Run();

// Ends a run: after the last one stops and deletes the workers; empties `processedUrls` and
// `urlQueue`. Master thread.
void CACleanup();

// Appends the summary of the run that ended to the report in progress; nothing without one. Master
// thread.
void CASummary();
