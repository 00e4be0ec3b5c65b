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
#include "report/CAverdict.h"
#include "url/CAURL.h"

// One request and what came back.
struct CAExchange {
    std::int32_t status = 0;              // 0: no status line came
    CAFailure failure = CAFailure::None;  // why none came
    std::int64_t bytes = 0;               // of the response
    std::int64_t started = 0;             // milliseconds since the epoch
    std::int64_t milliseconds = 0;        // from the start to the last byte
    CACacheHeaders headers = {};          // of the answer
};

// Milliseconds since the epoch, for CAExchange::started.
[[nodiscard]] std::int64_t CANowMilliseconds();

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
    void setProgress(std::int32_t seconds) { progressSeconds_ = seconds; }

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
    // begins to count anew. With the last run what is still in flight has failed, and nothing that
    // comes later is heard. Master thread.
    void endRun(std::time_t started, std::int32_t seconds, std::int32_t queueLeft,
                bool isLast = false);

    // Of the run that ended last: answers with status 200, how many of them were the cache's own
    // copies, and whether those were more than half, although every request asks for fresh ones.
    // Master thread.
    [[nodiscard]] std::int32_t answers200() const { return last_.answers200; }
    [[nodiscard]] std::int32_t agedHits() const { return last_.agedHits; }
    [[nodiscard]] bool cacheIgnoresUs() const { return last_.agedHits > last_.answers200 / 2; }

    // True once in each interval of a run, `elapsed` seconds after its start. Master thread.
    [[nodiscard]] bool progressIsDue(std::int32_t elapsed);

private:
    static constexpr std::size_t kSources = 2;
    static constexpr std::size_t kClasses = 5;
    static constexpr std::size_t kMaxLine = 32768;
    static constexpr std::size_t kFlushAt = 65536;
    using Lines = std::array<char, kFlushAt + kMaxLine>;

    struct Tally {
        std::array<std::array<std::int32_t, kVerdicts>, kSources> urls{};
        std::array<std::int32_t, kClasses> responses{};
        std::array<std::int32_t, kDrops> drops{};
        std::int64_t bytes = 0;
        std::int32_t answers200 = 0;
        std::int32_t agedHits = 0;
    };

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
    void writeMetrics(std::time_t started, std::int32_t seconds, std::int32_t queueLeft) const;

    std::string logPath_;
    std::string metricsPath_;
    std::int32_t progressSeconds_ = 0;
    std::int32_t lastProgress_ = 0;  // the master's
    Tally last_;                     // the master's

    // Held while lines go to the file, too, for a worker may be late and come when it is closed.
    PMutex mutex_;
    std::unique_ptr<Lines> lines_;  // made with the path; its bytes are guarded
    std::size_t used_ HT_GUARDED_BY(mutex_) = 0;
    int file_ HT_GUARDED_BY(mutex_) = -1;
    bool failed_ HT_GUARDED_BY(mutex_) = false;  // in this run, and said so
    bool isOver_ HT_GUARDED_BY(mutex_) = false;  // the last run has ended
    Tally tally_ HT_GUARDED_BY(mutex_);
    std::vector<Flight> flights_ HT_GUARDED_BY(mutex_);  // by client
};

// It lives until the process ends, as a worker may.
extern CAResults &results;

// The counts that a line of progress tells.
struct CAProgress {
    std::int32_t done = 0;
    std::int32_t succeeded = 0;
    std::int32_t queued = 0;
    std::int32_t busy = 0;
    std::int32_t elapsed = 0;     // seconds
    std::int32_t maxRuntime = 0;  // seconds; below 1: no limit
};

// Writes the line, with its end and a NUL, into `buffer`, cut off where that is too short.
void CAFormatProgress(char *buffer, std::size_t size, const CAProgress &progress);
