// A proxy that is away for a while, and answers that have no end: no URL is lost that could have
// been fetched, and no client.
#include <optional>
#include <regex>
#include <thread>

#include "Agent.h"

namespace {

using Then = Reply::Then;

// The URLs in the results log, each with its verdict or, if it failed, the reason.
std::string outcomes(const Agent &agent)
{
    const std::regex reason("\\{[^\n]*\"url\":\"http://h/([^\"]*)\"[^\n]*\"why\":\"([^\"]*)\".*\n");
    const std::regex verdict(
        "\\{[^\n]*\"url\":\"http://h/([^\"]*)\".*\"verdict\":\"([^\"]*)\".*\n");
    return std::regex_replace(std::regex_replace(agent.dir.read("log"), reason, "$1=$2 "), verdict,
                              "$1=$2 ");
}

const std::string kOutcomes = "serverroot @dir@; resultslog @dir@/log; ";
const char *const kWaiting = "Net......... the proxy cannot be reached, waiting for it.\n";

struct OutageRow : Row {
    std::size_t before;  // requests until the proxy goes away; 0: it is away at the start
    std::string directives;
    std::string options = "";
};

class Outage : public testing::TestWithParam<OutageRow> {};

TEST_P(Outage, CostsAUrl)
{
    const OutageRow &row = GetParam();
    constexpr int kUrls = 300;
    // The old peer leaves all clients without an answer in the end: nothing gets past the outage.
    std::optional<ScriptedPeer> peer(
        std::in_place, [&row](const ScriptedPeer &self, const ScriptedPeer::Request &) {
            return self.requests().size() > row.before ? Reply{{}, Then::Stall} : Reply::ok();
        });
    const std::uint16_t port = peer->port();
    Agent agent(port, kOutcomes + "metricsfile @dir@/metrics; numclients 8; readtimeout 60; " +
                          seeds(kUrls) + row.directives);
    std::vector<std::string> asked;
    if (row.before == 0) {
        peer.reset();
    }
    agent.start(row.options);
    if (row.before > 0) {
        ASSERT_TRUE(peer->waitForRequests(row.before + 1, kRunDeadline));
        peer.reset();
    }
    ASSERT_TRUE(agent.process->waitForError(kWaiting, kRunDeadline)) << agent.process->err();
    const std::regex shown(", proxy away for [1-9]");
    bool isShown = false;
    for (int tries = 0; tries < 200 && !isShown; ++tries) {
        agent.process->signal(SIGUSR1);
        std::this_thread::sleep_for(Millis(300));
        isShown = std::regex_search(agent.process->err(), shown);
    }
    ASSERT_TRUE(isShown);
    const ScriptedPeer again(inTurn({}), port);
    agent.finish();
    EXPECT_THAT(outcomes(agent), testing::Not(testing::HasSubstr("connection")));
    EXPECT_EQ(split(outcomes(agent)).size(), kUrls);
    // Once, and again if the old peer still took a connection; but not by each client.
    EXPECT_LT(agent.traced(kWaiting), 8);
    EXPECT_THAT(agent.process->err(), testing::ContainsRegex("refetchd: the proxy 127.0.0.1:[0-9]+ "
                                                             "could not be reached for [1-9]"));
    EXPECT_THAT(agent.dir.read("metrics"),
                testing::ContainsRegex("\nrefetchd_run_proxy_wait_seconds [0-9.]*[1-9]"));
}

const OutageRow kOutages[] = {
    {"AtTheStart", 0, "retries 1"},
    {"Restart", 100, "retries 1"},
    {"RestartWithHttp11", 100, "retries 1; http11 on"},
};
INSTANTIATE_TEST_SUITE_P(E, Outage, testing::ValuesIn(kOutages), rowName);

// With `failwhen` a night whose URLs are left because the proxy stays away is a failed one.
TEST(Outages, ProxyThatStaysAwayLooksLikeSuccess)
{
    std::optional<ScriptedPeer> peer(std::in_place);
    Agent agent(
        peer->port(),
        kOutcomes + "numclients 1; maxruntime 3; retries 1; failwhen 50; delay 20; " + seeds(2000));
    agent.start();
    ASSERT_TRUE(peer->waitForRequests(20, kRunDeadline));
    peer.reset();
    agent.finish(3);
    EXPECT_THAT(agent.process->err(), testing::HasSubstr(" s up to the end of the run.\n"));
}

TEST(Outages, ProxyThatIsBackInTheNextRunIsTakenForAway)
{
    std::optional<ScriptedPeer> peer(std::in_place);
    const std::uint16_t port = peer->port();
    Agent agent(port, kOutcomes + "numclients 1; maxruntime 1; retries 1; " + seeds(3));
    peer.reset();
    agent.start("-rp 2");
    ASSERT_TRUE(agent.process->waitForError("TIME's UP", kRunDeadline));
    const ScriptedPeer again(inTurn({}), port);
    agent.finish();
    EXPECT_EQ(agent.traced("the proxy can be reached again"), 1) << agent.process->err();
    EXPECT_EQ(again.asked(), "/0 /1 /2");
}

struct NameRow : Row {
    std::string directives;
    std::string options;
    std::string traced;  // when the name appears
};

class Name : public testing::TestWithParam<NameRow> {};

// The agent sees a hosts file of its own.
TEST_P(Name, IsNotLookedUpAgain)
{
    const NameRow &row = GetParam();
    const ScriptedPeer peer;
    Agent agent(peer.port(), "");
    agent.dir.write("hosts", "127.0.0.1 localhost\n");
    agent.dir.write("named", "mount --bind hosts /etc/hosts && exec \"$@\"");
    agent.wrapper = "unshare -rm sh named";
    agent.startProgram(agent.wrapper + " true");
    if (agent.process->wait(kRunDeadline) != 0) {
        GTEST_SKIP() << "no /etc/hosts of one's own: " << agent.process->err();
    }
    agent.dir.write("proxy.conf",
                    agent.expand("numclients 1; loadurl h/; updateproxy late.test:" +
                                 std::to_string(peer.port()) + "; " + row.directives + "\n"));
    agent.start(row.options);
    ASSERT_TRUE(agent.process->waitForError(row.traced, kRunDeadline)) << agent.process->err();
    EXPECT_EQ(peer.connections(), 0);
    agent.dir.write("hosts", "127.0.0.1 late.test\n");
    agent.finish();
    EXPECT_THAT(peer.asked(), testing::StartsWith("/")) << agent.process->err();
}

const NameRow kNames[] = {
    {"InTheRun", "retries 1", "", kWaiting},
    {"InTheNextRun", "maxruntime 1", "-rp 4", "Net......... address is not valid:  late.test"},
};
INSTANTIATE_TEST_SUITE_P(E, Name, testing::ValuesIn(kNames), rowName);

struct KeptRow : Row {
    std::vector<Reply> replies;  // in turn
    std::string asked;
    std::string directives = "";
};

class Kept : public testing::TestWithParam<KeptRow> {};

TEST_P(Kept, ResetCostsATry)
{
    const KeptRow &row = GetParam();
    const ScriptedPeer peer(inTurn(row.replies));
    Agent agent(peer.port(), kOutcomes + "numclients 1; retries 1; " + seeds(3) + row.directives);
    agent.run();
    EXPECT_EQ(peer.asked(), row.asked);
    EXPECT_THAT(outcomes(agent), testing::Not(testing::HasSubstr("connection")));
    EXPECT_THAT(agent.report(), testing::HasSubstr("<td align=right>3</td>"));
}

const Reply kOk = Reply::ok();
const Reply kReset = {{}, Then::Reset};
const Reply kHalf = {{{"HTTP/1.1 200 OK\r\nContent-Type: a/b\r\nContent-Length: 9\r\n\r\nhalf"}},
                     Then::Reset};

const KeptRow kKept[] = {
    {"BeforeTheAnswer", {kOk, kReset, kReset}, "/0 /1 /1 /1 /2"},
    {"InTheAnswer", {kOk, kHalf}, "/0 /1 /1 /2"},
    {"InTheAnswerOf11", {kOk, kHalf}, "/0 /1 /1 /2", "http11 on"},
};
INSTANTIATE_TEST_SUITE_P(E, Kept, testing::ValuesIn(kKept), rowName);

struct EndlessRow : Row {
    std::string directives;
    std::string why;  // the answer is given up
    Reply reply;
};

class Endless : public testing::TestWithParam<EndlessRow> {};

// Without the directives these runs would have no end.
TEST_P(Endless, AnswerHoldsAClientForEver)
{
    const EndlessRow &row = GetParam();
    const ScriptedPeer peer({{"http://h/0", row.reply}});
    Agent agent(peer.port(), kOutcomes + "numclients 1; readtimeout 30; retries 2; " + seeds(3) +
                                 row.directives);
    agent.run();
    EXPECT_EQ(peer.asked(), "/0 /1 /2");
    EXPECT_THAT(outcomes(agent), testing::HasSubstr("0=" + row.why + " "));
}

const std::string kPicture =
    "HTTP/1.1 200 OK\r\nContent-Type: image/jpeg\r\nContent-Length: 99999999999\r\n\r\n";
const Reply kCamera = {{{kPicture}, {std::string(5000, 'x'), 20}}, Then::Keep, Reply::kForEver};
const Reply kTarpit = {{{"H"}, {"T", 200}}, Then::Keep, Reply::kForEver};
const Reply kMute = {{{kPicture}}, Then::Stall};
const char *const kTooSlow = "slower than answertimeout";

const EndlessRow kEndless[] = {
    {"Camera", "answertimeout 2", kTooSlow, kCamera},
    {"CameraOf11", "answertimeout 2; http11 on", kTooSlow, kCamera},
    {"Tarpit", "answertimeout 1", kTooSlow, kTarpit},
    {"Mute", "answertimeout 1", kTooSlow, kMute},
    {"TooLong", "maxanswer 300000", "longer than maxanswer", kCamera},
    {"TooLongFor11", "maxanswer 300000; http11 on", "longer than maxanswer", kCamera},
};
INSTANTIATE_TEST_SUITE_P(E, Endless, testing::ValuesIn(kEndless), rowName);

// Without a limit each try to connect takes two minutes.
TEST(Outages, FullBacklogHoldsAClientForMinutes)
{
    const FullBacklog busy;
    Agent agent(busy.peer.port(), kOutcomes + "connecttimeout 1; numclients 2; " + seeds(3));
    agent.run();
    EXPECT_EQ(split(outcomes(agent)).size(), 6) << outcomes(agent);
    EXPECT_THAT(agent.dir.read("log"), testing::ContainsRegex("\"ms\":[1-9][0-9][0-9][0-9]*"));
}

// Each run begins with all its clients.
TEST(Outages, EndlessAnswerTakesAClientARun)
{
    const ScriptedPeer peer({{"http://h/0", kCamera}});
    Agent agent(peer.port(), kOutcomes + "numclients 2; maxruntime 2; " + seeds(4));
    agent.run("-rp 3");
    EXPECT_EQ(peer.requests().size(), 12) << peer.asked();
}

}  // namespace
