#include "report/CAresults.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>

#include "base/CAtrace.h"
#include "report/CAjson.h"

CAResults &results = *new CAResults;

std::int64_t CANowMilliseconds()
{
    using std::chrono::milliseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<milliseconds>(now).count();
}

namespace {

constexpr std::string_view kSourceNames[] = {"admin", "topn"};

constexpr std::size_t indexOf(_source source)
{
    return source == SOURCE_HITS ? 1 : 0;
}

template <typename Enum>
constexpr std::size_t indexOf(Enum value)
{
    return static_cast<std::size_t>(value);
}

void reportFailure(const std::string &path, int error)
{
    if (error == 0) {
        return;
    }
    CATrace("Results..... could not write \"%s\"; errno=%d.\n", path.c_str(), error);
    CAErrorLog(957, "Could not write \"%s\".\n", path.c_str());
}

}  // namespace

CAResults::~CAResults()
{
    if (file_ >= 0) {
        close(file_);
    }
}

void CAResults::setLog(const char *path)
{
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        error = closeLocked();
        if (lines_ == nullptr) {
            lines_.reset(new Lines);
        }
    }
    reportFailure(logPath_, error);
    logPath_ = path;
}

void CAResults::dropped(std::string_view url, _source source, std::int32_t depth, CADrop why)
{
    if (why == CADrop::None || why == CADrop::Processed) {
        return;
    }
    const Record record{.url = url,
                        .source = source,
                        .depth = depth,
                        .verdict = CAVerdict::Dropped,
                        .age = -1,
                        .why = CADropName(why),
                        .exchange = {.started = CANowMilliseconds()}};
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        tally_.drops[indexOf(why)] += isOver_ ? 0 : 1;
        error = tellLocked(record);
    }
    reportFailure(logPath_, error);
}

void CAResults::finished(const CAURL &url, const CAExchange &exchange)
{
    const CAJudgement judged = CAJudge(exchange.status, exchange.headers, exchange.started / 1000,
                                       static_cast<std::int32_t>(exchange.milliseconds / 1000));
    std::array<char, 24> status{};
    Record record{.url = url.stringitize(),
                  .source = url.source(),
                  .depth = url.depth(),
                  .verdict = judged.verdict,
                  .age = judged.age,
                  .why = "",
                  .exchange = exchange};
    if (exchange.status != 0 && exchange.failure != CAFailure::None) {
        record.verdict = CAVerdict::Failed;
        record.age = -1;
        record.why = exchange.failure == CAFailure::TimedOut ? "timed out within the answer"
                                                             : "connection broke within the answer";
    } else if (exchange.status == 0) {
        record.why = CAFailureText(exchange.failure);
    } else if (judged.verdict == CAVerdict::Failed) {
        std::snprintf(status.data(), status.size(), "status %d", exchange.status);
        record.why = status.data();
    }
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        for (Flight &flight : flights_) {
            flight.url = flight.url == &url ? nullptr : flight.url;
        }
        error = tellLocked(record);
    }
    reportFailure(logPath_, error);
}

void CAResults::setInFlight(std::int32_t client, const CAURL *url)
{
    const std::int64_t now = url != nullptr ? CANowMilliseconds() : 0;
    const auto index = static_cast<std::size_t>(client);
    const PMutexGuard guard(mutex_);
    if (index >= flights_.size()) {
        flights_.resize(index + 1);
    }
    flights_[index] = {url, now};
}

// Each of these returns 0, or the error number that is to be reported: the first of a run.

int CAResults::tellFlightsLocked()
{
    int error = 0;
    for (const auto &[url, started] : flights_) {
        if (url != nullptr) {
            const int failed = tellLocked({.url = url->stringitize(),
                                           .source = url->source(),
                                           .depth = url->depth(),
                                           .verdict = CAVerdict::Failed,
                                           .age = -1,
                                           .why = CAFailureText(CAFailure::Stopped),
                                           .exchange = {.started = started,
                                                        .milliseconds = std::max<std::int64_t>(
                                                            CANowMilliseconds() - started, 0)}});
            error = error == 0 ? failed : error;
        }
    }
    return error;
}

