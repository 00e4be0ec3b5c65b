// Whole runs: repeats, time limits, pacing, the limit of connections, how a run ends, and the
// report that it leaves.
#include "Agent.h"

namespace {

struct PaceRow : Row {
    std::string directives;
    const char *options;
    int seeds;
    int requests;         // that they make
    int budget;           // requests for each
    int periodMs;         // which begins with the start
    int connections = 5;  // at most
};

class Pacing : public testing::TestWithParam<PaceRow> {};

TEST_P(Pacing, BudgetIsNeverExceeded)
{
    const PaceRow &row = GetParam();
    const ScriptedPeer peer;
    Agent agent(peer.port(), "numclients 5; " + seeds(row.seeds) + row.directives);
    const auto start = ScriptedPeer::Clock::now();
    agent.run(row.options);
    int number = 0;
    for (const ScriptedPeer::Request &request : peer.requests()) {
        EXPECT_GE(request.arrival - start, Millis(number++ / row.budget * row.periodMs));
    }
    EXPECT_EQ(number, row.requests);
    EXPECT_LE(peer.connections(), row.connections);
    EXPECT_EQ(agent.traced("Worker...... waiting for a Connection.\n") > 0, row.connections < 5);
}

const PaceRow kPaces[] = {
    {"ByOption", "", "-rps 2", 6, 6, 2, 1000},
    {"DirectiveBeatsOption", "refetchd_request_per_second 3", "-rps 100", 9, 9, 3, 1000},
    {"NextRunAfterMaxRuntime", "maxruntime 4", "-rp 2", 1, 2, 1, 3000},
    {"ConnectionsByOption", "", "-mc 1", 20, 20, 20, 0, 1},
    {"ConnectionsByDirective", "refetchdmaxconnection 3", "", 20, 20, 20, 0, 3},
};
INSTANTIATE_TEST_SUITE_P(Run, Pacing, testing::ValuesIn(kPaces), rowName);

const std::string kHead =
    "<html>\n<head>\n   <title>Automatic Cache Refresh Summary</title>\n"
    "<meta name=\"GENERATOR\" content=\"Quillmark\">\n</head>\n"
    "<body background=\"/zuicons/statusBG.jpg\">\n\n"
    "<center><h2>Automatic Cache Refresh Summary</h2></center>\n<p>";
const std::string kPlaceholder =
    kHead +
    "Unable to show cache agent information because no data is available at this time.</p>\n"
    "</html>\n";

struct EndRow : Row {
    std::string directives;
    std::size_t reads;  // requests that are sent; none is answered
    const char *trace;  // the master's last line of each run
    int runs = 1;
};

class End : public testing::TestWithParam<EndRow> {};

TEST_P(End, IsCleanAndTheReportIsInPlace)
{
    const EndRow &row = GetParam();
    const ScriptedPeer peer(
        [](const auto & /*self*/, const auto & /*request*/) { return Reply{}; });
    Agent agent(peer.port(), "serverroot @dir@; readtimeout 60; " + row.directives);
    agent.start();
    ASSERT_TRUE(peer.waitForRequests(row.reads, kRunDeadline));
    if (row.reads > 0) {
        EXPECT_EQ(agent.report(), kPlaceholder);
        agent.process->signal(SIGALRM);  // ignored, both
        agent.process->signal(SIGPIPE);
    }
    agent.finish();
    EXPECT_EQ(peer.requests().size(), row.reads);
    EXPECT_EQ(agent.traced(row.trace), row.runs) << agent.process->err();
    EXPECT_EQ(agent.traced(kReport + ".tmp successfully renamed to @dir@/" + kReport), 1);
    EXPECT_NE(agent.report(), kPlaceholder);
    EXPECT_EQ(agent.traced("Progress.... 0 done, 0 succeeded, ") > 0, row.reads > 0);
}

const char *const kRanDry = "all threads done - we're outta here!\n";
const char *const kTimeUp = "all threads done - we outta here!\n";
const std::string kStuck = "progress 1; maxruntime 2; loadurl h/0; loadurl h/1; numclients ";

const EndRow kEnds[] = {
    {"NothingToDo", "numclients -3", 0, kRanDry},
    {"NoWorkers", "numclients 0; maxruntime 2; loadurl h/1", 0, kTimeUp},
    {"EveryReadIsStuck", "loadurl h/0; loadurl h/0; " + kStuck + "3", 3, kTimeUp},
    {"ReadIsStuckInTwoRuns", kStuck + "1; refetchdrepeat 2", 1, kTimeUp, 2},
};
INSTANTIATE_TEST_SUITE_P(Run, End, testing::ValuesIn(kEnds), rowName);

const std::string kTable = "<table align=center width=\"50%\" border=2 bordercolor=";
// A page; each "@" stands for a count. The first table shows nothing and is never closed.
const std::string kPage =
    kHead +
    "This page displays Cache Agent statistics and the Top Cached URLs that were requested\n"
    "<hr>\n</p>\n\n" +
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
    const ScriptedPeer peer(
        {{"http://h/gone", Reply::head("404 No")}, {"http://h/stuck", {{}, Reply::Then::Stall}}});
    Agent agent(
        peer.port(),
        "numclients 2; hostname 127.0.0.1; serverroot @dir@; caching always; " + row.directives,
        row.hitsFile);
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
    EXPECT_EQ(agent.report(), expected);
    EXPECT_FALSE(std::filesystem::exists(agent.dir.path(kReport + ".tmp")));
}

const char *const kHits = "#1 2% x; \n12 7.5% http://h/t; two words; 3 - http://h/gone <b>";
const std::string kRows =
    kHeads +
    "<tr><td>12<td>7.5%<td><a href=\"http://h/t\">http://h/t</a></tr>\n"
    "<tr><td>3<td>-<td><a href=\"http://h/gone\">http://h/gone</a></tr>\n</table>\n";
const std::string kSeeds = "loadtopcached 2; loadurl h/a; loadurl h/gone?; loadurl h/gone";
const std::string kTooLong = "maxruntime 1; readtimeout 60; loadurl h/stuck; loadurl h/stuck; ";

const ReportRow kReports[] = {
    {"TwoRuns", kSeeds, kHits, kRows, {"2 1 2 0", "2 1 4 0"}},
    {"TimeIsUpAndNoHitsFile", kTooLong + seeds(3), "", "Unable to get info...<br>\n", {"5 0 0 3"}},
};
INSTANTIATE_TEST_SUITE_P(Run, Report, testing::ValuesIn(kReports), rowName);

}  // namespace
