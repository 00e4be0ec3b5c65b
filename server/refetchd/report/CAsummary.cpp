// The summary page of a run, appended to the report in progress.
#include <array>
#include <cstdio>

#include "CArun.h"
#include "HTFile.h"
#include "base/CAhits.h"
#include "base/CAtrace.h"
#include "fetch/CAwork.h"
#include "refetchd.h"
#include "url/CAqueue.h"
#include "url/CArest.h"

namespace {

void writeHead(FILE *page)
{
    CAReportHead(page);
    std::fprintf(page, "<p>%s\n<hr>\n</p>\n\n",
                 CAMessage(944,
                           "This page displays Cache Agent statistics and the Top Cached URLs that "
                           "were requested"));
}

// Only its opening tag: readers of the page know it without the start and end times.
void writeTimes(FILE *page)
{
    std::fprintf(page,
                 "<table align=center width=\"50%%\" border=2 bordercolor=\"#3366CC\" "
                 "bordercolordark=\"#3366CC\" bordercolorlight=\"#3366CC\">\n");
}

void writeCounts(FILE *page)
{
    int successes = 0;
    for (std::int32_t i = 0; i < ac.numClients; ++i) {
        successes += workerThreads[i]->getSuccesses();
    }
    std::fprintf(page,
                 "<table align=center width=\"50%%\" border=2 bordercolor=\"#3366CC\" "
                 "bordercolorlight=\"#3366CC\" bordercolordark=\"#3366CC\">\n"
                 "<tr>\n <td>%s</td>\n <td align=right>%d</td> <tr>\n"
                 "<td>%s</td>\n<td align=right>%d</td>\n </tr>\n <tr>\n"
                 " <td>%s</td>\n<td align=right>%d</td> \n </tr>\n <tr>\n"
                 " <td>%s</td>\n<td align=right>%d</td>\n </tr>\n </table>\n\n",
                 CAMessage(947, "URLs specified by admin for refresh:"), ac.adminUrlCount,
                 CAMessage(948, "Top N URLs from the cache specified for refresh:"),
                 ac.seedCount - ac.adminUrlCount, CAMessage(949, "Total URLs loaded into cache:"),
                 successes, CAMessage(950, "URLs not processed:"),
                 urlQueue->getLength() + restingHosts->parked());
}

// One row for each good line of the hits file.
void writeHitsRows(FILE *page, FILE *hitsFile)
{
    std::array<char, kMaxHitsLine + 1> line{};
    CAHitsLine words{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), hitsFile) != nullptr) {
        if (CAIsBlankHitsLine(line.data())) {
            continue;
        }
        if (!CASplitHitsLine(line.data(), &words)) {
            std::fprintf(CATraceOn() ? ac.traceStream : stderr,
                         "CASummary... found bad line in hitlist\n");
            continue;
        }
        std::fprintf(page, "<tr><td>%s<td>%s<td><a href=\"%s\">%s</a></tr>\n", words.hits.data(),
                     words.percent.data(), words.url.data(), words.url.data());
    }
}

void writeHits(FILE *page)
{
    FILE *const hitsFile =
        g_ca_hits_filename == nullptr ? nullptr : HTOpenForReading(g_ca_hits_filename);
    if (hitsFile == nullptr) {
        std::fprintf(page, "%s<br>\n", CAMessage(955, "Unable to get info..."));
        return;
    }
    std::fprintf(page,
                 "<h3 align=center>%s</h3>\n<table align=center width=\"50%%\" border=2 "
                 "bordercolor=\"#HTML_BORDER_COLOR\" bordercolorlight=\"#HTML_BORDER_COLOR\" "
                 "bordercolordark=\"#HTML_BORDER_COLOR\">\n"
                 "<th align=left>%s</th>\n<th align=left>%s</th>\n<th align=left>%s</th>\n",
                 CAMessage(954, "URLs requested"), CAMessage(951, "Hits"),
                 CAMessage(952, "Percent"), CAMessage(953, "URL"));
    writeHitsRows(page, hitsFile);
    std::fprintf(page, "</table>\n");
    std::fclose(hitsFile);
}

}  // namespace

void CASummary()
{
    FILE *const page = ac.reportStream;
    if (page == nullptr) {
        return;
    }
    CATrace("Now writing Automatic Cache Refresh Summary file!\n");
    writeHead(page);
    writeTimes(page);
    writeCounts(page);
    writeHits(page);
    std::fprintf(page, "\n<center>\n</body></html>\n");
    std::fflush(page);  // a page that is finished is in the file, even if the process is killed
}
