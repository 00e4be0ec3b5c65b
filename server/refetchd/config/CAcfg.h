// The agent's configuration: every setting, the lists behind the URL filters, and the streams of
// its logs. The one instance that is ever destroyed is `ac`; refetchd-check makes a second one to
// read the files again, which shares the streams of the two logs.
//
// The main thread fills it before any worker thread starts; worker threads only read it. What still
// changes then is used by the master thread alone: `repeatCount`, `hitsStream`, the contents of
// `reportStream`, and `workersLeft`.
//
// CAcfg.cpp           construction, destruction, file discovery, load()
// CAcfgLines.*        a configuration file as a sequence of directive lines
// CAdirectives.*      the table of directives
// CAsetters.*         what each directive sets
// CAargument.*        the kinds of arguments, and checks of them
// CAcfgSeeds.cpp      the seed URLs: lines that name them, URLs of lists, the proxy's hits file
// CAcfgLists.cpp      the files that `loadlist` names
// CAlistLines.*       such a file as a sequence of lines
// CAsitemapSeeds.*    the text of `loadsitemap` lines, and messages about sitemaps
// CAcfgFilters.cpp    which URLs are ignored, wanted or limited
// CAcfgReport.cpp     the report file: opening, placeholder page, renaming
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "HTList.h"
#include "HTLocale.h"
#include "HTMemory.h"
#include "HTWild.h"
#include "base/CAoutcome.h"
#include "base/CAtrace.h"
#include "base/CAwhen.h"
#include "config/CAoptions.h"
#include "config/CAvariant.h"

class CAConfigLines;
class CAQueue;
struct CADirective;
class CAURL;

// One `maxhosturls` entry.
struct HostLimit {
    HTPattern *pattern;  // owned; null: all other hosts
    std::int32_t max;    // most that a matching host may be charged (CAhost.h)
};

// The agent's debug modules (option -debug), as indexes of CAConfig::debugFlags.
enum CADebugModule : std::uint8_t {
    kDebugGetUrl = 1,
    kDebugParseUrl = 2,
};

// What the agent skips in a file although the administrator may have wanted it.
enum class CASkip : std::uint8_t {
    Alone,     // a word without an argument
    Unclosed,  // a block without an end, and with it the rest of the file
    BadHits,   // a malformed line of the hits file
};

// Receives what CAConfig::load() reads, on the same thread, so that refetchd-check can judge and
// show it. See CAConfig::observer.
class CAConfigObserver {
public:
    CAConfigObserver() = default;
    virtual ~CAConfigObserver() = default;
    CAConfigObserver(const CAConfigObserver &) = delete;
    CAConfigObserver &operator=(const CAConfigObserver &) = delete;

    // Called for each directive line of `file`, before it is applied. The text `file` lives as long
    // as the configuration; `row` is null when the agent has no such directive. The line's words
    // must not be changed.
    virtual void directive(const char *file, CAConfigLines *line, const CADirective *row) = 0;
    // Called for what is skipped: at line `number` of `file` in a configuration file, where `word`
    // is the word without an argument (otherwise empty). For each bad line of the hits file
    // `number` is 0.
    virtual void skipped(CASkip why, const char *file, int number, const char *word) = 0;
    // Called for each seed: `why` is None when it would be queued, otherwise the reason why not.
    // url.source() shows whether it comes from the last `loadurl`, `loadlist` or `loadsitemap` line
    // seen or from the hits file. Those with the role Robots come after all lines.
    virtual void seed(const CAURL &url, CADrop why) = 0;
    // Called when a list has been read, after its seeds: `fault` says what of it is left out, or
    // why it cannot be read; empty: nothing.
    virtual void listed(const std::string &fault) = 0;
};

inline constexpr std::int32_t kUnlimited = INT32_MAX;
inline constexpr const char *kDefaultUserAgent = "Mozilla/4.0 (emulation; QRX BUG)";
inline constexpr std::int32_t kMaxClients = 100;

class CAConfig {
public:
    CAConfig();
    // Finishes the report, closes the logs and frees most fields. If worker threads are still
    // running (see `workersLeft`), it only finishes the report and flushes the logs, because those
    // threads use the rest.
    ~CAConfig();
    CAConfig(const CAConfig &) = delete;
    CAConfig &operator=(const CAConfig &) = delete;

