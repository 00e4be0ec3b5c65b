// The agent's configuration: every setting, the lists behind the URL filters, and the streams of
// its logs. The one instance is `ac`.
//
// The main thread fills it before any worker starts; from then on workers only read it. What
// changes later is the master thread's alone: `repeatCount`, `hitsStream`, the page behind
// `reportStream`, and `workersLeft`.
//
// CAcfg.cpp           life, file discovery, load()
// CAcfgLines.*        a configuration file as a sequence of directive lines
// CAdirectives.*      the table of directives
// CAsetters.*         what each directive sets
// CAargument.*        what its arguments have to be
// CAcfgSeeds.cpp      the seed URLs: `loadurl` lines and the proxy's hits file
// CAcfgFilters.cpp    which URLs are ignored, wanted or limited
// CAcfgReport.cpp     the report file: opening, placeholder page, renaming
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "HTList.h"
#include "HTLocale.h"
#include "HTMemory.h"
#include "HTWild.h"
#include "base/CAoutcome.h"
#include "base/CAtrace.h"
#include "base/CAwhen.h"
#include "config/CAoptions.h"

class CAConfigLines;
class CAQueue;
struct CADirective;
class CAURL;

// One `maxhosturls` entry.
struct HostLimit {
    HTPattern *pattern;  // null: all other hosts
    std::int32_t max;    // most requests for a matching host
};

// Numbers of the agent's debug modules (option -debug), index of CAConfig::debugFlags.
enum CADebugModule : std::uint8_t {
    kDebugGetUrl = 1,
    kDebugParseUrl = 2,
};

// What is left out of a file that is read, though somebody may have meant it.
enum class CASkip : std::uint8_t {
    Alone,     // a word without an argument
    Unclosed,  // all from the start of a block on, for nothing ends it
    BadHits,   // a line of the hits file that is none
};

// Hears what a configuration says while CAConfig::load() reads it, on the same thread.
class CAConfigObserver {
public:
    CAConfigObserver() = default;
    virtual ~CAConfigObserver() = default;
    CAConfigObserver(const CAConfigObserver &) = delete;
    CAConfigObserver &operator=(const CAConfigObserver &) = delete;

    // A line of `file` (which lives as long as the configuration), before it is applied; `row` is
    // null when the agent has no such directive. The line's words are not to be changed.
    virtual void directive(const char *file, CAConfigLines *line, const CADirective *row) = 0;
    // What is left out, from line `number` of `file` on; `word` is what stands alone. Of the hits
    // file only that there is another such line.
    virtual void skipped(CASkip why, const char *file, int number, const char *word) = 0;
    // A seed that would be queued, or that something stands against: of the directive heard of
    // last, or of the hits file, as its source says.
    virtual void seed(const CAURL &url, CADrop why) = 0;
};

inline constexpr std::int32_t kUnlimited = INT32_MAX;
inline constexpr const char *kDefaultUserAgent = "Mozilla/4.0 (emulation; QRX BUG)";
inline constexpr std::int32_t kMaxClients = 100;

class CAConfig {
public:
    CAConfig();
    // Finishes the report, closes the logs and frees. While workers are left running (see
    // `workersLeft`) the logs are only flushed and nothing is freed: those threads still read it.
    ~CAConfig();
    CAConfig(const CAConfig &) = delete;
    CAConfig &operator=(const CAConfig &) = delete;

    // Adds the main configuration file to `configFiles` unless it is there already: `name`, or
    // "/etc/tarnproxy.conf" for null. Ends the process with status 1 when memory is out.
    void DetermineFilename(const char *name);
    // Adds another file to `configFiles`, unless it is there already.
    void addConfigFile(const char *name);

    // Switches on a debug module by its name; an unknown name is ignored.
    void debugModule(const char *module);

    // Reads all configuration files (`name` as for DetermineFilename), seeds `queue`, and settles
    // which proxy is talked to. 1, or 0 when the agent cannot run: a file could not be opened, or
    // no proxy is known (both reported). Main thread.
    [[nodiscard]] int load(CAQueue *queue, const char *name);

    // Applies the directives of one file. 1, or 0 when it could not be opened (reported).
    [[nodiscard]] int loadAgentConfig(CAQueue *queue, const char *file);

    // Seeds `queue` again for another run: the `loadurl` lines of all files, then the hits file.
    void reloadURLs(CAQueue *queue);
    // Makes the URL of a `loadurl` argument and enqueues it on `queue`, counted for its host and
    // recorded as processed. False when its query may not be loaded (traced).
    bool seedAdminUrl(CAQueue *queue, const char *argument);
    // The `loadurl` lines of one file. 1, or 0 when it could not be opened (silently).
    int loadURLsInConfigFile(CAQueue *queue, const char *file);
    // The top `topCachedCount` lines of the hits file, always onto `urlQueue`. Arguments are
    // unused. 1, or 0 when nothing was read: none wanted, or not
    // possible (reported).
    int loadURLsInHitsFile(CAQueue *queue, const char *file);

