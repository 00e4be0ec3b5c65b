// A Squid that dies while the agent runs, and sites that only a directive gets through it.
#include <set>

#include "Servers.h"

namespace {

class KilledSquid : public ServerTest, public testing::WithParamInterface<const char *> {
protected:
    KilledSquid() : ServerTest(kServers[0]) {}
};

// 60 seeds, four a second, of which the one named "7" is the twenty-second.
TEST_P(KilledSquid, LosesWhatWasAskedForMeanwhileUnlessItIsRetried)
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

INSTANTIATE_TEST_SUITE_P(Squid, KilledSquid, testing::Values("", "retries 9"));

struct SiteRow : Row {
    const char *directive;
    std::map<std::string, Reply> once;  // the first replies of the site
    std::string only;                   // what is asked for once more with the directive
};

class Sites : public ServerTest, public testing::WithParamInterface<SiteRow> {
protected:
    Sites() : ServerTest(kServers[0]) {}

    std::ptrdiff_t asked(const std::string &directive)
    {
        {
            const std::scoped_lock lock(mutex_);
            once_ = GetParam().once;
        }
        start();
        const auto before = static_cast<std::ptrdiff_t>(origin_.requests().size());
        Agent agent(port_, "numclients 3; delvedepth 2; loadurl " + site_ + "/; loadurl " + site_ +
                               "/s; " + directive);
        agent.run();
        end(SIGTERM);
        const Words all = origin_.targets();
        return std::count(all.begin() + before, all.end(), GetParam().only);
    }
    void TearDown() override {}
};

TEST_P(Sites, GiveTheirPagesWithTheDirectiveOnly)
{
    const std::ptrdiff_t without = asked("");
    EXPECT_EQ(asked(GetParam().directive), without + 1);
}

const Reply kChunked = {
    {{"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nTransfer-Encoding: "
      "chunked\r\n\r\n11\r\n<p><a href=\"one\">\r\n0\r\n\r\n"}}};
const Reply kToP = Reply::html("<a href=\"p\">");
const Reply kSlowToP = {{{kToP.pieces.front().bytes, 2500}}};
const Reply kLeaf = Reply::html();

const SiteRow kSites[] = {
    {{"ChunkedPage"}, "closedelimitedbodies on", {{"/", kChunked}}, "/one"},
    {{"BusyHost"},
     "retryafter on",
     {{"/", Reply::head("503 No\r\nRetry-After: 2")}, {"/s", kLeaf}},
     "/"},
    {{"PageOnALongerWay"},
     "breadthfirst on",
     {{"/", kSlowToP},
      {"/s", Reply::html("<a href=\"a\">")},
      {"/a", kToP},
      {"/p", Reply::html("<a href=\"q\">")}},
     "/q"},
};
INSTANTIATE_TEST_SUITE_P(Squid, Sites, testing::ValuesIn(kSites), rowName);

}  // namespace