    // Adds the main configuration file, `name` or "/etc/tarnproxy.conf" for null, to `configFiles`
    // unless it is listed already. Ends the process with status 1 when memory is out.
    void DetermineFilename(const char *name);
    // Appends a copy of `name` to `configFiles` unless it is listed already.
    void addConfigFile(const char *name);

    // Switches on the debug module of this name; an unknown name is ignored.
    void debugModule(const char *module);

    // Reads all configuration files (`name` as for DetermineFilename), seeds `queue`, determines
    // the proxy, and prepares TLS. 1, or 0 when the agent cannot run: a file could not be opened,
    // no proxy is known, or TLS cannot be used (all reported). Main thread.
    [[nodiscard]] int load(CAQueue *queue, const char *name);

    // Applies the directives of one file. 1, or 0 when it could not be opened (reported).
    [[nodiscard]] int loadAgentConfig(CAQueue *queue, const char *file);

    // Seeds `queue` again for another run: the `loadurl`, `loadlist` and `loadsitemap` lines of all
    // files, then the hits file. Ends the messages about sitemaps of the run before.
    void reloadURLs(CAQueue *queue);
    // Makes the URL of a `loadurl` argument, counts it for its host, records it as processed and
    // enqueues it on `queue`, even if it was recorded before. False when `cachequeries` does not
    // allow its query (traced), or when memory is out.
    bool seedAdminUrl(CAQueue *queue, const char *argument);
    // The same for a URL of a list, but false also when it was recorded before.
    bool seedListUrl(CAQueue *queue, const char *text);
    // Seeds from the URLs of a list, the argument of a `loadlist` line. Returns how many. "-" is
    // standard input, which is read once in the process, and never with an observer. Faults of the
    // file and of its lines are reported.
    std::int32_t seedList(CAQueue *queue, const char *file);
    // Makes the URL of a `loadsitemap` line, counts it for its host, records it as processed and
    // enqueues it on `queue`, even if it was recorded before. `loadsitemap auto` is only noted, for
    // seedRobots(). False unless a URL was enqueued.
    bool seedSitemap(CAQueue *queue, const CAConfigLines &line);
    // With `loadsitemap auto`, the same for the robots.txt of each host of a `loadurl` line; reads
    // the files again for them. Returns how many there are.
    std::int32_t seedRobots(CAQueue *queue);
    // Seeds from the lines of one file that name seeds. 1, or 0 when it could not be opened (not
    // reported).
    int loadURLsInConfigFile(CAQueue *queue, const char *file);
    // Seeds from the first `topCachedCount` good lines of the hits file, always to `urlQueue`; the
    // arguments are unused. 1, or 0 when the file was not read: no lines are wanted, or it is not
    // possible (reported).
    int loadURLsInHitsFile(CAQueue *queue, const char *file);

    // The filters, for any thread. Each takes scratch memory from the calling thread's pool
    // (getMaxHits: from `pool`) and gives it back.
    // 1 when the URL matches an `ignoreurl` pattern (traced).
    [[nodiscard]] int ignoreURL(const CAURL *url) const;
    // 1 when `onlyurl` patterns exist and none matches (a match is traced).
    [[nodiscard]] int onlyCheck(const CAURL *url) const;
    // 1 when the URL has a query.
    [[nodiscard]] int queryURL(const CAURL *url) const;
    // 1 when `cachequeries` allows this URL with its query.
    [[nodiscard]] int cacheThisQuery(const CAURL *url) const;
    // The first `maxhosturls` limit that applies to `host`, for comparison with `ht`; 0: no limit.
    [[nodiscard]] std::int32_t getMaxHits(std::string_view host, HTPool *pool) const;

    // Writes "refetchd: " and this text to standard error, as a line; not with an observer, and not
    // when the trace, which has a line of its own for it, is there.
    void tell(const std::string &text) const;

    // Prepares TLS for all connections. Returns why that is not possible; empty on success. Main
    // thread.
    [[nodiscard]] std::string setUpTls() const;

    // Sets the paths of hits file and report from the server root. Without an observer it also
    // writes the placeholder page and opens the report in progress (traced, also if that fails).
    void setServerRoot(const char *root);

