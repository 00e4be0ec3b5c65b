#include "report/CAsummary.h"

#include <array>
#include <string>
#include <string_view>

#include "HTFile.h"
#include "base/CAhits.h"
#include "base/CAtrace.h"

namespace {

// Writes the start of every page, up to the end of its heading.
void writeStart(FILE *page)
{
    std::fprintf(page, "<html>\n<head>\n   <title>%s</title>\n",
                 CAMessage(942, "Automatic Cache Refresh Summary"));
    std::fprintf(page, "<meta name=\"GENERATOR\" content=\"Quillmark\">\n</head>\n");
    std::fprintf(page,
                 "<body background=\"/zuicons/statusBG.jpg\">\n\n<center><h2>%s</h2></center>\n",
                 CAMessage(943, "Automatic Cache Refresh Summary"));
}

void writeHead(FILE *page)
{
    writeStart(page);
    std::fprintf(page, "<p>%s\n<hr>\n</p>\n\n",
                 CAMessage(944,
                           "This page displays Cache Agent statistics and the Top Cached URLs that "
                           "were requested"));
}

// Writes only the opening tag of the table of start and end times: programs that read the page
// expect it without its rows.
void writeTimes(FILE *page)
{
    std::fprintf(page,
                 "<table align=center width=\"50%%\" border=2 bordercolor=\"#3366CC\" "
                 "bordercolordark=\"#3366CC\" bordercolorlight=\"#3366CC\">\n");
}

void writeCounts(FILE *page, const CASummaryCounts &counts)
{
    std::fprintf(page,
                 "<table align=center width=\"50%%\" border=2 bordercolor=\"#3366CC\" "
                 "bordercolorlight=\"#3366CC\" bordercolordark=\"#3366CC\">\n"
                 "<tr>\n <td>%s</td>\n <td align=right>%d</td> <tr>\n"
                 "<td>%s</td>\n<td align=right>%d</td>\n </tr>\n <tr>\n"
                 " <td>%s</td>\n<td align=right>%d</td> \n </tr>\n <tr>\n"
                 " <td>%s</td>\n<td align=right>%d</td>\n </tr>\n </table>\n\n",
                 CAMessage(947, "URLs specified by admin for refresh:"), counts.adminUrls,
                 CAMessage(948, "Top N URLs from the cache specified for refresh:"), counts.topUrls,
                 CAMessage(949, "Total URLs loaded into cache:"), counts.loaded,
                 CAMessage(950, "URLs not processed:"), counts.notProcessed);
}

// Writes a row of the table into `*row`; without printf, because there may be millions.
void makeRow(const CAHitsLine &words, std::string *row)
{
    const std::string_view url = words.url.data();
    row->assign("<tr><td>").append(words.hits.data()).append("<td>").append(words.percent.data());
    row->append("<td><a href=\"").append(url).append("\">").append(url).append("</a></tr>\n");
}

// Writes one row for each good line of the hits file.
void writeHitsRows(FILE *page, FILE *hitsFile)
{
    std::array<char, kMaxHitsLine + 1> line{};
    CAHitsLine words{};
    std::string row;
    while (std::fgets(line.data(), static_cast<int>(line.size()), hitsFile) != nullptr) {
        if (CAIsBlankHitsLine(line.data())) {
            continue;
        }
        if (!CASplitHitsLine(line.data(), &words)) {
            std::fputs("CASummary... found bad line in hitlist\n", CATraceOrStderr());
            continue;
        }
        makeRow(words, &row);
        std::fwrite(row.data(), 1, row.size(), page);
    }
}

void writeHits(FILE *page, const char *hitsPath)
{
    FILE *const hitsFile = hitsPath == nullptr ? nullptr : HTOpenForReading(hitsPath);
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

void CAWritePlaceholder(FILE *page)
{
    writeStart(page);
    std::fprintf(page,
                 "<p>Unable to show cache agent information because no data is available at this "
                 "time.</p>");
    std::fprintf(page, "\n</html>\n");
}

void CAWriteSummary(FILE *page, const CASummaryCounts &counts, const char *hitsPath)
{
    writeHead(page);
    writeTimes(page);
    writeCounts(page, counts);
    writeHits(page, hitsPath);
    std::fprintf(page, "\n<center>\n</body></html>\n");
    std::fflush(page);  // so that the page is in the file even if the process is killed
}