    // The filters. Each takes scratch memory from the calling thread's pool and gives it back.
    // 1 when the URL matches an `ignoreurl` pattern (traced).
    [[nodiscard]] int ignoreURL(const CAURL *url) const;
    // 1 when `onlyurl` patterns exist and none matches (a match is traced).
    [[nodiscard]] int onlyCheck(const CAURL *url) const;
    // 1 when the URL has a query.
    [[nodiscard]] int queryURL(const CAURL *url) const;
    // 1 when queries of this URL may be loaded.
    [[nodiscard]] int cacheThisQuery(const CAURL *url) const;
    // The most requests for `host` by the first `maxhosturls` entry that applies; 0: no limit.
    [[nodiscard]] std::int32_t getMaxHits(std::string_view host, HTPool *pool) const;

    // Takes the server root: sets the paths of hits file and report, writes the report's
    // placeholder page, and opens the report in progress.
    void setServerRoot(const char *root);

    std::int32_t repeatCount = 1;        // runs still to do; below 1: for ever
    std::int32_t requestsPerSecond = 0;  // below 1: no limit
    std::int32_t maxConnections = 0;     // below 1: no limit
    char *httpVersion;                   // owned
    FILE *&traceStream = g_ca_trace;     // null: no tracing
    FILE *reportStream = nullptr;        // the report in progress
    FILE *hitsStream = nullptr;          // only while the hits file is read
    FILE *&errorLogStream = g_ca_errorlog;
    std::int32_t topCachedCount = 0;  // lines of the hits file to look at
    HTList *ignorePatterns;           // of HTPattern, newest first
    std::int32_t ignoreCount = 0;
    HTList *onlyPatterns;  // of HTPattern, newest first
    std::int32_t onlyCount = 0;
    HTList *hostLimits = nullptr;               // of HostLimit, in file order; made on first use
    std::array<std::int32_t, 10> debugFlags{};  // by CADebugModule
    std::int32_t loadInlineImages = 1;
    _when delveInto = ALWAYS;
    std::int32_t delveDepth = 0;
    std::int32_t delveAcrossHosts = 0;
    std::int32_t numClients = 4;
    std::int32_t delayMs = 0;
    std::int32_t maxQueueDepth = kUnlimited;
    std::int32_t maxUrls = kUnlimited;
    std::int32_t maxRuntime = 0;  // seconds; 0: no limit
    std::int32_t seedCount = 0;
    std::int32_t adminUrlCount = 0;
    char *saveRoot = nullptr;  // owned; ends in "/"
    std::int32_t saveFiles = 0;
    std::int32_t stressMode = 0;
    std::int32_t transparentProxy = 0;
    std::int32_t cacheAllQueries = 0;
    HTList *queryPatterns;  // of HTPattern, newest first
    std::int32_t queryPatternCount = 0;
    std::int32_t connectToHost = 0;
    HTList *configFiles;           // of heap strings, in order
    char *updateProxy = nullptr;   // owned; "host:port"
    char *errorLogPath = nullptr;  // owned
    _when caching = NEVER;
    char *hostname = nullptr;  // owned
    std::int32_t port = 80;
    std::int32_t persistTimeout = 240;  // seconds
    std::int32_t readTimeout = 4;       // seconds
    std::int32_t retries = 0;           // of a URL whose exchange broke before an answer
    std::int32_t retryAfter = 0;        // flag: hosts that ask for it are left alone for a while
    std::int32_t progressSeconds = 0;   // between two lines of progress; below 1: none
    std::int32_t breadthFirst = 0;      // flag: the shallowest URLs first
    char *userAgent = nullptr;          // owned; null: the built-in text
    char *requestHeaders = nullptr;     // owned; whole lines with their ends, null for none

    // With an observer the configuration is only looked at: load() opens no file for writing and
    // queues no seed. Set before load(); stays the caller's.
    CAConfigObserver *observer = nullptr;

    CAParseOptions parseOptions;

    // Set by the master thread, read at process exit: worker threads were left behind that may
    // still use this object.
    bool workersLeft = false;

private:
    [[nodiscard]] int determineProxy();
    void checkProxyHost();
    void finishReport();
};

extern CAConfig ac;

// Path of the report; it ends in ".tmp" while the run writes the report. Prefix of the requests'
// targets. Path of the hits file. Owned heap strings, null until the configuration names them.
extern char *g_catrace_filename;
extern char *g_ca_service_prefix;
extern char *g_ca_hits_filename;

// The locale's name, a level of the report's path. Set at start-up, before the configuration is
// read.
extern char refetchd_LocaleString[kLocaleNameSize];