int CAResults::tellLocked(const Record &record)
{
    if (isOver_) {
        return 0;
    }
    countLocked(record);
    return addLineLocked(record);
}

void CAResults::countLocked(const Record &record)
{
    const std::int32_t status = record.exchange.status;
    ++tally_.urls[indexOf(record.source)][indexOf(record.verdict)];
    tally_.bytes += record.exchange.bytes;
    if (status >= 100 && status < 600) {
        ++tally_.responses[static_cast<std::size_t>(status / 100 - 1)];
    }
    if (status == 200) {
        ++tally_.answers200;
        tally_.agedHits += record.verdict == CAVerdict::FromCache ? 1 : 0;
    }
}

int CAResults::openLocked()
{
    if (failed_) {
        return 0;
    }
    // Not blocking: a log that is a pipe which nobody reads must not hold the agent up.
    file_ = open(logPath_.c_str(),
                 O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    if (file_ >= 0) {
        return 0;
    }
    failed_ = true;
    return errno;
}

int CAResults::addLineLocked(const Record &record)
{
    if (lines_ == nullptr) {
        return 0;
    }
    if (const int error = file_ < 0 ? openLocked() : 0; file_ < 0) {
        return error;
    }
    char *const start = lines_->data() + used_;
    CAJsonWriter line(start, start + (kMaxLine - CAJsonWriter::kTail));
    line << "{\"time\":";
    line.time(record.exchange.started);
    line << ",\"url\":";
    line.quote(record.url);
    line << ",\"source\":\"" << kSourceNames[indexOf(record.source)]
         << "\",\"depth\":" << record.depth << ",\"status\":" << record.exchange.status
         << ",\"bytes\":" << record.exchange.bytes << ",\"ms\":" << record.exchange.milliseconds
         << ",\"verdict\":\"" << CAVerdictName(record.verdict) << "\"";
    if (record.age >= 0) {
        line << ",\"age\":" << record.age;
    }
    if (!record.why.empty()) {
        line << ",\"why\":\"" << record.why << "\"";
    }
    line << "}\n";
    used_ = static_cast<std::size_t>(line.at() - lines_->data());
    return used_ < kFlushAt ? 0 : flushLocked();
}

int CAResults::flushLocked()
{
    std::size_t written = 0;
    int error = 0;
    while (written < used_ && error == 0) {
        const ssize_t count = write(file_, lines_->data() + written, used_ - written);
        if (count > 0) {
            written += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            error = count == 0 ? EIO : errno;
        }
    }
    // The lines that are not written are lost; half a line gets its end with those that follow, and
    // nothing but such an end begins them with a line feed.
    const bool torn =
        written < used_ && (written > 0 ? (*lines_)[written - 1] != '\n' : lines_->front() == '\n');
    used_ = 0;
    if (torn) {
        (*lines_)[used_++] = '\n';
    }
    const bool first = error != 0 && !failed_;
    failed_ = failed_ || first;
    return first ? error : 0;
}

int CAResults::closeLocked()
{
    int error = 0;
    if (file_ >= 0) {
        error = flushLocked();
        close(file_);
        file_ = -1;
    }
    failed_ = false;
    return error;
}

void CAResults::flush()
{
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        error = file_ < 0 ? 0 : flushLocked();
    }
    reportFailure(logPath_, error);
}

void CAResults::endRun(std::time_t started, std::int32_t seconds, std::int32_t queueLeft,
                       bool isLast)
{
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        const int failed = isLast ? tellFlightsLocked() : 0;
        isOver_ = isLast;
        error = closeLocked();
        error = failed != 0 ? failed : error;
        last_ = tally_;
        tally_ = Tally();
    }
    reportFailure(logPath_, error);
    if (!metricsPath_.empty()) {
        writeMetrics(started, seconds, queueLeft);
    }
}

