// Directives, filters, seeds and the check of the proxy's host.
#include "CAcfg.h"

#include <gmock/gmock.h>

#include "AgentTest.h"
#include "HTInet.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

struct DirectiveRow : Row {
    const char *lines;
    std::string traced;  // in @dir@ stands the directory
};

class Directive : public AgentTestWith<DirectiveRow> {};

TEST_P(Directive, IsReportedOtherwise)
{
    configure(GetParam().lines);
    const std::string path = dir_.path("proxy.conf");
    EXPECT_EQ(trace(), "Loading..... config file \"" + path + "\".\n" + GetParam().traced);
}

INSTANTIATE_TEST_SUITE_P(
    CAcfg, Directive,
    testing::Values(
        DirectiveRow{"Unknown", "cacheroot /x\n# caching on\n\n}\n", ""},
        DirectiveRow{"Alone", "Load-URL\n",
                     "Config...... insufficient parameters for directive Load-URL\n"},
        DirectiveRow{"Blocks", "acl x {\nport 1\n}\nport 2\n{\nalone\nport 3 {\n}\nport 4\n",
                     "Host port... 2.\nHost port... 4.\n"},
        DirectiveRow{"OneEndsAllBlocks", "a {\nb {\n}\nport 5\n", "Host port... 5.\n"},
        DirectiveRow{"ErrorLogNowhere", "errorlog none\n",
                     "Could not determine the directory for the error log.\n"},
        DirectiveRow{"Caching", "caching on\ncaching sometimes\n",
                     "Caching..... is specified.\nCaching..... is NOT specified.\n"},
        DirectiveRow{"NumberBeyond32Bits", "loadtopcached 99999999999\n",
                     "Will load top 2147483647 cached URLs.\n"},
        DirectiveRow{"QueriesAll", "cachequeries ON\ncachequeries public x\n",
                     "Will cache all queries.\n"},
        DirectiveRow{"QueriesSome", "cachequeries PUBLIC *a* *\n",
                     "Will cache queries for URLs matching \"*a*\".\nWill cache all queries.\n"},
        DirectiveRow{"QueriesNone", "cachequeries O_F_F x\n",
                     "Cache Agent ignoring CacheQueries directive with off.\n"},
        DirectiveRow{"LoadUrlQuery", "loadurl h/?x\n",
                     "Simplify.... path down to \"/?x\".\n"
                     "Not loading... URL with ? \"h/?x\".\n"},
        DirectiveRow{
            "Images", "loadinlineimages never\nloadinlineimages enabled\n",
            "Inline...... images will NOT be loaded.\nInline...... images will be loaded.\n"},
        DirectiveRow{"Delving", "delveinto topn\ndelvedepth 3\ndelveacrosshosts ok\n",
                     "Delving..... into linked documents TOPN_ONLY.\n"
                     "Delving..... max depth is 3.\nDelving..... will cross hosts.\n"},
        DirectiveRow{"ClientsCut", "numclients 250\nnumclients 100\nnumclients -1\n",
                     "Clients..... got 250, downgrading to 100.\nClients..... 100.\n"
                     "Clients..... 100.\nClients..... -1.\n"},
        DirectiveRow{"Delays", "delay yes\ndelay never\ndelayperiod 250\n",
                     "Delay....... 10000ms between requests.\nDelay....... 0ms between requests.\n"
                     "Delay....... 250ms between requests.\n"},
        DirectiveRow{"Unlimited", "maxqueuedepth 0\nmaxurls 0\nmaxurls 5\n",
                     "Queue....... max depth is 2147483647.\nMax URLs.... 2147483647.\n"
                     "Max URLs.... 5.\n"},
        DirectiveRow{"RunTime", "maxruntime 1 hour 30 min\nmaxruntime forever\nmaxruntime 5 X\n",
                     "LoadConfig.. got maxruntime of 5400\nLoadConfig.. got maxruntime of 0\n"
                     "LoadConfig.. got maxruntime of zero, we'll run as long as it takes\n"
                     "ERROR....... Invalid time specifier: 5 x\n"
                     "LoadConfig.. invalid maxruntime: 5 x.\n"},
        DirectiveRow{
            "HostLimits", "Max-Host_URLs 5\nmaxhosturls 6 a* \"b *\"\n",
            "LoadConfig.. we will make no more than 5 requests to all other hosts.\n"
            "LoadConfig.. we will make no more than 6 requests to hosts matching \"a*\".\n"
            "LoadConfig.. we will make no more than 6 requests to hosts matching \"b *\".\n"},
        DirectiveRow{"SaveRoot", "slr \\tmp\\save\nslr /s/\n",
                     "SLR......... \"/tmp/save/\".\nSLR......... \"/s/\".\n"},
        DirectiveRow{"Version", "refetchdhttpversion 1.1\nrefetchdhttpversion 1.0\n",
                     "httpVer..... HTTP/1.1 is not fully supported, using 1.0\n"
                     "httpVer..... HTTP/1.0.\nhttpVer..... HTTP/1.0.\n"},
        DirectiveRow{"Patterns", "ignoreurl *.gif x\nonlyurl http://h/*\nupdateproxy p:1\n",
                     "Ignoring.... URLs matching \"*.gif\".\n"
                     "Only........ requesting URLs matching \"http://h/*\".\n"
                     "Proxy....... being updated is \"p:1\".\n"}),
    rowName);

