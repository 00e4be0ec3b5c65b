// Whole runs: repeats, time limits, pacing, the connection limit, and how a run ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "Agent.h"

namespace {

using testing::UnorderedElementsAreArray;

struct RepeatRow : Row {
    const char *directives;
    std::vector<std::string> options;
    int runs;
    int pauseMs = 0;  // least time from the start to the last run's first request
};

class Repeats : public testing::TestWithParam<RepeatRow> {};

TEST_P(Repeats, FetchEverySeedInEveryRun)
{
    const RepeatRow &row = GetParam();
    const ScriptedPeer peer;
    Agent agent(peer.port(),
                std::string("numclients 1; hostname 127.0.0.1; caching always; loadtopcached 9; "
                            "serverroot @dir@; loadurl h/0; ") +
                    row.directives,
                "5 50% http://h/1");
    const auto start = ScriptedPeer::Clock::now();
    agent.run(row.options);
    std::vector<std::string> expected;
    for (int run = 0; run < row.runs; ++run) {
        expected.insert(expected.end(), {"http://h/0", "http://h/1"});
    }
    ASSERT_EQ(peer.targets(), expected);
    EXPECT_GE(peer.requests()[expected.size() - 2].arrival - start, Millis(row.pauseMs));
    EXPECT_EQ(agent.traced("Flushing.... remove all processed URLs.\n"), row.runs);
}

const RepeatRow kRepeats[] = {
    {"Once", "", {}, 1},
    {"ByOption", "", {"-rp", "2"}, 2},
    {"ByDirective", "refetchd-repeat 3", {}, 3},
    {"DirectiveBeatsOption", "refetchdrepeat 1", {"-rp", "5"}, 1},
    {"NotBeforeMaxRuntime", "maxruntime 4", {"-rp", "2"}, 2, 3000},
};
INSTANTIATE_TEST_SUITE_P(Run, Repeats, testing::ValuesIn(kRepeats), rowName);

struct LimitRow : Row {
    const char *directives;
    std::vector<std::string> options;
    int limit;
};

class Pacing : public testing::TestWithParam<LimitRow> {};

// The budget is given out at the start and again after each second: request number n, counted from
// 0, cannot come before n / limit whole seconds are over.
TEST_P(Pacing, BudgetPerSecondIsNeverExceeded)
{
    const LimitRow &row = GetParam();
    const ScriptedPeer peer;
    Agent agent(peer.port(), "numclients 5; " + seeds(row.limit * 3) + row.directives);
    const auto start = ScriptedPeer::Clock::now();
    agent.run(row.options);
    EXPECT_THAT(peer.targets(), UnorderedElementsAreArray(targets(row.limit * 3)));
    int number = 0;
    for (const ScriptedPeer::Request &request : peer.requests()) {
        EXPECT_GE(request.arrival - start, Millis(1000 * (number / row.limit))) << number;
        ++number;
    }
}

const LimitRow kRates[] = {
    {"ByOption", "", {"-rps", "2"}, 2},
    {"OneASecond", "", {"-rps", "1"}, 1},
    {"DirectiveBeatsOption", "refetchd_request_per_second 3", {"-rps", "100"}, 3},
};
INSTANTIATE_TEST_SUITE_P(Run, Pacing, testing::ValuesIn(kRates), rowName);

class Connections : public testing::TestWithParam<LimitRow> {};

TEST_P(Connections, LimitIsReachedAndNeverExceeded)
{
    const LimitRow &row = GetParam();
    const ScriptedPeer peer(replyOnce(static_cast<std::size_t>(row.limit)));
    Agent agent(peer.port(), "numclients 4; " + seeds(20) + row.directives);
    agent.run(row.options);
    EXPECT_THAT(peer.targets(), UnorderedElementsAreArray(targets(20)));
    EXPECT_EQ(peer.mostConnections(), row.limit);
    EXPECT_EQ(agent.traced("Worker...... waiting for a Connection.\n") > 0, row.limit < 4);
}

const LimitRow kConnections[] = {
    {"ByOption", "", {"-mc", "1"}, 1},
    {"ByDirective", "refetchdmaxconnection 3", {}, 3},
    {"Unlimited", "", {"-mc", "0"}, 4},
    {"MoreThanWorkers", "", {"-mc", "9"}, 4},
};
INSTANTIATE_TEST_SUITE_P(Run, Connections, testing::ValuesIn(kConnections), rowName);

struct EndRow : Row {
    const char *directives;
    std::size_t reads;  // requests that are sent and never answered
    const char *trace;  // the master's last line of each run
    int runs = 1;
};

class End : public testing::TestWithParam<EndRow> {};

TEST_P(End, IsCleanAndTheReportIsInPlace)
{
    const EndRow &row = GetParam();
    const ScriptedPeer peer({{"http://h/0", {{}, Reply::Then::Stall}}});
    Agent agent(peer.port(), std::string("serverroot @dir@; readtimeout 60; ") + row.directives);
    agent.run();
    EXPECT_EQ(peer.requests().size(), row.reads);
    EXPECT_EQ(agent.traced(row.trace), row.runs) << agent.process->err();
    const std::string report = "pub/en_US/reports/refetchd.html";
    EXPECT_EQ(agent.traced("@dir@/" + report + ".tmp successfully renamed to @dir@/" + report), 1);
    EXPECT_TRUE(agent.dir.exists(report));
    EXPECT_FALSE(agent.dir.exists(report + ".tmp"));
    EXPECT_EQ(agent.dir.read(report).find("no data is available"), std::string::npos);
}

constexpr const char *kRanDry = "all threads done - we're outta here!\n";
constexpr const char *kTimeUp = "all threads done - we outta here!\n";
constexpr const char *kStuckOnce = "numclients 1; maxruntime 1; loadurl h/0; loadurl h/1";
constexpr const char *kStuckThrice =
    "numclients 3; maxruntime 1; loadurl h/0; loadurl h/0; loadurl h/0; loadurl h/1";
constexpr const char *kStuckTwoRuns =
    "numclients 1; maxruntime 1; refetchdrepeat 2; loadurl h/0; loadurl h/1";

const EndRow kEnds[] = {
    {"NothingToDo", "", 0, kRanDry},
    {"NoWorkers", "numclients 0; maxruntime 1; loadurl h/1", 0, kTimeUp},
    {"NegativeWorkers", "numclients -3", 0, kRanDry},
    {"OneReadIsStuck", kStuckOnce, 1, kTimeUp},
    {"EveryReadIsStuck", kStuckThrice, 3, kTimeUp},
    {"ReadIsStuckInTwoRuns", kStuckTwoRuns, 1, kTimeUp, 2},
};
INSTANTIATE_TEST_SUITE_P(Run, End, testing::ValuesIn(kEnds), rowName);

TEST(Run, ReportIsAPlaceholderUntilTheEnd)
{
    const ScriptedPeer peer({{"http://h/0", {{}, Reply::Then::Stall}}});
    Agent agent(peer.port(), "serverroot @dir@; loadurl h/0");
    agent.start();
    ASSERT_TRUE(peer.waitForRequests(1, kRunDeadline));
    EXPECT_EQ(agent.dir.read("pub/en_US/reports/refetchd.html"),
              "<html>\n<head>\n   <title>Automatic Cache Refresh Summary</title>\n"
              "<meta name=\"GENERATOR\" content=\"Quillmark\">\n</head>\n"
              "<body background=\"/zuicons/statusBG.jpg\">\n\n"
              "<center><h2>Automatic Cache Refresh Summary</h2></center>\n"
              "<p>Unable to show cache agent information because no data is available at this "
              "time.</p>\n</html>\n");
}

TEST(Run, AlarmAndPipeSignalsDoNotEndIt)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "loadurl h/0");
    agent.start();
    ASSERT_TRUE(peer.waitForRequests(1, kRunDeadline));
    agent.process->signal(SIGALRM);
    agent.process->signal(SIGPIPE);
    agent.finish();
}

}  // namespace
