// Whole runs: repeats, time limits, pacing, the connection limit, and how a run ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "Agent.h"

namespace {

struct PaceRow : Row {
    std::string directives;
    const char *options;
    int seeds;
    int requests;  // that they make
    int budget;    // requests for each
    int periodMs;  // which begins with the start
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
}

const PaceRow kPaces[] = {
    {"ByOption", "", "-rps 2", 6, 6, 2, 1000},
    {"DirectiveBeatsOption", "refetchd_request_per_second 3", "-rps 100", 9, 9, 3, 1000},
    {"NextRunAfterMaxRuntime", "maxruntime 4", "-rp 2", 1, 2, 1, 3000},
};
INSTANTIATE_TEST_SUITE_P(Run, Pacing, testing::ValuesIn(kPaces), rowName);

struct LimitRow : Row {
    const char *directives;
    const char *options;
    int limit;
};

class Connections : public testing::TestWithParam<LimitRow> {};

// Four workers; the replies begin when as many as may connect are at work.
TEST_P(Connections, LimitIsReachedAndNeverExceeded)
{
    const LimitRow &row = GetParam();
    const auto limit = static_cast<std::size_t>(row.limit);
    const ScriptedPeer peer([limit](const ScriptedPeer &self, const ScriptedPeer::Request &) {
        (void)self.waitForRequests(limit, kRunDeadline);
        return Reply::ok();
    });
    Agent agent(peer.port(), "numclients 4; " + seeds(20) + row.directives);
    agent.run(row.options);
    EXPECT_THAT(peer.targets(), testing::UnorderedElementsAreArray(targets(20)));
    EXPECT_EQ(peer.mostConnections(), row.limit);
    EXPECT_TRUE(limit < 4 || peer.connections() == 4) << "each worker keeps its connection";
    EXPECT_EQ(agent.traced("Worker...... waiting for a Connection.\n") > 0, limit < 4);
}

const LimitRow kConnections[] = {
    {"ByOption", "", "-mc 1", 1},
    {"ByDirective", "refetchdmaxconnection 3", "", 3},
    {"Unlimited", "", "-mc 0", 4},
};
INSTANTIATE_TEST_SUITE_P(Run, Connections, testing::ValuesIn(kConnections), rowName);

const std::string kReport = "pub/de_DE/reports/refetchd.html";
const char *const kPlaceholder =
    "<html>\n<head>\n   <title>Automatic Cache Refresh Summary</title>\n"
    "<meta name=\"GENERATOR\" content=\"Quillmark\">\n</head>\n"
    "<body background=\"/zuicons/statusBG.jpg\">\n\n"
    "<center><h2>Automatic Cache Refresh Summary</h2></center>\n<p>Unable to show cache agent "
    "information because no data is available at this time.</p>\n</html>\n";

struct EndRow : Row {
    std::string directives;
    std::size_t reads;  // requests that are sent and never answered
    const char *trace;  // the master's last line of each run
    int runs = 1;
};

class End : public testing::TestWithParam<EndRow> {};

TEST_P(End, IsCleanAndTheReportIsInPlace)
{
    const EndRow &row = GetParam();
    const ScriptedPeer peer({{"http://h/0", {{}, Reply::Then::Stall}}});
    Agent agent(peer.port(), "serverroot @dir@; readtimeout 60; " + row.directives);
    agent.start();
    ASSERT_TRUE(peer.waitForRequests(row.reads, kRunDeadline));
    if (row.reads > 0) {
        EXPECT_EQ(agent.dir.read(kReport), kPlaceholder);
        agent.process->signal(SIGALRM);  // ignored, both
        agent.process->signal(SIGPIPE);
    }
    agent.finish();
    EXPECT_EQ(peer.requests().size(), row.reads);
    EXPECT_EQ(agent.traced(row.trace), row.runs) << agent.process->err();
    EXPECT_EQ(agent.traced(kReport + ".tmp successfully renamed to @dir@/" + kReport), 1);
    EXPECT_THAT(agent.dir.read(kReport), testing::Not(testing::HasSubstr("no data is available")));
}

const char *const kRanDry = "all threads done - we're outta here!\n";
const char *const kTimeUp = "all threads done - we outta here!\n";
const std::string kStuck = "maxruntime 2; loadurl h/0; loadurl h/1; numclients ";

const EndRow kEnds[] = {
    {"NothingToDo", "numclients -3", 0, kRanDry},
    {"NoWorkers", "numclients 0; maxruntime 2; loadurl h/1", 0, kTimeUp},
    {"EveryReadIsStuck", "loadurl h/0; loadurl h/0; " + kStuck + "3", 3, kTimeUp},
    {"ReadIsStuckInTwoRuns", kStuck + "1; refetchdrepeat 2", 1, kTimeUp, 2},
};
INSTANTIATE_TEST_SUITE_P(Run, End, testing::ValuesIn(kEnds), rowName);

}  // namespace
