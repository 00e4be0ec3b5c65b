// The report file. When the server root is known, a placeholder page is written at the report's
// path, and the report in progress (".tmp") is opened beside it. CASummary() appends a page to it
// after each run. When the process ends, the finished report replaces the placeholder.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "HTString.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "report/CAsummary.h"

namespace {

constexpr const char *kInProgress = ".tmp";

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

// The file behind the report stream. It records errno, because a stdio stream only remembers that
// some write has failed.
struct ReportFile {
    int descriptor = -1;
    bool written = false;
    int error = 0;  // the errno of the first call that failed
};
ReportFile reportFile;  // one is enough: only one CAConfig writes a report

ssize_t writeReport(void * /*cookie*/, const char *data, std::size_t size)
{
    reportFile.written = true;
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = write(reportFile.descriptor, data + done, size - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            const int error = count == 0 ? EIO : errno;
            reportFile.error = reportFile.error != 0 ? reportFile.error : error;
            break;
        }
    }
    return static_cast<ssize_t>(done);
}

int closeReport(void * /*cookie*/)
{
    if (close(reportFile.descriptor) != 0 && reportFile.error == 0) {
        reportFile.error = errno;
    }
    return 0;
}

FILE *openReport(const char *path)
{
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        return nullptr;
    }
    FILE *const stream = fopencookie(nullptr, "w", {nullptr, writeReport, nullptr, closeReport});
    if (stream == nullptr) {
        close(descriptor);
        return nullptr;
    }
    reportFile = {.descriptor = descriptor};
    return stream;
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
        writePlaceholder(g_catrace_filename);
    }
    HTSACat(&g_catrace_filename, kInProgress);
    if (observer != nullptr) {
        return;
    }
    if (reportStream != nullptr) {
        std::fclose(reportStream);
    }
    reportStream = openReport(g_catrace_filename);
    if (reportStream == nullptr) {
        CATrace("ldAgtConfig. filename \"%s\" can't be opened.\n", g_catrace_filename);
    } else {
        CATrace("ldAgtConfig. file \"%s\" was opened.\n", g_catrace_filename);
    }
}

void CAConfig::finishReport()
{
    std::fclose(reportStream);
    reportStream = nullptr;
    if (!reportFile.written) {
        unlink(g_catrace_filename);  // no run has ended: leave the placeholder, which says so
        return;
    }
    const HeapString inProgress(strdup(g_catrace_filename));
    char *const cut = std::strstr(g_catrace_filename, kInProgress);
    if (inProgress == nullptr || cut == nullptr) {
        return;
    }
    *cut = '\0';
    if (reportFile.error != 0) {
        // For example, the disk is full. The placeholder is better than half a page.
        CATrace("Not able to rename %s to %s (rename errno=%d); no summary file.\n",
                inProgress.get(), g_catrace_filename, reportFile.error);
        return;
    }
    unlink(g_catrace_filename);
    if (std::rename(inProgress.get(), g_catrace_filename) == 0) {
        CATrace("%s successfully renamed to %s.\n", inProgress.get(), g_catrace_filename);
    } else {
        const int error = errno;
        CATrace("Not able to rename %s to %s (rename errno=%d); no summary file.\n",
                inProgress.get(), g_catrace_filename, error);
    }
}
