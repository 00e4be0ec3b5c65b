// One worker and its connection: the bytes of a request, reuse, resending, time-outs and refusals.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "Agent.h"

namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAreArray;

struct RequestRow : Row {
    const char *directives;
    const char *target;
    const char *host = "h";
};

class Request : public testing::TestWithParam<RequestRow> {};

TEST_P(Request, IsSentByteForByte)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), GetParam().directives);
    agent.run();
    ASSERT_EQ(peer.requests().size(), 1U);
    EXPECT_EQ(peer.requests()[0].bytes,
              std::string("GET ") + GetParam().target +
                  " HTTP/1.0\r\nAccept: text/html, */*; q=0.10\r\n"
                  "User-Agent: Mozilla/4.0 (emulation; QRX BUG)\r\nHost: " +
                  agent.expand(GetParam().host) +
                  "\r\nCache-Control: max-age=0\r\nConnection: Keep-alive\r\n\r\n");
}

const RequestRow kRequests[] = {
    {"Absolute", "loadurl http://h/dir/p.html", "http://h/dir/p.html"},
    {"Port", "loadurl http://h:8080/p", "http://h:8080/p", "h:8080"},
    {"NoScheme", "Load-URL h:80/p#part", "http://h/p"},
    {"NoHost", "loadurl /p", "/p", "@peer@"},
    {"Query", "cachequeries on; loadurl h/p?q=1", "http://h/p?q=1"},
    {"Transparent", "transparentproxy on; loadurl h/dir/p", "/dir/p"},
    {"NotTransparent", "transparentproxy ON; loadurl h/p", "http://h/p"},
    {"Prefix", "service /s/* Internal:CacheAgentService; loadurl h/p", "/s/http://h/p"},
    {"PrefixJoined", "service /s internal:cacheagentservice; loadurl h/p", "/s/http://h/p"},
    {"PrefixCut", "service /s/* internal:cacheagentservice; loadurl /p", "/s/p", "@peer@"},
    {"OtherService", "service /s/* internal:other; loadurl h/p", "http://h/p"},
    {"OldVersion", "refetchdhttpversion 1.1; loadurl h/p", "http://h/p"},
    {"StraightToTheHost",
     "transparentproxy on; connecttohost on; updateproxy nowhere:1; loadurl @peer@/p", "/p",
     "@peer@"},
};
INSTANTIATE_TEST_SUITE_P(Fetch, Request, testing::ValuesIn(kRequests), rowName);

TEST(Fetch, StressVariesTheCacheDirective)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "numclients 1; stressmode on; " + seeds(8));
    agent.run();
    const std::string after = "Host: h\r\n";
    std::vector<std::string> directives;
    for (const ScriptedPeer::Request &request : peer.requests()) {
        const std::size_t at = request.bytes.find(after) + after.size();
        directives.push_back(request.bytes.substr(at, request.bytes.find('\r', at) - at));
    }
    // The generator is never seeded, so this is how every start begins.
    EXPECT_THAT(directives, ElementsAre("Cache-Control: QRX-BUG", "Cache-Control: only-if-cached",
                                        "Cache-Control: max-stale=360", "Connection: Keep-alive",
                                        "Cache-Control: max-stale=360", "Cache-Control: QRX-BUG",
                                        "Connection: Keep-alive", "Cache-Control: max-age=0"));
}

TEST(Fetch, EveryWorkerKeepsToOneConnection)
{
    const ScriptedPeer peer(replyOnce(3));
    Agent agent(peer.port(), "numclients 3; " + seeds(60));
    agent.run();
    EXPECT_THAT(peer.targets(), UnorderedElementsAreArray(targets(60)));
    EXPECT_EQ(peer.connections(), 3);
}

TEST(Fetch, StraightToTheHostIsOneConnectionAURLAndNotLimited)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(),
                "numclients 1; transparentproxy on; connecttohost on; "
                "loadurl @peer@/0; loadurl @peer@/1");
    agent.run({"-mc", "1"});
    EXPECT_THAT(peer.targets(), ElementsAre("/0", "/1"));
    EXPECT_EQ(peer.connections(), 2);
}

struct ReplyRow : Row {
    Reply reply;      // to the first of three requests; the others get a plain 200
    int connections;  // that the three requests take
};

class Connection : public testing::TestWithParam<ReplyRow> {};

TEST_P(Connection, IsKeptOrReplaced)
{
    const ScriptedPeer peer({{"http://h/0", GetParam().reply}});
    Agent agent(peer.port(), "numclients 1; readtimeout 1; " + seeds(3));
    agent.run();
    EXPECT_EQ(peer.targets(), targets(3));
    EXPECT_EQ(peer.connections(), GetParam().connections) << agent.process->err();
}

const std::string kHead = "HTTP/1.1 200 OK\r\nContent-Type: a/b\r\n";
const std::string kChunked = kHead + "Transfer-Encoding: chunked\r\n\r\n";

