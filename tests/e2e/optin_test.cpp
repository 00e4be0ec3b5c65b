// Directives that are off by default: what is requested without and with each.
#include <array>
#include <random>
#include <regex>

#include "Agent.h"
#include "Pack.h"

namespace {

struct OptInRow : Row {
    std::string directive;
    std::vector<Reply> replies;  // to the first requests for "/", in turn; then a plain page
    std::string without;         // what one client asks for then
    std::string with;
    std::string others = "loadurl h/; delvedepth 1; readtimeout 1";
    std::string request = "";  // a part of each request, only with the directive
};

class OptIn : public testing::TestWithParam<OptInRow> {};

TEST_P(OptIn, ChangesNothingUnlessItIsSet)
{
    const OptInRow &row = GetParam();
    std::multimap<std::string, Reply> table;
    for (const Reply &reply : row.replies) {
        table.emplace("http://h/", reply);
    }
    table.emplace("http://h/", Reply::html());
    table.emplace("http://h/once", Reply{});  // no answer the first time
    table.emplace("http://h/once", Reply::ok());
    for (const bool with : {false, true}) {
        const ScriptedPeer peer(table);
        Agent agent(peer.port(),
                    "numclients 1; " + row.others + "; " + (with ? row.directive : ""));
        agent.run();
        EXPECT_EQ(peer.asked(), with ? row.with : row.without) << agent.process->err();
        for (const ScriptedPeer::Request &request : peer.requests()) {
            EXPECT_EQ(request.bytes.find(row.request) != std::string::npos,
                      row.request.empty() || with);
        }
    }
}

// A page with a link to "/a", sent in two pieces, whose end is the connection's.
Reply untilClose(const std::string &header)
{
    return {{{"HTTP/1.0 200 OK\r\nContent-Type: text/html\r\n" + header + "\r\n<a hr"},
             {"ef=\"a\">" + std::string(70000, '.') + "<a href=\"b\">", 100}},
            Reply::Then::Close};
}

Reply moved(const std::string &status)
{
    return Reply::head(status + " Moved\r\nLocation: /to");
}

Reply busy(const std::string &status, const std::string &seconds)
{
    return Reply::head(status + " No\r\nRetry-After: " + seconds);
}

const Reply kGone = {{}, Reply::Then::Close};
const Reply kInterimAlone = {{{"HTTP/1.1 103 Early\r\n\r\n"}}, Reply::Then::Close};
const Reply kReset = {{}, Reply::Then::Reset};
const std::vector<Reply> kLinks = {Reply::html(
    "<base href=/d/><a\thref=x><a href=\"y?a=1&amp;b=2\"><img srcset=\"z 1x, /w 2x\">"
    "<!-- <a href=\"no\"> --><script>'<a href=\"no\">'</script><a href='JavaScript:no()'>")};
const Reply kCompressed =
    Reply::ok(pack("gzip", {"<a href=\"a\">"}), "text/html\r\nContent-Encoding: gzip");
const std::string kSeeds = "loadurl h/; loadurl h/1; loadurl h/2; readtimeout 1";
const std::string kOthers = "loadurl h/; loadurl o/x; loadurl h/1";
const std::string kThreeSeconds = "loadurl h/; loadurl h/1; maxruntime 3";
const std::string kTwoSeconds = "loadurl h/; loadurl h/1; readtimeout 2";
const std::string kCutShort =
    "readtimeout 6; maxruntime 3; refetchdrepeat 2; delvedepth 1; loadurl h/; loadurl h/once";
const Reply kToA = Reply::html("<a href=\"a\">");
const std::string kQueries = "loadurl h/; delvedepth 1; delveacrosshosts on; cachequeries on";
const std::string kClosed = "closedelimitedbodies on";
const std::string kHttp11 = "http11 on";
const std::string kAll = "followredirects All";
const std::string kRest = "retryafter on";
const std::string kHeaders =
    "requestheader A b, c; requestheader X b; useragent \"refetchd (night)\" /1";
const std::string kTheirLines =
    "\r\nUser-Agent: refetchd (night) /1\r\nHost: h\r\nCache-Control: max-age=0\r\nA: b, c\r\nX: "
    "b\r\n";
const std::string kVariantHeaders =
    "requestheader Y z; requestheader x 9; variant User-Agent: M (a;\trv:1) +http://b;\tX: "
    "1;\tAccept: c";
const std::string kVariantLines =
    "\r\nAccept: c\r\nUser-Agent: M (a; rv:1) +http://b\r\nHost: h\r\nCache-Control: max-age=0\r\n"
    "Y: z\r\nX: 1\r\nConnection: Keep-alive\r\n\r\n";
const Reply kLate = {{{busy("503", "1").pieces.front().bytes, 3000}}};
const std::vector<Reply> kTwiceBusy = {busy("429", "1"), busy("503", "1")};

const OptInRow kRows[] = {
    {"BodyUntilClose", kClosed, {untilClose("Connection: keep-alive\r\n")}, "/", "/ /a /b"},
    {"BodyOfAnotherCoding", kClosed, {untilClose("Transfer-Encoding: gzip\r\n")}, "/", "/ /a /b"},
    {"BodyInBrokenChunks", kClosed, {untilClose("Transfer-Encoding: Chunked\r\n")}, "/", "/"},
    {"BodyUntilClose11", kHttp11, {untilClose("Connection: keep-alive\r\n")}, "/", "/ /a /b"},
    {"BodyOfAnotherCoding11", kHttp11, {untilClose("Transfer-Encoding: gzip\r\n")}, "/", "/ /a /b"},
    {"RetryAfterInterim", "http11 on; retries 1", {kInterimAlone}, "/ /1 /2", "/ / /1 /2", kSeeds},
    {"LinksOfToday", "modernlinks on", kLinks, "/ /y?a=1&amp;b=2 /no /no()",
     "/ /d/x /d/y?a=1&b=2 /d/z /w", kQueries},
    {"CompressedPage", "modernlinks on", {kCompressed}, "/", "/ /a"},
    {"Moved301", kAll, {moved("301")}, "/", "/ /to"},
    {"Moved303", kAll, {moved("303")}, "/", "/ /to"},
    {"Moved307", kAll, {moved("307")}, "/", "/ /to"},
    {"Moved308", kAll, {moved("308")}, "/", "/ /to"},
    {"Moved304", kAll, {moved("304")}, "/", "/"},
    {"Moved302Only", "followredirects on", {moved("301")}, "/", "/"},
    {"RetryAtOnce", "retries 2", {kGone}, "/ /1 /2", "/ / /1 /2", kSeeds},
    {"RetryBehind", "retries 2", {kReset, kGone}, "/ /1 /2", "/ / /1 /2 /", kSeeds},
    {"RetryTwiceOnly", "retries 2", {kGone, kGone, kGone}, "/ /1 /2", "/ / /1 /2 /", kSeeds},
    {"RetryTimedOut", "retries 1", {Reply{}}, "/ /1 /2", "/ / /1 /2", kSeeds},
    {"RetryNoAnswered", "retries 1", {Reply::head("500 No")}, "/ /1 /2", "/ /1 /2", kSeeds},
    {"RestFor", kRest, {busy("503", " 2")}, "/ /1 /2", "/ / /1 /2", kSeeds + "; maxruntime 8"},
    {"RestAndRepeatOnce", kRest, kTwiceBusy, "/ /1 /2", "/ / /1 /2", kSeeds},
    {"LateIsNotTheNextUrls", kRest, {kLate}, "/ /1", "/ /1", kTwoSeconds},
    {"RestOthersGoOn", kRest, {busy("429", "1")}, "/ http://o/x /1", "/ http://o/x / /1", kOthers},
    {"RestNoLongerThanTheRun", kRest, {busy("503", "99")}, "/ /1", "/", kThreeSeconds},
    // Left over from a run that was cut short, "/a" must neither enter the next run nor be lost to
    // it.
    {"DepthsOfTheNextRun",
     "breadthfirst on",
     {kToA, kToA},
     "/ /once / /once /a",
     "/ /once / /once /a",
     kCutShort},
    {"Headers", kHeaders, {}, "/", "/", "loadurl h/", kTheirLines},
    {"VariantHeaders", kVariantHeaders, {}, "/", "/", "loadurl h/", kVariantLines},
};
INSTANTIATE_TEST_SUITE_P(OptIn, OptIn, testing::ValuesIn(kRows), rowName);

struct ConnectionRow : Row {
    std::vector<Reply> replies;  // to "/" and then to the other URLs; then a short one
    int connections;             // that four URLs take
    int withoutDirective;
    int requests = 4;
};

class Http11 : public testing::TestWithParam<ConnectionRow> {};

TEST_P(Http11, AsksOtherwiseOrWastesConnections)
{
    const ConnectionRow &row = GetParam();
    for (const bool with : {false, true}) {
        const ScriptedPeer peer(inTurn(row.replies));
        Agent agent(peer.port(), "numclients 1; readtimeout 1; resultslog @dir@/log; " + seeds(4) +
                                     (with ? "http11 on" : ""));
        agent.run();
        EXPECT_EQ(peer.connections(), with ? row.connections : row.withoutDirective);
        EXPECT_EQ(peer.requests().size(), with ? row.requests : 4) << peer.asked();
        const std::string last = peer.requests().back().bytes;
        EXPECT_EQ(last.find(" HTTP/1.1\r\n") != std::string::npos, with) << last;
        EXPECT_EQ(last.find("\r\nConnection: keep-alive\r\n\r\n") != std::string::npos, with)
            << last;
        std::string log = agent.dir.read("log");
        EXPECT_EQ(replaceAll(&log, "\n", ""), 4);
    }
}

Reply of11(const std::string &head, const std::string &body)
{
    return {{{"HTTP/1.1 " + head + "\r\nContent-Type: text/html\r\n\r\n" + body}}};
}
Reply thenClosed(Reply reply)
{
    reply.then = Reply::Then::Close;
    return reply;
}

const std::string kTwoChunks = "3\r\nabc\r\n1;x\r\nd\r\n0\r\nA: b\r\n\r\n";
const Reply kChunkedPage = of11("200 OK\r\nTransfer-Encoding: chunked", kTwoChunks);
const Reply kMissing = of11("404 No\r\nContent-Length: 3", "abc");
const Reply kInterim = {
    {{"HTTP/1.1 103 Early\r\nLink: <a>\r\n\r\n"}, {Reply::ok().pieces.front().bytes, 100}}};

const ConnectionRow kConnections[] = {
    {"Missing", {kMissing, kMissing, of11("302 Found\r\nContent-Length: 1", "x")}, 1, 4},
    {"Chunked", {of11("204 No", ""), kChunkedPage, of11("304 No\r\nContent-Length: 9", "")}, 1, 4},
    {"Interim", {kInterim}, 1, 2},
    {"ClosedByThePeerAfterAnAnswer", {kChunkedPage, thenClosed(kChunkedPage)}, 2, 3},
    // Of these requests one is sent twice.
    {"ClosedInsteadOfAnAnswer", {Reply::ok(), {{}, Reply::Then::Close}}, 2, 2, 5},
    {"ResetInsteadOfAnAnswer", {Reply::ok(), {{}, Reply::Then::Reset}}, 2, 2, 5},
    // The connection is not looked at before later requests.
    {"ClosedInsteadOfALaterAnswer", {Reply::ok(), Reply::ok(), {{}, Reply::Then::Close}}, 2, 2, 5},
    {"ResetInsteadOfALaterAnswer", {Reply::ok(), Reply::ok(), {{}, Reply::Then::Reset}}, 2, 2, 5},
    // It is not sent a third time.
    {"ClosedAgain", {Reply::ok(), {{}, Reply::Then::Close}, {{}, Reply::Then::Close}}, 3, 3, 5},
    {"ClosedWithoutAnyAnswer", {{{}, Reply::Then::Close}}, 2, 2},
    {"TooLong", {of11("200 OK\r\nContent-Length: 1", "xHTTP/1.1 200 OK\r\n\r\n")}, 2, 2},
    // Nobody waits long for the rest of a body that is not wanted.
    {"Slow",
     {{{{"HTTP/1.1 404 No\r\nContent-Length: 9\r\n\r\n"}, {"x", 400}}, Reply::Then::Keep, 9}},
     2,
     2},
    {"Late", {{{{Reply::ok().pieces.front().bytes, 1500}}}}, 2, 2},
};
INSTANTIATE_TEST_SUITE_P(OptIn, Http11, testing::ValuesIn(kConnections), rowName);

struct VariantRow : Row {
    std::string directives;
    std::vector<Reply> replies;  // to the requests in turn; then a plain one
    std::string asked;           // target and variant of each request: a regular expression
    std::string logged;          // URL, variant and status: the same
    std::string loaded = "1";
};

class Variants : public testing::TestWithParam<VariantRow> {};

TEST_P(Variants, AreNotAskedInTurnOrCountTwice)
{
    const VariantRow &row = GetParam();
    const ScriptedPeer peer(inTurn(row.replies));
    Agent agent(peer.port(),
                "serverroot @dir@; resultslog @dir@/log; numclients 1; delvedepth 1; slf on; slr "
                "@dir@/save; variant X: 1; variant X: 2; " +
                    row.directives);
    agent.dir.write("save/h/keep", "");
    agent.run();
    std::string asked;
    const std::regex parts("GET http://h/(\\S*)[^]*\r\nX: (.)\r\n[^]*");
    for (const ScriptedPeer::Request &request : peer.requests()) {
        asked += std::regex_replace(request.bytes, parts, "$1$2 ");
    }
    EXPECT_THAT(asked, testing::MatchesRegex(row.asked));
    const std::regex line(".*http://h/([^\"]*)\".*\"status\":(\\d+)[^]*?\"variant\":(.).*\n");
    EXPECT_THAT(std::regex_replace(agent.dir.read("log"), line, "$1$3=$2 "),
                testing::MatchesRegex(row.logged));
    const std::regex report("loaded into cache:</td>\n<td align=right>" + row.loaded + "<");
    EXPECT_TRUE(std::regex_search(agent.report(), report));
    EXPECT_EQ(agent.dir.read("save/h/a"), row.loaded == "0" ? "" : "first");
    EXPECT_TRUE(!row.replies.empty() || peer.connections() == 1) << peer.connections();
}

const Reply kFirst = Reply::ok("first");
const Reply kNo = Reply::head("404 No");
const std::vector<Reply> kPages2 = {Reply::html("<a href=x>"), Reply::html("<a href=y>"), kFirst};
const std::vector<Reply> kMoves = {Reply::head("302 A\r\nLocation: /a"),
                                   Reply::head("302 B\r\nLocation: /b"), kFirst};
const std::vector<Reply> kStalls = {kFirst, {{}, Reply::Then::Stall}};
const Reply kBusy = busy("503", "1");
const std::string kA = "loadurl h/a; ";
const std::string kB = "loadurl h/b; ";
const std::string kRoot = "loadurl h/; ";
const std::string kPaced = kA + "maxruntime 4; " + seeds(9);
const std::string kStalled = kA + "maxruntime 1; readtimeout 60";

const VariantRow kVariants[] = {
    {"InTurn", kA + kB, {kFirst}, "a1 a2 b1 b2 ", "a1=200 a2=200 b1=200 b2=200 ", "2"},
    {"LinksOfTheFirst", kRoot + kA + "modernlinks on", kPages2, "1 2 a1 a2 x1 x2 ", ".*", "3"},
    {"MovedByTheFirst", kRoot, kMoves, "1 2 a1 a2 ", "1=302 2=302 a1=200 a2=200 "},
    {"MissingSecond", kA, {kFirst, kNo}, "a1 a2 ", "a1=200 a2=404 "},
    {"MissingFirst", kA, {kNo}, "a1 a2 ", "a1=404 a2=200 ", "0"},
    {"RetryAtOnce", kA + "retries 1", {kFirst, kGone}, "a1 a2 a2 ", "a1=200 a2=200 "},
    {"RetryBehind", kA + kB + "retries 2", {kFirst, kGone, kGone}, "a1 a2 a2 b1 b2 a2 ", ".*", "2"},
    {"RetriesOfEach", kA + "retries 1", {kGone, kFirst, kGone}, "a1 a1 a2 a2 ", "a1=200 a2=200 "},
    {"RestOfEach", kA + kRest, {kBusy, kFirst, kBusy}, "a1 a1 a2 a2 ", "a1=200 a2=200 "},
    {"RestBetween", kA + kRest, {kBusy, kBusy}, "a1 a1 a2 ", "a1=503 a2=200 ", "0"},
    // Half of the twenty, and more, would be asked if only the first of each URL waited.
    {"CountPerSecond",
     kPaced + "refetchdrequestpersecond 1",
     {kFirst},
     "(.. ){2,8}",
     ".*",
     "[1-4]"},
    {"EachIsDelayed", kPaced + "delay 700", {kFirst}, "(.. ){2,9}", ".*", "[1-5]"},
    {"StoppedInTheSecond", kStalled, kStalls, "a1 a2 ", "a1=200 a2=0 "},
    {"StoppedInTheFirst", kStalled, {kStalls[1]}, "a1 ", "a1=0 a2=0 ", "0"},
};
INSTANTIATE_TEST_SUITE_P(OptIn, Variants, testing::ValuesIn(kVariants), rowName);

struct VaryRow : Row {
    const char *directives;
    const char *warning;  // about three pages; empty: none
};

class Vary : public testing::TestWithParam<VaryRow> {};

TEST_P(Vary, IsNotWarnedOfOrWithoutCause)
{
    const ScriptedPeer peer(
        {{"http://h/0", Reply::head("200 OK\r\nVary: Accept-Encoding")},
         {"http://h/1", Reply::head("200 OK\r\nvary:  Cookie\t,accept-encoding")},
         {"http://h/2", Reply::head("200 OK\r\nVary: Host, Cookie\r\nVary: Accept-Encoding")},
         {"http://h/3", Reply::head("200 OK\r\nVary: *, \x1b[31m")},
         {"http://h/4", Reply::head("404 No\r\nVary: Accept-Encoding")}});
    Agent agent(peer.port(), "numclients 1; catracelog @dir@/t; errorlog @dir@/e; " + seeds(5) +
                                 GetParam().directives);
    agent.startWith("-r proxy.conf");
    agent.finish();
    const std::string by = GetParam().warning;
    const std::string warning = by + (by.empty() ? "" : ", and the agent does not send what");
    EXPECT_THAT(agent.process->err(),
                testing::StartsWith(warning.empty() ? "" : "refetchd: " + warning));
    EXPECT_EQ(agent.process->err().find(" does not send ") == std::string::npos, warning.empty());
    EXPECT_THAT(agent.dir.read("t"),
                testing::HasSubstr(warning.empty() ? "" : "Results..... " + warning));
    EXPECT_EQ(agent.dir.read("cacheAgent-errors").empty(), warning.empty());
}

const VaryRow kVary[] = {
    {"NothingIsSent", "resultslog @dir@/log", "3 pages vary by Accept-Encoding, Cookie"},
    {"OneIsSent", "metricsfile @dir@/m; requestheader accept-encoding br",
     "2 pages vary by Cookie"},
    {"OneIsSentByAVariant", "resultslog @dir@/log; http11 on; variant X: y; variant COOKIE: x",
     "3 pages vary by Accept-Encoding"},
    {"AllAreSent", "resultslog @dir@/log; variant Accept-Encoding: br; requestheader cookie x", ""},
    {"NobodyLooks", "http11 on", ""},
};
INSTANTIATE_TEST_SUITE_P(OptIn, Vary, testing::ValuesIn(kVary), rowName);

constexpr int kPages = 200;
constexpr int kMaxDepth = 3;

// Random pages and redirections, and how deep each is by the shortest way from page 0.
struct Graph {
    explicit Graph(unsigned seed) : depths(kPages, kMaxDepth + 1)
    {
        // The first three lead one level deeper; half of all links are of these.
        const char *const kinds[] = {
            "<a href=\"",     "<link href=\"",   "<iframe src=\"",      "<img src=\"",
            "<frame src=\"",  "<object data=\"", "<layer src=\"",       "<ilayer src=\"",
            "<script src=\"", "<area href=\"",   "<body background=\"", "<meta content=\"0; url="};
        std::mt19937 random(seed);
        std::vector<std::array<std::size_t, 3>> ways;  // from, to and levels
        for (std::size_t page = 0; page < kPages; ++page) {
            const bool moves = random() % 6 == 0;
            std::string text = moves ? "302 Moved\r\nLocation: /" : "";
            for (std::size_t links = moves ? 1 : random() % 6; links > 0; --links) {
                const std::size_t kind = random() % (random() % 2 == 0 ? 3 : std::size(kinds));
                const std::size_t to = random() % kPages;
                text += moves ? std::to_string(to) : kinds[kind] + std::to_string(to) + " \">";
                ways.push_back({page, to, moves || kind > 2 ? 0U : 1U});
            }
            Reply reply = moves ? Reply::head(text) : Reply::html(text);
            reply.pieces.front().pauseMs = static_cast<int>(random() % 8);
            replies.emplace("http://h/" + std::to_string(page), reply);
        }
        depths[0] = 0;
        for (std::size_t round = 0; round < kPages * ways.size(); ++round) {
            const auto &[from, to, levels] = ways[round % ways.size()];
            depths[to] = std::min(depths[to], depths[from] + levels);
        }
    }
    std::multimap<std::string, Reply> replies;
    std::vector<std::size_t> depths;
};

class BreadthFirst : public testing::TestWithParam<std::string> {};

// A page that is found as a link first and later as a frame or a redirection's end is not as deep.
TEST_P(BreadthFirst, LosesAPageOrAsksTwice)
{
    for (unsigned seed = 6; seed < 12; ++seed) {
        const Graph graph(seed);
        const ScriptedPeer peer(graph.replies);
        Agent agent(peer.port(), "breadthfirst on; loadurl h/0; delvedepth " +
                                     std::to_string(kMaxDepth) + "; numclients " + GetParam());
        agent.run();
        Words wanted = targets(kPages);
        std::erase_if(wanted, [&](const std::string &target) {
            return graph.depths[std::stoul(target.substr(9))] > kMaxDepth;
        });
        EXPECT_THAT(peer.targets(), testing::UnorderedElementsAreArray(wanted)) << seed;
    }
}
INSTANTIATE_TEST_SUITE_P(OptIn, BreadthFirst,
                         testing::Values("1", "3", "16", "16; hostconnections 5; slowstart 1"));

// The answer to one seed trickles beyond the end of the first run; the second run gets a short one.
TEST(BreadthFirst, SlowSeedHoldsBackTheDeeperPagesOfBothRuns)
{
    std::string links;
    for (const std::string &target : targets(50)) {
        links += "<a href=\"" + target + "\">";
    }
    const std::string head = "HTTP/1.0 200 OK\r\nContent-Type: a/b\r\nContent-Length: 99\r\n\r\n";
    const ScriptedPeer peer({{"http://h/", Reply::html(links)},
                             {"http://h/slow", {{{head}, {".", 200}}, Reply::Then::Keep, 60}},
                             {"http://h/slow", Reply::html()}});
    Agent agent(peer.port(),
                "breadthfirst on; breadthwait 1; delvedepth 1; numclients 4; readtimeout 60; "
                "maxruntime 6; refetchdrepeat 2; summaryline on; loadurl h/slow; loadurl h/");
    agent.run();
    Words wanted = {"http://h/", "http://h/", "http://h/slow", "http://h/slow"};
    for (const Words &deeper : {targets(50), targets(50)}) {
        wanted.insert(wanted.end(), deeper.begin(), deeper.end());
    }
    EXPECT_THAT(peer.targets(), testing::UnorderedElementsAreArray(wanted));
    EXPECT_EQ(agent.traced("Order....... depth 1 begins although 1 shallower"), 1);
    EXPECT_EQ(agent.traced("refetchd: breadthfirst: 1 level did not wait"), 1);
}

TEST(Results, LogMetricsOrWarningSayOtherwise)
{
    const ScriptedPeer peer(
        {{"http://h/", Reply::html("<a href=\"/old\"><a href=\"/no\"><a href=\"/x.gif\">"
                                   "<a href=\"http://o/\"><a href=\"/gone\"><a href=\"/open\">"
                                   "<a href=\"/\">")},
         {"http://h/old", Reply::head("200 OK\r\nAge: 7000")},
         {"http://h/older", Reply::head("200 OK\r\nAge: 8000")},
         {"http://h/no", Reply::head("404 No")},
         {"http://h/gone", {{}, Reply::Then::Close}},
         {"http://h/open", untilClose("Age: 6000\r\n")}});
    Agent agent(
        peer.port(),
        "hostname 127.0.0.1; numclients 1; delvedepth 1; ignoreurl *.gif; resultslog "
        "@dir@/log; metricsfile @dir@/prom; errorlog @dir@/e; serverroot @dir@; caching on; "
        "loadtopcached 9; loadurl h/; loadurl h/?q; refetchdrepeat 2",
        "9 5% http://h/older; 8 4% http://h/x.gif");
    agent.run();
    // URL, source, depth, status, bytes and verdict.
    const std::regex line(
        ".*\"http://(.*)\",\"source\":\"(.*)\",\"depth\":(.),\"status\":(.*),"
        "\"bytes\":(.*),\"ms\":.*,\"verdict\":\"(.*)}");
    const std::string run =
        R"(h/ admin 0 200 199 unknown"
h/older topn 0 200 49 served from cache","age":8000
h/old admin 1 200 49 served from cache","age":7000
h/no admin 1 404 38 failed","why":"status 404"
h/gone admin 1 0 0 failed","why":"connection closed before an answer"
h/open admin 1 200 70079 served from cache","age":6000
h/?q admin 0 0 0 dropped","why":"cachequeries"
h/x.gif topn 0 0 0 dropped","why":"ignoreurl"
o/ admin 1 0 0 dropped","why":"delveacrosshosts"
)";
    EXPECT_EQ(std::regex_replace(agent.dir.read("log"), line, "$1 $2 $3 $4 $5 $6"), run + run);
    EXPECT_THAT(agent.dir.read("prom"),
                testing::HasSubstr("urls{source=\"topn\",verdict=\"served_from_cache\"} 1\n"));
    EXPECT_EQ(agent.traced("the proxy ignores max-age=0"), 2) << agent.process->err();
    EXPECT_THAT(agent.dir.read("cacheAgent-errors"), testing::HasSubstr("ignores max-age=0"));
}

