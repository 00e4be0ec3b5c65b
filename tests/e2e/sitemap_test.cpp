// Runs whose seeds come from sitemaps.
#include "Agent.h"
#include "Pack.h"

namespace {

std::string url(const std::string &path, const std::string &more = "")
{
    return "<url><loc>" + path + "</loc>" + more + "</url>";
}
std::string index(int count)
{
    std::string text = "<sitemapindex>";
    for (int i = 0; i < count; ++i) {
        text += "<sitemap><loc>/none" + std::to_string(i) + "</loc></sitemap>";
    }
    return text + "</sitemapindex>";
}

// The site, whose other pages are plain. The seeds "/s.xml" and "/n.xml.gz" name each other.
const std::multimap<std::string, Reply> kSite = {
    {"http://h/s.xml",
     Reply::ok("<sitemapindex><sitemap><loc>http://h/n.xml.gz</loc></sitemap><sitemap><loc>/s.xml"
               "</loc></sitemap></sitemapindex>")},
    {"http://h/n.xml.gz",
     Reply::ok(pack("gzip", {"<urlset>" + url("/s.xml", "<priority>1.0</priority>") +
                             url("/low", "<priority>0.1</priority>") +
                             url("/top", "<priority>1</priority><lastmod>x</lastmod>") +
                             url("/old", "<lastmod>2020-01-01</lastmod>") + url("http://o/x") +
                             "</urlset>"}))},
    {"http://h/coded.txt",
     Reply::ok(pack("br", {"http://h/a\nhttp://h/b\n"}), "text/html\r\nContent-Encoding: br")},
    {"http://h/cut.txt",
     {{{"HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\nhttp://h/a\nhttp://h/b"}},
      Reply::Then::Close}},
    {"http://h/close.txt", {{{"HTTP/1.1 200 OK\r\n\r\nhttp://h/a\n"}}, Reply::Then::Close}},
    {"http://h/moved", Reply::head("302 Found\r\nLocation: /coded.txt")},
    {"http://h/robots.txt", Reply::ok("Sitemap: http://h/coded.txt\n")},
    {"http://o/robots.txt", Reply::ok("Sitemap: /o.txt\n")},
    {"http://o/o.txt", Reply::ok("http://o/x\n")},
    {"http://h/away", Reply::head("302 Found\r\nLocation: http://www.h/s.xml")},
    {"http://h/others.txt", Reply::ok("http://o/a\n")},
    {"http://h/gone", {{}, Reply::Then::Close}},
    {"http://h/footer", Reply::html("<a href=\"/coded.txt\">")},
    {"http://h/i.xml",
     Reply::ok("<sitemapindex><sitemap><loc>/coded.txt</loc></sitemap></sitemapindex>")},
    {"http://h/many.xml", Reply::ok(index(25))},
    {"http://h/page", Reply::html("<a href=\"/a\"><a href=\"/link\">")},
};

struct RunRow : Row {
    std::string directives;
    std::string asked;
    std::string errors = "";  // on standard error, "; " between the lines
};

class SitemapRun : public testing::TestWithParam<RunRow> {};

TEST_P(SitemapRun, AsksForOtherUrls)
{
    const RunRow &row = GetParam();
    const ScriptedPeer peer([](const ScriptedPeer &, const ScriptedPeer::Request &request) {
        const bool isNone = request.target.find("/none") != std::string::npos;
        const auto found = kSite.find(request.target);
        return isNone                 ? Reply::head("404 No")
               : found == kSite.end() ? Reply::ok("plain")
                                      : found->second;
    });
    Agent agent(peer.port(), "numclients 1; readtimeout 2; " + row.directives);
    agent.startWith("-r proxy.conf");
    agent.finish();
    EXPECT_EQ(peer.asked(), row.asked);
    EXPECT_EQ(agent.process->err(), agent.expand(row.errors));
}

std::string statuses()
{
    std::string lines;
    for (int i = 0; i < 20; ++i) {
        lines += "refetchd: http://h/none" + std::to_string(i) + ": status 404; ";
    }
    return lines;
}
std::string nones()
{
    std::string all;
    for (int i = 0; i < 25; ++i) {
        all += " /none" + std::to_string(i);
    }
    return all;
}

const std::string kCoded = "/coded.txt /a /b";
const RunRow kRuns[] = {
    {"IndexOfGzipFileThatLeadsBack", "loadsitemap h/s.xml", "/s.xml /n.xml.gz /top /old /low"},
    {"Since", "loadsitemap h/s.xml since 2 days", "/s.xml /n.xml.gz /top /low"},
    {"SinceThatIsBad", "loadsitemap h/s.xml since 2 apples", "/s.xml /n.xml.gz /top /old /low"},
    {"OtherHost", "loadsitemap h/s.xml; delveacrosshosts on",
     "/s.xml /n.xml.gz /top /old http://o/x /low"},
    {"ByDepth", "loadsitemap h/s.xml; breadthfirst on", "/s.xml /n.xml.gz /low /top /old"},
    {"EachRunAnew", "loadsitemap h/coded.txt; refetchdrepeat 2", kCoded + " " + kCoded},
    {"KnownSeeds", "loadurl h/a; loadurl h/coded.txt; loadsitemap h/coded.txt",
     "/a /coded.txt /coded.txt /b"},
    {"Http11", "http11 on; loadsitemap h/coded.txt", kCoded},
    {"Moved", "loadsitemap h/moved", "/moved " + kCoded},
    {"MovedHttp11", "http11 on; loadsitemap h/moved", "/moved " + kCoded},
    {"FirstVariantOnly", "variant A: 1; variant A: 2; loadsitemap h/coded.txt",
     "/coded.txt /coded.txt /a /a /b /b"},
    {"CutOff", "loadsitemap h/cut.txt", "/cut.txt /a",
     "refetchd: http://h/cut.txt: it is cut off (1 URL was taken before); "},
    {"UpToTheClose", "loadsitemap h/close.txt", "/close.txt /a"},
    {"LinksBelowSeeds", "loadurl h/page; loadsitemap h/coded.txt; delvedepth 1",
     "/page /coded.txt /a /link /b"},
    {"Robots", "loadsitemap auto; loadurl h/x; loadurl o; loadurl h/y; loadurl o:80/z",
     "/x http://o/ /y http://o/z /robots.txt /coded.txt http://o/robots.txt http://o/o.txt /a /b "
     "http://o/x"},
    {"RobotsInEachRun", "loadurl o/; loadsitemap auto; refetchdrepeat 2",
     "http://o/ http://o/robots.txt http://o/o.txt http://o/x "
     "http://o/ http://o/robots.txt http://o/o.txt http://o/x"},
    {"KnownAsALink", "loadurl h/footer; loadsitemap h/i.xml; delvedepth 1",
     "/footer /i.xml /coded.txt " + kCoded},
    {"MovedToAnotherHost", "loadsitemap h/away", "/away",
     "refetchd: http://h/away: it is redirected to http://www.h/s.xml, which delveacrosshosts "
     "excludes; "},
    {"NoUrlIsWanted", "loadsitemap h/others.txt", "/others.txt",
     "refetchd: http://h/others.txt: it names no URL that may be requested, the last one because "
     "of delveacrosshosts; "},
    {"NoAnswer", "loadsitemap h/gone", "/gone",
     "refetchd: http://h/gone: connection closed before an answer; "},
    {"MaxHostUrls", "loadsitemap h/s.xml; maxhosturls 3", "/s.xml /n.xml.gz /low"},
    {"MaxUrls", "loadsitemap h/s.xml; maxurls 3", "/s.xml /n.xml.gz /low"},
    {"ManyFaultsInTwoRuns", "loadsitemap h/many.xml; refetchdrepeat 2",
     "/many.xml" + nones() + " /many.xml" + nones(),
     statuses() + "refetchd: 5 more messages about sitemaps; " + statuses() +
         "refetchd: 5 more messages about sitemaps; "},
};
INSTANTIATE_TEST_SUITE_P(Sitemap, SitemapRun, testing::ValuesIn(kRuns), rowName);

TEST(SitemapReport, DoesNotCountThem)
{
    const ScriptedPeer peer(kSite);
    Agent agent(peer.port(),
                "serverroot @dir@; loadsitemap auto; loadurl h/x; "
                "loadsitemap h/coded.txt; resultslog r");
    agent.run();
    EXPECT_THAT(agent.report(), testing::HasSubstr("refresh:</td>\n <td align=right>3</td>"));
    EXPECT_THAT(agent.dir.read("r"),
                testing::HasSubstr("\"url\":\"http://h/b\",\"source\":\"admin\""));
}

}  // namespace
