// As many clients as there may be, and many expected.
#include <gtest/gtest.h>

#include <set>

#include "Agent.h"
#include "Site.h"

namespace {

// Runs the agent without a trace; expects each of `expected` once.
void expectEachOnce(const ScriptedPeer &peer, Agent &agent,
                    const std::vector<std::string> &expected)
{
    agent.startWith("-r proxy.conf");
    agent.finish();
    const std::vector<std::string> arrived = peer.targets();
    EXPECT_EQ(arrived.size(), expected.size());
    EXPECT_TRUE(std::set(arrived.begin(), arrived.end()) ==
                std::set(expected.begin(), expected.end()));
    EXPECT_LE(peer.mostConnections(), 100);
}

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
    expectEachOnce(peer, agent, expected);
}

// A tree in which each page links to eight of its own, its parent and the root.
TEST(Scale, EveryPageOfALargeSiteIsAskedForOnce)
{
    const std::vector<std::string> expected = targets(5000);
    const ScriptedPeer peer([&](const ScriptedPeer &, const ScriptedPeer::Request &request) {
        const std::size_t number = std::stoul(request.target.substr(9));
        std::string body =
            "<a href=\"0\"><a href=\"" + std::to_string(number == 0 ? 0 : (number - 1) / 8) + "\">";
        for (std::size_t child = 8 * number + 1; child <= 8 * number + 8; ++child) {
            body += child < expected.size() ? "<a href=\"" + std::to_string(child) + "\">" : "";
        }
        Reply reply = htmlPage(body);
        reply.pieces.front().pauseMs = 10;  // long enough for every idle client to join in
        return reply;
    });
    Agent agent(peer.port(), "numclients 100; delvedepth 5; loadurl h/0");
    expectEachOnce(peer, agent, expected);
}

// The time is up in both runs while every client waits for an answer; all of them end in time.
TEST(Scale, HundredClientsAreBusyWhenTheTimeIsUp)
{
    const ScriptedPeer peer([](const ScriptedPeer &, const ScriptedPeer::Request &) {
        Reply reply = htmlPage("<a href=\"x\"><img src=\"y\">");
        reply.pieces.front().pauseMs = 1500;
        return reply;
    });
    Agent agent(peer.port(), "numclients 100; maxruntime 2; delvedepth 1; " + seeds(1000));
    agent.run("-rp 2");
    EXPECT_EQ(peer.mostConnections(), 100);
    EXPECT_EQ(agent.traced("Master...... TIME's UP! we have to go...\n"), 2);
    EXPECT_EQ(agent.traced("exiting.\n"), 100);
}

}  // namespace
