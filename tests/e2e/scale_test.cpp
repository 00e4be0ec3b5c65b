// As many clients as there may be, and many expected.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>

#include "Agent.h"

namespace {

TEST(Scale, EveryOneOfManySeedsArrivesOnce)
{
    const std::vector<std::string> expected = targets(20000);
    std::string hits;
    for (const std::string &target : expected) {
        hits += "1 0% " + target + "\n";
    }
    const ScriptedPeer peer;
    Agent agent(peer.port(),
                "serverroot @dir@; numclients 100; caching always; loadtopcached 20000", hits);
    agent.startWith("-r proxy.conf");
    const Process::Result result = agent.finish();
    const std::vector<ScriptedPeer::Request> requests = peer.requests();
    ASSERT_EQ(requests.size(), expected.size());
    const std::vector<std::string> arrived = peer.targets();
    EXPECT_TRUE(std::set(arrived.begin(), arrived.end()) ==
                std::set(expected.begin(), expected.end()));
    EXPECT_LE(peer.mostConnections(), 100);
    const std::chrono::duration<double> time = requests.back().arrival - requests.front().arrival;
    std::printf("%zu URLs, %d connections: %.0f URLs per second, %ld KiB at most\n",
                expected.size(), peer.connections(),
                static_cast<double>(expected.size()) / time.count(), result.peakKilobytes);
}

}  // namespace
