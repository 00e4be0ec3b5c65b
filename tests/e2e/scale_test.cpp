// As many clients as there may be, and many expected; and what memory many runs take.
#include <algorithm>
#include <regex>
#include <set>

#include "Agent.h"

namespace {

// The first 5000 are a tree: each page links to eight of its own, its parent and the root.
TEST(Scale, UrlIsLostOrAskedForTwice)
{
    const int tree = 5000;
    const ScriptedPeer peer([](const ScriptedPeer &, const ScriptedPeer::Request &request) {
        const int number = std::stoi(request.target.substr(9));
        std::string body = "<a href=\"0\"><a href=\"" + std::to_string((number - 1) / 8) + "\">";
        for (int child = 8 * number + 1; child <= 8 * number + 8 && child < tree; ++child) {
            body += "<a href=\"" + std::to_string(child) + "\">";
        }
        Reply reply = Reply::html(number < tree ? body : "page");
        reply.pieces.front().pauseMs = 10;  // long enough for every idle client to join in
        return reply;
    });
    Words expected = targets(15000);
    std::string hits;
    for (const std::string &target : Words(expected.begin() + tree, expected.end())) {
        hits += "1 0% " + target + "\n";
    }
    Agent agent(peer.port(),
                "numclients 100; delvedepth 5; loadurl h/0; serverroot @dir@; caching always; "
                "hostname 127.0.0.1; loadtopcached 10000",
                hits);
    agent.startWith("-r proxy.conf");
    agent.finish();
    Words arrived = peer.targets();
    std::sort(arrived.begin(), arrived.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_TRUE(arrived == expected) << arrived.size();
    EXPECT_LE(peer.mostConnections(), 100);
}

// The time is up in both runs while every client waits for an answer; all of them end in time.
TEST(Scale, HundredClientsAreBusyWhenTheTimeIsUp)
{
    const ScriptedPeer peer([](const ScriptedPeer &, const ScriptedPeer::Request &) {
        Reply reply = Reply::html("<a href=\"x\"><img src=\"y\">");
        reply.pieces.front().pauseMs = 1500;
        return reply;
    });
    Agent agent(peer.port(), "numclients 100; maxruntime 2; delvedepth 1; " + seeds(1000));
    agent.run("-rp 2");
    EXPECT_EQ(peer.mostConnections(), 100);
    EXPECT_EQ(agent.traced("Master...... TIME's UP! we have to go...\n"), 2);
    EXPECT_EQ(agent.traced("exiting.\n"), 100);
}

TEST(Memory, IsLostOrGrowsWithTheRuns)
{
    if (kSanitized) {
        GTEST_SKIP() << "a sanitizer looks by itself";
    }
    const ScriptedPeer peer(
        {{"http://h/0", Reply::html("<a href=\"a\"><img src=\"b\"><a href=\"http://o/\">")},
         {"http://h/1", Reply::head("302 Moved\r\nLocation: /c")},
         {"http://h/2", {{{"HTTP/1.0 200 OK\r\n"}}, Reply::Then::Reset}}});
    std::set<std::string> kept;
    for (const std::string runs : {"2", "5"}) {
        Agent agent(
            peer.port(),
            "serverroot @dir@; delvedepth 1; slf on; slr @dir@/save; ignoreurl *x*; onlyurl "
            "http*; cachequeries on *; maxhosturls 99 h; caching on; loadtopcached 9; "
            "hostname 127.0.0.1; catracelog trace; errorlog @dir@/x; " +
                seeds(3),
            "9 5% http://h/top; bad; ");
        agent.wrapper = "valgrind --leak-check=full --log-file=valgrind --error-exitcode=9";
        agent.startWith("-r proxy.conf -rp " + runs);
        agent.finish();  // with another status when something is lost
        const std::string report = agent.dir.read("valgrind");
        std::smatch found;
        EXPECT_TRUE(std::regex_search(report, found, std::regex("still reachable: (.*) bytes")));
        kept.insert(found[1]);
    }
    EXPECT_EQ(kept.size(), 1);
}

}  // namespace
