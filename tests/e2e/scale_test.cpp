// As many clients as there may be, and many seeds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "Agent.h"

namespace {

TEST(Scale, EveryOneOfManySeedsArrivesOnce)
{
    constexpr int kSeeds = 20000;
    const ScriptedPeer peer;
    std::string hits;
    for (const std::string &target : targets(kSeeds)) {
        hits += "1 0% " + target + "\n";
    }
    Agent agent(peer.port(),
                "serverroot @dir@; numclients 100; caching always; loadtopcached 20000", hits);
    agent.startWith({"-r", "@dir@/proxy.conf"});
    const Process::Result result = agent.finish();

    std::vector<std::string> expected = targets(kSeeds);
    std::vector<std::string> arrived = peer.targets();
    std::sort(expected.begin(), expected.end());
    std::sort(arrived.begin(), arrived.end());
    EXPECT_TRUE(arrived == expected) << arrived.size() << " requests";
    EXPECT_LE(peer.mostConnections(), 100);
    const std::chrono::duration<double> time =
        peer.requests().back().arrival - peer.requests().front().arrival;
    std::printf("%d URLs, %d connections: %.0f URLs per second, %ld KiB at most\n", kSeeds,
                peer.connections(), kSeeds / time.count(), result.peakKilobytes);
}

}  // namespace
