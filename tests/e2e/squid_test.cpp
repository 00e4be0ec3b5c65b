// The agent's purpose, through a real Squid: a fresh copy in the cache is replaced by a newer one.
#include "Squid.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <ctime>

#include "Agent.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;

// Squid trusts a max-age only beside a Date.
std::string freshness()
{
    const std::time_t now = std::time(nullptr);
    char date[64];
    std::strftime(date, sizeof date, "%a, %d %b %Y %H:%M:%S GMT", std::gmtime(&now));
    return std::string("Cache-Control: max-age=3600\r\nDate: ") + date + "\r\n";
}

class Squids : public testing::TestWithParam<int> {};

TEST_P(Squids, EverySeedIsRefetchedAndTheNextClientGetsTheNewCopy)
{
    std::atomic<int> version = 1;
    const ScriptedPeer origin([&](const ScriptedPeer &, const ScriptedPeer::Request &request) {
        return Reply::ok(std::to_string(version) + " of " + request.target, freshness());
    });
    const Squid squid;
    const std::string site = "http://" + origin.address();
    const auto expectAll = [&](const std::string &cache, const std::string &body) {
        for (const char *const path : {"/admin1", "/admin2", "/top1", "/top2", "/top3"}) {
            EXPECT_THAT(squid.get(site + path),
                        AllOf(HasSubstr("X-Cache: " + cache), EndsWith(body + " of " + path)));
        }
    };
    expectAll("MISS", "1");
    expectAll("HIT", "1");
    ASSERT_EQ(origin.requests().size(), 5U) << squid.accessLog();

    version = 2;
    Agent agent(squid.port(),
                "numclients " + std::to_string(GetParam()) + "; loadurl " + site +
                    "/admin1; loadurl " + site +
                    "/admin2; serverroot @dir@; caching always; loadtopcached 9",
                "9 5% " + site + "/top1; 8 3% " + site + "/top2; 7 2% " + site + "/top3");
    agent.run();
    EXPECT_EQ(origin.requests().size(), 10U) << squid.accessLog() << agent.process->err();
    expectAll("HIT", "2");
    EXPECT_EQ(origin.requests().size(), 10U) << squid.accessLog();
}

INSTANTIATE_TEST_SUITE_P(Squid, Squids, testing::Values(1, 4), testing::PrintToStringParamName());

}  // namespace
