// Collects the outcome of each URL, for a results log, for a metrics file, and for what is said
// about a run at its end. Each of these has its directive; without all of them nothing is
// collected.
//
// The log has one line of JSON for each URL. URLs that were dropped have theirs at the end of the
// run, if they were not requested after all. The log is opened for appending with the first line of
// a run and closed when the run ends, so it can be moved away between two runs. It is written in
// whole lines: a run that is killed leaves no half line. The metrics file holds the counts of the
// last run that ended, in the text format of Prometheus; it is replaced in one step.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/CAoutcome.h"
#include "htthread.h"
#include "report/CAclosing.h"
#include "report/CAdropped.h"
#include "report/CAjson.h"
#include "report/CAmetrics.h"
#include "report/CAvary.h"
#include "report/CAverdict.h"

// Milliseconds since the epoch, for CAExchange::started.
[[nodiscard]] std::int64_t CANowMilliseconds();

class CAURL;

class CAResults {
public:
    CAResults() = default;
    // Closes the log; lines that were not flushed are lost.
    ~CAResults();
    CAResults(const CAResults &) = delete;
    CAResults &operator=(const CAResults &) = delete;

    // Set the paths of the two files, which are opened later. Main thread, before any other thread
    // exists. Without `logsDrops` the log does not list dropped URLs. A second path for the log
    // closes the first one, after writing its lines.
    void setLog(const char *path, bool logsDrops = true);
    void setMetricsFile(const char *path) { metricsPath_ = path; }
    // The headers with which the agent asks as visitors do, by name. Main thread, as above.
    void setSentHeaders(std::vector<std::string> names);

    // Has outcomes collected even without one of the files. Main thread, as above.
    void collect() { isCollecting_ = true; }
    // Has each run end with a line of its own in the log, if there is one. Main thread, as above.
    void logRuns(bool logs) { logsRuns_ = logs; }

    // True when outcomes are collected; only then call dropped(), finished(), setInFlight() and
    // endRun(). Any thread.
    [[nodiscard]] bool observes() const
    {
        return isCollecting_ || lines_ != nullptr || !metricsPath_.empty();
    }
    // True when there is a log. Any thread.
    [[nodiscard]] bool isLogged() const { return lines_ != nullptr; }

    // Report a URL that is not requested, or one that is finished (requested, or given up because
    // the run is over). It counts for the current run, or for the one that is being seeded.
    // dropped() ignores CADrop::None and CADrop::Processed, and URLs that were dropped or requested
    // before in the run; it is false for these. Any thread.
    bool dropped(std::string_view url, _source source, std::int32_t depth, CADrop why);
    void finished(const CAURL &url, const CAExchange &exchange);

    // Reports links of a page that were dropped without regard to their URLs, because dropped() was
    // called for CADropped::kMostOfPage others, repeated ones included. Any thread.
    void droppedMore(const CAURL &page, std::int64_t links);

    // Notes which URL worker thread number `client` (from 0) works on, and the numbers of its first
    // and last variant that were not reported (from 1; 0: there are none); null: no URL. finished()
    // clears the note, too. The URL stays the caller's, who clears the note before deleting it. Any
    // thread.
    void setInFlight(std::int32_t client, const CAURL *url, std::int32_t variant = 0,
                     std::int32_t lastVariant = 0);

    // Writes the buffered lines, so that a reader sees them and a kill does not lose them. Any
    // thread.
    void flush();

    // Ends a run: logs the URLs that were dropped and, after logRuns(), a line about the run; then
    // closes the log, writes the metrics file, and starts new counts. If `isLast`, URLs still in
    // flight are logged as failed, and all later reports are ignored. Failures are traced and
    // written to the error log. Master thread.
    void endRun(std::time_t started, const CAClosing &closing, bool isLast = false);

    // Closes the log, after writing its lines; the next line opens it again. Master thread.
    void reopen();

    // Between two runs, when none follows: logs the URLs still in flight as failed, closes the log,
    // and ignores all later reports. Master thread.
    void stop();

    // The counts of the run that ended last; until then all are 0. Master thread.
    [[nodiscard]] const CATally &lastRun() const { return last_; }

