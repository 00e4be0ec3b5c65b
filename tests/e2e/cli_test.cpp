// The command line, the configuration and links followed through a small site: what is refused,
// what is requested in which order, and the exit status.
#include "Agent.h"

namespace {

// A request with this target has 4096 bytes, of which 153 are neither target nor host.
const std::string kFull = "http://h/" + std::string(3933, 'x');
const std::string kRefused = "Request..... refused, ";
const std::string kControl = kRefused + "control character in target or host: \"http://h";

Reply movedTo(const std::string &location)
{
    return Reply::head("302 Moved\r\nLocation: " + location);
}

const std::multimap<std::string, Reply> kSite = {
    {"http://h/full", movedTo(kFull)},
    {"http://h/long", movedTo(kFull + "x")},
    {"http://h/delete", movedTo("http://h/a\x7fz")},
    {"http://h/host", movedTo("http://h\x1fz/")},
    {"http://h/high", movedTo("http://h/\xc3\xa9")},
    {"http://h/",
     Reply::html("<A HREF=\"a#top\"><img src='i.gif' ><frame src=/f ><IFRAME src=\"./r\">"
                 "<a href=http://o/x ><a href=\"/moved\"><a href=\"/a\"><a href=\"/\">")},
    {"http://h/a", Reply::html("<a href=\"b\"><a href=\"/\">")},
    {"http://h/b", Reply::html("<a href=\"e\">")},
    {"http://h/f", Reply::html("<a href=\"c\"><img src=\"j.gif\">")},
    {"http://h/r", Reply::html("<img src=\"k.gif\"><a href=\"d\">")},
    {"http://o/x", Reply::html("<a href=\"y\"><img src=\"z\"><img src=\"http://h/z\">")},
    {"http://h/moved", movedTo("/to")},
    {"http://h/to", Reply::html("<a href=\"g\">")},
};

struct TakenRow : Row {
    std::string directives;
    std::string asked;                   // by one worker, in this order
    std::string trace = "Starting....";  // part of standard error; kUsage or empty: all of it
    const char *options = "-vv -r proxy.conf";
    int status = 0;
    const char *errors = "";  // the error log
    const char *file = "";    // begins the trace file; the rest of the trace is there too
};

const std::string kUsage =
    "Usage: refetchd [ options ... ]\n"
    "       where options include:\n"
    "         -r    <proxy config file>\n"
    "         -vv   <verbose mode>\n";

class Taken : public testing::TestWithParam<TakenRow> {};

TEST_P(Taken, AsksForOthersOrEndsOtherwise)
{
    const TakenRow &row = GetParam();
    const ScriptedPeer peer(kSite);
    Agent agent(peer.port(),
                "numclients 1; serverroot @dir@; caching on; loadtopcached 0; " + row.directives,
                "#; \n9 1% http://h/q?; two words; 8 1% http://h/i.gif; 7 1% http://h/a; "
                "6 1% http://h/a; 5 1% http://h/" +
                    std::string(1100, 'x'));
    agent.dir.write("more.conf", agent.expand("loadurl h/more; configfile @dir@/proxy.conf\n"));
    agent.dir.write("daemon.conf",
                    "hostname 127.0.0.1\nloadurl h/d\nport " + std::to_string(peer.port()) + "\n");
    agent.startWith(row.options);
    agent.finish(row.status);
    EXPECT_EQ(peer.asked(), row.asked);
    EXPECT_EQ(agent.process->out(), "");
    if (row.trace.empty()) {  // the hits file has one bad line, which every summary reports
        EXPECT_EQ(agent.traced("CASummary... found bad line in hitlist\n"), agent.traced("\n"));
    }
    EXPECT_THAT(agent.process->err(), testing::HasSubstr(agent.expand(row.trace)));
    EXPECT_TRUE(row.trace != kUsage || agent.process->err() == kUsage);
    EXPECT_EQ(agent.dir.read("cacheAgent-errors"), row.errors);
    EXPECT_THAT(agent.dir.read("trace"), testing::StartsWith(agent.expand(row.file)));
    EXPECT_TRUE(*row.file == '\0' || agent.traced("Starting....") == 0);
}

const std::string kOne = "loadurl h/a";
const char *const kDebug = "-debug geturl -r proxy.conf";
const char *const kTwo = "hostname 127.0.0.1; loadtopcached 2; loadurl h/s";
const char *const kTwice = "configfile @dir@/more.conf; configfile @dir@/more.conf; loadurl h/a";
const char *const kSlashes = "#loadurl h/a; loadurl \"h/b\" # h/c; LOAD_URL h\\d; loadurl";
const std::string kErrors = "; errorlog @dir@/x; numclients 101";
const std::string kBoth = kOne + "; catracelog trace" + kErrors;
const char *const kTooMany =
    "NumClients too large.  Downgraded number of cache refresh clients to 100.\n";
const char *const kNoClient =
    "Cannot run cache agent because numclients is -1 and maxruntime is not set: the run would "
    "never end.\n";
const char *const kOpened = "Trace file.. opened.; CacheErrorLog... \"@dir@/cacheAgent-errors\" ";
const std::string kFiles = kOne + "; catracelog x; delay 1; catracelog trace; port 1";
const char *const kSecond = "Trace file.. opened.; Host port... 1.; ";

const TakenRow kTaken[] = {
    {"NoOption", "", "", kUsage, "proxy.conf", 1},
    {"CapitalOption", "", "", kUsage, "-R proxy.conf", 1},
    {"NoFileName", "", "", kUsage, "-vv -r", 1},
    {"OptionForAFileName", "", "", kUsage, "-r -vv", 1},
    {"NoDebugModule", "", "", kUsage, "-debug", 1},
    {"NoRepeats", "", "", kUsage, "-rp", 1},
    {"NoRate", "", "", kUsage, "-r proxy.conf -rps", 1},
    {"NoConnections", "", "", kUsage, "-mc", 1},
    {"EachFile", kOne, "/d /a", "/proxy.conf\".\n", "-vv -r daemon.conf -r proxy.conf"},
    {"HostAndPort", "", "/d", "@peer@ determined from daemon config file.\n", "-vv -r daemon.conf"},
    {"ModuleLikeAnOption", kOne, "/a", "", "-debug -vv -r proxy.conf"},
    {"DebugGetUrl", kOne, "/a", "requesting \"http://h/a\".\n", kDebug},
    {"NoLimits", kOne, "/a", "", "-rps abc -mc -5 -r proxy.conf"},
    {"LastRepeatCounts", kTwo, "/s /i.gif /s /i.gif", " 2 times", "-vv -rp 7 -rp 2 -r proxy.conf"},
    {"DirectiveFirst", kOne + "; refetchd-repeat 3", "/a /a /a", "", "-rp 5 -r proxy.conf"},
    {"NoDefaultFile", "", "", "file \"/etc/tarnproxy.conf\" could not be opened.\n", "-vv", 1},
    {"NoFile", "", "", "Config...... file \"@dir@/x\" could not be opened.\n", "-vv -r x", 1},
    {"NoIncluded", "configfile y", "", "\"y\" could not be opened.\n", "-vv -r proxy.conf", 1},
    {"NoTls", "proxytls on; proxytlsca x", "", "refetchd: TLS cannot be used: x: No such file",
     "-r proxy.conf", 1},
    {"NoClient", "numclients -1; loadurl h/a; catracelog trace; errorlog @dir@/x", "",
     "refetchd: numclients is -1 and maxruntime is not set: the run would never end.\n",
     "-r proxy.conf", 1, kNoClient},
    {"FilteredLinesCount", "loadtopcached 2; ignoreurl *.gif", "", "Ignoring bad line. . .\n"},
    {"CopiesLongLine", "loadtopcached 9; ignoreurl *.gif", "/a /" + std::string(1009, 'x'), "bad"},
    {"Queries", "loadtopcached 1; cachequeries public *h/q*", "/q?", "Number of Hits 9 for "},
    {"AllQueries", "loadtopcached 1; cachequeries public *", "/q?", "Will cache all queries.\n"},
    {"CachingNotAlways", "loadtopcached 9; caching topn", "", "loading files specified"},
    {"NoHitsFile", "loadtopcached 9; serverroot @dir@/x", "", "/x/logs/hitsfile.txt\" not opened;"},
    {"QuotesAndSlashes", kSlashes, "/b /d", "insufficient"},
    {"IncludedOnce", kTwice, "/a /more", "Added....... config file \"@dir@/more.conf\".\n"},
    {"ErrorsWithATrace", kBoth, "/a", "Will load...", "-vv -r proxy.conf", 0, kTooMany, kOpened},
    {"NoErrorsWithoutATrace", kOne + kErrors, "/a", "", "-r proxy.conf"},
    {"LastTraceFileCounts", kFiles, "/a", "", "-r proxy.conf", 0, "", kSecond},
    {"DebugStaysOutside", kFiles, "/a", "Net......... requ", kDebug, 0, "", kSecond},
};
INSTANTIATE_TEST_SUITE_P(CommandLine, Taken, testing::ValuesIn(kTaken), rowName);

TEST(Lists, InputIsReadTwiceOrFaultsFloodStandardError)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(),
                "numclients 1; serverroot @dir@; loadlist -; loadlist @dir@; "
                "loadlist -; loadlist bad; loadlist none; loadurl h/c");
    std::string error = "refetchd: " + agent.dir.path() + ": Is a directory.\n";
    std::string lines;
    for (int i = 1; i <= 12; ++i) {
        lines += "a b\n";
        error += i > 10 ? ""
                        : "refetchd: bad: line " + std::to_string(i) +
                              " contains a blank or a control character.\n";
    }
    error +=
        "refetchd: bad: 2 more lines are left out.\n"
        "refetchd: none: No such file or directory.\n";
    agent.dir.write("bad", lines + "h/a\nh/c\n");
    agent.dir.write("go", "printf 'h/a\\nh/b\\n' | (" REFETCHD_CHECK " proxy.conf >check; " +
                              std::string(REFETCHD_BINARY) + " -r proxy.conf -rp 2)");
    agent.startProgram("sh go");
    agent.finish();
    EXPECT_EQ(peer.asked(), "/a /b /c /c /a /c /c");
    EXPECT_EQ(agent.process->err(), error + error);
    EXPECT_THAT(agent.report(), testing::HasSubstr(" refresh:</td>\n <td align=right>4</td>"));
}

