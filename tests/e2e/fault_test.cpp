// What may go wrong at night, and what becomes of the run: the agent ends in good order, and every
// URL that could be fetched is.
#include <regex>

#include "Agent.h"

namespace {

using Then = Reply::Then;

// The number of URLs that the report calls loaded; -1 without a report.
int loaded(const Agent &agent)
{
    const std::string text = "Total URLs loaded into cache:</td>\n<td align=right>";
    const std::string report = agent.report();
    const std::size_t at = report.rfind(text);
    return at == std::string::npos ? -1 : std::stoi(report.substr(at + text.size()));
}

const char *const kTimeUp = "Master...... TIME's UP! we have to go...\n";
const char *const kTimeOut = "Net.. Cache agent time out!\n";

struct PeerRow : Row {
    Reply first;         // the answer to the first of three URLs; the others get a plain 200
    int loaded;          // with status 200
    const char *traced;  // somewhere
    std::string directives = "";  // besides two clients and a read time-out of one second
    int asked = 3;
};

class PeerFault : public testing::TestWithParam<PeerRow> {};

TEST_P(PeerFault, CostsNoOtherUrl)
{
    const PeerRow &row = GetParam();
    const ScriptedPeer peer({{"http://h/0", row.first}});
    Agent agent(peer.port(),
                "serverroot @dir@; readtimeout 1; numclients 2; " + seeds(3) + row.directives);
    agent.run();
    EXPECT_THAT(peer.targets(), testing::IsSupersetOf(targets(3)));
    EXPECT_EQ(peer.requests().size(), row.asked);
    EXPECT_EQ(loaded(agent), row.loaded);
    EXPECT_THAT(agent.process->err(), testing::HasSubstr(row.traced));
    EXPECT_TRUE(kSanitized || agent.process->peakKilobytes() < 100'000);
}

std::string times(std::size_t count, const std::string &text)
{
    return std::regex_replace(std::string(count, '.'), std::regex("."), text);
}

Reply endless(const std::string &begin, const std::string &again, int pauseMs = 0)
{
    return {{{begin}, {again, pauseMs}}, Then::Keep, Reply::kForEver};
}

const std::string kOk = "HTTP/1.0 200 OK\r\nContent-Type: ";
const std::string kChunked = kOk + "text/html\r\n\r\n";
const std::string kMega = "<a href=\"/ok\">" + std::string((1 << 20) - 14, 'x');
const char *const kReset = "error reading from socket; errno=104, status=-1.\n";
const std::string kUntraced = "catracelog /dev/null; ";  // it would be huge
const std::string kInTime = kUntraced + "maxruntime 1";
const Reply k200Megabytes = {
    {{kOk + "text/html\r\nContent-Length: 209715200\r\n\r\n"}, {kMega}}, Then::Keep, 199};

const PeerRow kPeerFaults[] = {
    {"ResetBeforeTheStatusLine", {{}, Then::Reset}, 2, kReset},
    {"ResetInTheBody", {{{kChunked + "9\r\nx"}}, Then::Reset}, 3, kReset},
    {"NeverAnswered", {{}, Then::Stall}, 2, kTimeOut},
    {"AlmostAByteASecond", endless("", "H", 900), 2, kTimeUp, "maxruntime 2"},
    {"EndlessStatusLine", endless("HTTP/1.0 200 ", kMega), 2, "", kInTime},
    {"EndlessTrailer", endless(kChunked, times(1000, "0\r\na: b\r\n")), 2, "", kInTime},
    {"PageOf200Megabytes", k200Megabytes, 4, "", kUntraced + "delvedepth 1", 4},
    {"RedirectionOfAMegabyte", Reply::head("302 Moved\r\nLocation: /" + kMega), 2, kTimeOut},
};
INSTANTIATE_TEST_SUITE_P(Fault, PeerFault, testing::ValuesIn(kPeerFaults), rowName);

struct HostRow : Row {
    std::string directives;    // besides the server root
    int asked;                 // URLs that reach the peer, all of them with status 200
    std::string traced;        // somewhere
    const char *wrapper = "";  // what the agent is started with
    std::string full = "";     // a file whose disk is full
    int status = 0;
};

class HostFault : public testing::TestWithParam<HostRow> {};

TEST_P(HostFault, StopsNothingElse)
{
    const HostRow &row = GetParam();
    const std::string wrapper = row.wrapper;
    if (kSanitized && std::regex_search(wrapper, std::regex("--as|--data|PRELOAD"))) {
        GTEST_SKIP() << "a sanitizer needs more memory";
    }
    const ScriptedPeer peer({{"http://h/large", Reply::html(kMega)}});
    Agent agent(peer.port(), "serverroot @dir@; " + row.directives);
    agent.wrapper = wrapper;
    agent.dir.write("save/h/keep", "");
    agent.dir.write("unheard.sh", "exec \"$@\" <&- >&- 2>&-");
    if (!row.full.empty()) {
        std::filesystem::create_symlink("/dev/full", agent.dir.path(row.full));
    }
    agent.start();
    agent.finish(row.status);
    EXPECT_EQ(peer.requests().size(), row.asked);
    EXPECT_EQ(loaded(agent), row.full.starts_with("pub") || row.status != 0 ? -1 : row.asked);
    EXPECT_THAT(agent.process->err(), testing::HasSubstr(row.traced));
    EXPECT_EQ(agent.dir.read("save/h/large"), row.asked > 300 ? kMega : "") << "all or nothing";
}

const std::string kSave = "slf on; slr @dir@/save; loadurl h/a; loadurl h/large; loadurl h/b";
const std::string kNoHost = "transparentproxy on; connecttohost on; loadurl a..b/; loadurl a..b/; ";
const char *const kNoClient = "refetchd: no client thread could be started.\n";
const char *const kOneThread = "prlimit --stack=1073741824 --as=1073741824";
const char *const kSixThreads = "prlimit --stack=1073741824 --as=4294967296";
const std::string kMany = "numclients 50; " + seeds(300);
const std::string kTooFew = " file descriptors are too few for 50, downgrading to ";

const HostRow kHostFaults[] = {
    {"ProxyDown", seeds(9) + "updateproxy 127.0.0.1:1", 0, "partner; errno=111.\n"},
    {"ProxyUnknown", seeds(9) + "updateproxy a..b:1", 0, "address is not valid:  a..b:1\n"},
    {"HostUnknown", kNoHost + "loadurl @peer@/", 1, "address is not valid:  a..b\n"},
    {"StandardStreamsClosed", seeds(30), 30, "", "sh unheard.sh"},
    {"TooFewDescriptors", kMany, 300, "8" + kTooFew + "1.\n", "prlimit --nofile=8"},
    {"TooFewForTheCopies", kMany + kSave, 303, "20" + kTooFew + "2.\n", "prlimit --nofile=20"},
    {"DescriptorsForTheAsking", kMany, 300, "client thread #50.\n", "prlimit --nofile=20:99"},
    {"SomeThreads", seeds(30) + "numclients 6", 30, "#5 could not be started.\n", kSixThreads},
    {"NoThread", seeds(30), 0, kNoClient, kOneThread, "", 1},
    {"NoMemory", seeds(30000), 0, "out of memory", "prlimit --data=3400000", "", 1},
    {"NoMemoryInThreads", seeds(9), 0, "out of memory", "LD_PRELOAD=" NO_MEMORY, "", 1},
    {"DiskFullForTheTrace", seeds(30) + "catracelog @dir@/full", 30, "", "", "full"},
    {"DiskFullForTheReport", seeds(30), 30, ".html (rename errno=28);", "", kReport + ".tmp"},
    {"DiskFullForACopy", kSave, 3, "large\" failed.\n", "", "save/h/large"},
    {"FilesMayNotGrow", kSave, 3, "", "prlimit --fsize=9999"},
};
INSTANTIATE_TEST_SUITE_P(Fault, HostFault, testing::ValuesIn(kHostFaults), rowName);

TEST(Fault, ConnectionThatIsNeverMadeEndsWithTheRunTime)
{
    const FullBacklog busy;
    Agent agent(busy.peer.port(), "serverroot @dir@; maxruntime 1; " + seeds(5));
    agent.run();
    EXPECT_EQ(agent.traced("Net......... requesting"), 0);
    EXPECT_EQ(loaded(agent), 0);
}

struct ChangeRow : Row {
    const char *file;   // of the two
    const char *text;   // that it has from then on; null: it is gone
    const char *asked;  // in the second run
    int signal = 0;     // ends the second of endless runs, in good order
};

class BetweenRuns : public testing::TestWithParam<ChangeRow> {};

TEST_P(BetweenRuns, FileChangesUnderTheAgentOrASignalEndsIt)
{
    const ChangeRow &row = GetParam();
    const ScriptedPeer peer({{"http://h/stuck", {{}, Then::Stall}}});
    Agent agent(peer.port(),
                "serverroot @dir@; caching always; loadtopcached 9; hostname 127.0.0.1; "
                "maxruntime 2; numclients 1; loadurl h/admin; loadlist list",
                "9 5% http://h/top; ");
    agent.dir.write("list", "");
    agent.start(row.signal == 0 ? "-rp 2" : "-rp -5");
    ASSERT_TRUE(peer.waitForRequests(2, kRunDeadline));
    std::filesystem::remove(agent.dir.path(row.file));
    if (row.text != nullptr) {
        agent.dir.write(row.file, row.text);
    }
    if (row.signal != 0) {
        ASSERT_TRUE(peer.waitForRequests(3, kRunDeadline));
        agent.process->signal(row.signal);
    }
    agent.finish();
    EXPECT_EQ(peer.asked(), std::string("/admin /top ") + row.asked);
    EXPECT_THAT(agent.report() + agent.dir.read(kReport + ".tmp"),
                testing::EndsWith("</body></html>\n"));
    EXPECT_EQ(agent.traced("Starting.... Will run for ever!!\n") > 0, row.signal != 0);
}

const char *const kStuck = "loadurl h/stuck\nreadtimeout 60\n";
const char *const kNewSeeds = "loadtopcached 0\nloadurl h/new\nloadurl h/a\n";
const char *const kNoHits = "\x1f\x8b\b\r\xff \n\n{ }\n9 1% http://h/z";

const ChangeRow kChanges[] = {
    {"ConfigurationGone", "proxy.conf", nullptr, "/top"},
    {"ConfigurationCutShort", "proxy.conf", "loadurl h/a", "/a /top"},
    {"ConfigurationNew", "proxy.conf", kNewSeeds, "/new /a /top"},
    {"HitsFileGone", "logs/hitsfile.txt", nullptr, "/admin"},
    {"HitsFileCutShort", "logs/hitsfile.txt", "9 5% http://h/t", "/admin /t"},
    {"ListNew", "list", "h/l\nh/admin\nh/?", "/admin /l /top"},
    {"ListGone", "list", nullptr, "/admin /top"},
    {"EndedBySigterm", "proxy.conf", kStuck, "/stuck", SIGTERM},
    {"EndedBySigint", "proxy.conf", kStuck, "/stuck", SIGINT},
    {"HitsFileIsNone", "logs/hitsfile.txt", kNoHits, "/admin /z"},
};
INSTANTIATE_TEST_SUITE_P(Fault, BetweenRuns, testing::ValuesIn(kChanges), rowName);

struct CopyRow {
    const char *name;
    Reply reply;
    const char *text;      // of the copy; null: the earlier one stays
    bool isAbsent = true;  // then, if there was none; otherwise empty
    const char *directives = "";
};

const std::string kText = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n";
const std::string kLength = kText + "Content-Length: 100000\r\n\r\n";
const std::string kChunks = kText + "Transfer-Encoding: chunked\r\n\r\n";
const std::string k1234(1234, 'x');
const char *const kToTheClose = "closedelimitedbodies on";

const CopyRow kCopies[] = {
    {"Reset", {{{kLength + k1234}}, Then::Reset}, nullptr},
    {"ResetInAPage",
     {{{kOk + "text/html\r\nContent-Length: 9999\r\n\r\nx"}}, Then::Reset},
     nullptr},
    {"TimedOut", {{{kLength + k1234}}, Then::Stall}, nullptr},
    {"Closed", {{{kLength + k1234}}, Then::Close}, nullptr},
    {"NothingCame", {{{kLength}}, Then::Reset}, nullptr, false},
    {"TooLong", {{{kText + "Content-Length: 3\r\n\r\nlonger"}}, Then::Close}, nullptr},
    {"Empty", Reply::ok(""), ""},
    {"LengthIsNoNumber", {{{kText + "Content-Length: abc\r\n\r\n"}}}, nullptr, false},
    {"LengthIsZero", {{{kText + "Content-Length:  00 \r\n\r\n"}}}, ""},
    {"TwoTrailers", {{{kChunks + "5\r\nhello\r\n0\r\nX-T: 1\r\nX-B: 2\r\n\r\n"}}}, "hello"},
    {"TrailerIsAChunk",
     {{{kChunks + "2\r\nab\r\n0\r\nX: 1\r\nAge: 1\r\nX: 34567\r\n\r\n0\r\n\r\n"}}, Then::Close},
     nullptr},
    {"NoLength", {{{kText + "\r\nNo chunks\r\n\r\n"}}, Then::Close}, nullptr, false},
    {"Chunks", {{{kChunks + "2\r\nab\r\n0\r\n\r\n"}}}, "ab"},
    {"ChunksCutShort", {{{kChunks + "2\r\nab\r\n"}}, Then::Close}, nullptr, true, "http11 on"},
    {"BadChunk", {{{kChunks + "2\r\nab\r\nz"}}, Then::Close}, nullptr, true, "http11 on"},
    {"UpToTheClose", {{{kText + "\r\nab"}}, Then::Close}, "ab", true, "http11 on"},
    {"UpToAReset", {{{kText + "\r\nab"}}, Then::Reset}, nullptr, true, "http11 on"},
    {"UpToTheCloseOfHttp10", {{{kText + "\r\nab"}}, Then::Close}, "ab", true, kToTheClose},
    {"UpToATimeOut", {{{kText + "\r\nab"}}, Then::Stall}, nullptr, true, kToTheClose},
};

class Copy : public testing::TestWithParam<CopyRow> {};

TEST_P(Copy, IsHalfABodyOrTakesThePlaceOfAWholeOne)
{
    const CopyRow &row = GetParam();
    const ScriptedPeer peer({{"http://h/old", row.reply}, {"http://h/new", row.reply}});
    Agent agent(peer.port(),
                "readtimeout 1; numclients 2; slf on; slr @dir@/save; loadurl h/old; "
                "loadurl h/new; " +
                    std::string(row.directives));
    agent.dir.write("save/h/old", "earlier");
    agent.run();
    EXPECT_EQ(agent.dir.read("save/h/old"), row.text != nullptr ? row.text : "earlier");
    EXPECT_EQ(agent.dir.read("save/h/new"), row.text != nullptr ? row.text : "");
    const bool isThere = std::filesystem::exists(agent.dir.path("save/h/new"));
    EXPECT_EQ(isThere, row.text != nullptr || !row.isAbsent);
    const std::filesystem::directory_iterator entries(agent.dir.path("save/h"));
    EXPECT_EQ(std::distance(begin(entries), end(entries)), isThere ? 2 : 1) << "nothing else";
}
INSTANTIATE_TEST_SUITE_P(Fault, Copy, testing::ValuesIn(kCopies),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(Fault, OutputIsIncompleteAndNobodyIsTold)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(),
                "catracelog trace; serverroot @dir@; errorlog x/x; resultslog log; metricsfile "
                "none/m; slf on; slr @dir@/save; " +
                    seeds(3));
    agent.dir.write("x/x", "");
    const std::string report = kReport + ".tmp";
    for (const std::string name : {"trace", "x/cacheAgent-errors", "log", report.c_str()}) {
        std::filesystem::create_symlink("/dev/full", agent.dir.path(name));
    }
    for (const char *const name : {"save/h/0", "save/h/1", "save/h/2"}) {
        agent.dir.write("save/h/keep", "");
        std::filesystem::create_symlink("/dev/full", agent.dir.path(name));
    }
    agent.startWith("-r proxy.conf");
    agent.finish();
    const std::string reported = "@dir@/" + report;
    const std::string full = ": not written whole: No space left on device";
    for (const std::string path : {"trace", "x/cacheAgent-errors", "log", reported.c_str()}) {
        EXPECT_EQ(agent.traced("refetchd: " + path + full + "\n"), 1) << path;
    }
    EXPECT_EQ(agent.traced("refetchd: none/m: not written whole: No such file or directory\n"), 1);
    EXPECT_EQ(agent.traced(full + " (and 2 more copies)\n"), 1) << agent.process->err();
}

struct SecondRow : Row {
    std::string directives;
    int status;
    int pages;  // of both agents
};

class TwoAgents : public testing::TestWithParam<SecondRow> {};

// The second agent begins and ends while the first one runs.
TEST_P(TwoAgents, LoseTheReport)
{
    const ScriptedPeer peer({{"http://h/stuck", {{}, Then::Stall}}});
    Agent first(peer.port(), "serverroot @dir@; readtimeout 60; maxruntime 4; loadurl h/stuck");
    first.dir.write(kReport, "earlier\n</body></html>\n");
    first.start();
    ASSERT_TRUE(peer.waitForRequests(1, kRunDeadline));
    first.dir.write(kReport + ".tmp", "page of a run before\n");
    Agent second(peer.port(), "serverroot " + first.dir.path() + "; " + GetParam().directives);
    second.start();
    second.finish(GetParam().status);
    const bool isKept = std::filesystem::exists(first.dir.path(kReport + ".previous"));
    EXPECT_EQ(isKept, GetParam().pages == 1);
    first.finish();
    std::string report = first.report();
    EXPECT_THAT(report, testing::StartsWith("page of a run before\n"));
    EXPECT_EQ(replaceAll(&report, "</body></html>\n", ""), GetParam().pages);
    EXPECT_FALSE(std::filesystem::exists(first.dir.path(kReport + ".previous")));
}

const SecondRow kSecond[] = {
    {"BothFinish", "loadurl h/a", 0, 2},
    {"SecondCannotStart", "loadurl h/a; numclients 0", 1, 1},
};
INSTANTIATE_TEST_SUITE_P(Fault, TwoAgents, testing::ValuesIn(kSecond), rowName);

TEST(Fault, ReportReplacesAFileOnTheWayToIt)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "serverroot @dir@/x.tmp/root; loadurl h/a");
    agent.dir.write("x.tmp/root/" + kReport, "");
    for (const int night : {1, 2}) {
        agent.run();
        EXPECT_EQ(agent.traced(".html.tmp successfully renamed to @dir@/x.\n"), 1) << night;
    }
    for (const std::string text : {"mine", "<html>\n</body></html>\n"}) {
        agent.dir.write("x", text);
        agent.run();
        EXPECT_EQ(agent.traced("to @dir@/x (rename errno=17)"), 1);
        EXPECT_EQ(agent.dir.read("x"), text);
    }
}

}  // namespace