    // About the run that ended last: the responses with status 200; how many of them the cache
    // served from its copies although the origin did not fail; and whether those were more than
    // half, which means that the proxy ignores the agent's requests for fresh copies. Master
    // thread.
    [[nodiscard]] std::int32_t answers200() const { return last_.answers200; }
    [[nodiscard]] std::int32_t agedHits() const { return last_.agedHits; }
    [[nodiscard]] bool cacheIgnoresUs() const { return last_.agedHits > last_.answers200 / 2; }
    // The pages of that run which vary by headers that the agent does not send; and these headers.
    [[nodiscard]] std::int32_t varyingPages() const { return lastVary_.pages(); }
    [[nodiscard]] std::string varyingBy() const { return lastVary_.names(); }

private:
    static constexpr std::size_t kMaxUrl = 2048;  // bytes of the log for a URL
    static constexpr std::size_t kMaxLine = 32768;
    static constexpr std::size_t kFlushAt = 65536;
    using Lines = std::array<char, kFlushAt + kMaxLine>;

    // One line of the log.
    struct Record {
        std::string_view url;
        _source source;
        std::int32_t depth;
        CAVerdict verdict;
        std::int32_t age;      // below 0: none
        std::string_view why;  // empty: none
        bool isOldCopy = false;
        CAExchange exchange;
        std::size_t length = 0;  // of the whole URL, if `url` is cut already
        std::int64_t more = 0;   // this many links, of which `url` is the page
    };

    struct Flight {
        const CAURL *url = nullptr;
        std::int32_t variant = 0;
        std::int32_t lastVariant = 0;
        std::int64_t started = 0;  // the date, as in CAExchange
        std::int64_t since = 0;    // the same moment by HTUptimeMillis()
        std::uint64_t key = 0;     // of the URL, for CADropped
        std::uint32_t run = 0;     // in which the URL was reported as requested to CADropped
    };

    void endFlightLocked(const CAURL &url) HT_REQUIRES(mutex_);

    [[nodiscard]] int tellFlightsLocked() HT_REQUIRES(mutex_);
    [[nodiscard]] int tellFlightLocked(const Flight &flight) HT_REQUIRES(mutex_);
    [[nodiscard]] int tellLocked(const Record &record) HT_REQUIRES(mutex_);
    [[nodiscard]] int tellDropsLocked() HT_REQUIRES(mutex_);
    [[nodiscard]] int tellMoreLocked(const Record &record) HT_REQUIRES(mutex_);
    CADropped &dropsLocked() HT_REQUIRES(mutex_);
    [[nodiscard]] int openLocked() HT_REQUIRES(mutex_);
    template <typename Put>
    [[nodiscard]] int putLineLocked(std::int64_t time, Put put) HT_REQUIRES(mutex_);
    static void putUrl(const Record &record, CAJsonWriter &line);
    [[nodiscard]] int addLineLocked(const Record &record) HT_REQUIRES(mutex_);
    [[nodiscard]] int flushLocked() HT_REQUIRES(mutex_);
    [[nodiscard]] int closeLocked() HT_REQUIRES(mutex_);
    [[nodiscard]] int stopLocked() HT_REQUIRES(mutex_);
    [[nodiscard]] int addRunLocked(std::time_t started, const CAClosing &closing)
        HT_REQUIRES(mutex_);

    std::string logPath_;
    std::string metricsPath_;
    bool isCollecting_ = false;
    bool logsRuns_ = false;
    CATally last_;          // the master thread's
    CAVaryCount lastVary_;  // the same

    // Also held while lines are written to the file, because a late worker thread may report while
    // the master thread closes it.
    PMutex mutex_;
    std::unique_ptr<Lines> lines_;  // null without a log; the lock guards its bytes
    std::size_t used_ HT_GUARDED_BY(mutex_) = 0;
    int file_ HT_GUARDED_BY(mutex_) = -1;
    bool failed_ HT_GUARDED_BY(mutex_) = false;  // an error of this run was reported already
    bool isOver_ HT_GUARDED_BY(mutex_) = false;  // the last run has ended
    bool logsDrops_ HT_GUARDED_BY(mutex_) = false;
    CATimeText time_ HT_GUARDED_BY(mutex_);
    std::unique_ptr<CADropped> drops_ HT_GUARDED_BY(mutex_);  // of the current run; null: none yet
    std::uint32_t run_ HT_GUARDED_BY(mutex_) = 1;             // counts them
    CATally tally_ HT_GUARDED_BY(mutex_);
    CAVaryCount vary_ HT_GUARDED_BY(mutex_);
    std::vector<Flight> flights_ HT_GUARDED_BY(mutex_);  // by client
};

// The process's one instance. Never deleted, because a worker thread may outlive the last run.
extern CAResults &results;
