// The files of recipes/ in real servers: with its recipe each server fetches anew what the agent
// asks for, stores it, and does so for the agent only.
#include "Servers.h"

namespace {

class Servers : public ServerTest, public testing::WithParamInterface<Server> {
protected:
    Servers() : ServerTest(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Squid, Servers, testing::Values(kServers[0]), rowName);
INSTANTIATE_TEST_SUITE_P(Recipe, Servers, testing::ValuesIn(kServers + 1, std::end(kServers)),
                         rowName);

TEST_P(Servers, EveryPageIsRefreshedAndForTheAgentOnly)
{
    const Words pages = {"/", "/relative", "/absolute"};
    ASSERT_NO_FATAL_FAILURE(start());
    EXPECT_EQ(cached("/first"), "edition 1");
    edition_ = 2;
    EXPECT_EQ(cached("/first", {"--interface", "127.0.0.2", "-H", "Cache-Control: max-age=0"}),
              GetParam().agentOnly ? "edition 1" : "asked");

    EXPECT_EQ(refresh({"/"}), pages.size());  // nothing in the cache
    expectCached(pages, "edition 2");
    edition_ = 3;
    expectCached(pages, "edition 2");  // still fresh
    EXPECT_EQ(refresh({"/"}), pages.size());
    expectCached(pages, "edition 3");
    EXPECT_THAT(agent_->dir.read("prom"), testing::HasSubstr(",verdict=\"refreshed\"} 3\n"));
    std::string log = agent_->dir.read("log");
    EXPECT_EQ(replaceAll(&log, "\"status\":200", ""), 3);
    edition_ = 0;
    EXPECT_GE(refresh(pages), pages.size());
    expectCached(pages, "edition 3");  // trouble does not take the place of a good copy
}

TEST_P(Servers, OnlySomeRefreshWithoutTheRecipe)
{
    ASSERT_NO_FATAL_FAILURE(start(dir_.write("instead", GetParam().instead)));
    get("/aged");
    edition_ = 2;
    refresh({"/aged"}, "0");
    EXPECT_EQ(cached("/aged"), GetParam().refreshesByItself ? "edition 2" : "edition 1");
    EXPECT_EQ(agent_->traced("the proxy ignores max-age=0") > 0, !GetParam().refreshesByItself);
}

// The edition that clients get without and with compression of each page; "-": it is not stored.
TEST_P(Servers, PagesThatStayOldAreKnown)
{
    const Words gzip = {"-H", "Accept-Encoding: gzip"};
    const Words pages = {"/immutable", "/cookie", "/vary"};
    ASSERT_NO_FATAL_FAILURE(start());
    for (const std::string &path : pages) {
        EXPECT_EQ(cached(path), "asked");
        get(path, gzip);
    }
    edition_ = 2;
    refresh(pages);
    std::string copies;
    for (const std::string &path : pages) {
        for (const std::string &got : {cached(path), cached(path, gzip)}) {
            copies += got == "asked" ? '-' : got.back();
        }
    }
    EXPECT_EQ(copies, GetParam().copies);
}

}  // namespace
