// The observer of URLs: what became of each, as lines of a results log, and the counts of a run, as
// a metrics file. Both are wanted by directives only; without them nothing is observed.
//
// The log is a line of JSON a URL. It is opened for appending with the first line of a run and
// closed with the run, so that it may be moved away between two runs, and written in whole lines: a
// run that is killed leaves no half line. The metrics file has the counts of the last run that
// ended, in the text format of Prometheus; it is replaced in one step.
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
#include "report/CAmetrics.h"
#include "report/CAverdict.h"

// Milliseconds since the epoch, for CAExchange::started.
[[nodiscard]] std::int64_t CANowMilliseconds();

class CAURL;

class CAResults {
public:
    CAResults() = default;
    // Closes the log. What was not written stays unwritten.
    ~CAResults();
    CAResults(const CAResults &) = delete;
    CAResults &operator=(const CAResults &) = delete;

    // What the directives ask for: paths, and seconds between two lines of progress (below 1:
    // none). Main thread, before any other exists; nothing is opened yet. URLs that are dropped
    // before the line that names the log are not in it.
    void setLog(const char *path);
    void setMetricsFile(const char *path) { metricsPath_ = path; }

    // True when URLs are observed. Ask first: nobody wants to hear of them otherwise.
    [[nodiscard]] bool observes() const { return lines_ != nullptr || !metricsPath_.empty(); }

    // A URL that is not asked for, and one that was. It belongs to the run in which this is called,
    // or that is seeded then. What was taken before is no news, and left out. Any thread.
    void dropped(std::string_view url, _source source, std::int32_t depth, CADrop why);
    void finished(const CAURL &url, const CAExchange &exchange);

    // What `client` (from 0) is at from now on; null, or when that is finished: nothing. The URL
    // stays the caller's, who says so before it goes. Any thread.
    void setInFlight(std::int32_t client, const CAURL *url);

    // Writes the lines that wait, for who watches the log or kills the agent. Any thread.
    void flush();

    // Ends a run that was started then and took so long, with so many URLs left in the queue:
    // closes the log, writes the metrics file (failures are traced and in the error log), and
    // starts new counts. With the last run what is still in flight has failed, and nothing that
    // comes later is heard. Master thread.
    void endRun(std::time_t started, std::int32_t seconds, std::int32_t queueLeft,
                bool isLast = false);

    // Of the run that ended last: answers with status 200, how many of them were the cache's own
    // copies, and whether those were more than half, although every request asks for fresh ones.
    // Master thread.
    [[nodiscard]] std::int32_t answers200() const { return last_.answers200; }
    [[nodiscard]] std::int32_t agedHits() const { return last_.agedHits; }
    [[nodiscard]] bool cacheIgnoresUs() const { return last_.agedHits > last_.answers200 / 2; }

private:
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
        CAExchange exchange;
    };

    struct Flight {
        const CAURL *url = nullptr;
        std::int64_t started = 0;
    };

    [[nodiscard]] int tellFlightsLocked() HT_REQUIRES(mutex_);
    [[nodiscard]] int tellLocked(const Record &record) HT_REQUIRES(mutex_);
    void countLocked(const Record &record) HT_REQUIRES(mutex_);
    [[nodiscard]] int openLocked() HT_REQUIRES(mutex_);
    [[nodiscard]] int addLineLocked(const Record &record) HT_REQUIRES(mutex_);
    [[nodiscard]] int flushLocked() HT_REQUIRES(mutex_);
    [[nodiscard]] int closeLocked() HT_REQUIRES(mutex_);

    std::string logPath_;
    std::string metricsPath_;
    CATally last_;  // the master's

    // Held while lines go to the file, too, for a worker may be late and come when it is closed.
    PMutex mutex_;
    std::unique_ptr<Lines> lines_;  // made with the path; its bytes are guarded
    std::size_t used_ HT_GUARDED_BY(mutex_) = 0;
    int file_ HT_GUARDED_BY(mutex_) = -1;
    bool failed_ HT_GUARDED_BY(mutex_) = false;  // in this run, and said so
    bool isOver_ HT_GUARDED_BY(mutex_) = false;  // the last run has ended
    CATally tally_ HT_GUARDED_BY(mutex_);
    std::vector<Flight> flights_ HT_GUARDED_BY(mutex_);  // by client
};

// It lives until the process ends, as a worker may.
extern CAResults &results;
