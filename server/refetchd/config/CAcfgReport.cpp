// The report file. When the server root is known, a placeholder page is written at the report's
// path, and the report in progress (".tmp") is opened beside it. CASummary() appends a page to it
// after each run. When the process ends, the finished report replaces the placeholder.
//
// A copy of the report of the night before lies beside it meanwhile (".previous"). It is put back
// when no new report takes its place. If the process is killed, the next one finds the placeholder
// and leaves the copy alone, so that nothing but a new report ever replaces an old one.
//
// Agents with one server root that run at the same time append to one report in progress. Only one
// that has it for itself truncates or removes it, or puts the copy back.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "HTString.h"
#include "base/CAoutput.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "report/CAsummary.h"

namespace {

constexpr const char *kInProgress = ".tmp";
constexpr std::string_view kPrevious = ".previous";

// Writes the page that the administrator sees until the process ends.
void writePlaceholder(const char *path)
{
    FILE *const page = std::fopen(path, "we");
    if (page == nullptr) {
        return;
    }
    CAWritePlaceholder(page);
    std::fclose(page);
}

// The paths of the report and of the copy of the one before. In static memory, because a signal
// handler needs them; empty while there is no copy.
struct PreviousReport {
    std::array<char, PATH_MAX> report{};
    std::array<char, PATH_MAX> copy{};
};
PreviousReport previous;

// What became of the report stream. One is enough: only one CAConfig writes a report.
CAOutputState reportState;

// Copies all of one file to another. Returns false when that fails.
bool copyAll(int from, int to)
{
    std::array<char, 65536> block{};
    for (;;) {
        const ssize_t count = read(from, block.data(), block.size());
        if (count <= 0) {
            return count == 0;
        }
        if (write(to, block.data(), static_cast<std::size_t>(count)) != count) {
            return false;
        }
    }
}

// True when the file is a finished report: unlike the placeholder, it ends with this line.
bool isReport(int file)
{
    constexpr std::string_view kEnd = "</body></html>\n";
    struct stat status {};
    std::array<char, kEnd.size()> end{};
    return fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
           pread(file, end.data(), end.size(), status.st_size - std::ssize(end)) ==
               std::ssize(end) &&
           std::string_view(end.data(), end.size()) == kEnd;
}

// Copies the report to `copy`, with its mode; an earlier copy stays until then. Returns false when
// that fails.
bool copyReport(int report, const std::string &copy)
{
    struct stat status {};
    const std::string aside = copy + "~";
    unlink(aside.c_str());
    const int to = open(aside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (to < 0) {
        return false;
    }
    bool done = copyAll(report, to) && fstat(report, &status) == 0 &&
                fchmod(to, status.st_mode & 0777) == 0;
    done = close(to) == 0 && done && rename(aside.c_str(), copy.c_str()) == 0;
    if (!done) {
        unlink(aside.c_str());
    }
    return done;
}

// Keeps the report at `path` while a placeholder takes its place. A copy that is there already is
// better than a placeholder, and stays. When there is no room for a copy, the report itself is
// moved aside.
void keepPrevious(const char *path)
{
    const std::string copy = std::string(path).append(kPrevious);
    const int report = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (report >= 0 && isReport(report) && !copyReport(report, copy)) {
        rename(path, copy.c_str());
    }
    if (report >= 0) {
        close(report);
    }
    previous = {};
    if (copy.size() < previous.copy.size() && access(copy.c_str(), F_OK) == 0) {
        copy.copy(previous.report.data(), copy.size() - kPrevious.size());
        copy.copy(previous.copy.data(), copy.size());  // last: the signal handler looks at it
    }
}

}  // namespace

void CAConfig::setServerRoot(const char *root)
{
    HTSACopy(&g_ca_hits_filename, root);
    HTSACat(&g_ca_hits_filename, "/logs/hitsfile.txt");

    HTSACopy(&g_catrace_filename, root);
    HTSACat(&g_catrace_filename, "/pub/");
    HTSACat(&g_catrace_filename, refetchd_LocaleString);
    HTSACat(&g_catrace_filename, "/reports/refetchd.html");
    if (observer == nullptr) {
        CAPutBackReport();  // of an earlier server root
        keepPrevious(g_catrace_filename);
        writePlaceholder(g_catrace_filename);
    }
    HTSACat(&g_catrace_filename, kInProgress);
    if (observer != nullptr) {
        return;
    }
    if (reportStream != nullptr) {
        std::fclose(reportStream);
    }
    reportState.reset();
    reportStream = CAOpenOutput(g_catrace_filename, &reportState, CAOutputMode::ShareAndAppend);
    if (reportStream == nullptr) {
        CATrace("ldAgtConfig. filename \"%s\" can't be opened.\n", g_catrace_filename);
    } else {
        CATrace("ldAgtConfig. file \"%s\" was opened.\n", g_catrace_filename);
    }
}

void CAPutBackReport()
{
    if (previous.copy[0] != '\0' && !reportState.isShared) {
        rename(previous.copy.data(), previous.report.data());
        previous.copy[0] = '\0';
    }
}

namespace {

// True when a rename to `path` loses nothing but an older report: it has the name, or a directory
// does, so that the rename fails.
bool isOursToReplace(const char *path)
{
    constexpr std::string_view kMark = R"(<meta name="GENERATOR" content="Quillmark">)";
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
    if (file < 0) {
        return false;
    }
    struct stat status {};
    std::array<char, 1024> begin{};
    const bool isReplaceable =
        (fstat(file, &status) == 0 && S_ISDIR(status.st_mode)) ||
        (isReport(file) && pread(file, begin.data(), begin.size(), 0) > 0 &&
         std::string_view(begin.data(), begin.size()).find(kMark) != std::string_view::npos);
    close(file);
    return isReplaceable;
}

// Moves the report in progress to `target`. Returns 0, or an error number: with EEXIST, `target` is
// not the report's `own` path, and a file of somebody else has that name.
int replaceReport(const char *inProgress, const char *target, std::string_view own)
{
    const bool replaces = target == own || isOursToReplace(target);
    return renameat2(AT_FDCWD, inProgress, AT_FDCWD, target, replaces ? 0 : RENAME_NOREPLACE) == 0
               ? 0
               : errno;
}

// Moves the report in progress to its place, `target`. False (traced) when there is no new report.
bool moveReport(const std::string &inProgress, const char *target)
{
    const auto own = std::string_view(inProgress)
                         .substr(0, inProgress.size() - std::string_view(kInProgress).size());
    const int error = reportState.error != 0 ? reportState.error.load()
                                             : replaceReport(inProgress.c_str(), target, own);
    if (error == 0) {
        CATrace("%s successfully renamed to %s.\n", inProgress.c_str(), target);
    } else {
        // For example, the disk is full. The report before, or the placeholder, is better than half
        // a page.
        CATrace("Not able to rename %s to %s (rename errno=%d); no summary file.\n",
                inProgress.c_str(), target, error);
    }
    return error == 0;
}

}  // namespace

void CAConfig::finishReport()
{
    if (reportStream == nullptr) {
        return CAPutBackReport();
    }
    std::fclose(reportStream);
    reportStream = nullptr;
    const std::string inProgress(g_catrace_filename);
    char *const cut = std::strstr(g_catrace_filename, kInProgress);
    reportState.isShared = CAIsShared(g_catrace_filename);
    if (!reportState.written) {
        if (!reportState.isShared) {
            unlink(g_catrace_filename);  // no run has ended
        }
    } else if (cut != nullptr) {
        *cut = '\0';  // kept: in a server root with such a name, the report's path is cut there
        if (moveReport(inProgress, g_catrace_filename) &&
            std::strcmp(g_catrace_filename, previous.report.data()) == 0) {
            unlink(previous.copy.data());
            previous.copy[0] = '\0';
        }
    }
    CAPutBackReport();
}
