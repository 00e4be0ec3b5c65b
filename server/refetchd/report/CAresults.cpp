#include "report/CAresults.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>

#include "base/CAoutput.h"
#include "base/CAtrace.h"
#include "url/CAURL.h"

CAResults &results = *new CAResults;

std::int64_t CANowMilliseconds()
{
    using std::chrono::milliseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<milliseconds>(now).count();
}

namespace {

void reportFailure(const std::string &path, int error)
{
    if (error == 0) {
        return;
    }
    CANoteUnwritten(path, error);
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

void CAResults::setLog(const char *path, bool logsDrops)
{
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        error = closeLocked();
        logsDrops_ = logsDrops;
        if (lines_ == nullptr) {
            lines_.reset(new Lines);
        }
    }
    reportFailure(logPath_, error);
    logPath_ = path;
}

bool CAResults::dropped(std::string_view url, _source source, std::int32_t depth, CADrop why)
{
    if (why == CADrop::None || why == CADrop::Processed) {
        return false;
    }
    const std::uint64_t key = CADropped::keyOf(url);
    const std::int64_t now = CANowMilliseconds();
    const PMutexGuard guard(mutex_);
    return !isOver_ && dropsLocked().add(key, {.text = logsDrops_ ? CACut(url, kMaxUrl) : "",
                                               .length = url.size(),
                                               .time = now,
                                               .depth = depth,
                                               .source = source,
                                               .why = why});
}

void CAResults::droppedMore(const CAURL &page, std::int64_t links)
{
    const Record record{.url = page.stringitize(),
                        .source = page.source(),
                        .depth = page.depth(),
                        .verdict = CAVerdict::Dropped,
                        .age = -1,
                        .why = "links of this page",
                        .exchange = {.started = CANowMilliseconds()},
                        .more = links};
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        error = tellMoreLocked(record);
    }
    reportFailure(logPath_, error);
}

void CAResults::finished(const CAURL &url, const CAExchange &exchange)
{
    const CAJudgement judged = CAJudge(exchange);
    const Record record{.url = url.stringitize(),
                        .source = url.source(),
                        .depth = url.depth(),
                        .verdict = judged.verdict,
                        .age = judged.age,
                        .why = judged.why,
                        .isOldCopy = judged.isOldCopy,
                        .exchange = exchange};
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        endFlightLocked(url);
        // A page counts once, however many variants it has.
        if (exchange.status == 200 && exchange.variant <= 1 && !isOver_) {
            vary_.count(exchange.headers.vary);
        }
        error = tellLocked(record);
    }
    reportFailure(logPath_, error);
}

// Notes that the URL was requested in this run, unless that was noted when it took off. Few URLs
// are reported that were never in flight; only their keys are computed here.
void CAResults::endFlightLocked(const CAURL &url)
{
    const auto flight = std::find_if(flights_.begin(), flights_.end(),
                                     [&url](const Flight &each) { return each.url == &url; });
    const bool isKnown = flight != flights_.end();
    if (isKnown) {
        flight->url = nullptr;
    }
    if (!isOver_ && !(isKnown && flight->run == run_)) {
        dropsLocked().request(isKnown ? flight->key : CADropped::keyOf(url.stringitize()));
    }
}

void CAResults::setSentHeaders(std::vector<std::string> names)
{
    const PMutexGuard guard(mutex_);
    vary_.setSent(std::move(names));
}

void CAResults::setInFlight(std::int32_t client, const CAURL *url, std::int32_t variant,
                            std::int32_t lastVariant)
{
    const std::int64_t now = url != nullptr ? CANowMilliseconds() : 0;
    const std::uint64_t key = url != nullptr ? CADropped::keyOf(url->stringitize()) : 0;
    const auto index = static_cast<std::size_t>(client);
    const PMutexGuard guard(mutex_);
    if (url != nullptr && !isOver_) {
        dropsLocked().request(key);
    }
    if (index >= flights_.size()) {
        flights_.resize(index + 1);
    }
    flights_[index] = {.url = url,
                       .variant = variant,
                       .lastVariant = lastVariant,
                       .started = now,
                       .since = url != nullptr ? HTUptimeMillis() : 0,
                       .key = key,
                       .run = run_};
}

