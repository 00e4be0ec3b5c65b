// What the administrator finds in the morning: the closing lines on standard error, the exit
// status, and the report after a run that a signal or a fault has ended.
#include <regex>
#include <thread>

#include "Servers.h"

namespace {

using Then = Reply::Then;

struct ClosingRow : Row {
    std::string directives;
    std::string told;  // on standard error, with "N s" for each duration
    int status = 0;
    std::string options = "";
};

class Closing : public testing::TestWithParam<ClosingRow> {};

TEST_P(Closing, LinesOrStatusSayOtherwise)
{
    const auto html = [](const std::string &more) {
        return Reply{{{"HTTP/1.0 200 OK\r\nContent-Type: text/html\r\nConnection: close\r\n" +
                       more + "\r\n\r\npage"}},
                     Then::Close};
    };
    const ScriptedPeer peer(
        {{"http://h/new", Reply::head("200 OK\r\nX-Cache: MISS from p\r\nX-Cache-Lookup: MISS")},
         {"http://h/old", Reply::head("200 OK\r\nAge: 9999")},
         {"http://h/gone", {{}, Then::Close}},
         {"http://h/stuck", {{}, Then::Stall}},
         {"http://h/400", Reply::head("400 No")},
         {"http://h/404", Reply::head("404 No")},
         {"http://h/407", Reply::head("407 No")},
         {"http://h/500", Reply::head("500 No")},
         {"http://h/503", Reply::head("503 No")},
         {"http://h/once", Reply::head("403 No")},
         {"http://h/once", Reply::head("200 OK\r\nX-Cache: MISS")},
         {"http://h/unframed", html("X: y")},
         {"http://h/coded", html("Content-Length: 4\r\nContent-Encoding: gzip")},
         {"http://h/unknown", html("Content-Length: 4\r\nContent-Encoding: compress")}});
    Agent agent(peer.port(),
                "numclients 1; " + std::regex_replace(GetParam().directives, std::regex("ask "),
                                                      "loadurl http://h/"));
    agent.startWith("-r proxy.conf " + GetParam().options);
    agent.finish(GetParam().status);
    std::string told =
        std::regex_replace(agent.process->err(), std::regex(R"(in \d+ s)"), "in N s");
    replaceAll(&told, agent.dir.path() + "/", "");
    EXPECT_EQ(told, GetParam().told);
}

const std::string kDenies =
    "the proxy or the site denies the agent's requests: allow its address, see "
    "/usr/share/doc/refetchd/docs/proxies.md; see refetchd(8), DIAGNOSTICS\n";
const std::string kNothing =
    "refetchd: nothing was requested: look at the loadurl lines, the filters and the hits file\n";
const std::string kRunWasOver =
    "refetchd: run 1 of 2 in N s: 1 requested: 1 failed (1 run was over); 0 left in the queue\n"
    "refetchd: most requests failed (1 of 1), most often with \"run was over\": the run was over "
    "first: look at maxruntime; see refetchd(8), DIAGNOSTICS\n";
const std::string kNoneWell = "refetchd: run 1 of 1 in N s: 2 requested: 1 stored, 1 failed ";
const std::string kUnsearched = "delvedepth 1; resultslog @dir@/l; ";

const ClosingRow kClosings[] = {
    {"NothingIsSet", "ask 404", ""},
    {"Flag", "summaryline on; ask new",
     "refetchd: run 1 of 1 in N s: 1 requested: 1 stored; 0 left in the queue\n"},
    {"Nothing", "summaryline on; failwhen 0",
     "refetchd: run 1 of 1 in N s: 0 requested; 0 left in the queue\n" + kNothing},
    {"Dropped", "metricsfile @dir@/m; ignoreurl *y; ask new?y",
     "refetchd: run 1 of 1 in N s: 0 requested: 1 dropped; 0 left in the queue\n" + kNothing},
    {"AsManyAsAllowed", "failwhen 50; ask new; ask 404",
     kNoneWell + "(1 status 404); 0 left in the queue\n"},
    {"OneTooMany", "failwhen 49; ask new; ask gone",
     kNoneWell + "(1 connection closed before an answer); 0 left in the queue\n"
                 "refetchd: failwhen 49: the exit status is 3.\n",
     3},
    {"OffAgain", "failwhen 0; failwhen off; failwhen 101; ask 404; ask new; ask new",
     "refetchd: run 1 of 1 in N s: 3 requested: 2 stored, 1 failed (1 status 404); 0 left in the "
     "queue\n"},
    {"ManyReasons",
     "resultslog @dir@/l; ask 407; ask 407; ask 400; ask 404; ask 500; ask 503; ask gone",
     "refetchd: run 1 of 1 in N s: 7 requested: 7 failed (2 status 407, 1 connection closed before "
     "an answer, 1 status 400, 1 status 404, 1 status 500, 1 for other reasons); 0 left in the "
     "queue\nrefetchd: most requests failed (7 of 7), most often with \"status 407\": " +
         kDenies},
    {"FromTheCache", "failwhen 0; ask old; ask old",
     "refetchd: run 1 of 1 in N s: 2 requested: 2 served from cache; 0 left in the queue\n"
     "refetchd: most pages were served from the proxy's cache (2 of 2) and are as old as before: "
     "the proxy needs its recipe, see /usr/share/doc/refetchd/docs/proxies.md\n"
     "refetchd: failwhen 0: the exit status is 4.\n",
     4},
    {"Unknown", "summaryline on; ask plain",
     "refetchd: run 1 of 1 in N s: 1 requested: 1 unknown; 0 left in the queue\n"
     "refetchd: most answers do not show whether the page was refreshed (1 of 1): let the proxy "
     "say so in a header, as its recipe does, see /usr/share/doc/refetchd/docs/proxies.md\n"},
    {"LastRunCounts", "failwhen 0; ask once",
     "refetchd: run 1 of 2 in N s: 1 requested: 1 failed (1 status 403); 0 left in the queue\n"
     "refetchd: most requests failed (1 of 1), most often with \"status 403\": " +
         kDenies + "refetchd: run 2 of 2 in N s: 1 requested: 1 stored; 0 left in the queue\n",
     0, "-rp 2"},
    {"GivenUpInItsRun", "maxruntime 1; readtimeout 60; resultslog @dir@/l; ask stuck",
     kRunWasOver + std::regex_replace(kRunWasOver, std::regex("1 of 2"), "2 of 2"), 0, "-rp 2"},
    {"NotSearched", kUnsearched + "ask unframed; ask coded; ask unknown; ask new; ask new; ask new",
     "refetchd: 1 page was not searched for links: set \"http11 on\" (or, without HTTP/1.1, "
     "\"closedelimitedbodies on\"), because bodies without a length are thrown away.\n"
     "refetchd: 2 pages were not searched for links: set \"modernlinks on\", because compressed "
     "bodies are thrown away.\nrefetchd: run 1 of 1 in N s: 6 requested: 3 stored, 3 unknown; 0 "
     "left in the queue\n"},
    {"NotKnown",
     kUnsearched + "modernlinks on; closedelimitedbodies on; ask unframed; ask unknown; "
                   "ask new; ask new",
     "refetchd: 1 page was not searched for links: the agent does not know their "
     "Content-Encoding.\n"
     "refetchd: run 1 of 1 in N s: 4 requested: 2 stored, 2 unknown; 0 left in the queue\n"},
    {"NoLinksWanted", "resultslog @dir@/l; ask unframed; ask coded; ask new; ask new",
     "refetchd: run 1 of 1 in N s: 4 requested: 2 stored, 2 unknown; 0 left in the queue\n"},
    {"NoFile", "ask new", "refetchd: none.conf: No such file or directory.\n", 1, "-r none.conf"},
};
INSTANTIATE_TEST_SUITE_P(Morning, Closing, testing::ValuesIn(kClosings), rowName);

struct SignalRow : Row {
    std::string directives;
    std::string options;
    std::string traced;  // when the signals are sent
    int signals;         // one behind the other
    int status;
    std::string report;  // old or new
    std::string logged;
};

const std::string kOldReport = "the report before\n</body></html>\n";

class EndSignal : public testing::TestWithParam<SignalRow> {};

TEST_P(EndSignal, LosesTheReportOrAResult)
{
    const SignalRow &row = GetParam();
    const ScriptedPeer peer({{"http://h/stuck", {{}, Then::Stall}}});
    Agent agent(peer.port(),
                "serverroot @dir@; numclients 2; readtimeout 600; resultslog "
                "@dir@/log; summaryline on; " +
                    row.directives);
    agent.dir.write(kReport, kOldReport);
    agent.start(row.options);
    ASSERT_TRUE(agent.process->waitForError(row.traced, kRunDeadline));
    // Those within 0.3 s of the first are dropped.
    for (int i = 0; i < row.signals; ++i) {
        agent.process->signal(i == 0 ? SIGINT : SIGTERM);
        std::this_thread::sleep_for(Millis(i == 0 ? 0 : 20));
    }
    agent.finish(row.status);
    EXPECT_EQ(agent.report() == kOldReport, row.report == "old");
    EXPECT_EQ(agent.report().starts_with("<html>"), row.report == "new");
    EXPECT_FALSE(std::filesystem::exists(agent.dir.path(kReport + ".previous")));
    EXPECT_THAT(agent.dir.read("log"), testing::MatchesRegex(row.logged));
}

const char *const kRunLine = R"(.*\{"time":"[^"]*","run":1,"runs":[0-2],"seconds":[0-9]+,"left":)";
const SignalRow kEndSignals[] = {
    {"AnswersHang", "loadurl h/stuck; loadurl h/stuck?; loadurl h/stuck", "",
     "Net......... requesting", 2, 0, "new",
     ".*h/stuck.*\"why\":\"run was over\".*\"stopped\":true\\}\n"},
    {"BetweenRuns", "maxruntime 600; loadurl h/a", "-rp 2", "all threads done", 1, 0, "new",
     std::string(kRunLine) + "0\\}\n"},
    {"BetweenEndlessRuns", "maxruntime 600; loadurl h/a", "-rp 0", "all threads done", 1, 0, "new",
     std::string(kRunLine) + "0\\}\n"},
    {"Twice", "loadurl h/stuck", "", "Net......... requesting", 40, 128 + SIGTERM, "old", ""},
    {"CannotRun", "proxytls on; proxytlsca none", "", "", 0, 1, "old", ""},
    {"TwoRoots", "serverroot @dir@/././././.; serverroot @dir@; proxytls on; proxytlsca none", "",
     "", 0, 1, "old", ""},
    {"ReportFails", "serverroot @dir@/none; loadurl h/a", "", "", 0, 0, "old", "\\{.*\\}\n"},
};
INSTANTIATE_TEST_SUITE_P(Morning, EndSignal, testing::ValuesIn(kEndSignals), rowName);

// A process that was killed leaves the placeholder. The next one must not take it for a report.
TEST(Morning, ReportSurvivesTwoKilledAgents)
{
    const ScriptedPeer peer({{"http://h/stuck", {{}, Then::Stall}}});
    Agent agent(peer.port(), "serverroot @dir@; readtimeout 600; loadurl h/stuck");
    agent.dir.write(kReport, kOldReport);
    for (const int signal : {SIGKILL, SIGKILL}) {
        agent.start();
        ASSERT_TRUE(agent.process->waitForError("Net......... requesting", kRunDeadline));
        agent.process->signal(signal);
        agent.finish(128 + signal);
        EXPECT_NE(agent.report(), kOldReport);
    }
    agent.dir.write("proxy.conf", "serverroot " + agent.dir.path() + "\nconfigfile none\n");
    agent.start();
    agent.finish(1);
    EXPECT_EQ(agent.report(), kOldReport);
}

TEST(Morning, LogIsMovedAwayInTheMiddleOfARun)
{
    const ScriptedPeer peer({{"http://h/1", {{}, Then::Stall}}});
    Agent agent(peer.port(), "numclients 1; readtimeout 600; resultslog @dir@/log; " + seeds(2));
    agent.start();
    for (int i = 0; i < 600 && agent.dir.read("log").empty(); ++i) {
        std::this_thread::sleep_for(Millis(100));
    }
    ASSERT_TRUE(peer.waitForRequests(2, kRunDeadline));
    std::filesystem::rename(agent.dir.path("log"), agent.dir.path("moved"));
    agent.process->signal(SIGHUP);  // is taken before the other, whose number is higher
    agent.process->signal(SIGTERM);
    agent.finish();
    EXPECT_THAT(agent.dir.read("moved"), testing::HasSubstr("h/0"));
    EXPECT_THAT(agent.dir.read("log"), testing::HasSubstr("h/1"));
}

struct NightRow : Row {
    std::size_t server;
    const char *instead;  // of its recipe
    bool isStopped;
    int status;
    const char *told;
};

class BadNight : public ServerTest, public testing::WithParamInterface<NightRow> {
protected:
    BadNight() : ServerTest(kServers[GetParam().server]) {}
};

TEST_P(BadNight, LooksGreen)
{
    const NightRow &row = GetParam();
    ASSERT_NO_FATAL_FAILURE(start(dir_.write("instead", row.instead)));
    const Words pages = {"/aged", "/aged?1", "/aged?2"};
    for (const std::string &page : pages) {
        get(page, {"--user-agent", "visitor"});
    }
    if (row.isStopped) {
        end(SIGTERM);
    }
    refresh(pages, "0", "cachequeries on; failwhen 50", row.status);
    EXPECT_THAT(agent_->process->err(), testing::HasSubstr(row.told));
}

const NightRow kNights[] = {
    {"SquidStopped", 0, "http_access allow localhost", true, 3, "cannot be reached"},
    {"SquidDenies", 0,
     "acl agent browser Mozilla/4.0\nhttp_access deny agent\n"
     "http_access allow localhost",
     false, 3, "\"status 403\": the proxy or the site denies the agent's requests"},
    {"VarnishWithoutItsRecipe", 4, "", false, 4, "(3 of 3) and are as old as before"},
};
INSTANTIATE_TEST_SUITE_P(Recipe, BadNight, testing::ValuesIn(kNights), rowName);

}  // namespace
