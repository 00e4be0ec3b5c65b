// Through Squid: it dies while the agent runs, or passes a chunked page on without a length; each
// without and with the directives that help.
#include <set>

#include "Servers.h"

namespace {

class Squid : public ServerTest, public testing::WithParamInterface<const char *> {
protected:
    Squid() : ServerTest(kServers[0]) {}
};

// 60 seeds, four a second, of which the one named "7" is the twenty-second.
TEST_P(Squid, LosesWhatWasRequestedWhileItWasDownUnlessThatIsRetried)
{
    ASSERT_NO_FATAL_FAILURE(start());
    std::string seeds = "numclients 2; delay 500; " + std::string(GetParam());
    for (int i = 0; i < 60; ++i) {
        seeds += "; loadurl " + site_ + "/" + std::to_string(i);
    }
    Agent agent(port_, seeds);
    agent.start();
    ASSERT_TRUE(origin_.waitForRequests(5, kRunDeadline));
    end(SIGKILL);
    ASSERT_TRUE(agent.process->waitForError("working on URL \"" + site_ + "/7\"", kRunDeadline));
    EXPECT_GT(agent.traced("errno=111.\n"), 9);
    ASSERT_NO_FATAL_FAILURE(start());
    agent.finish();
    const Words all = origin_.targets();
    for (const char *const late : {"/18", "/38", "/58", "/19", "/39", "/59"}) {
        EXPECT_THAT(all, testing::Contains(late));
    }
    const bool whole = std::set(all.begin(), all.end()).size() == 61;  // with that of the start
    EXPECT_EQ(whole, *GetParam() != '\0');
}

TEST_P(Squid, HidesTheLinksOfAChunkedPageWithoutTheDirective)
{
    ASSERT_NO_FATAL_FAILURE(start());
    Agent agent(port_, "delvedepth 1; loadurl " + site_ + "/chunked; " + GetParam());
    agent.run();
    EXPECT_EQ(origin_.targets().back(), *GetParam() != '\0' ? "/one" : "/chunked");
}

INSTANTIATE_TEST_SUITE_P(Squid, Squid, testing::Values("", "retries 9; closedelimitedbodies on"));

}  // namespace
