// Peers with an IPv6 address: a real Squid, which listens on ::1 only.
#include "Servers.h"

namespace {

struct IPv6Row : Row {
    const char *directives;  // "@six@" is Squid's port on ::1, "@site@" the origin
    int asked;               // requests that reach the origin
    const char *traced;      // once
};

class IPv6 : public ServerTest, public testing::WithParamInterface<IPv6Row> {
protected:
    IPv6() : ServerTest(kServers[0]) {}
};

TEST_P(IPv6, PeerIsNotReached)
{
    const std::string six = std::to_string(ScriptedPeer().port());
    Agent agent(1, "");
    std::string directives = "numclients 1; " + std::string(GetParam().directives) + "\n";
    replaceAll(&directives, "@six@", six);
    replaceAll(&directives, "@site@", site_);
    agent.dir.write("proxy.conf", agent.expand(directives));
    agent.dir.write("hosts", "::1 six.test\n127.0.0.1 both.test\n::1 both.test\n");
    agent.dir.write("named", "mount --bind hosts /etc/hosts && exec \"$@\"");
    if (directives.find(".test") != std::string::npos) {
        agent.wrapper = "unshare -rm sh named";
    }
    agent.startProgram(agent.wrapper + " true");
    if (agent.process->wait(kRunDeadline) != 0 || !std::filesystem::exists("/proc/net/if_inet6")) {
        GTEST_SKIP() << "no IPv6, or no /etc/hosts of one's own: " << agent.process->err();
    }
    ASSERT_NO_FATAL_FAILURE(
        start(dir_.write("six", "http_port [::1]:" + six + "\nhttp_access allow localhost\n")));
    const std::size_t before = origin_.requests().size();
    agent.run();
    EXPECT_EQ(origin_.requests().size() - before, GetParam().asked) << agent.process->err();
    EXPECT_EQ(agent.traced(GetParam().traced), 1) << agent.process->err();
}

const char *const kFallsBack = "errno=111, trying IPv6.\n";

const IPv6Row kRows[] = {
    {"Address", "hostname x.y; updateproxy [::1]:@six@; loadurl @site@/1; loadurl @site@/2", 2,
     "Mismatch.... on hostname vs proxyname (x.y, [::1], 5 chars)"},
    {"PortOfTheSetting", "hostname ::1; updateproxy [::1]; port @six@; loadurl @site@/1", 1,
     "Hosts....... match (::1, [::1]) --> use top N."},
    // IPv4 is tried once only.
    {"Name",
     "updateproxy six.test:@six@; persisttimeout 0; delay 1500; loadurl @site@/1; loadurl @site@/2",
     2, kFallsBack},
    {"NameOfBoth", "updateproxy both.test:@six@; loadurl @site@/1", 1, kFallsBack},
    {"NobodyThere", "updateproxy both.test:1; loadurl @site@/1", 0, "errno=111.\n"},
    {"UrlsHost", "transparentproxy on; connecttohost on; loadurl http://[::1]:@six@/p", 0,
     "abandoning response with RC=400"},
};
INSTANTIATE_TEST_SUITE_P(Squid, IPv6, testing::ValuesIn(kRows), rowName);

}  // namespace
