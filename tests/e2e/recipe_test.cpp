// Real servers. With its recipe from recipes/, each of them fetches and stores again what the agent
// requests, and does this for the agent only.
#include <regex>
#include <set>

#include "Servers.h"

namespace {

class Servers : public ServerTest, public testing::WithParamInterface<Server> {
protected:
    Servers() : ServerTest(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Squid, Servers, testing::Values(kServers[0]), rowName);
INSTANTIATE_TEST_SUITE_P(Recipe, Servers, testing::ValuesIn(kServers + 1, std::end(kServers)),
                         rowName);

INSTANTIATE_TEST_SUITE_P(RecipeTls, Servers, testing::ValuesIn(kTlsServers), rowName);

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

TEST_P(Servers, VerdictIsWrong)
{
    static const std::regex line(".*\"verdict\":\"([^\"]*).*\n");
    ASSERT_NO_FATAL_FAILURE(start());
    std::string verdicts;
    for (const int edition : {1, 1, -1}) {
        edition_ = edition;
        refresh({"/moved", "/same"}, "0", "numclients 1; delveinto off");
        const std::string all = std::regex_replace(agent_->dir.read("log"), line, "$1 ");
        const std::string moved = edition == 1 ? "not cacheable " : "failed ";
        EXPECT_THAT(all, testing::StartsWith(moved));
        verdicts += all.substr(moved.size());
    }
    EXPECT_EQ(verdicts, GetParam().verdicts);
}

// The edition of each page that clients get without and with compression; "-": it is not stored.
TEST_P(Servers, PagesThatStayOldAreKnown)
{
    const Words gzip = {"--compressed", "-H", "Accept-Encoding: gzip"};
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
        copies += {edition(path), edition(path, gzip)};
    }
    EXPECT_EQ(copies, GetParam().copies);
}

// Five pages that link to one another; they come without a length to a client of HTTP/1.0.
TEST_P(Servers, HideTheLinksOfChunkedPagesOrCloseAConnectionForEach)
{
    struct {
        std::string directive;
        std::size_t pages;
        int closed;
    } const rows[] = {{"", 1, 0}, {"closedelimitedbodies on", 5, 5}, {"http11 on", 5, 0}};
    ASSERT_NO_FATAL_FAILURE(start());
    for (const auto &row : rows) {
        EXPECT_EQ(refresh({"/chunked"}, "4", "numclients 1; " + row.directive), row.pages);
        EXPECT_TRUE(row.pages == 1 ||
                    agent_->traced("cache agent closed the socket.") == row.closed)
            << row.directive;
    }
}

// What the pattern captures in the lines of a recipe from one that begins so to an empty one.
std::string taken(const Server &server, const std::string &begin, const std::regex &pattern)
{
    std::istringstream recipe(
        contentsOf(std::string(SOURCE_DIRECTORY "/recipes/") + server.recipe));
    std::string result;
    bool inside = false;
    for (std::string line; std::getline(recipe, line);) {
        inside = line.size() > 1 && (inside || line.starts_with("# " + begin));
        std::smatch match;
        if (inside && std::regex_match(line, match, pattern)) {
            result += match[1].str() + "\n";
        }
    }
    return result;
}

struct VisitorsRow : Row {
    int server;
    Words parts;       // of the recipe, whose lines the server and the agent get
    std::string more;  // directives
    std::string copies;
};
class Visitors : public ServerTest, public testing::WithParamInterface<VisitorsRow> {
protected:
    Visitors() : ServerTest(kServers[GetParam().server]) {}
};

// The edition that each visitor gets from the cache after a run; "-": the site is asked, "e": a
// page for readers of German is from before the run, as it must be, or it would be a page for
// others.
TEST_P(Visitors, GetACopyThatIsOldOrNone)
{
    static const std::regex ofServer("# {5}(\\S.*)");
    static const std::regex ofAgent("#(?: Agent:)? {3,}((?:http11|modernlinks|variant) .*)");
    const std::string coding = "Accept-Encoding: gzip, deflate";
    const Words browsers[] = {{"--compressed", "-H", coding + ", br, zstd"},
                              {"--compressed", "-H", coding + ", br"},
                              {"--compressed", "-H", coding},
                              {}};
    const Words german = {"--compressed", "-H", coding, "-H", "Accept-Language: de"};
    std::string lines;
    std::string directives = GetParam().more;
    for (const std::string &part : GetParam().parts) {
        lines += taken(server_, part, ofServer);
        directives += "\n" + taken(server_, part, ofAgent);
    }
    ASSERT_NO_FATAL_FAILURE(
        start(std::string(SOURCE_DIRECTORY "/recipes/") + server_.recipe, lines));

    get("/language", german);
    for (const Words &browser : browsers) {
        get("/vary", browser);
        EXPECT_EQ(cached("/vary", browser), "edition 1");
    }
    edition_ = 2;
    refresh({"/vary", "/language"}, "0", directives);
    std::string copies;
    for (const Words &browser : browsers) {
        copies += edition("/vary", browser);
    }
    copies += edition("/language", german);
    EXPECT_EQ(copies, GetParam().copies) << directives;
    EXPECT_THAT(get("/vary", browsers[0]), testing::HasSubstr("Content-Encoding: gzip"));
}

const std::string kNewest = "variant Accept-Encoding: gzip, deflate, br, zstd";
const VisitorsRow kVisitorsRows[] = {
    {{"SquidAlone"}, 0, {}, "", "1112e"},
    {{"SquidOneVariant"}, 0, {"Agent"}, "", "1121e"},
    {{"SquidTwoVariants"}, 0, {"Agent"}, kNewest, "2121e"},
    {{"TrafficServerAlone"}, 1, {}, "", "1112e"},
    {{"TrafficServer"}, 1, {"Agent"}, "", "2222e"},
    {{"ApacheAlone"}, 2, {}, "", "1112e"},
    {{"Apache"}, 2, {"Agent"}, "", "2222e"},
    {{"NginxAlone"}, 3, {"Agent"}, "", "-112-"},
    {{"NginxOneVariant"}, 3, {"Agent"}, kNewest, "2111-"},
    {{"NginxOneCopyForAll"}, 3, {"Agent", "Choice 1"}, "", "2222-"},
    {{"NginxACopyForEach"}, 3, {"Agent", "Choice 2"}, "", "2211e"},
    {{"VarnishAlone"}, 4, {}, "", "2222e"},
    {{"Varnish"}, 4, {"Agent"}, "", "2222e"},
};
INSTANTIATE_TEST_SUITE_P(Recipe, Visitors, testing::ValuesIn(kVisitorsRows), rowName);

// Squid dies while the agent runs, without and with retries.
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
    const bool retries = *GetParam() != '\0';
    ASSERT_TRUE(agent.process->waitForError(
        retries ? "cannot be reached, waiting for it" : "working on URL \"" + site_ + "/7\"",
        kRunDeadline));
    EXPECT_GT(agent.traced("errno=111.\n"), retries ? 0 : 9);
    ASSERT_NO_FATAL_FAILURE(start());
    agent.finish();
    const Words all = origin_.targets();
    for (const char *const late : {"/18", "/38", "/58", "/19", "/39", "/59"}) {
        EXPECT_THAT(all, testing::Contains(late));
    }
    const bool whole = std::set(all.begin(), all.end()).size() == 61;  // with that of the start
    EXPECT_EQ(whole, retries);
}

INSTANTIATE_TEST_SUITE_P(Squid, Squid, testing::Values("", "retries 9"));

}  // namespace
