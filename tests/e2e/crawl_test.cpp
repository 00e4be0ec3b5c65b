// Links followed through a small site: how deep, from which pages, within which limits; and the
// copies that are kept of it.
#include <gtest/gtest.h>

#include "Agent.h"
#include "Site.h"

namespace {

const std::map<std::string, Reply> kSite = {
    {"http://h/", htmlPage("<A HREF=\"a#top\"><img src='i.gif' ><frame src=/f ><IFRAME src=\"./r\">"
                           "<a href=http://o/x ><a href=\"/moved\"><a href=\"/a\"><a href=\"/\">")},
    {"http://h/a", htmlPage("<a href=\"b\"><a href=\"/\">")},
    {"http://h/b", htmlPage("<a href=\"e\">")},
    {"http://h/f", htmlPage("<a href=\"c\"><img src=\"j.gif\">")},
    {"http://h/r", htmlPage("<img src=\"k.gif\"><a href=\"d\">")},
    {"http://o/x", htmlPage("<a href=\"y\"><img src=\"z\"><img src=\"http://h/z\">")},
    {"http://h/moved", {{{"HTTP/1.0 302 Moved\r\nLocation: /to\r\n\r\n"}}}},
    {"http://h/away", {{{"HTTP/1.0 302 Moved\r\nLocation: http://o/x\r\n\r\n"}}}},
    {"http://h/to", htmlPage("<a href=\"g\">")},
    {"http://h/top", htmlPage("<frame src=\"t/u\"><a href=\"v\">")},
    {"http://h/t/u", htmlPage("<img src=\"../w.gif\">")},
};

struct CrawlRow : Row {
    std::string directives;
    const char *targets;  // in the order in which one worker asks for them, without "http://h"
};

class Crawl : public testing::TestWithParam<CrawlRow> {};

TEST_P(Crawl, AsksForExactlyThese)
{
    const ScriptedPeer peer(kSite);
    Agent agent(peer.port(), "numclients 1; readtimeout 1; " + GetParam().directives,
                "9 5% http://h/top");
    agent.run();
    std::string targets;
    for (const std::string &target : peer.targets()) {
        targets += (target.starts_with("http://h/") ? target.substr(8) : target) + " ";
    }
    EXPECT_EQ(targets, std::string(GetParam().targets) + " ") << agent.process->err();
}

const std::string kRoot = "loadurl h/; ";
const std::string kOne = kRoot + "delvedepth 1; ";
const std::string kTop =
    kRoot + "serverroot @dir@; caching always; loadtopcached 1; hostname 127.0.0.1; ";

const CrawlRow kCrawls[] = {
    {"DepthZero", kRoot, "/ /i.gif /f /j.gif"},
    {"DepthOne", kOne, "/ /a /i.gif /f /r /moved /c /j.gif /k.gif /to"},
    {"DepthTwo", kRoot + "delvedepth 2", "/ /a /i.gif /f /r /moved /b /c /j.gif /k.gif /d /to /g"},
    {"AcrossHosts", kOne + "delveacrosshosts on",
     "/ /a /i.gif /f /r http://o/x /moved /c /j.gif /k.gif http://o/z /z /to"},
    {"MovedToAnotherHost", "loadurl h/away", "/away"},
    {"Ignored", kOne + "ignoreurl *.gif; ignoreurl */m*", "/ /a /f /r /c"},
    {"Only", kOne + "onlyurl *h/a; onlyurl *.gif", "/ /a /i.gif"},
    {"ImagesOff", kOne + "loadinlineimages off", "/ /a /f /r /moved /c /to"},
    {"DelveTopN", kTop + "delveinto topn", "/ /top /t/u /w.gif"},
    {"DelveNever", kTop + "delveinto never", "/ /top"},
    {"HostUrls", kOne + "delveacrosshosts on; maxhosturls 3 H",
     "/ /a /i.gif http://o/x http://o/z"},
    {"HostUrlsOfAllRuns", kOne + "maxhosturls 3; refetchdrepeat 2", "/ /a /i.gif /"},
    {"MaxUrls", kOne + "maxurls 3", "/ /a /i.gif"},
    {"MaxUrlsSeedsIncluded", kRoot + kRoot + "maxurls 3", "/ / /i.gif"},
    {"MaxUrlsNotMoved", "loadurl h/moved; maxurls 1", "/moved"},
    {"QueueDepth", kRoot + "delvedepth 3; maxqueuedepth 1", "/ /a /b /e"},
};
INSTANTIATE_TEST_SUITE_P(Site, Crawl, testing::ValuesIn(kCrawls), rowName);

// The page is cut up while it is scanned, and neither body ends with a block that was read.
TEST(CrawlSave, PageAndImageAreKeptByteForByte)
{
    const std::string image = std::string(9000, '\0') + "<>\r\n\xff";
    const std::string page = "<img src=\"/d/i.gif\">" + std::string(5000, ' ') + "<a href=\"n\">";
    const ScriptedPeer peer({{"http://h:8080/", htmlPage(page)},
                             {"http://h:8080/d/i.gif", Reply::ok(image)},
                             {"http://h:8080/n", {{{"HTTP/1.0 404 No\r\n\r\n"}}}}});
    Agent agent(peer.port(), "delvedepth 1; loadurl h:8080; slr @dir@/save; slf on");
    agent.run();
    EXPECT_EQ(peer.requests().size(), 3U);
    EXPECT_EQ(agent.dir.read("save/h:8080//index.html"), page);
    EXPECT_EQ(agent.dir.read("save/h:8080//d/i.gif"), image);
    EXPECT_EQ(agent.traced("Creating.... file"), 2) << agent.process->err();
}

}  // namespace
