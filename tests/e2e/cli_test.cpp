// The command line: what is refused, what is taken, and the exit status of each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "Agent.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Options = std::vector<std::string>;

struct RefusedRow : Row {
    Options options;
};

class Refused : public testing::TestWithParam<RefusedRow> {};

TEST_P(Refused, ShowsTheUsageAndEndsWithStatusOne)
{
    Agent agent(1, "");
    agent.startWith(GetParam().options);
    EXPECT_EQ(agent.process->wait(kRunDeadline).status, 1);
    EXPECT_EQ(agent.process->out(), "");
    EXPECT_EQ(agent.process->err(),
              "Usage: refetchd [ options ... ]\n"
              "       where options include:\n"
              "         -r    <proxy config file>\n"
              "         -vv   <verbose mode>\n");
}

const RefusedRow kRefused[] = {
    {"UnknownOption", {"-x"}},
    {"LoneWord", {"proxy.conf"}},
    {"UpperCase", {"-R", "proxy.conf"}},
    {"OptionWithTail", {"-rpx", "1"}},
    {"EmptyWord", {""}},
    {"FileMissing", {"-vv", "-r"}},
    {"FileLikeAnOption", {"-r", "-vv"}},
    {"ModuleMissing", {"-debug"}},
    {"RepeatMissing", {"-rp"}},
    {"RateMissing", {"-r", "proxy.conf", "-rps"}},
    {"ConnectionsMissing", {"-mc"}},
};
INSTANTIATE_TEST_SUITE_P(CommandLine, Refused, testing::ValuesIn(kRefused), rowName);

struct TakenRow : Row {
    Options options;
    int status;
    const char *trace;  // part of standard error; empty: nothing is written there
};

class Taken : public testing::TestWithParam<TakenRow> {};

TEST_P(Taken, EndsWithTheStatusOfTheRun)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "loadurl h/0");
    agent.dir.write("broken.conf", "configfile absent.conf\n");
    agent.startWith(GetParam().options);
    EXPECT_EQ(agent.process->wait(kRunDeadline).status, GetParam().status);
    EXPECT_EQ(peer.requests().size(), GetParam().status == 0 ? 1U : 0U);
    EXPECT_EQ(agent.process->out(), "");
    EXPECT_EQ(agent.process->err().empty(), *GetParam().trace == '\0');
    EXPECT_THAT(agent.process->err(), HasSubstr(agent.expand(GetParam().trace)));
}

const TakenRow kTaken[] = {
    {"Silent", {"-r", "@dir@/proxy.conf"}, 0, ""},
    {"RelativeFile", {"-vv", "-r", "proxy.conf"}, 0, "config file \"@dir@/proxy.conf\".\n"},
    {"ModuleLikeAnOption", {"-debug", "-vv", "-r", "proxy.conf"}, 0, ""},
    {"DebugGetUrl", {"-debug", "geturl", "-r", "proxy.conf"}, 0, "requesting \"http://h/0\".\n"},
    {"LastRepeatCounts", {"-vv", "-rp", "7", "-rp", "1", "-r", "proxy.conf"}, 0, "1 times!!\n"},
    {"NoLimits", {"-rps", "abc", "-mc", "-5", "-r", "proxy.conf"}, 0, ""},
    {"NoDefaultFile", {"-vv"}, 1, "file \"/etc/tarnproxy.conf\" could not be opened.\n"},
    {"NoSuchFile", {"-vv", "-r", "x"}, 1, "Config...... file \"@dir@/x\" could not be opened.\n"},
    {"NoIncludedFile", {"-vv", "-r", "broken.conf"}, 1, "\"absent.conf\" could not be opened.\n"},
};
INSTANTIATE_TEST_SUITE_P(CommandLine, Taken, testing::ValuesIn(kTaken), rowName);

TEST(CommandLine, EachNamedFileIsRead)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "numclients 1; loadurl h/0");
    agent.dir.write("more.conf", "loadurl h/1\n");
    agent.run({"-r", "more.conf", "-r", "proxy.conf"});
    EXPECT_THAT(peer.targets(), ElementsAre("http://h/0", "http://h/1"));
}

TEST(CommandLine, LocaleComesFromTheEnvironment)
{
    Agent agent(1, "");
    agent.process = std::make_unique<Process>(
        Options{"LC_ALL=de_DE.UTF-8", REFETCHD_BINARY, "-vv", "-r", agent.dir.path("proxy.conf")});
    agent.finish();
    EXPECT_EQ(agent.traced("The locale is set to de_DE.\n"), 1);
}

class Endless : public testing::TestWithParam<const char *> {};

TEST_P(Endless, RepeatRunsUntilItIsKilled)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "loadurl h/0");
    agent.start({"-rp", GetParam()});
    EXPECT_TRUE(peer.waitForRequests(3, kRunDeadline));
    EXPECT_EQ(agent.traced("Starting.... Will run for ever!!\n"), 1);
    agent.process->signal(SIGTERM);
    EXPECT_EQ(agent.process->wait(kRunDeadline).signal, SIGTERM);
}

INSTANTIATE_TEST_SUITE_P(CommandLine, Endless, testing::Values("0", "-5", "abc"));

}  // namespace