TEST(Results, PageFillsTheDisk)
{
    std::string links;
    for (int i = 0; i < 1200; ++i) {
        links += "<a href=\"" + std::to_string(i) + " \">";
    }
    const ScriptedPeer peer({{"http://h/", Reply::html(links)}});
    const std::pair<std::string, int> rows[] = {
        {"; delvedepth 0", 1002},
        {" Dropped; delvedepth 9; modernlinks on; maxurls 1", 1002},
        {" nodropped; delvedepth 0", 1}};
    for (const auto &[directives, lines] : rows) {
        Agent agent(peer.port(), "loadurl h/; resultslog @dir@/log" + directives);
        agent.run();
        std::string log = agent.dir.read("log");
        EXPECT_EQ(log.find("\"links of this page\",\"more\":200}") != log.npos, lines > 1);
        EXPECT_EQ(replaceAll(&log, "\n", ";"), lines) << directives;
    }
}

struct AccountRow : Row {
    std::string directives;
    int urls;         // in the log or counted as left in the queue
    std::string log;  // URLs with a name, and verdicts other than "unknown"
};

class Account : public testing::TestWithParam<AccountRow> {};

TEST_P(Account, LacksAUrlOfARunThatWasCutShort)
{
    const ScriptedPeer peer({{"http://h/stuck", {{}, Reply::Then::Stall}},
                             {"http://h/gone", {{{"", 1500}}, Reply::Then::Close}},
                             {"http://h/moved", moved("302")},
                             {"http://h/busy", busy("503", "99")}});
    Agent agent(peer.port(), "resultslog @dir@/log; metricsfile @dir@/prom; numclients " +
                                 GetParam().directives);
    agent.run();
    std::string log = agent.dir.read("log");
    const std::string metrics = agent.dir.read("prom");
    EXPECT_EQ(replaceAll(&log, "\n", "\n") + std::stoi(metrics.substr(metrics.rfind(' '))),
              GetParam().urls)
        << metrics;
    const std::regex parts(".*\"http://h/(.*)\",\"source\".*\"verdict\":\"([a-z ]*).*\n");
    // The numbered ones may be in flight when a slow machine ends the run.
    log = std::regex_replace(log, std::regex(".*(\"unknown\"|http://h/[0-9]\").*\n"), "");
    EXPECT_EQ(std::regex_replace(log, parts, "$1 $2; "), GetParam().log);
}