    std::int32_t repeatCount = 1;        // runs still to do, this one included; below 1: for ever
    std::int32_t requestsPerSecond = 0;  // below 1: no limit
    std::int32_t maxConnections = 0;     // below 1: no limit
    char *httpVersion;                   // owned
    FILE *&traceStream = g_ca_trace;     // null: no tracing
    FILE *reportStream = nullptr;        // the report in progress; null: none
    FILE *hitsStream = nullptr;          // only while the hits file is read
    FILE *&errorLogStream = g_ca_errorlog;
    std::int32_t topCachedCount = 0;  // good lines of the hits file to read
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
    char *hostname = nullptr;    // owned
    std::int64_t maxAnswer = 0;  // bytes of a response; below 1: no limit
    std::int32_t port = 80;      // after load() it is 443 with `proxytls`, unless a line names one
    std::int32_t persistTimeout = 240;  // seconds
    std::int32_t readTimeout = 4;       // seconds
    std::int32_t connectTimeout = 0;    // seconds, for resolving and connecting; below 1: none
    std::int32_t answerTimeout = 0;     // seconds, for a whole response; below 1: no limit
    std::int32_t retries = 0;           // most retries of a URL
    std::int32_t retryAfter = 0;        // flag: pauses that a host asks for are respected
    std::int32_t progressSeconds = 0;   // between two lines of progress; below 1: none
    std::int32_t summaryLine = 0;       // flag: each run is summed up on standard error
    std::int32_t failWhen = -1;         // percentage for the exit status; below 0: none
    std::int32_t breadthFirst = 0;      // flag: URLs are requested level by level
    std::int32_t breadthWait = 30;      // seconds that a level waits for answers; 0: no limit
    std::int32_t maxLoad = 0;           // load for each processor, in thousandths; below 1: none
    std::int32_t delayFactor = 0;       // times an answer's time, in thousandths; below 1: none
    std::int32_t slowStart = 0;         // seconds until all clients work; below 1: none
    std::int32_t latencyLimit = 0;      // milliseconds, for the answers of a host; below 1: none
    std::int32_t hostConnections = 0;   // most requests at a time to a host; below 1: no limit
    std::int32_t wakeClients = 0;       // flag: waiting threads are woken before their poll
    std::int32_t limitsPerRun = 0;      // flag: `maxurls` and `maxhosturls` count for one run
    std::int32_t proxyTls = 0;          // flag: connections are TLS
    std::int32_t proxyTlsVerify = 1;    // flag: certificates are verified
    char *proxyTlsCa = nullptr;         // owned; file of trusted certificates; null: the system's
    char *userAgent = nullptr;          // owned; null: the built-in text
    char *requestHeaders = nullptr;     // owned; whole lines with CR LF; null: none
    // Each URL is requested once for each; empty: once. Owned.
    std::vector<CAVariant> &variants = *new std::vector<CAVariant>;

    // With an observer the configuration is only examined: load() opens no file for writing and
    // queues no seed. Set before load(); not owned.
    CAConfigObserver *observer = nullptr;

    CAParseOptions parseOptions;

    bool namesPort = false;    // there is a `port` line
    bool isInputRead = false;  // a `loadlist -` line has read standard input

    // The age limit of `loadsitemap auto` in seconds, 0 without a limit; below 0: no such line.
    std::int32_t robotsSince = -1;

    // True when worker threads are still running that may use this object. Set by the master thread
    // after the last run, read by the destructor.
    bool workersLeft = false;

private:
    [[nodiscard]] int determineProxy();
    [[nodiscard]] bool prepareTls();
    [[nodiscard]] bool canEnd(const CAQueue &queue) const;
    void checkProxyHost();
    void finishReport();
};

extern CAConfig ac;

// Puts the report of an earlier process back in place of the placeholder, if there was one and no
// new one has taken its place; not while another agent shares the report in progress. Safe in a
// signal handler.
void CAPutBackReport();

// Owned heap strings, null until the configuration sets them.
extern char *g_catrace_filename;   // path of the report; ends in ".tmp" until it is finished
extern char *g_ca_service_prefix;  // goes in front of the requests' targets
extern char *g_ca_hits_filename;   // path of the hits file

// The locale's name, which is a directory in the report's path. Set at start-up, before the
// configuration is read.
extern char refetchd_LocaleString[kLocaleNameSize];