const ReplyRow kReplies[] = {
    {"LengthKeeps", Reply::ok("body"), 1},
    {"ByteByByteKeeps", Reply::inPieces(Reply::ok("body").pieces[0].bytes), 1},
    {"ChunkedKeeps", {{{kChunked + "5\r\nhello\r\n0\r\n\r\n"}}}, 1},
    {"ChunkedByteByByteKeeps", Reply::inPieces(kChunked + "5;x\r\nhello\r\n0\r\n\r\n"), 1},
    {"PauseKeeps", {{{kHead}, {"Content-Length: 1\r\n\r\nx", 300}}}, 1},
    {"CloseHeaderCloses", {{{kHead + "Content-Length: 1\r\nConnection: close\r\n\r\nx"}}}, 2},
    {"NotFoundCloses", {{{"HTTP/1.0 404 No\r\nContent-Length: 0\r\n\r\n"}}}, 2},
    {"GarbageCloses", {{{"ICY 200 OK\r\n\r\n"}}}, 2},
    {"HugeChunkCloses", {{{kChunked + "200001\r\n"}}}, 2},
    {"ResetBeforeTheReply", {{}, Reply::Then::Reset}, 2},
    {"ResetInsideTheHead", {{{kHead}}, Reply::Then::Reset}, 2},
    {"NoReplyKeeps", {{}, Reply::Then::Keep}, 1},
    {"ShortBodyKeeps", {{{kHead + "Content-Length: 9\r\n\r\nx"}}}, 1},
};
INSTANTIATE_TEST_SUITE_P(Fetch, Connection, testing::ValuesIn(kReplies), rowName);

TEST(Fetch, ReadTimeOutIsWaitedOut)
{
    const ScriptedPeer peer({{"http://h/0", Reply{}}, {"http://h/1", Reply{}}});
    Agent agent(peer.port(), "numclients 1; readtimeout 2; " + seeds(2));
    agent.run();
    ASSERT_EQ(peer.targets(), targets(2));
    EXPECT_GE(peer.requests()[1].arrival - peer.requests()[0].arrival, Millis(1500));
    EXPECT_EQ(agent.traced("Net.. Cache agent time out!\n"), 2);
    EXPECT_GE(agent.traced("Master...... worker thread #1 is still busy.\n"), 1);
}

struct StaleRow : Row {
    Reply::Then end;  // of the idle connection
};

class Stale : public testing::TestWithParam<StaleRow> {};

TEST_P(Stale, ConnectionIsReplacedAndTheRequestSentAgain)
{
    ScriptedPeer peer;
    Agent agent(peer.port(), "numclients 1; delay 1500; " + seeds(2));
    agent.start();
    ASSERT_TRUE(agent.process->waitForError("Net.. stop reading the socket.\n", kRunDeadline));
    ASSERT_TRUE(peer.drop(0, GetParam().end));  // while the worker pauses
    agent.finish();
    EXPECT_EQ(peer.targets(), targets(2));
    EXPECT_EQ(peer.connections(), 2);
    EXPECT_EQ(agent.traced("Net......... Unable to write, retrying. . .\n"), 1);
}

const StaleRow kStale[] = {{"Closed", Reply::Then::Close}, {"Reset", Reply::Then::Reset}};
INSTANTIATE_TEST_SUITE_P(Fetch, Stale, testing::ValuesIn(kStale), rowName);

TEST(Fetch, IdleConnectionIsReplacedAfterPersistTimeout)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "numclients 1; persisttimeout 1; delay 2200; " + seeds(2));
    agent.run();
    EXPECT_EQ(peer.targets(), targets(2));
    EXPECT_EQ(peer.connections(), 2);
}

struct TargetRow : Row {
    std::string location;      // where the seed redirects to
    std::string refused = "";  // that URL in the line of its refusal; empty: it is sent
};

class Redirection : public testing::TestWithParam<TargetRow> {};

// A server decides what a redirection names, so it may be anything.
TEST_P(Redirection, IsSentOrRefusedInOneLineAndTheWorkerGoesOn)
{
    const TargetRow &row = GetParam();
    const std::string reply = "HTTP/1.0 302 Moved\r\nLocation: " + row.location + "\r\n\r\n";
    const ScriptedPeer peer({{"http://h/0", {{{reply}}}}});
    Agent agent(peer.port(), "numclients 1; delveacrosshosts on; " + seeds(1));
    agent.run({"-rp", "2"});
    const std::vector<std::string> all = {"http://h/0", row.location, "http://h/0", row.location};
    const std::vector<std::string> seedOnly(2, "http://h/0");
    EXPECT_EQ(peer.targets(), row.refused.empty() ? all : seedOnly);
    std::istringstream trace(agent.process->err());
    int refusals = 0;
    for (std::string line; std::getline(trace, line);) {
        if (line.rfind("Request..... refused, ", 0) == 0) {
            EXPECT_THAT(line, testing::EndsWith("\"" + row.refused + "\"."));
            ++refusals;
        }
    }
    EXPECT_EQ(refusals, row.refused.empty() ? 0 : 2);
}

// A location that makes a request of `bytes`: 153 of them are neither target nor host.
std::string filling(std::size_t bytes)
{
    return "http://h/" + std::string(bytes - 163, 'x');
}

const std::string kLongHost = "http://" + std::string(2500, 'h') + "/";

const TargetRow kTargets[] = {
    {"FillsTheBuffer", filling(4096)},
    {"OverTheBuffer", filling(4098), filling(4098)},
    {"FarOverTheBuffer", filling(60000), filling(60000)},
    {"LongHost", kLongHost, kLongHost},
    {"Control", "http://h/a\x01z", "http://h/a%01z"},
    {"Delete", "http://h/a\x7fz", "http://h/a%7Fz"},
    {"Tab", "http://h/a\tz", "http://h/a%09z"},
    {"ControlInHost", "http://h\x1fz/", "http://h%1Fz/"},
    {"HighBytes", "http://h/\xc3\xa9"},
};
INSTANTIATE_TEST_SUITE_P(Fetch, Redirection, testing::ValuesIn(kTargets), rowName);

}  // namespace