// Each int function below returns 0, or an error number that the caller must report. Only the first
// error of a run is returned.

int CAResults::tellFlightsLocked()
{
    int error = 0;
    for (const Flight &flight : flights_) {
        const int failed = flight.url != nullptr ? tellFlightLocked(flight) : 0;
        error = error == 0 ? failed : error;
    }
    return error;
}

int CAResults::tellFlightLocked(const Flight &flight)
{
    Record record{.url = flight.url->stringitize(),
                  .source = flight.url->source(),
                  .depth = flight.url->depth(),
                  .verdict = CAVerdict::Failed,
                  .age = -1,
                  .why = CAFailureText(CAFailure::Stopped),
                  .exchange = {.failure = CAFailure::Stopped, .started = flight.started}};
    record.exchange.milliseconds = HTUptimeMillis() - flight.since;
    int error = 0;
    for (std::int32_t variant = flight.variant; variant <= flight.lastVariant; ++variant) {
        record.exchange.variant = variant;
        const int failed = tellLocked(record);
        error = error == 0 ? failed : error;
        record.exchange.milliseconds = 0;  // of those that were not requested
    }
    return error;
}

int CAResults::tellLocked(const Record &record)
{
    if (isOver_) {
        return 0;
    }
    tally_.count(record.source, record.verdict, record.isOldCopy, record.exchange);
    return addLineLocked(record);
}

CADropped &CAResults::dropsLocked()
{
    if (drops_ == nullptr) {
        drops_ = std::make_unique<CADropped>();
    }
    return *drops_;
}

int CAResults::tellDropsLocked()
{
    if (drops_ == nullptr) {
        return 0;
    }
    int error = 0;
    for (const CADropped::Url &url : drops_->urls()) {
        if (url.why != CADrop::None) {
            ++tally_.drops[static_cast<std::size_t>(url.why)];
            const int failed = tellLocked({.url = url.text,
                                           .source = url.source,
                                           .depth = url.depth,
                                           .verdict = CAVerdict::Dropped,
                                           .age = -1,
                                           .why = CADropName(url.why),
                                           .exchange = {.started = url.time},
                                           .length = url.length});
            error = error == 0 ? failed : error;
        }
    }
    const int failed = tellMoreLocked({.url = "",
                                       .source = SOURCE_CONFIG,
                                       .depth = 0,
                                       .verdict = CAVerdict::Dropped,
                                       .age = -1,
                                       .why = "links of this run",
                                       .exchange = {.started = CANowMilliseconds()},
                                       .more = drops_->more()});
    drops_.reset();
    ++run_;
    return error == 0 ? failed : error;
}

int CAResults::tellMoreLocked(const Record &record)
{
    if (isOver_ || record.more == 0) {
        return 0;
    }
    tally_.moreDrops += record.more;
    return addLineLocked(record);
}

