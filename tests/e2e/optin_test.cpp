// Directives that are off unless they are set: what is asked for without and with each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>

#include "Agent.h"
#include "Site.h"

namespace {

struct OptInRow : Row {
    std::string directive;
    std::vector<Reply> replies;  // to the first requests for "/", in turn; then a plain page
    std::string without;         // what one client asks for then, without "http://h"
    std::string with;
    std::string others = "loadurl h/; delvedepth 1; readtimeout 1";
    std::string request = "";  // a part of each request, only with the directive
};

class OptIn : public testing::TestWithParam<OptInRow> {
protected:
    static void expectAskedFor(const std::string &targets, const std::string &directives)
    {
        const OptInRow &row = GetParam();
        std::atomic<std::size_t> count = 0;
        const ScriptedPeer peer([&](const ScriptedPeer &, const ScriptedPeer::Request &request) {
            if (request.target != "http://h/" || count >= row.replies.size()) {
                return htmlPage("page");
            }
            return row.replies[count++];
        });
        Agent agent(peer.port(), "numclients 1; " + row.others + directives,
                    "5 50% http://h/s; 9 30% http://h/; 7 20% http://h/t");
        agent.run();
        std::string asked;
        for (const std::string &target : peer.targets()) {
            const bool absolute = target.starts_with("http://");
            asked += (asked.empty() ? "" : " ") + target.substr(absolute ? target.find('/', 7) : 0);
        }
        EXPECT_EQ(asked, targets) << agent.process->err();
        for (const ScriptedPeer::Request &request : peer.requests()) {
            EXPECT_EQ(request.bytes.find(row.request) != std::string::npos,
                      row.request.empty() || !directives.empty());
        }
    }
};

TEST_P(OptIn, ChangesNothingUnlessItIsSet)
{
    expectAskedFor(GetParam().without, "");
    expectAskedFor(GetParam().with, "; " + GetParam().directive);
}

// A page with a link to "/a", sent in two pieces, whose end is the connection's.
Reply untilClose(const std::string &header)
{
    return {{{"HTTP/1.0 200 OK\r\nContent-Type: text/html\r\n" + header + "\r\n<a hr"},
             {"ef=\"a\">" + std::string(70000, '.') + "<a href=\"b\">", 100}},
            Reply::Then::Close};
}

Reply moved(const std::string &status)
{
    return {{{"HTTP/1.0 " + status + " Moved\r\nLocation: /to\r\nContent-Length: 0\r\n\r\n"}}};
}

Reply busy(const std::string &status)
{
    return {{{"HTTP/1.0 " + status + "\r\nContent-Length: 0\r\n\r\n"}}};
}

const Reply kGone = {{}, Reply::Then::Close};
const Reply kReset = {{}, Reply::Then::Reset};
const std::string kSeeds = "loadurl h/; loadurl h/1; loadurl h/2; readtimeout 1";
const std::string kClosed = "closedelimitedbodies on";
const std::string kAll = "followredirects All";

const OptInRow kRows[] = {
    {"BodyUntilClose", kClosed, {untilClose("")}, "/", "/ /a /b"},
    {"BodyUntilCloseKeptAlive",
     kClosed,
     {untilClose("Connection: keep-alive\r\n")},
     "/",
     "/ /a /b"},
    {"BodyOfAnotherCoding", kClosed, {untilClose("Transfer-Encoding: gzip\r\n")}, "/", "/ /a /b"},
    {"BodyInBrokenChunks", kClosed, {untilClose("Transfer-Encoding: Chunked\r\n")}, "/", "/"},
    {"LinksOfToday",
     "modernlinks on",
     {htmlPage("<base href=/d/><a\thref=x><a href=\"y?a=1&amp;b=2\"><img srcset=\"z 1x, /w 2x\">"
               "<!-- <a href=\"no\"> --><script>'<a href=\"no\">'</script>"
               "<a href=\"mailto:a@h\"><a href='JavaScript:no()'>")},
     "/ /y?a=1&amp;b=2 /no /a@h /no()",
     "/ /d/x /d/y?a=1&b=2 /d/z /w",
     "loadurl h/; delvedepth 1; delveacrosshosts on; cachequeries on"},
    {"Moved301", kAll, {moved("301")}, "/", "/ /to"},
    {"Moved303", kAll, {moved("303")}, "/", "/ /to"},
    {"Moved307", kAll, {moved("307")}, "/", "/ /to"},
    {"Moved308", kAll, {moved("308")}, "/", "/ /to"},
    {"Moved304", kAll, {moved("304")}, "/", "/"},
    {"Moved302Only", "followredirects on", {moved("301"), moved("302")}, "/", "/"},
    {"RetryAtOnce", "retries 2", {kGone}, "/ /1 /2", "/ / /1 /2", kSeeds},
    {"RetryBehind", "retries 2", {kReset, kGone}, "/ /1 /2", "/ / /1 /2 /", kSeeds},
    {"RetryTwiceOnly", "retries 2", {kGone, kGone, kGone}, "/ /1 /2", "/ / /1 /2 /", kSeeds},
    {"RetryTimedOut", "retries 1", {Reply{}}, "/ /1 /2", "/ / /1 /2", kSeeds},
    {"RetryNoAnswered", "retries 1", {busy("500 No")}, "/ /1 /2", "/ /1 /2", kSeeds},
    {"RestFor",
     "retryafter on",
     {busy("503 No\r\nRetry-After: 2")},
     "/ /1 /2",
     "/ / /1 /2",
     kSeeds},
    {"RestAndRepeatOnce",
     "retryafter on",
     {busy("429 No\r\nRetry-After: 1"), busy("503 No\r\nRetry-After: 1")},
     "/ /1 /2",
     "/ / /1 /2",
     kSeeds},
    {"RestOthersGoOn",
     "retryafter on",
     {busy("429 No\r\nRetry-After: 1")},
     "/ /x /1",
     "/ /x / /1",
     "loadurl h/; loadurl o/x; loadurl h/1"},
    {"RestNoLongerThanTheRun",
     "retryafter on",
     {busy("503 No\r\nRetry-After: 99")},
     "/ /1",
     "/",
     "loadurl h/; loadurl h/1; maxruntime 3"},
    {"Header",
     "requestheader Accept-Encoding gzip, br; requestheader X-A b",
     {},
     "/",
     "/",
     "loadurl h/",
     "\r\nAccept-Encoding: gzip, br\r\nX-A: b\r\n"},
    {"UserAgent",
     "useragent \"refetchd (night)\" /1",
     {},
     "/",
     "/",
     "loadurl h/",
     "\r\nUser-Agent: refetchd (night) /1\r\nHost: h\r\n"},
};
INSTANTIATE_TEST_SUITE_P(OptIn, OptIn, testing::ValuesIn(kRows), rowName);

// "/p" is one link from "/", which is slow, and two from the other seed: met there first, it would
// be too deep for its own link.
TEST(BreadthFirst, PageThatIsMetFirstOnALongerWayLosesItsLinks)
{
    const Reply quick = htmlPage("<a href=\"p\">");
    Reply slow = quick;
    slow.pieces.front().pauseMs = 2500;
    for (const char *const directive : {"", "breadthfirst on"}) {
        const ScriptedPeer peer({{"http://h/", slow},
                                 {"http://h/s", htmlPage("<a href=\"a\">")},
                                 {"http://h/a", quick},
                                 {"http://h/p", htmlPage("<a href=\"q\">")}});
        Agent agent(
            peer.port(),
            std::string("numclients 3; delvedepth 2; loadurl h/; loadurl h/s; ") + directive);
        agent.run();
        EXPECT_EQ(testing::Value(peer.targets(), testing::Contains("http://h/q")),
                  *directive != '\0');
    }
}

// "/s" holds the first run until its time is over, with "/a" still queued.
TEST(BreadthFirst, PageOfARunThatWasCutShortBlocksOrEntersTheNext)
{
    std::atomic<int> stalls = 0;
    const ScriptedPeer peer([&](const ScriptedPeer &, const ScriptedPeer::Request &request) {
        const bool stall = request.target == "http://h/s" && stalls++ == 0;
        return stall ? Reply{} : htmlPage(request.target == "http://h/" ? "<a href=\"a\">" : "");
    });
    Agent agent(peer.port(),
                "breadthfirst on; numclients 1; readtimeout 6; maxruntime 3; refetchdrepeat 2; "
                "delvedepth 1; loadurl h/; loadurl h/s");
    agent.run();
    EXPECT_THAT(peer.targets(), testing::ElementsAre("http://h/", "http://h/s", "http://h/",
                                                     "http://h/s", "http://h/a"));
}

TEST(Results, LateAnswerIsTakenForThatOfTheNextUrl)
{
    Reply late = Reply::ok();
    late.pieces.front() = {"HTTP/1.0 404 No\r\nContent-Length: 0\r\n\r\n", 1500};
    const ScriptedPeer peer({{"http://h/0", late}});
    Agent agent(peer.port(), "numclients 1; readtimeout 1; resultslog @dir@/log; " + seeds(2));
    agent.run();
    const std::string log = agent.dir.read("log");
    EXPECT_NE(log.find("timed out"), std::string::npos) << log;
    EXPECT_NE(log.find("\"http://h/1\",\"source\":\"admin\",\"depth\":0,\"status\":200"),
              std::string::npos)
        << log;
}

// The log without what a clock says.
std::string withoutTimes(const std::string &log)
{
    std::string text;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t ms = line.find("\"ms\":") + 5;
        text += line.substr(line.find("\"url\""), ms - line.find("\"url\""));
        text += line.substr(line.find(',', ms)) + "\n";
    }
    return text;
}

