// The agent's purpose, through a real Squid: a fresh copy in the cache is replaced by a newer one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <set>

#include "Agent.h"
#include "Site.h"

namespace {

// Squid with all its files in a directory of its own, the cache in memory only, where everything
// stays fresh.
struct Squid {
    Squid() { start(); }
    ~Squid() { end(SIGTERM); }

    void end(int signal) const
    {
        process->signal(signal);
        process->wait(Millis(10000));
    }
    void start()
    {
        process = std::make_unique<Process>(
            std::vector<std::string>{"/usr/sbin/squid", "-N", "-f", configure()});
    }

    // Asks for `url` as an ordinary client, which waits for Squid's start; the whole response.
    [[nodiscard]] std::string get(const std::string &url) const
    {
        Process client({"curl", "-qsi", "--retry-connrefused", "--retry", "30", "--retry-delay",
                        "1", "--noproxy", "", "-x", "127.0.0.1:" + std::to_string(port), url});
        client.wait(Millis(40000));
        return client.out();
    }
    [[nodiscard]] std::string configure() const
    {
        // Started by root, Squid changes to a user of its own, who must be able to write here.
        std::filesystem::permissions(dir.path(), std::filesystem::perms::all);
        return dir.write(
            "squid.conf",
            "http_port 127.0.0.1:" + std::to_string(port) +
                "\nhttp_access allow localhost\nhttp_access deny all\nvisible_hostname squid.test\n"
                "refresh_pattern . 60 100% 60\ncache_mem 16 MB\nmemory_cache_shared off\n"
                "max_filedescriptors 1024\npinger_enable off\nnetdb_filename none\n"
                "shutdown_lifetime 0 seconds\npid_filename none\ncache_log " +
                dir.path("cache.log") + "\naccess_log stdio:" + dir.path("access.log") +
                "\ncoredump_dir " + dir.path() + "\n");
    }

    const TempDir dir;
    const std::uint16_t port = ScriptedPeer().port();  // free a moment ago
    std::unique_ptr<Process> process;
};

class Squids : public testing::TestWithParam<int> {};

TEST_P(Squids, EverySeedIsRefetchedAndTheNextClientGetsTheNewCopy)
{
    std::atomic<int> version = 1;
    const ScriptedPeer origin([&](const ScriptedPeer &, const ScriptedPeer::Request &request) {
        return Reply::ok(std::to_string(version) + " of " + request.target);
    });
    const Squid squid;
    const std::string site = "http://" + origin.address();
    const std::string load = "; loadurl " + site;
    const auto expectAll = [&](const std::string &cache, const std::string &body) {
        for (const char *const path : {"/admin1", "/admin2", "/top1", "/top2", "/top3"}) {
            const std::string response = squid.get(site + path);
            EXPECT_THAT(response, testing::HasSubstr("X-Cache: " + cache));
            EXPECT_THAT(response, testing::EndsWith(body + " of " + path));
        }
    };
    ASSERT_NE(squid.get(site), "") << squid.process->err() << squid.dir.read("cache.log");
    expectAll("MISS", "1");
    expectAll("HIT", "1");

    version = 2;
    Agent agent(squid.port,
                "numclients " + std::to_string(GetParam()) +
                    "; resultslog @dir@/log; metricsfile @dir@/prom; serverroot @dir@; caching "
                    "always; loadtopcached 9" +
                    load + "/admin1" + load + "/admin2",
                "9 5% " + site + "/top1; 8 3% " + site + "/top2; 7 2% " + site + "/top3");
    agent.run();
    EXPECT_EQ(origin.requests().size(), 11U) << agent.process->err();
    const std::string metrics = agent.dir.read("prom");
    EXPECT_THAT(metrics, testing::HasSubstr("{source=\"admin\",verdict=\"refreshed\"} 2\n"));
    EXPECT_THAT(metrics, testing::HasSubstr("{source=\"topn\",verdict=\"refreshed\"} 3\n"));
    const std::string log = agent.dir.read("log");
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 5) << log;
    expectAll("HIT", "2");
    EXPECT_EQ(origin.requests().size(), 11U) << squid.dir.read("access.log");
}

INSTANTIATE_TEST_SUITE_P(Squid, Squids, testing::Values(1, 4), testing::PrintToStringParamName());

class Depths : public testing::TestWithParam<int> {};

TEST_P(Depths, LinkedSiteIsWhollyWarmAndNoDeeper)
{
    std::vector<std::string> warm = {"/", "/0.gif", "/0f", "/ready"};
    for (int depth = 1; depth <= GetParam(); ++depth) {
        warm.push_back("/" + std::to_string(depth));
        warm.push_back(warm.back() + ".gif");
    }
    const ScriptedPeer origin(
        {{"/", htmlPage("<a href=\"/1\"><img src=\"0.gif\"><frame src=\"0f\">")},
         {"/1", htmlPage("<a href=\"2\"><img src=\"1.gif\"><a href=\"/\">")},
         {"/2", htmlPage("<a href=\"3\"><img src=\"2.gif\">")}});
    const Squid squid;
    const std::string base = "http://" + origin.address();
    ASSERT_NE(squid.get(base + "/ready"), "") << squid.dir.read("cache.log");
    Agent agent(squid.port, "delvedepth " + std::to_string(GetParam()) + "; loadurl " + base + "/");
    agent.run();
    EXPECT_THAT(origin.targets(), testing::UnorderedElementsAreArray(warm));
    for (const std::string &path : warm) {
        EXPECT_THAT(squid.get(base + path), testing::HasSubstr("X-Cache: HIT")) << path;
    }
    EXPECT_EQ(origin.requests().size(), warm.size()) << squid.dir.read("access.log");
}