int CAResults::openLocked()
{
    if (failed_) {
        return 0;
    }
    // Non-blocking: a log that is a pipe without a reader must not stop the agent.
    file_ = open(logPath_.c_str(),
                 O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    if (file_ >= 0) {
        return 0;
    }
    failed_ = true;
    return errno;
}

// Adds a line that begins with the time, in milliseconds since the epoch; `put` writes the rest of
// its fields.
template <typename Put>
int CAResults::putLineLocked(std::int64_t time, Put put)
{
    if (lines_ == nullptr) {
        return 0;
    }
    if (const int error = file_ < 0 ? openLocked() : 0; file_ < 0) {
        return error;
    }
    char *const start = lines_->data() + used_;
    CAJsonWriter line(start, start + (kMaxLine - CAJsonWriter::kTail));
    line << "{\"time\":\"" << time_.of(time) << "\"";
    put(line);
    line << "}\n";
    used_ = static_cast<std::size_t>(line.at() - lines_->data());
    return used_ < kFlushAt ? 0 : flushLocked();
}

void CAResults::putUrl(const Record &record, CAJsonWriter &line)
{
    const std::string_view url = CACut(record.url, kMaxUrl);
    line << ",\"url\":";
    line.quote(url);
    line << ",\"source\":\"" << CASourceName(record.source) << "\",\"depth\":" << record.depth
         << ",\"status\":" << record.exchange.status << ",\"bytes\":" << record.exchange.bytes
         << ",\"ms\":" << record.exchange.milliseconds << ",\"verdict\":\""
         << CAVerdictName(record.verdict) << "\"";
    if (record.exchange.variant > 0) {
        line << ",\"variant\":" << record.exchange.variant;
    }
    if (record.age >= 0) {
        line << ",\"age\":" << record.age;
    }
    if (!record.why.empty()) {
        line << ",\"why\":\"" << record.why << "\"";
    }
    if (const std::size_t length = std::max(record.length, record.url.size());
        length > url.size()) {
        line << ",\"cut\":" << static_cast<std::int64_t>(length);
    }
    if (record.more > 0) {
        line << ",\"more\":" << record.more;
    }
}

int CAResults::addLineLocked(const Record &record)
{
    if (record.verdict == CAVerdict::Dropped && !logsDrops_) {
        return 0;
    }
    return putLineLocked(record.exchange.started,
                         [&record](CAJsonWriter &line) { putUrl(record, line); });
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
    // Lines that could not be written are lost. If a line was written in part, the next output must
    // begin with a line feed to end it: after this write was cut off within a line, or when it
    // wrote nothing and the buffer already began with that line feed.
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

// Ends the log for good, and returns as the functions above.
int CAResults::stopLocked()
{
    const int flights = tellFlightsLocked();
    const int drops = tellDropsLocked();
    isOver_ = true;
    const int error = closeLocked();
    return flights != 0 ? flights : drops != 0 ? drops : error;
}

int CAResults::addRunLocked(std::time_t started, const CAClosing &closing)
{
    if (!logsRuns_) {
        return 0;
    }
    return putLineLocked(std::int64_t{started} * 1000, [&closing](CAJsonWriter &line) {
        line << ",\"run\":" << closing.run << ",\"runs\":" << closing.runs
             << ",\"seconds\":" << closing.seconds << ",\"left\":" << closing.queueLeft
             << (closing.stopped ? ",\"stopped\":true" : "");
    });
}

void CAResults::reopen()
{
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        error = closeLocked();
    }
    reportFailure(logPath_, error);
}

void CAResults::stop()
{
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        error = stopLocked();
    }
    reportFailure(logPath_, error);
}

void CAResults::endRun(std::time_t started, const CAClosing &closing, bool isLast)
{
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        const int flights = isLast ? tellFlightsLocked() : 0;
        const int drops = tellDropsLocked();
        const int run = addRunLocked(started, closing);
        isOver_ = isLast;
        error = closeLocked();
        error = flights != 0 ? flights : drops != 0 ? drops : run != 0 ? run : error;
        last_ = tally_;
        tally_ = CATally();
        lastVary_ = vary_;
        vary_.restart();
    }
    reportFailure(logPath_, error);
    if (!metricsPath_.empty()) {
        CAWriteMetrics(metricsPath_, last_,
                       {.started = started,
                        .seconds = closing.seconds,
                        .queueLeft = closing.queueLeft,
                        .stopped = closing.stopped,
                        .proxyWait = static_cast<double>(closing.proxyWait) / 1000,
                        .loadWait = static_cast<double>(closing.loadWait) / 1000,
                        .loadPauses = closing.loadPauses,
                        .slowdowns = closing.slowdowns});
    }
}
