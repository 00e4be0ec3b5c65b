// Directives that are off unless they are set: what is asked for without and with each.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "Agent.h"
#include "Site.h"

namespace {

struct OptInRow : Row {
    std::string directive;
    std::vector<Reply> replies;  // to the first requests for "/", in turn; then a plain page
    std::string without;         // what one client asks for then, without "http://h"
    std::string with;
    std::string others = "loadurl h/; delvedepth 1; readtimeout 1";
    std::string request = "";  // a part of each request, only with the directive
};

class OptIn : public testing::TestWithParam<OptInRow> {
protected:
    static void expectAskedFor(const std::string &targets, const std::string &directives)
    {
        const OptInRow &row = GetParam();
        std::atomic<std::size_t> count = 0;
        const ScriptedPeer peer([&](const ScriptedPeer &, const ScriptedPeer::Request &request) {
            if (request.target != "http://h/" || count >= row.replies.size()) {
                return htmlPage("page");
            }
            return row.replies[count++];
        });
        Agent agent(peer.port(), "numclients 1; " + row.others + directives,
                    "5 50% http://h/s; 9 30% http://h/; 7 20% http://h/t");
        agent.run();
        std::string asked;
        for (const std::string &target : peer.targets()) {
            asked += (asked.empty() ? "" : " ") + target.substr(target.find('/', 7));
        }
        EXPECT_EQ(asked, targets) << agent.process->err();
        for (const ScriptedPeer::Request &request : peer.requests()) {
            EXPECT_EQ(request.bytes.find(row.request) != std::string::npos,
                      row.request.empty() || !directives.empty());
        }
    }
};

TEST_P(OptIn, ChangesNothingUnlessItIsSet)
{
    expectAskedFor(GetParam().without, "");
    expectAskedFor(GetParam().with, "; " + GetParam().directive);
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
    return {{{"HTTP/1.0 " + status + " Moved\r\nLocation: /to\r\nContent-Length: 0\r\n\r\n"}}};
}

Reply busy(const std::string &status)
{
    return {{{"HTTP/1.0 " + status + "\r\nContent-Length: 0\r\n\r\n"}}};
}

const Reply kGone = {{}, Reply::Then::Close};
const Reply kReset = {{}, Reply::Then::Reset};
const std::string kSeeds = "loadurl h/; loadurl h/1; loadurl h/2; readtimeout 1";
const std::string kClosed = "closedelimitedbodies on";
const std::string kAll = "followredirects All";

const OptInRow kRows[] = {
    {"BodyUntilClose", kClosed, {untilClose("")}, "/", "/ /a /b"},
    {"BodyUntilCloseKeptAlive",
     kClosed,
     {untilClose("Connection: keep-alive\r\n")},
     "/",
     "/ /a /b"},
    {"BodyOfAnotherCoding", kClosed, {untilClose("Transfer-Encoding: gzip\r\n")}, "/", "/ /a /b"},
    {"BodyInBrokenChunks", kClosed, {untilClose("Transfer-Encoding: Chunked\r\n")}, "/", "/"},
    {"Moved301", kAll, {moved("301")}, "/", "/ /to"},
    {"Moved303", kAll, {moved("303")}, "/", "/ /to"},
    {"Moved307", kAll, {moved("307")}, "/", "/ /to"},
    {"Moved308", kAll, {moved("308")}, "/", "/ /to"},
    {"Moved304", kAll, {moved("304")}, "/", "/"},
    {"Moved302Only", "followredirects on", {moved("301"), moved("302")}, "/", "/"},
    {"RetryAtOnce", "retries 2", {kGone}, "/ /1 /2", "/ / /1 /2", kSeeds},
    {"RetryBehind", "retries 2", {kReset, kGone}, "/ /1 /2", "/ / /1 /2 /", kSeeds},
    {"RetryTwiceOnly", "retries 2", {kGone, kGone, kGone}, "/ /1 /2", "/ / /1 /2 /", kSeeds},
    {"RetryTimedOut", "retries 1", {Reply{}}, "/ /1 /2", "/ / /1 /2", kSeeds},
    {"RetryNoAnswered", "retries 1", {busy("500 No")}, "/ /1 /2", "/ /1 /2", kSeeds},
    {"RestFor",
     "retryafter on",
     {busy("503 No\r\nRetry-After: 2")},
     "/ /1 /2",
     "/ / /1 /2",
     kSeeds},
    {"RestAndRepeatOnce",
     "retryafter on",
     {busy("429 No\r\nRetry-After: 1"), busy("503 No\r\nRetry-After: 1")},
     "/ /1 /2",
     "/ / /1 /2",
     kSeeds},
    {"RestOthersGoOn",
     "retryafter on",
     {busy("429 No\r\nRetry-After: 1")},
     "/ /x /1",
     "/ /x / /1",
     "loadurl h/; loadurl o/x; loadurl h/1"},
    {"RestNoLongerThanTheRun",
     "retryafter on",
     {busy("503 No\r\nRetry-After: 99")},
     "/ /1",
     "/",
     "loadurl h/; loadurl h/1; maxruntime 3"},
    {"Header",
     "requestheader Accept-Encoding gzip, br; requestheader X-A b",
     {},
     "/",
     "/",
     "loadurl h/",
     "\r\nAccept-Encoding: gzip, br\r\nX-A: b\r\n"},
    {"UserAgent",
     "useragent \"refetchd (night)\" /1",
     {},
     "/",
     "/",
     "loadurl h/",
     "\r\nUser-Agent: refetchd (night) /1\r\nHost: h\r\n"},
};
INSTANTIATE_TEST_SUITE_P(OptIn, OptIn, testing::ValuesIn(kRows), rowName);

// "/p" is one link from "/", which is slow, and two from the other seed: met there first, it would
// be too deep for its own link.
TEST(BreadthFirst, PageThatIsMetFirstOnALongerWayLosesItsLinks)
{
    const Reply quick = htmlPage("<a href=\"p\">");
    Reply slow = quick;
    slow.pieces.front().pauseMs = 2500;
    for (const char *const directive : {"", "breadthfirst on"}) {
        const ScriptedPeer peer({{"http://h/", slow},
                                 {"http://h/s", htmlPage("<a href=\"a\">")},
                                 {"http://h/a", quick},
                                 {"http://h/p", htmlPage("<a href=\"q\">")}});
        Agent agent(
            peer.port(),
            std::string("numclients 3; delvedepth 2; loadurl h/; loadurl h/s; ") + directive);
        agent.run();
        EXPECT_EQ(testing::Value(peer.targets(), testing::Contains("http://h/q")),
                  *directive != '\0');
    }
}

}  // namespace