namespace {

// A gauge's head, and the value of one that has no labels.
void putHead(FILE *file, const char *name, const char *help)
{
    std::fprintf(file, "# HELP refetchd_%s %s\n# TYPE refetchd_%s gauge\n", name, help, name);
}

void putGauge(FILE *file, const char *name, const char *help, std::int64_t value)
{
    putHead(file, name, help);
    std::fprintf(file, "refetchd_%s %" PRId64 "\n", name, value);
}

std::string labelOf(std::size_t verdict)
{
    std::string label(CAVerdictName(static_cast<CAVerdict>(verdict)));
    std::replace(label.begin(), label.end(), ' ', '_');
    return label;
}

}  // namespace

void CAResults::writeMetrics(std::time_t started, std::int32_t seconds,
                             std::int32_t queueLeft) const
{
    const std::string aside = metricsPath_ + ".tmp";
    FILE *const file = std::fopen(aside.c_str(), "we");
    if (file == nullptr) {
        reportFailure(metricsPath_, errno);
        return;
    }
    putGauge(file, "run_start_time_seconds", "Start of the last run, since the epoch.", started);
    putGauge(file, "run_duration_seconds", "Duration of the last run.", seconds);
    putHead(file, "urls", "URLs of the last run by where they came from and what became of them.");
    for (std::size_t source = 0; source < kSources; ++source) {
        for (std::size_t verdict = 0; verdict < kVerdicts; ++verdict) {
            std::fprintf(file, "refetchd_urls{source=\"%s\",verdict=\"%s\"} %d\n",
                         kSourceNames[source].data(), labelOf(verdict).c_str(),
                         last_.urls[source][verdict]);
        }
    }
    putHead(file, "responses", "Responses of the last run by the class of their status.");
    for (std::size_t i = 0; i < kClasses; ++i) {
        std::fprintf(file, "refetchd_responses{class=\"%zuxx\"} %d\n", i + 1, last_.responses[i]);
    }
    putGauge(file, "response_bytes", "Bytes of all responses of the last run.", last_.bytes);
    putHead(file, "dropped_urls", "URLs of the last run that were not asked for, by directive.");
    for (std::size_t drop = 0; drop < kDrops; ++drop) {
        const auto why = static_cast<CADrop>(drop);
        if (why != CADrop::None && why != CADrop::Processed) {
            std::fprintf(file, "refetchd_dropped_urls{by=\"%s\"} %d\n", CADropName(why).data(),
                         last_.drops[drop]);
        }
    }
    putGauge(file, "queue_left", "URLs that waited when the last run ended.", queueLeft);
    const bool failed = std::fflush(file) != 0 || std::ferror(file) != 0;
    int error = !failed ? 0 : errno != 0 ? errno : EIO;
    if (std::fclose(file) != 0 && error == 0) {
        error = errno;
    }
    if (error == 0 && std::rename(aside.c_str(), metricsPath_.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        unlink(aside.c_str());
        reportFailure(metricsPath_, error);
    }
}

bool CAResults::progressIsDue(std::int32_t elapsed)
{
    lastProgress_ = elapsed < lastProgress_ ? 0 : lastProgress_;  // another run
    if (progressSeconds_ < 1 || elapsed - lastProgress_ < progressSeconds_) {
        return false;
    }
    lastProgress_ = elapsed;
    return true;
}

void CAFormatProgress(char *buffer, std::size_t size, const CAProgress &progress)
{
    std::array<char, 32> left{"no limit"};
    if (progress.maxRuntime > 0) {
        std::snprintf(left.data(), left.size(), "%d s left",
                      std::max(0, progress.maxRuntime - progress.elapsed));
    }
    std::snprintf(buffer, size,
                  "Progress.... %d done, %d succeeded, %d queued, %d busy, %.1f URLs/s, %s\n",
                  progress.done, progress.succeeded, progress.queued, progress.busy,
                  static_cast<double>(progress.done) / std::max(1, progress.elapsed), left.data());
}
