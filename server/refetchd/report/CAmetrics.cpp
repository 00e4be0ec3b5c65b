#include "report/CAmetrics.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>

#include "base/CAoutput.h"
#include "base/CAtrace.h"

namespace {

bool isStatus(std::int32_t status)
{
    return status >= 100 && status < 600;
}

}  // namespace

void CATally::count(_source source, CAVerdict verdict, bool isOldCopy, const CAExchange &exchange)
{
    const std::int32_t status = exchange.status;
    ++urls[source == SOURCE_HITS ? 1 : 0][static_cast<std::size_t>(verdict)];
    bytes += exchange.bytes;
    if (verdict == CAVerdict::Failed && (status == 0 || exchange.failure != CAFailure::None)) {
        ++failures[static_cast<std::size_t>(exchange.failure)];
    } else if (verdict == CAVerdict::Failed) {
        ++statuses[isStatus(status) ? status : 0];
    }
    if (isStatus(status)) {
        ++responses[static_cast<std::size_t>(status / 100 - 1)];
    }
    if (status == 200) {
        ++answers200;
        agedHits += verdict == CAVerdict::FromCache && !isOldCopy ? 1 : 0;
        oldCopies += isOldCopy ? 1 : 0;
    }
    unframed += exchange.unsearched == CAUnsearched::Unframed ? 1 : 0;
    coded += exchange.unsearched == CAUnsearched::Coded ? 1 : 0;
}

namespace {

// Writes the two lines in front of a gauge's values.
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

void put(FILE *file, const CATally &tally, const CARunEnd &end)
{
    putGauge(file, "run_start_time_seconds", "Start of the last run, since the epoch.",
             end.started);
    putGauge(file, "run_duration_seconds", "Duration of the last run.", end.seconds);
    putGauge(file, "run_stopped", "1 when a signal ended the last run.", end.stopped ? 1 : 0);
    putHead(file, "run_proxy_wait_seconds",
            "Time of the last run in which the proxy could not be reached and was waited for.");
    std::fprintf(file, "refetchd_run_proxy_wait_seconds %.1f\n", end.proxyWait);
    if (end.loadPauses >= 0) {
        putHead(file, "run_load_wait_seconds",
                "Time of the last run in which maxload let no request start.");
        std::fprintf(file, "refetchd_run_load_wait_seconds %.1f\n", end.loadWait);
        putGauge(file, "run_load_pauses", "How often maxload stopped new requests in the last run.",
                 end.loadPauses);
    }
    if (end.slowdowns >= 0) {
        putGauge(file, "run_host_slowdowns",
                 "How often in the last run latencylimit took a client from a slow host.",
                 end.slowdowns);
    }
    putHead(file, "urls", "URLs of the last run by where they came from and what became of them.");
    for (std::size_t source = 0; source < CATally::kSources; ++source) {
        for (std::size_t verdict = 0; verdict < kVerdicts; ++verdict) {
            std::fprintf(file, "refetchd_urls{source=\"%s\",verdict=\"%s\"} %d\n",
                         CASourceName(source == 0 ? SOURCE_CONFIG : SOURCE_HITS).data(),
                         labelOf(verdict).c_str(), tally.urls[source][verdict]);
        }
    }
    putHead(file, "responses", "Responses of the last run by the class of their status.");
    for (std::size_t i = 0; i < CATally::kClasses; ++i) {
        std::fprintf(file, "refetchd_responses{class=\"%zuxx\"} %d\n", i + 1, tally.responses[i]);
    }
    putGauge(file, "response_bytes", "Bytes of all responses of the last run.", tally.bytes);
    putHead(file, "dropped_urls",
            "Different URLs of the last run that were not asked for, by directive.");
    for (std::size_t drop = 0; drop < kDrops; ++drop) {
        const auto why = static_cast<CADrop>(drop);
        if (why != CADrop::None && why != CADrop::Processed) {
            std::fprintf(file, "refetchd_dropped_urls{by=\"%s\"} %d\n", CADropName(why).data(),
                         tally.drops[drop]);
        }
    }
    putGauge(file, "dropped_links_more",
             "Links of the last run that were dropped and not compared with others, because their "
             "page had too many.",
             tally.moreDrops);
    putGauge(file, "queue_left", "URLs that waited when the last run ended.", end.queueLeft);
}

// Creates a file and opens it; null with errno set on failure. Whatever has that name is removed
// first, so that a symbolic link is not followed.
FILE *openAnew(const std::string &path)
{
    unlink(path.c_str());
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    FILE *const file = fd < 0 ? nullptr : fdopen(fd, "w");
    if (fd >= 0 && file == nullptr) {
        const int error = errno;
        close(fd);
        errno = error;
    }
    return file;
}

// Closes the file. Returns 0, or the number of the first error in writing it.
int finish(FILE *file)
{
    const bool failed = std::fflush(file) != 0 || std::ferror(file) != 0;
    const int error = !failed ? 0 : errno != 0 ? errno : EIO;
    const bool closed = std::fclose(file) == 0;
    return error != 0 || closed ? error : errno;
}

// Writes a temporary file beside `target` and renames it. Returns 0, or an error number.
int replace(const std::string &target, const CATally &tally, const CARunEnd &end)
{
    const std::string aside = target + ".tmp";
    FILE *const file = openAnew(aside);
    if (file == nullptr) {
        return errno;
    }
    put(file, tally, end);
    int error = finish(file);
    if (error == 0 && std::rename(aside.c_str(), target.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        unlink(aside.c_str());
    }
    return error;
}

}  // namespace

void CAWriteMetrics(const std::string &path, const CATally &tally, const CARunEnd &end)
{
    const std::string target = CAOutputTarget(path);
    if (!CAIsReplaceable(target)) {
        CATrace("Metrics..... \"%s\" is not a regular file and is left as it is.\n", path.c_str());
        CAErrorLog(959, "The metrics file \"%s\" is not a regular file; it was left as it is.\n",
                   path.c_str());
        return;
    }
    if (const int error = replace(target, tally, end); error != 0) {
        CANoteUnwritten(path, error);
        CATrace("Metrics..... could not write \"%s\"; errno=%d.\n", path.c_str(), error);
        CAErrorLog(958, "Could not write the metrics file \"%s\".\n", path.c_str());
    }
}
