// Whole runs under valgrind: what is left at the end, and that it does not grow with the runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Agent.h"
#include "Site.h"

namespace {

// The figure that valgrind tells of `what`, in bytes.
std::string bytesOf(const std::string &what, const Agent &agent)
{
    const std::string report = agent.dir.read("valgrind");
    const std::size_t at = report.find(what + ": ");
    return at == std::string::npos ? report : report.substr(at, report.find(" bytes", at) - at);
}

TEST(Memory, NothingIsLostAndWhatIsKeptDoesNotGrowWithTheRuns)
{
    if (kSanitized) {
        GTEST_SKIP() << "a sanitizer looks by itself";
    }
    const ScriptedPeer peer(
        {{"http://h/0", htmlPage("<a href=\"a\"><img src=\"b\"><a href=\"http://o/\">")},
         {"http://h/1", {{{"HTTP/1.0 302 Moved\r\nLocation: /c\r\n\r\n"}}}},
         {"http://h/2", {{{"HTTP/1.0 200 OK\r\n"}}, Reply::Then::Reset}}});
    std::string kept;
    for (const char *const runs : {"-rp 2", "-rp 5"}) {
        Agent agent(
            peer.port(),
            "serverroot @dir@; delvedepth 1; slf on; slr @dir@/save; ignoreurl *x*; onlyurl "
            "http*; cachequeries on *; maxhosturls 99 h; caching on; loadtopcached 9; "
            "hostname 127.0.0.1; catracelog trace; errorlog @dir@/x; " +
                seeds(3),
            "9 5% http://h/top; bad; ");
        agent.wrapper = "valgrind --leak-check=full --log-file=valgrind";
        agent.startWith(std::string("-r proxy.conf ") + runs);
        agent.finish();
        for (const char *const lost : {"definitely lost", "indirectly lost", "possibly lost"}) {
            EXPECT_EQ(bytesOf(lost, agent), lost + std::string(": 0"))
                << agent.dir.read("valgrind");
        }
        EXPECT_TRUE(kept.empty() || kept == bytesOf("still reachable", agent)) << runs;
        kept = bytesOf("still reachable", agent);
    }
}

}  // namespace
