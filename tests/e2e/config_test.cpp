// The proxy configuration as the agent reads it: seeds and their rules, included files, the logs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "Agent.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct SeedRow : Row {
    int top;  // lines wanted of the hits file
    const char *directives;
    std::string hits;
    std::string paths;  // below http://h/, in the order in which one worker asks for them
    const char *trace = "";
};

class Seeds : public testing::TestWithParam<SeedRow> {};

TEST_P(Seeds, AreFetched)
{
    const SeedRow &row = GetParam();
    const ScriptedPeer peer;
    Agent agent(peer.port(),
                "numclients 1; serverroot @dir@; caching on; loadtopcached " +
                    std::to_string(row.top) + "; " + row.directives,
                row.hits);
    agent.dir.write("more.conf", agent.expand("loadurl h/more; configfile @dir@/proxy.conf\n"));
    agent.run();
    std::string paths;
    for (const std::string &target : peer.targets()) {
        paths += (paths.empty() ? "" : " ") + target.substr(std::strlen("http://h/"));
    }
    EXPECT_EQ(paths, row.paths);
    EXPECT_THAT(agent.process->err(), HasSubstr(agent.expand(row.trace)));
}

const std::string kHits = "#; \n9 1% http://h/q?; two words; 8 1% http://h/i.gif; 7 1% http://h/n";
const std::string kCopies = "1 1% http://h/a; 1 1% http://h/b; 1 1% http://h/b";
const std::string kLong(1100, 'x');
const char *const kTwice = "configfile @dir@/more.conf; configfile @dir@/more.conf; loadurl h/a";

const SeedRow kSeeds[] = {
    {"FilteredLinesCount", 2, "ignoreurl *.gif", kHits, "", "Ignoring bad line. . .\n"},
    {"FilteredLinesDoNotStop", 3, "ignoreurl *.gif", kHits, "n", "matched pattern \"*.gif\".\n"},
    {"PatternsCompareCase", 2, "ignoreurl *.GIF", kHits, "i.gif", "Not loading... URL with ? "},
    {"QueriesOfOneKind", 1, "cachequeries public *h/q*", kHits, "q?", "URLs matching \"*h/q*\""},
    {"AllQueries", 1, "cachequeries ON", kHits, "q?", "Number of Hits 9 for URL \"http://h/q?\""},
    {"CachingNotAlways", 9, "caching topn", kHits, "", "Not......... loading files specified"},
    {"NoHitsWanted", 0, "", kHits, ""},
    {"CommentsOnly", 9, "", "# 1 1% http://h/a; #", ""},
    {"BlanksAndTabs", 9, "", "1\t1%\t\thttp://h/a;  2  2%  http://h/b  ", "a b"},
    {"LongHitsLineIsCut", 9, "", "1 1% http://h/" + kLong, kLong.substr(0, 1009), "bad line"},
    {"HitsCopiesAreDropped", 9, "loadurl h/a", kCopies, "a b"},
    {"SeedCopiesAreNot", 0, "ignoreurl *; loadurl h/a; loadurl h/a", "", "a a"},
    {"NoHitsFile", 1, "serverroot @dir@/x", kHits, "", "/x/logs/hitsfile.txt\" not opened;"},
    {"Blocks", 0, "<O x> {; loadurl h/a; x {; }; loadurl h/b; loadurl", "", "b", "insufficient"},
    {"QuotesAndSlashes", 0, "#loadurl h/a; loadurl \"h/b\" # h/c; LOAD_URL h\\d", "", "b d"},
    {"IncludedOnce", 0, kTwice, "", "a more", "Added....... config file \"@dir@/more.conf\".\n"},
};
INSTANTIATE_TEST_SUITE_P(Config, Seeds, testing::ValuesIn(kSeeds), rowName);

TEST(Config, ProxyComesFromHostNameAndPort)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "");
    agent.dir.write("proxy.conf", "hostname 127.0.0.1\nloadurl http://h/0\nport " +
                                      std::to_string(peer.port()) + "\n");
    agent.run();
    EXPECT_EQ(peer.targets(), targets(1));
    EXPECT_EQ(agent.traced("Proxy....... @peer@ determined from daemon config file.\n"), 1);
}

TEST(Config, ManySeedsTakeTurnsInLanes)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "numclients 1; " + seeds(22));
    agent.run();
    std::vector<std::string> expected = targets(20);
    expected.insert(expected.begin() + 1, "http://h/20");
    expected.insert(expected.begin() + 3, "http://h/21");
    EXPECT_EQ(peer.targets(), expected);
}

struct LogRow : Row {
    std::vector<std::string> options;
    const char *directives;
    const char *errors;  // the agent's error log
    const char *trace;   // begins the trace file
    const char *output;  // standard error
};

class Logs : public testing::TestWithParam<LogRow> {};

TEST_P(Logs, TakeWhatIsMeantForThem)
{
    const LogRow &row = GetParam();
    const ScriptedPeer peer;
    Agent agent(peer.port(), "");
    agent.dir.write("a.conf", agent.expand(row.directives + std::string("; updateproxy @peer@; "
                                                                        "loadurl h/a\n")));
    std::vector<std::string> options = {"-r", "a.conf"};
    options.insert(options.end(), row.options.begin(), row.options.end());
    agent.startWith(options);
    agent.finish();
    EXPECT_EQ(agent.dir.read("cacheAgent-errors"), row.errors);
    EXPECT_THAT(agent.dir.read("trace"), StartsWith(agent.expand(row.trace)));
    EXPECT_EQ(agent.process->err(), agent.expand(row.output));
}