const std::string kRoot = "loadurl h/; ";
const std::string kLevel = kRoot + "delvedepth 1; ";
const std::string kTop = kRoot + "delvedepth 2; loadtopcached 3; hostname 127.0.0.1; ";

const TakenRow kCrawls[] = {
    {"DepthZero", kRoot, "/ /i.gif /f /j.gif"},
    {"DepthTwo", kRoot + "delvedepth 2", "/ /a /i.gif /f /r /moved /b /c /j.gif /k.gif /d /to /g"},
    {"AcrossHosts", kLevel + "delveacrosshosts on",
     "/ /a /i.gif /f /r http://o/x /moved /c /j.gif /k.gif http://o/z /z /to"},
    {"Ignored", kLevel + "ignoreurl *.gif; ignoreurl */m*", "/ /a /f /r /c"},
    {"Only", kLevel + "onlyurl *h/a; onlyurl *.gif", "/ /a /i.gif"},
    {"ImagesOff", kLevel + "loadinlineimages off", "/ /a /f /r /moved /c /to"},
    {"DelveTopN", kTop + "delveinto topn", "/ /i.gif /a /b /e"},
    {"DelveNever", kTop + "delveinto never", "/ /i.gif /a"},
    {"HostUrls", kLevel + "delveacrosshosts on; maxhosturls 3 H",
     "/ /a /i.gif http://o/x http://o/z"},
    {"HostUrlsOfAllRuns", kLevel + "maxhosturls 3; refetchdrepeat 2", "/ /a /i.gif /"},
    {"MaxUrlsSeedsIncluded", kRoot + kRoot + "maxurls 3", "/ / /i.gif"},
    {"MaxUrlsNotMoved", "loadurl h/moved; maxurls 1", "/moved"},
    // A server decides what a redirection names, so it may be anything. The worker goes on.
    {"TargetFillsTheBuffer", "loadurl h/full; loadurl h/a", "/full /a " + kFull.substr(8)},
    {"TargetOverTheBuffer", "loadurl h/long; loadurl h/a", "/long /a",
     kRefused + "too long for the request buffer: \"" + kFull + "x\".\n"},
    {"DeleteInTarget", "loadurl h/delete; loadurl h/a", "/delete /a", kControl + "/a%7Fz\".\n"},
    {"ControlInHost", "delveacrosshosts on; loadurl h/host; loadurl h/a", "/host /a",
     kControl + "%1Fz/\".\n"},
    {"HighBytesInTarget", "loadurl h/high; loadurl h/a", "/high /a /\xc3\xa9"},
    {"QueueDepth", kRoot + "delvedepth 3; maxqueuedepth 1", "/ /a /b /e"},
};
INSTANTIATE_TEST_SUITE_P(Site, Taken, testing::ValuesIn(kCrawls), rowName);

}  // namespace
