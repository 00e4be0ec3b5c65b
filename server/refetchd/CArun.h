// Run control: the master thread starts one run after another and watches each to its end.
#pragma once

#include <cstdint>

// Notes that a run begins: its date, and the moment from which its duration is counted.
void CABeginRunTime();

// Makes ac.numClients worker records and starts their threads. Returns the number of threads. A
// worker whose thread cannot be started (traced) stays unused. Main thread, once, before the master
// thread starts.
std::int32_t CAStartWorkers();

// The body of the master thread; `arg` is ignored. Returns null, with `done` set to 1, when the
// last run is over. When ac.repeatCount is below 1, only a signal makes a run the last one.
void *run_loop(void *arg);

// Watches one run until no URL is queued, held by a worker thread or waiting for a resting host,
// until `maxruntime` is over, or until a signal ends it (CAsignals.h). Then writes the summary,
// cleans up, and writes results and metrics. Master thread.
void Run();

// Cleans up after a run: empties `processedUrls`, `restingHosts` and `urlQueue`. After the last run
// it first stops the worker threads and deletes their records; unless one is left running, it also
// deletes `urlQueue` and `processedUrls`. A worker whose thread could not be started counts as left
// running. Master thread.
void CACleanup();

// Appends a summary to the report in progress, if there is one; most of its counts are not those of
// one run (CASummaryCounts). Master thread.
void CASummary();

// The process's exit status: 0; 3 or 4 when the last run was not what `failwhen` demands
// (CAExitStatus). Valid once `done` is 1.
[[nodiscard]] int CARunStatus();
