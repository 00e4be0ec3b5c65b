// The summary page that the administrator reads when the process has ended.
#include <gtest/gtest.h>

#include <filesystem>

#include "Agent.h"

namespace {

const std::string kTable = "<table align=center width=\"50%\" border=2 bordercolor=";
// A page; each "@" stands for a count. The first table shows nothing and is never closed.
const std::string kPage =
    "<html>\n<head>\n   <title>Automatic Cache Refresh Summary</title>\n"
    "<meta name=\"GENERATOR\" content=\"Quillmark\">\n</head>\n"
    "<body background=\"/zuicons/statusBG.jpg\">\n\n"
    "<center><h2>Automatic Cache Refresh Summary</h2></center>\n<p>This page displays Cache Agent "
    "statistics and the Top Cached URLs that were requested\n<hr>\n</p>\n\n" +
    kTable + "\"#3366CC\" bordercolordark=\"#3366CC\" bordercolorlight=\"#3366CC\">\n" + kTable +
    "\"#3366CC\" bordercolorlight=\"#3366CC\" bordercolordark=\"#3366CC\">\n<tr>\n"
    " <td>URLs specified by admin for refresh:</td>\n <td align=right>@</td> <tr>\n"
    "<td>Top N URLs from the cache specified for refresh:</td>\n<td align=right>@</td>\n </tr>\n"
    " <tr>\n <td>Total URLs loaded into cache:</td>\n<td align=right>@</td> \n </tr>\n"
    " <tr>\n <td>URLs not processed:</td>\n<td align=right>@</td>\n </tr>\n </table>\n\n";
const std::string kHeads =
    "<h3 align=center>URLs requested</h3>\n" + kTable +
    "\"#HTML_BORDER_COLOR\" "
    "bordercolorlight=\"#HTML_BORDER_COLOR\" bordercolordark=\"#HTML_BORDER_COLOR\">\n"
    "<th align=left>Hits</th>\n<th align=left>Percent</th>\n<th align=left>URL</th>\n";

const std::string kNone = "Unable to get info...<br>\n";

struct ReportRow : Row {
    std::string directives;
    const char *hitsFile;
    std::string hits;                 // what the page tells of it
    std::vector<const char *> pages;  // the counts of each, of which the last is not processed
};

class Report : public testing::TestWithParam<ReportRow> {};

TEST_P(Report, IsThisByteForByte)
{
    const ReportRow &row = GetParam();
    const ScriptedPeer peer({{"http://h/gone", {{{"HTTP/1.0 404 No\r\n\r\n"}}}},
                             {"http://h/stuck", {{}, Reply::Then::Stall}}});
    Agent agent(
        peer.port(),
        "numclients 2; hostname 127.0.0.1; serverroot @dir@; caching always; " + row.directives,
        row.hitsFile);
    if (row.hits == kNone) {
        std::filesystem::remove(agent.dir.path("logs/hitsfile.txt"));
    }
    agent.run("-rp " + std::to_string(row.pages.size()));
    std::string expected;
    for (const char *const counts : row.pages) {
        expected += kPage;
        std::istringstream numbers(counts);
        for (std::string number; numbers >> number;) {
            expected.replace(expected.find('@'), 1, number);
        }
        expected += row.hits + "\n<center>\n</body></html>\n";
    }
    EXPECT_EQ(agent.dir.read("pub/de_DE/reports/refetchd.html"), expected);
    EXPECT_FALSE(std::filesystem::exists(agent.dir.path("pub/de_DE/reports/refetchd.html.tmp")));
}

const char *const kHits = "#1 2% x; \n12 7.5% http://h/t; two words; 3 - http://h/gone <b>";
const std::string kRows =
    kHeads +
    "<tr><td>12<td>7.5%<td><a href=\"http://h/t\">http://h/t</a></tr>\n"
    "<tr><td>3<td>-<td><a href=\"http://h/gone\">http://h/gone</a></tr>\n</table>\n";
const std::string kSeeds = "loadtopcached 2; loadurl h/a; loadurl h/b; loadurl h/gone?; loadurl ";
const std::string kStuck = "maxruntime 1; readtimeout 60; loadurl h/stuck; loadurl h/stuck; ";
const std::string kEmpty = kHeads + "</table>\n";

const ReportRow kReports[] = {
    {"OneRun", kSeeds + "h/gone", kHits, kRows, {"3 1 3 0"}},
    {"TwoRuns", kSeeds + "h/gone", kHits, kRows, {"3 1 3 0", "3 1 6 0"}},
    {"CommentsOnly", "loadtopcached 1", "# 1 2; ", kEmpty, {"0 0 0 0"}},
    {"TimeIsUp", kStuck + seeds(3), "", kEmpty, {"5 0 0 3"}},
    {"NoHitsFile", "loadtopcached 1; loadurl h/a; loadurl h/gone", "", kNone, {"2 0 1 0"}},
};
INSTANTIATE_TEST_SUITE_P(Run, Report, testing::ValuesIn(kReports), rowName);

}  // namespace