class CAcfgTest : public AgentTest {};

TEST_F(CAcfgTest, FlagsWithoutMessagesFollowTheirOwnRules)
{
    configure("slf ON\nstressmode enabled\ntransparentproxy ON\nconnecttohost On\n");
    EXPECT_EQ(ac.saveFiles, 1);
    EXPECT_EQ(ac.stressMode, 1);
    EXPECT_EQ(ac.transparentProxy, 0);
    EXPECT_EQ(ac.connectToHost, 0);
    configure("slf off\nstressmode off\ntransparentproxy on\nconnecttohost on\n");
    EXPECT_EQ(ac.saveFiles, 1);
    EXPECT_EQ(ac.stressMode, 0);
    EXPECT_EQ(ac.transparentProxy, 1);
    EXPECT_EQ(ac.connectToHost, 1);
}

struct HostRow : Row {
    const char *local;
    const char *proxy;
    const char *traced;
    int topCached;
};

class ProxyHost : public AgentTestWith<HostRow> {};

TEST_P(ProxyHost, IsComparedOtherwise)
{
    const std::string file = dir_.write(
        "proxy.conf", std::string("loadtopcached 9\nhostname ") + GetParam().local + "\n" +
                          (*GetParam().proxy != '\0' ? std::string("updateproxy ") : "") +
                          GetParam().proxy + "\n");
    const std::string before(HTHostName());
    EXPECT_EQ(ac.load(urlQueue, file.c_str()), 1);
    HTSetHostName(before.c_str());
    EXPECT_THAT(trace(), EndsWith(GetParam().traced));
    EXPECT_EQ(ac.topCachedCount, GetParam().topCached);
}

INSTANTIATE_TEST_SUITE_P(
    CAcfg, ProxyHost,
    testing::Values(
        HostRow{"Same", "p.x", "p.x:80", "Hosts....... match (p.x, p.x) --> use top N.\n", 9},
        HostRow{"FromDaemonConfig", "p.x", "",
                "Proxy....... p.x:80 determined from daemon config file.\n"
                "Hosts....... match (p.x, p.x) --> use top N.\n",
                9},
        HostRow{"ShortProxy", "p.x", "p:80", "Hosts....... match (p.x, p) --> use top N.\n", 9},
        HostRow{"ShortLocal", "p", "p.x", "Hosts....... match (p, p.x) --> use top N.\n", 9},
        HostRow{"OtherShortProxy", "p.x", "q:1",
                "Mismatch.... on hostname vs proxyname (p.x, q, 1 chars) --> nothing from the top "
                "N.\n",
                0},
        HostRow{"OtherShortLocal", "pp", "p.x",
                "Mismatch.... on hostname vs proxyname (pp, p.x, 2 chars) --> nothing from the top "
                "N.\n",
                0},
        HostRow{"SameLabelOnly", "p.x", "p.y:1",
                "Mismatch.... on hostname vs proxyname (p.x, p.y) --> nothing from the top N.\n",
                0}),
    rowName);

struct FilterRow : Row {
    const char *directives;
    const char *url;
    int ignored;
    int leftOut;       // by the only-list
    int queryAllowed;  // when it had one
};

class Filter : public AgentTestWith<FilterRow> {};

TEST_P(Filter, JudgesOtherwise)
{
    configure(GetParam().directives);
    const CAURL url(GetParam().url);
    const std::size_t held = HTThread_context()->pool.held();
    EXPECT_EQ(ac.ignoreURL(&url), GetParam().ignored);
    EXPECT_EQ(ac.onlyCheck(&url), GetParam().leftOut);
    EXPECT_EQ(ac.cacheThisQuery(&url), GetParam().queryAllowed);
    EXPECT_EQ(HTThread_context()->pool.held(), held);
}

INSTANTIATE_TEST_SUITE_P(
    CAcfg, Filter,
    testing::Values(
        FilterRow{"NoLists", "", "http://h/a", 0, 0, 0},
        FilterRow{"CaseCounts", "ignoreurl *.gif\nonlyurl *h/*\n", "http://h/A.GIF", 0, 0, 0},
        FilterRow{"Ignored", "ignoreurl *.gif\nignoreurl *.png\n", "http://h/a.gif", 1, 0, 0},
        FilterRow{"LeftOut", "onlyurl http://g/*\n", "http://h/a", 0, 1, 0},
        FilterRow{"QueryDecoded", "cachequeries on *b?*\n", "http://h/%62?q", 0, 0, 1},
        FilterRow{"QueryNeedsTheWholeText", "cachequeries on /a*\n", "http://h/a?q", 0, 0, 0}),
    rowName);

}  // namespace