const std::string kPatient = "1; readtimeout 90; ";

const AccountRow kAccounts[] = {
    {"InFlight", "1; readtimeout 60; maxruntime 2; loadurl h/stuck; loadurl h/1", 2,
     "stuck failed; "},
    {"WaitsForTheBudget",
     "2; retries 1; refetchdrequestpersecond 1; maxruntime 1; loadurl h/gone; loadurl h/1; "
     "loadurl h/2; loadurl h/3",
     4, "gone failed; "},
    {"WaitsForItsHost", "1; retryafter on; maxruntime 3; loadurl h/busy; loadurl h/1", 2, ""},
    {"WaitsForRoom",
     "1; readtimeout 3; maxqueuedepth 1; delvedepth 1; loadurl h/moved; loadurl h/1", 3,
     "moved not cacheable; to dropped; "},
    {"FindsRoomLater",
     "1; readtimeout 3; maxqueuedepth 1; delvedepth 1; loadurl h/moved; loadurl h/moved", 3,
     "moved not cacheable; moved not cacheable; "},
    // An agent that waits for room would still do so at the test's deadline.
    {"HasNoRoom", kPatient + "followredirects all; maxurls 1; loadurl h/moved", 2,
     "moved not cacheable; to dropped; "},
    {"HasNoRoom11", kPatient + "http11 on; maxurls 1; loadurl h/moved", 2,
     "moved not cacheable; to dropped; "},
    {"FindsTheQueueFull",
     kPatient + "followredirects all; maxqueuedepth 1; loadurl h/moved; loadurl h/1; loadurl h/2",
     4, "moved not cacheable; to dropped; "},
};
INSTANTIATE_TEST_SUITE_P(Results, Account, testing::ValuesIn(kAccounts), rowName);