INSTANTIATE_TEST_SUITE_P(Squid, Depths, testing::Values(0, 1, 2),
                         testing::PrintToStringParamName());

// 60 seeds, four a second, of which the one named "7" is the twenty-second and "59" the last.
class KilledSquid : public testing::TestWithParam<const char *> {};

TEST_P(KilledSquid, AndBackFetchesWhatIsAskedForThenAndWithRetriesAll)
{
    const ScriptedPeer origin;
    Squid squid;
    const std::string site = "http://" + origin.address() + "/";
    ASSERT_NE(squid.get(site), "") << squid.dir.read("cache.log");
    std::string seeds;
    for (int i = 0; i < 60; ++i) {
        seeds += "loadurl " + site + std::to_string(i) + "; ";
    }
    Agent agent(squid.port, "serverroot @dir@; numclients 2; delay 500; " + seeds + GetParam());
    agent.start();
    ASSERT_TRUE(origin.waitForRequests(4, kRunDeadline));
    squid.end(SIGKILL);
    ASSERT_TRUE(agent.process->waitForError("working on URL \"" + site + "7\"", kRunDeadline));
    EXPECT_GT(agent.traced("errno=111.\n"), 9);
    squid.start();
    agent.finish();
    for (const char *const path : {"/18", "/38", "/58", "/19", "/39", "/59"}) {
        EXPECT_THAT(origin.targets(), testing::Contains(path));
    }
    const std::vector<std::string> asked = origin.targets();
    const std::set<std::string> distinct(asked.begin(), asked.end());
    EXPECT_EQ(distinct.size() == 61, *GetParam() != '\0') << "all seeds, and that of the start";
}

INSTANTIATE_TEST_SUITE_P(Squid, KilledSquid, testing::Values("", "retries 9"));

// What a site may do that only a directive makes good: without and with it.
struct SiteRow : Row {
    const char *directive;
    std::map<std::string, Reply> site;  // to the first request for each; a plain page otherwise
    std::string only;                   // what is asked for once more with the directive
};

class Sites : public testing::TestWithParam<SiteRow> {};

TEST_P(Sites, GiveTheirPagesWithTheDirectiveOnly)
{
    const SiteRow &row = GetParam();
    std::array<std::ptrdiff_t, 2> asked{};
    for (const bool with : {false, true}) {
        std::mutex mutex;
        std::map<std::string, Reply> site = row.site;
        const ScriptedPeer origin([&](const ScriptedPeer &, const ScriptedPeer::Request &request) {
            const std::scoped_lock lock(mutex);
            const auto node = site.extract(request.target);
            return node.empty() ? htmlPage("page") : node.mapped();
        });
        const Squid squid;
        const std::string base = "http://" + origin.address();
        ASSERT_NE(squid.get(base + "/ready"), "") << squid.dir.read("cache.log");
        Agent agent(squid.port, "numclients 3; delvedepth 2; loadurl " + base + "/; loadurl " +
                                    base + "/s; " + (with ? row.directive : ""));
        agent.run();
        const std::vector<std::string> targets = origin.targets();
        asked[with ? 1 : 0] = std::count(targets.begin(), targets.end(), row.only);
    }
    EXPECT_EQ(asked[1], asked[0] + 1);
}

const Reply kChunked = {
    {{"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nTransfer-Encoding: "
      "chunked\r\n\r\n11\r\n<p><a href=\"one\">\r\n0\r\n\r\n"}}};
const Reply kBusy = {{{"HTTP/1.1 503 No\r\nRetry-After: 2\r\nContent-Length: 0\r\n\r\n"}}};
const Reply kToP = htmlPage("<a href=\"p\">");
const Reply kSlowToP = {{{kToP.pieces.front().bytes, 2500}}};

const SiteRow kSites[] = {
    {{"ChunkedPage"}, "closedelimitedbodies on", {{"/", kChunked}}, "/one"},
    {{"BusyHost"}, "retryafter on", {{"/", kBusy}}, "/"},
    {{"PageOnALongerWay"},
     "breadthfirst on",
     {{"/", kSlowToP},
      {"/s", htmlPage("<a href=\"a\">")},
      {"/a", kToP},
      {"/p", htmlPage("<a href=\"q\">")}},
     "/q"},
};
INSTANTIATE_TEST_SUITE_P(Squid, Sites, testing::ValuesIn(kSites), rowName);

}  // namespace