Reply answer(const std::string &status, const std::string &headers)
{
    return {{{"HTTP/1.0 " + status + "\r\nContent-Type: text/html\r\nContent-Length: 0\r\n" +
              headers + "\r\n"}}};
}

std::string logged(const std::string &url, const std::string &source, int depth,
                   const std::string &answer, const std::string &verdict)
{
    return "\"url\":\"http://" + url + "\",\"source\":\"" + source +
           "\",\"depth\":" + std::to_string(depth) + ",\"status\":" + answer +
           ",\"ms\":,\"verdict\":\"" + verdict + "}\n";
}

TEST(Results, LogMetricsOrWarningSayOtherwise)
{
    const ScriptedPeer peer(
        {{"http://h/", htmlPage("<a href=\"/old\"><a href=\"/no\"><a href=\"/x.gif\">"
                                "<a href=\"http://o/\"><a href=\"/gone\"><a href=\"/\">")},
         {"http://h/old", answer("200 OK", "Age: 7000\r\n")},
         {"http://h/older", answer("200 OK", "Age: 8000\r\n")},
         {"http://h/no", answer("404 No", "")},
         {"http://h/gone", {{}, Reply::Then::Close}}});
    Agent agent(
        peer.port(),
        "hostname 127.0.0.1; numclients 1; delvedepth 1; ignoreurl *.gif; resultslog "
        "@dir@/log; metricsfile @dir@/prom; errorlog @dir@/e; serverroot @dir@; caching on; "
        "loadtopcached 9; loadurl h/; loadurl h/?q; refetchdrepeat 2",
        "9 5% http://h/older; 8 4% http://h/x.gif");
    agent.run();
    const std::string none = "0,\"bytes\":0";
    const std::string run =
        logged("h/?q", "admin", 0, none, R"(dropped","why":"cachequeries")") +
        logged("h/x.gif", "topn", 0, none, R"(dropped","why":"ignoreurl")") +
        logged("h/x.gif", "admin", 1, none, R"(dropped","why":"ignoreurl")") +
        logged("o/", "admin", 1, none, R"(dropped","why":"delveacrosshosts")") +
        logged("h/", "admin", 0, R"(200,"bytes":182)", R"(unknown")") +
        logged("h/older", "topn", 0, R"(200,"bytes":74)", R"(served from cache","age":8000)") +
        logged("h/old", "admin", 1, R"(200,"bytes":74)", R"(served from cache","age":7000)") +
        logged("h/no", "admin", 1, R"(404,"bytes":63)", R"(failed","why":"status 404")") +
        logged("h/gone", "admin", 1, none, R"(failed","why":"connection closed before an answer")");
    EXPECT_EQ(withoutTimes(agent.dir.read("log")), run + run);
    const std::string metrics = agent.dir.read("prom");
    for (const char *const gauge :
         {"urls{source=\"topn\",verdict=\"served_from_cache\"} 1",
          "urls{source=\"admin\",verdict=\"failed\"} 2", "responses{class=\"4xx\"} 1",
          "dropped_urls{by=\"ignoreurl\"} 2", "queue_left 0"}) {
        EXPECT_NE(metrics.find(gauge), std::string::npos) << gauge << " is not in\n" << metrics;
    }
    EXPECT_EQ(agent.traced("the proxy ignores max-age=0"), 2) << agent.process->err();
    EXPECT_NE(agent.dir.read("cacheAgent-errors").find("ignores max-age=0"), std::string::npos);
}

TEST(Progress, LineIsMissingOrTheSignalEndsTheProcess)
{
    // One client: the first URL is counted before the second is asked for, which holds the run.
    const ScriptedPeer peer({{"http://h/", Reply{{}, Reply::Then::Stall}}});
    Agent agent(peer.port(), "numclients 1; readtimeout 5; maxruntime 60; loadurl h/1; loadurl h/");
    agent.startWith("-r proxy.conf");
    ASSERT_TRUE(peer.waitForRequests(2, kRunDeadline));
    agent.process->signal(SIGUSR1);
    ASSERT_TRUE(agent.process->waitForError(" s left\n", kRunDeadline));
    EXPECT_EQ(agent.process->err().find("Progress.... 1 done, 1 succeeded, 0 queued, 1 busy, "),
              0U);
    agent.finish();

    Agent told(peer.port(), "numclients 1; readtimeout 5; loadurl h/; progress 2");
    told.startWith("-r proxy.conf");
    told.finish();
    EXPECT_GE(
        told.traced("Progress.... 0 done, 0 succeeded, 0 queued, 1 busy, 0.0 URLs/s, no limit\n"),
        1);
}

}  // namespace
