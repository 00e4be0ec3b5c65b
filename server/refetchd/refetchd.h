// The agent's process-wide state. It is created by the main thread before any other thread exists;
// what changes later says so.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>

#include "HTHash.h"
#include "HTLocale.h"
#include "config/CAcfg.h"
#include "url/CAURL.h"

class CAQueue;
class CARestTable;
class CAWorkerThread;

// `ac` (CAcfg.h) and `ht` (CAURL.h) are defined here too, in this order, so that `ht` goes first at
// process exit.

// Path of the report; it ends in ".tmp" while the run writes the report. Owned heap strings, null
// until the configuration names them.
extern char *g_catrace_filename;
extern char *g_ca_service_prefix;
extern char *g_ca_hits_filename;

// Start of the current run; the master thread's once it runs.
extern std::time_t g_ca_timestarted;

// The URLs to fetch. Freed and cleared by the master after the last run, when all workers are gone.
extern CAQueue *urlQueue;

// Hosts that are left alone for a while. It lives until the process ends, as a worker may.
extern CARestTable *const restingHosts;

// Changes with the end of each run: what was taken before is not tried again in the next.
extern std::atomic<std::uint32_t> currentRun;

// Text forms of the URLs that were taken in this run, shared with the URLs' own records
// (HTShared.h); it has its own lock. Freed as `urlQueue` is.
extern HashTable *processedUrls;

// ac.numClients worker records; null until the workers are started. Slots are cleared as the master
// deletes their workers.
extern CAWorkerThread **workerThreads;

// 1 when all repeats are over: written once by the master thread, polled by the main thread.
extern std::atomic<std::int32_t> done;

// All waiting is by looking again after so long.
inline constexpr std::uint32_t kPollMilliseconds = 1000;

extern char refetchd_LocaleString[kLocaleNameSize];
extern char *WWW_locpath;

// Callbacks of `processedUrls`, whose items and keys are URL texts.
std::uint32_t UrlHasher(std::uint32_t size, const void *key);
int UrlComparator(const void *a, const void *b);

// Records `url`'s text in `processedUrls` unless it is there already. Any thread that owns `url`.
void CARecordProcessed(const CAURL *url);
