// Whole runs: repeats, time limits, pacing, the limit of connections, how a run ends, its report,
// its trace, as many clients and URLs as expected, and the memory of many runs.
#include <algorithm>
#include <regex>
#include <set>

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
    EXPECT_EQ(agent.traced(" URLs/s, 0 s left\n") > 0, row.reads > 0);
}

const char *const kRanDry = "all threads done - we're outta here!\n";
const char *const kTimeUp = "all threads done - we outta here!\n";
const std::string kStuck = "progress 1; maxruntime 2; loadurl h/0; loadurl h/1; numclients ";

const EndRow kEnds[] = {
    {"NothingToDo", "numclients -3", 0, kRanDry},
    {"NoWorkers", "numclients 0; maxruntime 2; loadurl h/1", 0, kTimeUp},
    {"HundredReadsAreStuck", seeds(98) + kStuck + "100", 100, kTimeUp},
    {"EveryReadIsStuck", "loadurl h/0; loadurl h/0; " + kStuck + "3", 3, kTimeUp},
    {"ReadIsStuckInTwoRuns", kStuck + "1; refetchdrepeat 2", 2, kTimeUp, 2},
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
    std::string hits;                 // its part of the page
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

// The lines of the main and the master thread, then those of the worker, because the two mix
// freely. What varies from run to run becomes "#", and of equal lines only the first is kept.
std::string inOrder(std::string trace)
{
    for (const std::string before : {"now=", "buffer ", "cs ", "sz ", "ket ", " read ", ".1:"}) {
        for (std::size_t at = 0; (at = trace.find(before, at)) != std::string::npos;) {
            at += before.size();
            trace.replace(at, trace.find_first_not_of("0123456789abcdef", at) - at, "#");
        }
    }
    const std::string labels = " Worke Buffe Reque Net.. Cache Parse HTTP. Accep User- Host: Conne";
    std::string order[] = {"\n", "\n"};
    std::istringstream lines(trace);
    for (std::string line; std::getline(lines, line);) {
        line = line.substr(0, line.find('\r')) + "\n";
        std::string &mine = order[labels.find(" " + line.substr(0, 5)) < labels.size() ? 1 : 0];
        if (line.size() > 1 && line.find("still busy") == std::string::npos &&
            mine.find("\n" + line) == std::string::npos) {
            mine += line;
        }
    }
    return order[0] + order[1];
}

TEST(Run, TraceOfARunIsInOrder)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(),
                "hostname 127.0.0.1; numclients 1; no-directive of ours; loadurl http://h/d/../a");
    agent.run();
    EXPECT_EQ(inOrder(agent.process->err()),
              "\nLoading..... config file \"" + agent.dir.path("proxy.conf") + R"(".
Proxy....... being updated is "127.0.0.1:#".
Hostname.... 127.0.0.1.
Clients..... 1.
Simplify.... path down to "/a".
Adding...... 1 hit(s) for host "h".
Added....... new host "h" to host table.
Will load... URL "http://h/d/../a".
Hosts....... match (127.0.0.1, 127.0.0.1) --> use top N.
Starting.... client thread #1.
The locale is set to de_DE.
Starting.... Will run for 1 times!!
Master......  time now=#s, maxruntime=0
Master...... queue is empty.
Stopping.... client thread #1.
Deleting.... client thread #1.
Flushing.... remove all processed URLs.
Flushing.... remove all non-processed URLs.
Master...... all threads done - we're outta here!

Worker...... thread 1 starting.
Buffer...... new a buffer #.
Worker...... #1 working on URL "http://h/a".
Request..... built: GET http://h/a HTTP/1.0
Accept: text/html, */*; q=0.10
User-Agent: Mozilla/4.0 (emulation; QRX BUG)
Host: h
Cache-Control: max-age=0
Connection: Keep-alive
Net......... requesting "http://h/a".
Cache Agent read # bytes from socket #.
Buffer...... bs 4096, cs #, sz #.
Parser...... found header Content-Type: text/plain.
Parser...... found header Content-Length: 2.
Parser...... found header Connection: keep-alive.
Parser...... Content-length:  2, Connection:  keep-alive
Parser...... doesn't understand Content-type: text/plain
HTTP........ parser sending 2 bytes to its sink, (0/2) .
HTTP........ the sink eat 2 bytes, 0 bytes more wanted.
Net.. stop reading the socket.
Worker...... thread 1 has nothing to do.
Worker...... thread 0 exiting.
)");
}

struct ClockRow : Row {
    const char *jump;  // of the wall clock, at the first request
    std::string directives;
    std::vector<Reply> replies;  // to the requests in turn; then a plain one
    const char *asked;
    int lastMs = 0;  // the last request comes this long after the first, or later
    int connections = 1;
};

class Clock : public testing::TestWithParam<ClockRow> {};

TEST_P(Clock, JumpChangesADurationOrNoDate)
{
    const ClockRow &row = GetParam();
    if (kSanitized) {
        GTEST_SKIP() << "a sanitizer must be loaded before anything else";
    }
    const TempDir clock;
    const ScriptedPeer peer([&](const ScriptedPeer &self, const ScriptedPeer::Request &) {
        const std::size_t number = self.requests().size() - 1;
        if (number == 0) {
            std::filesystem::rename(clock.write("new", row.jump), clock.path("clock"));
        }
        return number < row.replies.size() ? row.replies[number] : Reply::ok();
    });
    clock.write("clock", "+0");
    Agent agent(peer.port(), "numclients 1; progress 1; summaryline on; resultslog @dir@/log; " +
                                 seeds(2) + row.directives);
    agent.wrapper =
        "LD_PRELOAD=/usr/$LIB/faketime/libfaketimeMT.so.1 FAKETIME_NO_CACHE=1 "
        "FAKETIME_DONT_FAKE_MONOTONIC=1 FAKETIME_TIMESTAMP_FILE=" +
        clock.path("clock");
    agent.run();
    EXPECT_EQ(peer.asked(), row.asked);
    EXPECT_GE(peer.requests().back().arrival - peer.requests().front().arrival, Millis(row.lastMs));
    EXPECT_EQ(peer.connections(), row.connections);
    const std::string log = agent.dir.read("log");
    const std::string jumped =
        "\"ms\":(-|[0-9]{6})|\"seconds\":(-|[0-9]{3})|(in|,) (-[0-9]+|[0-9]{3,}) s";
    EXPECT_THAT(log + agent.process->err(), testing::Not(testing::ContainsRegex(jumped)));
    const std::string hour = log.substr(std::min(log.find('T'), log.size()), 3);
    EXPECT_TRUE(std::regex_search(log, std::regex("T(?!" + hour.substr(1) + ")"))) << log;
}

const std::string kTwoRuns = "maxruntime 3; refetchdrepeat 2";
const Reply kSlow = {{{Reply::ok().pieces.front().bytes, 1500}}};
const Reply kBusyHost = Reply::head("503 Busy\r\nRetry-After: 3");
const Reply kNever = {{}, Reply::Then::Stall};
const char *const kForth = "+1h";
const char *const kBack = "-1h";

const ClockRow kClocks[] = {
    {"RunEndsEarly", kForth, "maxruntime 60", {kSlow}, "/0 /1"},
    {"RunNeverEnds", kBack, "maxruntime 2; readtimeout 60", {kSlow, kNever}, "/0 /1"},
    {"NextRunIsEarly", kForth, kTwoRuns, {}, "/0 /1 /0 /1", 2000},
    {"NextRunNeverComes", kBack, kTwoRuns, {}, "/0 /1 /0 /1", 2000},
    {"RestIsCutShort", kForth, "retryafter on", {kBusyHost}, "/0 /0 /1", 2000, 2},
    {"RestNeverEnds", kBack, "retryafter on", {kBusyHost}, "/0 /0 /1", 2000, 2},
};
INSTANTIATE_TEST_SUITE_P(Run, Clock, testing::ValuesIn(kClocks), rowName);

// The first 5000 are a tree: each page links to eight of its own, its parent and the root.
TEST(Scale, UrlIsLostOrAskedForTwice)
{
    const int tree = 5000;
    const ScriptedPeer peer([](const ScriptedPeer &, const ScriptedPeer::Request &request) {
        const int number = std::stoi(request.target.substr(9));
        std::string body = "<a href=\"0\"><a href=\"" + std::to_string((number - 1) / 8) + "\">";
        for (int child = 8 * number + 1; child <= 8 * number + 8 && child < tree; ++child) {
            body += "<a href=\"" + std::to_string(child) + "\">";
        }
        Reply reply = Reply::html(number < tree ? body : "page");
        reply.pieces.front().pauseMs = 10;  // long enough for every idle client to join in
        return reply;
    });
    Words expected = targets(15000);
    std::string hits = seeds(15000);
    hits.erase(0, seeds(tree).size());
    replaceAll(&hits, "loadurl ", "1 0% ");
    Agent agent(peer.port(),
                "numclients 100; delvedepth 5; loadurl h/0; serverroot @dir@; caching always; "
                "hostname 127.0.0.1; loadtopcached 10000",
                hits);
    agent.startWith("-r proxy.conf");
    agent.finish();
    Words arrived = peer.targets();
    std::sort(arrived.begin(), arrived.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_TRUE(arrived == expected) << arrived.size();
    EXPECT_LE(peer.mostConnections(), 100);
}

// The time is up in both runs while every client waits for an answer; all of them end in time.
TEST(Scale, HundredClientsAreBusyWhenTheTimeIsUp)
{
    const ScriptedPeer peer([](const ScriptedPeer &, const ScriptedPeer::Request &) {
        Reply reply = Reply::html("<a href=\"x\"><img src=\"y\">");
        reply.pieces.front().pauseMs = 1500;
        return reply;
    });
    Agent agent(peer.port(), "numclients 100; maxruntime 2; delvedepth 1; " + seeds(1000));
    agent.run("-rp 2");
    EXPECT_GE(peer.mostConnections(),
              100);  // it does not notice at once that an answer is given up
    EXPECT_EQ(agent.traced("Master...... TIME's UP! we have to go...\n"), 2);
    EXPECT_EQ(agent.traced("exiting.\n"), 100);
}

TEST(Memory, IsLostOrGrowsWithTheRuns)
{
    if (kSanitized) {
        GTEST_SKIP() << "a sanitizer looks by itself";
    }
    const ScriptedPeer peer(
        {{"http://h/0", Reply::html("<a href=\"a\"><img src=\"b\"><a href=\"http://o/\">")},
         {"http://h/1", Reply::head("302 Moved\r\nLocation: /c")},
         {"http://h/2", {{{"HTTP/1.0 200 OK\r\n"}}, Reply::Then::Reset}}});
    std::set<std::string> kept;
    for (const std::string runs : {"2", "5"}) {
        Agent agent(
            peer.port(),
            "serverroot @dir@; delvedepth 1; slf on; slr @dir@/save; ignoreurl *x*; onlyurl "
            "http*; cachequeries on *; maxhosturls 99 h; caching on; loadtopcached 9; "
            "hostname 127.0.0.1; catracelog trace; errorlog @dir@/x; " +
                seeds(3),
            "9 5% http://h/top; bad; ");
        agent.wrapper = "valgrind --leak-check=full --log-file=valgrind --error-exitcode=9";
        agent.startWith("-r proxy.conf -rp " + runs);
        agent.finish();  // with another status when something is lost
        const std::string report = agent.dir.read("valgrind");
        std::smatch found;
        EXPECT_TRUE(std::regex_search(report, found, std::regex("still reachable: (.*) bytes")));
        kept.insert(found[1]);
    }
    EXPECT_EQ(kept.size(), 1);
}

}  // namespace
