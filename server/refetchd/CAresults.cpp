#include "CAresults.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <cstdio>

#include "CAtrace.h"

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

// What UTF-8 allows: first bytes, the second byte behind them, and the length of such a character.
// What has a shorter form, or is half a character of UTF-16, is none.
struct Utf8Row {
    unsigned char first;
    unsigned char lastFirst;
    unsigned char second;
    unsigned char lastSecond;
    std::size_t length;
};
constexpr std::array<Utf8Row, 9> kUtf8 = {{
    {0x00, 0x7f, 0, 0, 1},
    {0xc2, 0xdf, 0x80, 0xbf, 2},
    {0xe0, 0xe0, 0xa0, 0xbf, 3},
    {0xe1, 0xec, 0x80, 0xbf, 3},
    {0xed, 0xed, 0x80, 0x9f, 3},
    {0xee, 0xef, 0x80, 0xbf, 3},
    {0xf0, 0xf0, 0x90, 0xbf, 4},
    {0xf1, 0xf3, 0x80, 0xbf, 4},
    {0xf4, 0xf4, 0x80, 0x8f, 4},
}};

// The length of the character at the start of `text`, which is not empty; 0 when there is none.
std::size_t utf8Length(std::string_view text)
{
    const auto isIn = [text](std::size_t at, unsigned char from, unsigned char to) {
        const auto byte = static_cast<unsigned char>(text[at]);
        return byte >= from && byte <= to;
    };
    for (const Utf8Row &row : kUtf8) {
        if (isIn(0, row.first, row.lastFirst)) {
            bool good = row.length <= text.size();
            for (std::size_t i = 1; good && i < row.length; ++i) {
                good = i == 1 ? isIn(i, row.second, row.lastSecond) : isIn(i, 0x80, 0xbf);
            }
            return good ? row.length : 0;
        }
    }
    return 0;
}

// How many characters at the start of `text` stand for themselves in a quoted text: of an URL
// mostly all.
std::size_t plainLength(std::string_view text)
{
    const auto *const end = std::find_if(text.begin(), text.end(), [](char c) {
        return c < ' ' || c > '~' || c == '"' || c == '\\';
    });
    return static_cast<std::size_t>(end - text.begin());
}

// Writes one JSON object into memory that has room for kTail bytes behind `end`, where no quoted
// text goes.
class JsonWriter {
public:
    static constexpr std::size_t kTail = 1024;

    JsonWriter(char *at, char *end) : at_(at), end_(end) {}

    [[nodiscard]] char *at() const { return at_; }

    JsonWriter &operator<<(std::string_view text)
    {
        at_ = std::copy(text.begin(), text.end(), at_);
        return *this;
    }
    JsonWriter &operator<<(std::int64_t number)
    {
        at_ = std::to_chars(at_, at_ + kNumber, number).ptr;
        return *this;
    }
    // With its quotes; a text that is too long is cut off behind a whole character.
    void quote(std::string_view text)
    {
        *this << "\"";
        while (!text.empty() && end_ - at_ >= kEscape) {
            const auto room = static_cast<std::size_t>(end_ - at_);
            const std::string_view plain = text.substr(0, std::min(plainLength(text), room));
            *this << plain;
            text.remove_prefix(plain.empty() ? putCharacter(text) : plain.size());
        }
        *this << "\"";
    }
    // Such as "2026-11-21T19:45:00.123Z", with its quotes.
    void time(std::int64_t milliseconds)
    {
        using namespace std::chrono;
        const sys_time<std::chrono::milliseconds> moment{std::chrono::milliseconds(milliseconds)};
        const auto day = floor<days>(moment);
        const year_month_day date(day);
        const hh_mm_ss clock(moment - day);
        *this << "\"";
        digits<4>(static_cast<unsigned>(static_cast<int>(date.year())), '-');
        digits<2>(static_cast<unsigned>(date.month()), '-');
        digits<2>(static_cast<unsigned>(date.day()), 'T');
        digits<2>(clock.hours().count(), ':');
        digits<2>(clock.minutes().count(), ':');
        digits<2>(clock.seconds().count(), '.');
        digits<3>(clock.subseconds().count(), 'Z');
        *this << "\"";
    }

private:
    static constexpr std::ptrdiff_t kNumber = 20;  // longest, with its sign
    static constexpr std::ptrdiff_t kEscape = 6;   // longest character

    template <int Count, typename Number>
    void digits(Number number, char behind)
    {
        for (int i = Count - 1; i >= 0; --i) {
            at_[i] = static_cast<char>('0' + number % 10);
            number /= 10;
        }
        at_ += Count;
        *at_++ = behind;
    }

    // Returns how many bytes of `text` it was. A byte that is no character stands for itself, as in
    // ISO 8859-1.
    std::size_t putCharacter(std::string_view text)
    {
        const char c = text.front();
        const std::size_t length = utf8Length(text);
        if (c == '"' || c == '\\') {
            *this << (c == '"' ? "\\\"" : "\\\\");
        } else if (length == 0 || static_cast<unsigned char>(c) < ' ' || c == '\x7f') {
            constexpr std::string_view kHex = "0123456789abcdef";
            *this << "\\u00";
            *at_++ = kHex[static_cast<unsigned char>(c) >> 4U];
            *at_++ = kHex[static_cast<unsigned char>(c) & 15U];
            return 1;
        } else {
            *this << text.substr(0, length);
        }
        return length;
    }

    char *at_;
    char *const end_;
};

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
        ++tally_.drops[indexOf(why)];
        countLocked(record);
        error = addLineLocked(record);
    }
    reportFailure(logPath_, error);
}

void CAResults::finished(const CAURL &url, const CAExchange &exchange)
{
    const CAJudgement judged = CAJudge(exchange.status, exchange.headers, exchange.started / 1000,
                                       static_cast<std::int32_t>(exchange.milliseconds / 1000));
    std::array<char, 24> status{};
    std::string_view why;
    const bool isCutOff = exchange.status != 0 && exchange.failure != CAFailure::None;
    if (isCutOff) {
        why = exchange.failure == CAFailure::TimedOut ? "timed out within the answer"
                                                      : "connection broke within the answer";
    } else if (judged.verdict == CAVerdict::Failed && exchange.status == 0) {
        why = CAFailureText(exchange.failure);
    } else if (judged.verdict == CAVerdict::Failed) {
        std::snprintf(status.data(), status.size(), "status %d", exchange.status);
        why = status.data();
    }
    const Record record{.url = url.stringitize(),
                        .source = url.source(),
                        .depth = url.depth(),
                        .verdict = isCutOff ? CAVerdict::Failed : judged.verdict,
                        .age = isCutOff ? -1 : judged.age,
                        .why = why,
                        .exchange = exchange};
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        countLocked(record);
        error = addLineLocked(record);
    }
    reportFailure(logPath_, error);
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

// Each of these returns 0, or the error number that is to be reported: the first of a run.

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
    JsonWriter line(start, start + (kMaxLine - JsonWriter::kTail));
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
    // The lines that are not written are lost; half a line gets its end with those that follow.
    const bool torn = written > 0 && written < used_ && (*lines_)[written - 1] != '\n';
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

void CAResults::endRun(std::time_t started, std::int32_t seconds, std::int32_t queueLeft)
{
    int error = 0;
    {
        const PMutexGuard guard(mutex_);
        error = closeLocked();
        last_ = tally_;
        tally_ = Tally();
    }
    lastProgress_ = 0;
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