struct SignalRow : Row {
    const char *options;
    std::size_t asked;            // requests and
    const char *traced;           // trace to wait for before the signal is sent
    std::string directives = "";  // besides one client and "/1"
    const char *line = "Progress.... 1 done, 1 succeeded, 0 queued, 0 busy, ";
};

class UserSignal : public testing::TestWithParam<SignalRow> {};

TEST_P(UserSignal, HasNoLineOrEndsTheProcess)
{
    const SignalRow &row = GetParam();
    // The master looks at the run while this answer is on the way, and again a second later.
    const std::string head = "HTTP/1.0 200 OK\r\nContent-Type: a/b\r\nContent-Length: 1\r\n\r\n";
    const ScriptedPeer peer({{"http://h/1", Reply{{{head}, {"x", 200}}}}, {"http://h/", Reply{}}});
    Agent agent(peer.port(), "numclients 1; loadurl h/1; " + row.directives);
    agent.startWith(row.options);
    ASSERT_TRUE(peer.waitForRequests(row.asked, kRunDeadline));
    ASSERT_TRUE(agent.process->waitForError(row.traced, kRunDeadline));
    agent.process->signal(SIGUSR1);
    agent.finish();
    EXPECT_EQ(agent.traced(row.line), 1);
}

const char *const kAllDone = "Worker...... thread 1 has nothing to do.\n";
const char *const kVerbose = "-vv -r proxy.conf";

const SignalRow kSignals[] = {
    // The second request holds the run.
    {"WithoutATrace", "-r proxy.conf", 2, "", "readtimeout 5; maxruntime 60; loadurl h/",
     "Progress.... 1 done, 1 succeeded, 0 queued, 1 busy, "},
    {"BeforeTheNextRun", "-vv -r proxy.conf -rp 2", 1, "all threads done", "maxruntime 9"},
    {"InTheLastSecond", kVerbose, 1, kAllDone},
    {"InTheLastSecondOfARun", "-vv -r proxy.conf -rp 2", 1, kAllDone},
    {"WhileWorkersAreStopped", kVerbose, 1, "Stopping.... client thread #1.\n"},
};
INSTANTIATE_TEST_SUITE_P(Progress, UserSignal, testing::ValuesIn(kSignals), rowName);

}  // namespace
