// Global state of start-up and the master thread. Other global state is declared where it belongs:
// `ac` in config/CAcfg.h, `urlQueue`, `processedUrls`, `restingHosts` and `ht` in url/, `results`
// in report/CAresults.h, `workerThreads` in fetch/CAwork.h, `currentRun` in fetch/CArunNumber.h,
// `proxyGate` in fetch/CAproxyGate.h.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>

// Start of the current run: the date (HTtime), and the moment from which its duration is counted
// (HTUptime). Set by the main thread at start-up, then used by the master thread only.
extern std::time_t g_ca_timestarted;
extern std::time_t g_ca_uptimestarted;

// 1 when the last run is over. Written once by the master thread, just before it ends.
extern std::atomic<std::int32_t> done;

// The "LOCPATH=..." entry of the environment, or null. putenv() keeps the pointer, so it is never
// freed.
extern char *WWW_locpath;
