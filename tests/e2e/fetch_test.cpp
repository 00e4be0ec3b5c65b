// One worker and its connection: the bytes of a request, reuse, resending and time-outs.
#include "Agent.h"

namespace {

struct RequestRow : Row {
    const char *directives;
    const char *target;
    const char *host = "h";
    const char *cache = "max-age=0";
};

class Request : public testing::TestWithParam<RequestRow> {};

TEST_P(Request, IsSentByteForByte)
{
    const RequestRow &row = GetParam();
    const ScriptedPeer peer;
    Agent agent(peer.port(), row.directives);
    agent.run();
    ASSERT_FALSE(peer.requests().empty());
    EXPECT_EQ(peer.connections(), peer.requests().size()) << "each straight to the host";
    EXPECT_EQ(peer.requests().back().bytes,
              std::string("GET ") + row.target +
                  " HTTP/1.0\r\nAccept: text/html, */*; q=0.10\r\n"
                  "User-Agent: Mozilla/4.0 (emulation; QRX BUG)\r\nHost: " +
                  agent.expand(row.host) + "\r\nCache-Control: " + row.cache +
                  "\r\nConnection: Keep-alive\r\n\r\n");
}

const char *const kStraight =
    "transparentproxy on; connecttohost on; updateproxy n:1; loadurl @peer@/p; loadurl @peer@/p";

const RequestRow kRequests[] = {
    {"Absolute", "loadurl http://h:8080/dir/p.html", "http://h:8080/dir/p.html", "h:8080"},
    {"NoScheme", "Load-URL h:80/p#part", "http://h/p"},
    {"NoHost", "loadurl /p", "/p", "@peer@"},
    {"Transparent", "transparentproxy on; loadurl h/dir/p", "/dir/p"},
    {"Prefix", "service /s/* Internal:CacheAgentService; loadurl h/p", "/s/http://h/p"},
    {"PrefixJoined", "service /s internal:cacheagentservice; loadurl h/p", "/s/http://h/p"},
    {"PrefixCut", "service /s/* internal:cacheagentservice; loadurl /p", "/s/p", "@peer@"},
    {"OtherService", "service /s/* internal:other; loadurl h/p", "http://h/p"},
    {"StraightToTheHost", kStraight, "/p", "@peer@"},
    // The generator is never seeded, so this is how every start begins.
    {"Stress", "stressmode on; loadurl h/p", "http://h/p", "h", "QRX-BUG"},
};
INSTANTIATE_TEST_SUITE_P(Fetch, Request, testing::ValuesIn(kRequests), rowName);

struct ReplyRow : Row {
    Reply reply;      // to the first of three requests; the others get a plain 200
    int connections;  // that the three requests take
    const char *directives = "readtimeout 1";
    int pauseMs = 0;  // from the first request to the second, at least
};

class Connection : public testing::TestWithParam<ReplyRow> {};

TEST_P(Connection, IsKeptOrReplaced)
{
    const ScriptedPeer peer({{"http://h/0", GetParam().reply}});
    Agent agent(peer.port(), "numclients 1; " + seeds(3) + GetParam().directives);
    agent.run();
    ASSERT_EQ(peer.asked(), "/0 /1 /2");
    EXPECT_EQ(peer.connections(), GetParam().connections) << agent.process->err();
    EXPECT_GE(peer.requests()[1].arrival, peer.requests()[0].arrival + Millis(GetParam().pauseMs));
    EXPECT_EQ(agent.traced("Net.. Cache agent time out!\n") > 0, GetParam().pauseMs > 0);
    EXPECT_EQ(agent.traced("Parser...... can't cope with"), 0) << "each answer is its request's";
}

const std::string kHead = "HTTP/1.1 200 OK\r\nContent-Type: a/b\r\n";
const Reply kMore = {{Reply::ok().pieces.front(), {"\r\n", 100}}};

const ReplyRow kReplies[] = {
    {"LengthKeeps", Reply::ok("body"), 1},
    {"TimeOutKeeps", Reply{}, 1, "readtimeout 2", 1500},
    {"ShortBodyKeeps", {{{kHead + "Content-Length: 9\r\n\r\nx"}}}, 1, "readtimeout 1", 500},
    {"CloseHeaderCloses", {{{kHead + "Content-Length: 1\r\nConnection: close\r\n\r\nx"}}}, 2},
    {"NotFoundCloses", Reply::head("404 No"), 2},
    {"BytesBeforeTheNextRequestClose", kMore, 2, "delay 1000"},
    {"StaleIsReplaced", {Reply::ok().pieces, Reply::Then::Close}, 2, "delay 1500"},
    {"PersistTimeOutCloses", Reply::ok(), 3, "persisttimeout 1; delay 2200"},
};
INSTANTIATE_TEST_SUITE_P(Fetch, Connection, testing::ValuesIn(kReplies), rowName);

}  // namespace
