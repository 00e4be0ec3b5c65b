// Run control: the master thread starts one run after another and watches each to its end.
#pragma once

#include <cstdint>

// Makes ac.numClients worker records and starts their threads. Returns how many threads could be
// started; a worker whose thread could not be (traced) stays unused. Main thread, once, before the
// master thread starts.
std::int32_t CAStartWorkers();

// The body of the master thread; `arg` is ignored. Returns null, with `done` set to 1, when the
// last run is over; never returns when ac.repeatCount is below 1.
void *run_loop(void *arg);

// Watches one run until no URL is queued, parked or held by a worker thread, or until `maxruntime`
// is over. Then writes the summary, the results and the metrics, and cleans up. Master thread.
void Run();

// Cleans up after a run: empties `processedUrls`, `restingHosts` and `urlQueue`. After the last run
// it first stops the worker threads and deletes their records; if none is left running, it also
// deletes the queue and the table. Master thread.
void CACleanup();

// Appends the summary of the run that ended to the report in progress, if there is one. Master
// thread.
void CASummary();
