// What may go wrong at night, and what becomes of the run: the agent ends in good order, and every
// URL that could be fetched is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <filesystem>

#include "Agent.h"
#include "Site.h"

namespace {

using namespace std::string_literals;
using Then = Reply::Then;

// The number that the report tells of `what`; -1 without a report.
int told(const Agent &agent, const std::string &what)
{
    const std::string report = agent.dir.read("pub/de_DE/reports/refetchd.html");
    const std::size_t at = report.rfind("<td>" + what + "</td>\n<td align=right>");
    return at == std::string::npos ? -1 : std::stoi(report.substr(at + what.size() + 26));
}

const char *const kLoaded = "Total URLs loaded into cache:";
const char *const kTimeUp = "Master...... TIME's UP! we have to go...\n";
const char *const kTimeOut = "Net.. Cache agent time out!\n";
const char *const kUntraced = "maxruntime 1; catracelog /dev/null";  // it would be huge

struct PeerRow : Row {
    Reply first;         // the answer to the first of three URLs; the others get a plain 200
    int loaded;          // with status 200
    const char *traced;  // somewhere
    const char *directives = "";  // besides two clients and a read time-out of one second
    int asked = 3;
};

class PeerFault : public testing::TestWithParam<PeerRow> {};

TEST_P(PeerFault, CostsNoOtherUrl)
{
    const PeerRow &row = GetParam();
    const ScriptedPeer peer({{"http://h/0", row.first}});
    Agent agent(peer.port(),
                "serverroot @dir@; readtimeout 1; numclients 2; " + seeds(3) + row.directives);
    agent.start();
    const Process::Result result = agent.finish();
    EXPECT_THAT(peer.targets(), testing::IsSupersetOf(targets(3)));
    EXPECT_EQ(peer.requests().size(), row.asked);
    EXPECT_EQ(told(agent, kLoaded), row.loaded);
    EXPECT_THAT(agent.process->err(), testing::HasSubstr(row.traced));
    EXPECT_TRUE(kSanitized || result.peakKilobytes < 100'000) << result.peakKilobytes;
}

std::string times(int count, const std::string &text)
{
    std::string result;
    for (int i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

Reply endless(const std::string &begin, const std::string &again, int pauseMs = 0)
{
    return {{{begin}, {again, pauseMs}}, Then::Keep, Reply::kForEver};
}

std::string manyLinks()
{
    std::string page;
    for (int i = 0; i < 10'000; ++i) {
        page += "<a href=\"link" + std::to_string(i) + "\">";
    }
    return page;
}

const std::string kOk = "HTTP/1.0 200 OK\r\nContent-Type: ";
const std::string kLarge = kOk + "text/html\r\nContent-Length: 209715200\r\n\r\n";  // 200 MB
const std::string kNeverDone = kOk + "text/html\r\nContent-Length: 999999999999\r\n\r\n";
const std::string kChunked = kOk + "text/html\r\n\r\n";
const std::string kMega = "<a href=\"/ok\">" + std::string((1 << 20) - 14, 'x');
const char *const kReset = "error reading from socket; errno=104, status=-1.\n";

const PeerRow kPeerFaults[] = {
    {"ResetBeforeTheStatusLine", {{}, Then::Reset}, 2, kReset},
    {"ResetInTheHeaders", {{{kOk}}, Then::Reset}, 3, kReset},
    {"ResetInAChunkSize", {{{kChunked + "1"}}, Then::Reset}, 3, kReset},
    {"ResetInTheBody", {{{kChunked + "9\r\nx"}}, Then::Reset}, 3, kReset},
    {"NeverAnswered", {{}, Then::Stall}, 2, kTimeOut},
    {"AlmostAByteASecond", endless("", "H", 900), 2, kTimeUp, "maxruntime 2"},
    {"EndlessStatusLine", endless("HTTP/1.0 200 ", kMega), 2, "", kUntraced},
    {"EndlessHeaders", endless(kOk, times(1000, "a: b\r\n")), 2, "", kUntraced},
    {"EndlessBody", endless(kNeverDone, kMega), 2, "", kUntraced},
    {"EndlessChunks", endless(kChunked, times(1000, "5\r\n<a hr\r\n")), 2, "", kUntraced},
    {"EndlessTrailer", endless(kChunked, times(1000, "0\r\na: b\r\n")), 2, "", kUntraced},
    {"TenThousandLinks", htmlPage(manyLinks()), 10003, "", "delvedepth 1; numclients 100", 10003},
    {"PageOf200Megabytes",
     {{{kLarge}, {kMega}}, Then::Keep, 199},
     4,
     "",
     "delvedepth 1; catracelog /dev/null",
     4},
    {"RedirectionOfAMegabyte",
     {{{"HTTP/1.0 302 Moved\r\nLocation: /" + kMega + "\r\n\r\n"}}},
     2,
     kTimeOut},
    {"LinkOfAMegabyte", htmlPage("<a href=\"" + std::string(1 << 20, 'x') + "\"><a href=\"b\">"), 4,
     "HTML........ can't buffer ", "delvedepth 1", 4},
    {"NulsForAResponse", {{{std::string(9000, '\0') + "\n"}}}, 2, "can't cope with HTTP/0.x"},
    {"NulsInAPage", htmlPage("\0<\0a href=\"b\"><a href=\"c\"\0>\0"s), 4,
     "Found....... URL \"c\".\n", "delvedepth 1", 4},
};
INSTANTIATE_TEST_SUITE_P(Fault, PeerFault, testing::ValuesIn(kPeerFaults), rowName);

struct HostRow : Row {
    const char *wrapper;     // what the agent is started with
    std::string directives;  // besides the server root
    int asked;               // URLs that reach the peer, all of them with status 200
    std::string traced;      // somewhere
    const char *full = "";   // a file whose disk is full
    int status = 0;
    bool sanitized = true;  // a sanitizer can stand it
};

class HostFault : public testing::TestWithParam<HostRow> {};

TEST_P(HostFault, StopsNothingElse)
{
    const HostRow &row = GetParam();
    if (kSanitized && !row.sanitized) {
        GTEST_SKIP() << "a sanitizer needs more";
    }
    const ScriptedPeer peer({{"http://h/large", Reply::ok(kMega)}});
    Agent agent(peer.port(), "serverroot @dir@; " + row.directives);
    agent.wrapper = row.wrapper;
    agent.dir.write("save/h/keep", "");
    agent.dir.write("unheard.sh", "exec \"$@\" <&- >&- 2>&-");
    if (*row.full != '\0') {
        std::filesystem::create_symlink("/dev/full", agent.dir.path(row.full));
    }
    agent.start();
    agent.finish(row.status);
    EXPECT_EQ(peer.requests().size(), row.asked);
    EXPECT_EQ(told(agent, kLoaded), *row.full == 'p' || row.status != 0 ? -1 : row.asked);
    EXPECT_THAT(agent.process->err(), testing::HasSubstr(row.traced));
    const std::string copy = agent.dir.read("save/h/large");
    EXPECT_TRUE(copy.empty() || copy == kMega) << "never half a copy";
}

const std::string kSave = "slf on; slr @dir@/save; loadurl h/a; loadurl h/large; loadurl h/b";
const char *const kNoClient = "refetchd: no client thread could be started.\n";
const char *const kPlaceholderStays = "refetchd.html (rename errno=";

const HostRow kHostFaults[] = {
    {"ProxyDown", "", seeds(9) + "updateproxy 127.0.0.1:1", 0, "partner; errno=111.\n"},
    {"ProxyUnknown", "", seeds(9) + "updateproxy a..b:1", 0, "address is not valid:  a..b:1\n"},
    {"HostUnknown", "",
     "transparentproxy on; connecttohost on; loadurl a..b/; loadurl a..b/; loadurl @peer@/", 1,
     "address is not valid:  a..b\n"},
    {"StandardStreamsClosed", "sh unheard.sh", seeds(30), 30, ""},
    {"TooFewDescriptors", "prlimit --nofile=20", seeds(300) + "numclients 50", 300,
     "20 file descriptors are too few for 50, downgrading to 4.\n"},
    {"TooFewForTheCopies", "prlimit --nofile=8", "numclients 50; " + seeds(30) + kSave, 33,
     "8 file descriptors are too few for 50, downgrading to 1.\n"},
    {"DescriptorsForTheAsking", "prlimit --nofile=20:99", seeds(300) + "numclients 50", 300,
     "Deleting.... client thread #50.\n"},
    {"SomeThreads", "prlimit --stack=1073741824 --as=4294967296", seeds(30) + "numclients 6", 30,
     "client thread #5 could not be started.\n", "", 0, false},
    {"NoThread", "prlimit --stack=1073741824 --as=1073741824", seeds(30), 0, kNoClient, "", 1,
     false},
    {"NoMemory", "prlimit --data=4000000", seeds(30000), 0, "out of memory", "", 1, false},
    {"DiskFullForTheTrace", "", seeds(30) + "catracelog @dir@/full", 30, "", "full"},
    {"DiskFullForTheReport", "", seeds(30), 30, kPlaceholderStays,
     "pub/de_DE/reports/refetchd.html.tmp"},
    {"DiskFullForACopy", "", kSave, 3, "large\" failed.\n", "save/h/large"},
    {"FilesMayNotGrow", "prlimit --fsize=9999", kSave, 3, ""},
};
INSTANTIATE_TEST_SUITE_P(Fault, HostFault, testing::ValuesIn(kHostFaults), rowName);

// Its backlog is full, so the system leaves further connections without any answer.
TEST(Fault, ConnectionThatIsNeverMadeEndsWithTheRunTime)
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto *const generic = reinterpret_cast<sockaddr *>(&address);
    ASSERT_EQ(bind(listener, generic, length), 0);
    ASSERT_EQ(listen(listener, 0), 0);
    ASSERT_EQ(getsockname(listener, generic, &length), 0);
    std::vector<int> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        connect(clients.back(), generic, length);
    }
    Agent agent(ntohs(address.sin_port),
                "serverroot @dir@; maxruntime 1; numclients 1; " + seeds(3));
    agent.run();
    EXPECT_EQ(agent.traced(kTimeUp), 1);
    EXPECT_EQ(told(agent, "URLs not processed:"), 2);
    for (const int client : clients) {
        close(client);
    }
    close(listener);
}

struct ChangeRow : Row {
    const char *file;     // of the two
    const char *text;     // that it has then; null: it is gone
    std::string targets;  // of the second run
};

class BetweenRuns : public testing::TestWithParam<ChangeRow> {};

TEST_P(BetweenRuns, FileChangesUnderTheAgent)
{
    const ChangeRow &row = GetParam();
    const ScriptedPeer peer;
    Agent agent(peer.port(),
                "serverroot @dir@; caching always; loadtopcached 9; hostname 127.0.0.1; "
                "maxruntime 2; numclients 1; loadurl h/admin",
                "9 5% http://h/top; ");
    agent.start("-rp 2");
    ASSERT_TRUE(peer.waitForRequests(2, kRunDeadline));
    std::filesystem::remove(agent.dir.path(row.file));
    if (row.text != nullptr) {
        agent.dir.write(row.file, row.text);
    }
    agent.finish();
    std::string targets;
    for (const std::string &target : peer.targets()) {
        targets += target.substr(8);
    }
    EXPECT_EQ(targets, "/admin/top" + row.targets);
}

const ChangeRow kChanges[] = {
    {"ConfigurationGone", "proxy.conf", nullptr, "/top"},
    {"ConfigurationEmpty", "proxy.conf", "", "/top"},
    {"ConfigurationCutShort", "proxy.conf", "loadurl h/a", "/a/top"},
    {"ConfigurationNew", "proxy.conf", "loadtopcached 0\nloadurl h/new\nloadurl h/a\n",
     "/new/a/top"},
    {"HitsFileGone", "logs/hitsfile.txt", nullptr, "/admin"},
    {"HitsFileCutShort", "logs/hitsfile.txt", "9 5% http://h/t", "/admin/t"},
    {"HitsFileIsNone", "logs/hitsfile.txt", "\x1f\x8b\b\r\xff \n\n{ }\n9 1% http://h/z",
     "/admin/z"},
};
INSTANTIATE_TEST_SUITE_P(Fault, BetweenRuns, testing::ValuesIn(kChanges), rowName);

class Signal : public testing::TestWithParam<int> {};

// In the middle of the second of runs without end.
TEST_P(Signal, EndsTheProcessAndLeavesTheFinishedReport)
{
    const ScriptedPeer peer({{"http://h/1", {{}, Then::Stall}}});
    Agent agent(peer.port(), "serverroot @dir@; readtimeout 60; loadurl h/0");
    agent.start("-rp -5");
    ASSERT_TRUE(peer.waitForRequests(1, kRunDeadline));
    ASSERT_TRUE(agent.process->waitForError("Starting.... Will run for ever!!\n", kRunDeadline));
    agent.dir.write("proxy.conf", "loadurl h/1");
    ASSERT_TRUE(peer.waitForRequests(2, kRunDeadline));
    agent.process->signal(GetParam());
    EXPECT_EQ(agent.process->wait(Millis(5000)).signal, GetParam());
    EXPECT_THAT(agent.dir.read("pub/de_DE/reports/refetchd.html.tmp"),
                testing::EndsWith("</body></html>\n"));
}

INSTANTIATE_TEST_SUITE_P(Fault, Signal, testing::Values(SIGTERM, SIGINT),
                         testing::PrintToStringParamName());

}  // namespace
