// Care for the machine and the sites: requests wait while the load is high, after each answer, and
// at the start of a run, and nothing else does.
#include <future>
#include <thread>

#include "Agent.h"

namespace {

using Then = Reply::Then;

const char *const kPaused = "above 1.5: no request starts.\n";

// An agent for which the test sets the load of the machine.
class PacedAgent : public Agent {
public:
    using Agent::Agent;

    void setLoad(const std::string &load) const
    {
        std::filesystem::rename(dir.write("new", load), dir.path("load"));
    }
    void start(const std::string &options = "")
    {
        wrapper = "ASAN_OPTIONS=verify_asan_link_order=0 LD_PRELOAD=" LOAD_AVERAGE " LOAD_AVERAGE=";
        wrapper += dir.path("load");
        Agent::start(options);
    }
    [[nodiscard]] bool waitForPause() const { return process->waitForError(kPaused, kRunDeadline); }
    // Waits until the load has been looked at so many times more, or the agent's time is over.
    void waitForLooks(int count) const
    {
        const char *const kPoll = "Master......  time now=";
        const int end = traced(kPoll) + count + 1;
        for (int i = 0; i < 1000 && traced(kPoll) < end; ++i) {
            std::this_thread::sleep_for(Millis(20));
        }
    }
};

const std::string kDirectives = "metricsfile @dir@/metrics; maxload 1.5; " + seeds(3);

TEST(Pace, PauseBeginsOrEndsAtAnotherLoad)
{
    const ScriptedPeer peer;
    PacedAgent agent(peer.port(), kDirectives);
    agent.setLoad("2");
    agent.start();
    ASSERT_TRUE(agent.waitForPause()) << agent.process->err();
    agent.setLoad("1.4");
    agent.waitForLooks(2);
    agent.process->signal(SIGUSR1);
    EXPECT_TRUE(agent.process->waitForError(", 0 busy, 0.0 URLs/s, no limit, paused by maxload for",
                                            kRunDeadline));
    EXPECT_EQ(peer.asked(), "");
    agent.setLoad("1.35");
    agent.finish();
    EXPECT_EQ(split(peer.asked()).size(), 3);
    EXPECT_THAT(agent.process->err(), testing::HasSubstr("Load........ is 2.00 for each processor, "
                                                         "above 1.5: no request starts.\n"));
    EXPECT_EQ(agent.traced("Load........ is 1.35 for each processor: requests start again.\n"), 1);
    EXPECT_THAT(
        agent.process->err(),
        testing::ContainsRegex("\nrefetchd: maxload: no request was started for [1-9] s.\n"));
    EXPECT_THAT(agent.dir.read("metrics"),
                testing::ContainsRegex("\nrefetchd_run_load_wait_seconds [1-9]"));
}

struct StartRow : Row {
    std::string load;  // from the start on
    std::string directives;
    int pauses;  // that the trace shows
    int requests;
    int signal = 0;  // is sent in the pause
};

class RunUnderLoad : public testing::TestWithParam<StartRow> {};

TEST_P(RunUnderLoad, EndsAsAlwaysOrNever)
{
    const StartRow &row = GetParam();
    const ScriptedPeer peer;
    PacedAgent agent(peer.port(), kDirectives + row.directives);
    agent.setLoad(row.load);
    agent.start();
    if (row.signal != 0) {
        ASSERT_TRUE(agent.waitForPause()) << agent.process->err();
        agent.process->signal(row.signal);
    }
    agent.finish();
    EXPECT_EQ(agent.traced(kPaused), row.pauses);
    EXPECT_EQ(peer.requests().size(), row.requests);
    EXPECT_EQ(agent.traced("refetchd: maxload: no request"), row.pauses);
    EXPECT_EQ(agent.traced("Load........ is not known"), row.load.empty() ? 1 : 0);
    EXPECT_THAT(agent.dir.read("metrics"),
                testing::HasSubstr("\nrefetchd_run_load_pauses " +
                                   std::to_string(row.pauses == 0 ? 0 : 1) + "\n"));
}

const StartRow kStarts[] = {
    {"TimeIsUp", "9", "maxruntime 1", 1, 0},
    {"EachRunPauses", "9", "maxruntime 1; refetchdrepeat 2", 2, 0},
    {"Signal", "9", "", 1, 0, SIGTERM},
    {"LoadAtTheLimit", "1.5", "", 0, 3},
    {"LoadIsUnknown", "", "", 0, 3},
};
INSTANTIATE_TEST_SUITE_P(E, RunUnderLoad, testing::ValuesIn(kStarts), rowName);

struct NextRow : Row {
    Reply reply;  // to the first request, given in the pause
    std::string asked;
    std::string directives = "";
};

class NextRequest : public testing::TestWithParam<NextRow> {};

TEST_P(NextRequest, StartsInThePauseOrWorkIsCutShort)
{
    const NextRow &row = GetParam();
    std::promise<void> pause;
    const std::shared_future<void> begins = pause.get_future().share();
    const ScriptedPeer peer([&](const ScriptedPeer &self, const ScriptedPeer::Request &) {
        begins.wait_for(kRunDeadline);
        return self.requests().size() == 1 ? row.reply : Reply::ok();
    });
    PacedAgent agent(peer.port(),
                     "readtimeout 60; numclients 1; maxload 1.5; resultslog @dir@/log; " +
                         seeds(2) + row.directives);
    agent.setLoad("1");
    agent.start();
    EXPECT_TRUE(peer.waitForRequests(1, kRunDeadline));
    agent.setLoad("2");
    EXPECT_TRUE(agent.waitForPause()) << agent.process->err();
    pause.set_value();
    agent.waitForLooks(1);
    EXPECT_EQ(peer.asked(), "/0");
    agent.setLoad("1");
    agent.finish();
    EXPECT_EQ(peer.asked(), row.asked);
    EXPECT_THAT(agent.dir.read("log"), testing::Not(testing::HasSubstr("failed")));
}

const NextRow kNext[] = {
    {"OfAnotherUrl", Reply::ok(), "/0 /1"},
    {"Retry", {{}, Then::Reset}, "/0 /0 /1", "retries 1"},
    {"Variant", Reply::ok(), "/0 /0 /1 /1", "variant X: 1; variant X: 2"},
};
INSTANTIATE_TEST_SUITE_P(E, NextRequest, testing::ValuesIn(kNext), rowName);

struct DelayRow : Row {
    Reply reply;  // to the first request
    std::string directives;
    std::string asked;
    int gap;  // milliseconds from the first request to the second, at least
};

class Delay : public testing::TestWithParam<DelayRow> {};

TEST_P(Delay, IsLeftOutOrHoldsARun)
{
    const DelayRow &row = GetParam();
    const ScriptedPeer peer(inTurn({row.reply}));
    Agent agent(peer.port(), "numclients 1; " + seeds(2) + row.directives);
    agent.run();
    const std::vector<ScriptedPeer::Request> requests = peer.requests();
    ASSERT_EQ(peer.asked(), row.asked);
    EXPECT_GE(requests[1].arrival - requests[0].arrival, Millis(row.gap));
}

// The answer takes 300 ms, which the agent may count as one fewer.
const Reply kSlow = {{{"", 300}, {"HTTP/1.0 200 OK\r\nContent-Length: 0\r\n\r\n"}}};
const Reply kBroken = {{{"H", 300}}, Then::Reset};

const DelayRow kDelays[] = {
    {"BetweenUrls", kSlow, "delayfactor 1.5", "/0 /1", 748},
    {"BeforeARetry", kBroken, "delayfactor 1.5; retries 1", "/0 /0 /1", 748},
    {"DoesNotOutliveItsRun", kSlow, "delayfactor 20; maxruntime 3; refetchdrepeat 2", "/0 /0 /1",
     300},
};
INSTANTIATE_TEST_SUITE_P(E, Delay, testing::ValuesIn(kDelays), rowName);

TEST(Pace, ClientsBeginTooEarlyOrInTheFirstRunOnly)
{
    const auto begin = ScriptedPeer::Clock::now();
    const ScriptedPeer peer([](const auto &, const auto &) { return Reply{{}, Then::Stall}; });
    Agent agent(peer.port(),
                "readtimeout 60; numclients 3; slowstart 1; maxruntime 2; " + seeds(3));
    agent.run("-rp 2");
    const std::vector<ScriptedPeer::Request> requests = peer.requests();
    ASSERT_EQ(requests.size(), 6) << agent.process->err();
    EXPECT_GE(requests[1].arrival - begin, Millis(500));
    EXPECT_GE(requests[2].arrival - begin, Millis(1000));
    EXPECT_EQ(agent.traced("Slow start.. client thread #2 begins.\n"), 2);
    EXPECT_EQ(agent.traced("Slow start.. client thread #3 begins.\n"), 2);
    EXPECT_EQ(agent.traced("Slow start.. client thread #1 begins.\n"), 0);
}

TEST(Pace, FirstClientWaitsOrTheRunForTheOthers)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "numclients 3; slowstart 3600; " + seeds(3));
    agent.run();
    EXPECT_EQ(peer.asked(), "/0 /1 /2");
    EXPECT_EQ(peer.connections(), 1);
}

}  // namespace
