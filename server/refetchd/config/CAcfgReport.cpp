// The report file's life: opened with a placeholder page when the server root is known, written to
// by CASummary(), moved into its place when the process ends.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "HTString.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "report/CAsummary.h"

namespace {

constexpr const char *kInProgress = ".tmp";

// What the administrator sees until the first summary is there.
void writePlaceholder(const char *path)
{
    FILE *const page = std::fopen(path, "we");
    if (page == nullptr) {
        return;
    }
    CAWritePlaceholder(page);
    std::fclose(page);
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
    reportStream = std::fopen(g_catrace_filename, "we");
    if (reportStream == nullptr) {
        CATrace("ldAgtConfig. filename \"%s\" can't be opened.\n", g_catrace_filename);
    } else {
        CATrace("ldAgtConfig. file \"%s\" was opened.\n", g_catrace_filename);
    }
}

void CAConfig::finishReport()
{
    const bool failed = std::ferror(reportStream) != 0;
    const bool written = failed || std::ftell(reportStream) > 0;
    const int closeError = std::fclose(reportStream) != 0 ? errno : failed ? EIO : 0;
    reportStream = nullptr;
    if (!written) {
        unlink(g_catrace_filename);  // no run has ended: the placeholder says so
        return;
    }
    const HeapString inProgress(strdup(g_catrace_filename));
    char *const cut = std::strstr(g_catrace_filename, kInProgress);
    if (inProgress == nullptr || cut == nullptr) {
        return;
    }
    *cut = '\0';
    if (closeError != 0) {
        // The disk is full, say: the placeholder is better than half a page.
        CATrace("Not able to rename %s to %s (rename errno=%d); no summary file.\n",
                inProgress.get(), g_catrace_filename, closeError);
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
