// Links followed through a small site: how deep, from which pages, within which limits.
#include "Agent.h"

namespace {

const std::multimap<std::string, Reply> kSite = {
    {"http://h/",
     Reply::html("<A HREF=\"a#top\"><img src='i.gif' ><frame src=/f ><IFRAME src=\"./r\">"
                 "<a href=http://o/x ><a href=\"/moved\"><a href=\"/a\"><a href=\"/\">")},
    {"http://h/a", Reply::html("<a href=\"b\"><a href=\"/\">")},
    {"http://h/b", Reply::html("<a href=\"e\">")},
    {"http://h/f", Reply::html("<a href=\"c\"><img src=\"j.gif\">")},
    {"http://h/r", Reply::html("<img src=\"k.gif\"><a href=\"d\">")},
    {"http://o/x", Reply::html("<a href=\"y\"><img src=\"z\"><img src=\"http://h/z\">")},
    {"http://h/moved", Reply::head("302 Moved\r\nLocation: /to")},
    {"http://h/to", Reply::html("<a href=\"g\">")},
    {"http://h/top", Reply::html("<frame src=\"t/u\"><a href=\"v\">")},
    {"http://h/t/u", Reply::html("<img src=\"../w.gif\">")},
};

struct CrawlRow : Row {
    std::string directives;
    const char *asked;  // by one worker, in this order
};

class Crawl : public testing::TestWithParam<CrawlRow> {};

TEST_P(Crawl, AsksForExactlyThese)
{
    const ScriptedPeer peer(kSite);
    Agent agent(peer.port(), "numclients 1; readtimeout 1; " + GetParam().directives,
                "9 5% http://h/top");
    agent.run();
    EXPECT_EQ(peer.asked(), GetParam().asked) << agent.process->err();
}

const std::string kRoot = "loadurl h/; ";
const std::string kOne = kRoot + "delvedepth 1; ";
const std::string kTop =
    kRoot + "serverroot @dir@; caching always; loadtopcached 1; hostname 127.0.0.1; ";

const CrawlRow kCrawls[] = {
    {"DepthZero", kRoot, "/ /i.gif /f /j.gif"},
    {"DepthTwo", kRoot + "delvedepth 2", "/ /a /i.gif /f /r /moved /b /c /j.gif /k.gif /d /to /g"},
    {"AcrossHosts", kOne + "delveacrosshosts on",
     "/ /a /i.gif /f /r http://o/x /moved /c /j.gif /k.gif http://o/z /z /to"},
    {"Ignored", kOne + "ignoreurl *.gif; ignoreurl */m*", "/ /a /f /r /c"},
    {"Only", kOne + "onlyurl *h/a; onlyurl *.gif", "/ /a /i.gif"},
    {"ImagesOff", kOne + "loadinlineimages off", "/ /a /f /r /moved /c /to"},
    {"DelveTopN", kTop + "delveinto topn", "/ /top /t/u /w.gif"},
    {"DelveNever", kTop + "delveinto never", "/ /top"},
    {"HostUrls", kOne + "delveacrosshosts on; maxhosturls 3 H",
     "/ /a /i.gif http://o/x http://o/z"},
    {"HostUrlsOfAllRuns", kOne + "maxhosturls 3; refetchdrepeat 2", "/ /a /i.gif /"},
    {"MaxUrlsSeedsIncluded", kRoot + kRoot + "maxurls 3", "/ / /i.gif"},
    {"MaxUrlsNotMoved", "loadurl h/moved; maxurls 1", "/moved"},
    {"QueueDepth", kRoot + "delvedepth 3; maxqueuedepth 1", "/ /a /b /e"},
};
INSTANTIATE_TEST_SUITE_P(Site, Crawl, testing::ValuesIn(kCrawls), rowName);

}  // namespace
