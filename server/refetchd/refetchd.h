// State of the process that the agent's start-up and its master thread share. The rest of the
// process-wide state is declared with what it belongs to: `ac` in config/CAcfg.h, `urlQueue`,
// `processedUrls` and `ht` in url/, `workerThreads` in fetch/CAwork.h.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>

// Start of the current run; the master thread's once it runs.
extern std::time_t g_ca_timestarted;

// 1 when all repeats are over: written once by the master thread, polled by the main thread.
extern std::atomic<std::int32_t> done;

// The "LOCPATH=..." entry of the environment, which must stay as long as the process; or null.
extern char *WWW_locpath;
