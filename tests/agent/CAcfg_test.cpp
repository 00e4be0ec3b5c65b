// Directives, and the check of the proxy's host.
#include "config/CAcfg.h"

#include <gmock/gmock.h>

#include "AgentTest.h"
#include "HTInet.h"

namespace {

struct DirectiveRow : Row {
    const char *lines;
    const char *traced;
};

class Directive : public AgentTestWith<DirectiveRow> {};

TEST_P(Directive, IsReportedOtherwise)
{
    configure(GetParam().lines);
    const std::string path = dir_.path("proxy.conf");
    EXPECT_EQ(trace(), "Loading..... config file \"" + path + "\".\n" + GetParam().traced);
}

const DirectiveRow kDirectives[] = {
    {"Unknown", "cacheroot /x\n# caching on\n\n}\n", ""},
    {"Alone", "Load-URL\n", "Config...... insufficient parameters for directive Load-URL\n"},
    {"Blocks", "acl x {\nport 1\n}\nport 2\n{\nalone\nport 3 {\n}\nport 4\na {\nb {\n}\nport 5\n",
     "Host port... 2.\nHost port... 4.\nHost port... 5.\n"},
    {"NoErrorLog", "errorlog none\n", "Could not determine the directory for the error log.\n"},
    {"HugeNumber", "loadtopcached 99999999999\n", "Will load top 2147483647 cached URLs.\n"},
    {"QueriesAll", "cachequeries ON\ncachequeries public x\n", "Will cache all queries.\n"},
    {"QueriesSome", "cachequeries O_F_F x\ncachequeries PUBLIC *a* *\n",
     "Cache Agent ignoring CacheQueries directive with off.\n"
     "Will cache queries for URLs matching \"*a*\".\nWill cache all queries.\n"},
    {"LoadUrlQuery", "loadurl h/?x\n",
     "Simplify.... path down to \"/?x\".\nNot loading... URL with ? \"h/?x\".\n"},
    {"Words", "caching sometimes\nloadinlineimages enabled\ndelveinto topn\ndelay never\n",
     "Caching..... is NOT specified.\nInline...... images will be loaded.\n"
     "Delving..... into linked documents TOPN_ONLY.\nDelay....... 0ms between requests.\n"},
    {"ClientsCut", "numclients 101\nnumclients 100\n",
     "Clients..... got 101, downgrading to 100.\nClients..... 100.\nClients..... 100.\n"},
    {"Unlimited", "maxqueuedepth 0\n", "Queue....... max depth is 2147483647.\n"},
    {"RunTime", "maxruntime forever\nmaxruntime 5 X\nmaxruntime 0:1:0:1",
     "LoadConfig.. got maxruntime of 0\n"
     "LoadConfig.. got maxruntime of zero, we'll run as long as it takes\n"
     "ERROR....... Invalid time specifier: 5 x\nLoadConfig.. invalid maxruntime: 5 x.\n"
     "ERROR....... Too many colons in time specifier: 0:1:0:1\n"
     "LoadConfig.. invalid maxruntime: 0:1:0:1.\n"},
    {"HostLimits", "Max-Host_URLs 5\nmaxhosturls 6 a* \"b *\"\n",
     "LoadConfig.. we will make no more than 5 requests to all other hosts.\n"
     "LoadConfig.. we will make no more than 6 requests to hosts matching \"a*\".\n"
     "LoadConfig.. we will make no more than 6 requests to hosts matching \"b *\".\n"},
    {"SaveRoot", "slr \\s\\t\nslr /s/\n", "SLR......... \"/s/t/\".\nSLR......... \"/s/\".\n"},
    {"Version", "refetchdhttpversion 1.1\n",
     "httpVer..... HTTP/1.1 is not fully supported, using 1.0\nhttpVer..... HTTP/1.0.\n"},
};
INSTANTIATE_TEST_SUITE_P(CAcfg, Directive, testing::ValuesIn(kDirectives), rowName);

class CAcfgTest : public AgentTest {};

TEST_F(CAcfgTest, FlagsWithoutMessagesFollowTheirOwnRules)
{
    const auto flags = [] {
        return std::vector{ac.saveFiles, ac.stressMode, ac.transparentProxy, ac.connectToHost};
    };
    configure("slf ON\nstressmode enabled\ntransparentproxy ON\nconnecttohost On\n");
    EXPECT_EQ(flags(), (std::vector{1, 1, 0, 0}));
    configure("slf off\nstressmode off\ntransparentproxy on\nconnecttohost on\n");
    EXPECT_EQ(flags(), (std::vector{1, 0, 1, 1}));
}

struct HostRow : Row {
    const char *directives;
    const char *told;  // last, before "top N."
    int topCached = 0;
};

class ProxyHost : public AgentTestWith<HostRow> {};

TEST_P(ProxyHost, IsComparedOtherwise)
{
    const std::string before(HTHostName());
    const std::string lines = std::string("loadtopcached 9\n") + GetParam().directives;
    EXPECT_EQ(ac.load(urlQueue, dir_.write("proxy.conf", lines).c_str()), 1);
    HTSetHostName(before.c_str());
    EXPECT_THAT(trace(), testing::EndsWith(GetParam().told + std::string(" top N.\n")));
    EXPECT_EQ(ac.topCachedCount, GetParam().topCached);
}

const HostRow kHosts[] = {
    {"FromDaemonConfig", "hostname p.x\n", "Hosts....... match (p.x, p.x) --> use", 9},
    {"ShortProxy", "hostname p.x\nupdateproxy p:80\n", "match (p.x, p) --> use", 9},
    {"ShortLocal", "hostname p\nupdateproxy p.x\n", "match (p, p.x) --> use", 9},
    {"OtherShortProxy", "hostname p.x\nupdateproxy q:1\n",
     "Mismatch.... on hostname vs proxyname (p.x, q, 1 chars) --> nothing from the"},
    {"OtherShortLocal", "hostname pp\nupdateproxy p.x\n",
     "(pp, p.x, 2 chars) --> nothing from the"},
    {"SameLabelOnly", "hostname p.x\nupdateproxy p.y:1\n", "(p.x, p.y) --> nothing from the"},
};
INSTANTIATE_TEST_SUITE_P(CAcfg, ProxyHost, testing::ValuesIn(kHosts), rowName);

}  // namespace