const char *const kErrors = "errorlog @dir@/x; numclients 101";
const char *const kTrace = "catracelog trace; errorlog @dir@/x; numclients 101";
const char *const kTwoTraces = "catracelog first; delay 1; catracelog trace; errorlog x";
const char *const kTooMany =
    "NumClients too large.  Downgraded number of cache refresh clients to 100.\n";
const char *const kTooManyTrace =
    "Trace file.. opened.; CacheErrorLog... \"@dir@/cacheAgent-errors\" opened.; "
    "Clients..... got 101, downgrading to 100.; Clients..... 100.; Proxy....... being updated";
const char *const kSecondTrace =
    "Trace file.. opened.; Could not determine the directory for the error log.; ";
const char *const kLoading = "Loading..... config file \"@dir@/a.conf\".; ";
const char *const kRequesting = "Net......... requesting \"http://h/a\".; ";

const LogRow kLogs[] = {
    {"ErrorsWithATrace", {}, kTrace, kTooMany, kTooManyTrace, ""},
    {"NoErrorsWithoutATrace", {}, kErrors, "", "", ""},
    {"LastTraceFileCounts", {}, kTwoTraces, "", kSecondTrace, ""},
    {"VerboseMovesToTheFile", {"-vv"}, "catracelog trace", "", "Trace file.. opened.; ", kLoading},
    {"DebugDoesNot", {"-debug", "geturl"}, "catracelog trace", "", "Trace file..", kRequesting},
};
INSTANTIATE_TEST_SUITE_P(Config, Logs, testing::ValuesIn(kLogs), rowName);

// What varies from run to run in a trace line becomes "#".
std::string masked(std::string line)
{
    for (const char *const before :
         {"now=", "buffer ", "cs ", "sz ", " socket ", " read ", ".1:"}) {
        const std::size_t at = line.find(before);
        if (at != std::string::npos) {
            const std::size_t number = at + std::strlen(before);
            const std::size_t end = line.find_first_not_of("0123456789abcdef", number);
            line.replace(number, end - number, "#");
        }
    }
    return line;
}

// Lines of the main and the master thread, and those of the worker, come in one order each; the two
// mix freely. How often the master looks, and whether it meets the worker at work, varies: of its
// lines only the first of a series counts. Request lines lose their carriage return.
std::string linesOf(const std::string &trace, bool worker)
{
    std::istringstream lines(trace);
    std::string result = "\n";
    std::string last;
    std::string lastButOne;
    const std::string labels = " Worke Buffe Reque Net.. Cache Parse HTTP. Accep User- Host: Conne";
    for (std::string line; std::getline(lines, line);) {
        const bool ofWorker = labels.find(" " + line.substr(0, 5)) != std::string::npos;
        line = masked(line.substr(0, line.find('\r')));
        if (!line.empty() && ofWorker == worker && line != last && line != lastButOne &&
            line.find("is still busy") == std::string::npos) {
            result += line + "\n";
            lastButOne = last;
            last = line;
        }
    }
    return result;
}

TEST(Config, TraceOfARunIsInOrder)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(),
                "hostname 127.0.0.1; numclients 1; delay 100; no-directive of ours; "
                "maxruntime 1 min; loadurl http://h/dir/../a");
    agent.run();
    const std::string trace = agent.process->err();
    EXPECT_EQ(linesOf(trace, false), agent.expand(R"(
Loading..... config file "@dir@/proxy.conf".
Proxy....... being updated is "127.0.0.1:#".
Hostname.... 127.0.0.1.
Clients..... 1.
Delay....... 100ms between requests.
LoadConfig.. got maxruntime of 60
Simplify.... path down to "/a".
Adding...... 1 hit(s) for host "h".
Added....... new host "h" to host table.
Will load... URL "http://h/dir/../a".
Hosts....... match (127.0.0.1, 127.0.0.1) --> use top N.
Starting.... client thread #1.
The locale is set to en_US.
Starting.... Will run for 1 times!!
Master......  time now=#s, maxruntime=60
Master...... queue is empty.
Stopping.... client thread #1.
Deleting.... client thread #1.
Flushing.... remove all processed URLs.
Flushing.... remove all non-processed URLs.
Master...... all threads done - we're outta here!
)"));
    EXPECT_EQ(linesOf(trace, true), R"(
Worker...... thread 1 starting.
Buffer...... new a buffer #.
Worker...... #1 working on URL "http://h/a".
Request..... built: GET http://h/a HTTP/1.0
Accept: text/html, */*; q=0.10
User-Agent: Mozilla/4.0 (emulation; QRX BUG)
Host: h
Cache-Control: max-age=0
Connection: Keep-alive
Net......... requesting "http://h/a".
Cache Agent read # bytes from socket #.
Buffer...... bs 4096, cs #, sz #.
Parser...... found header Content-Type: text/plain.
Parser...... found header Content-Length: 2.
Parser...... found header Connection: keep-alive.
Parser...... Content-length:  2, Connection:  keep-alive
Parser...... doesn't understand Content-type: text/plain
HTTP........ parser sending 2 bytes to its sink, (0/2) .
HTTP........ the sink eat 2 bytes, 0 bytes more wanted.
Net.. stop reading the socket.
Worker...... thread 1 has nothing to do.
Worker...... thread 0 exiting.
)");
}

}  // namespace
