// Directives, with the examples of docs/directives.txt, what their values mean, and the check of
// the proxy's host.
#include "config/CAcfg.h"

#include <climits>
#include <fstream>
#include <regex>
#include <set>

#include "AgentTest.h"
#include "GuardedText.h"
#include "HTInet.h"
#include "HTString.h"
#include "base/CAwhen.h"
#include "config/CAdirectives.h"

namespace {

using namespace std::string_literals;

struct DirectiveRow {
    std::string name;
    std::string lines;
    std::string traced;
    std::string byDefault = "none";  // of those that are documented
};

class Directive : public AgentTestWith<DirectiveRow> {};

TEST_P(Directive, IsReportedOtherwise)
{
    std::snprintf(refetchd_LocaleString, sizeof(refetchd_LocaleString), "LOCALE");
    // Directories of an installed agent.
    std::filesystem::create_directories(dir_.path("var/lib/refetchd/pub/LOCALE/reports"));
    std::filesystem::create_directories(dir_.path("var/log/refetchd"));
    dir_.write("var/lib/refetchd/urls.txt", "");
    const auto below = [this](const std::string &text) {
        return std::regex_replace(text, std::regex("/var/"), dir_.path("var/"));
    };
    configure(below(GetParam().lines));
    const std::string text = trace() + dir_.read("var/log/refetchd/trace.log");
    EXPECT_EQ(text.substr(text.find('\n') + 1), below(GetParam().traced));
}

const DirectiveRow kDirectives[] = {
    {"Unknown", "cacheroot /x\n# caching on\n\n}\n", ""},
    {"Alone", "Load-URL\n", "Config...... insufficient parameters for directive Load-URL\n"},
    {"Blocks",
     "acl x {\nport 1\n}\nport 2\n{\nalone\nport 3 {\n}\nport 4\na {\nb {\n}\nport 6 {\n}\nport "
     "5\n",
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
    {"BreadthWait", "breadthwait 0\nbreadthwait 5m\nbreadthwait -1\n",
     "Order....... a level waits for answers without a limit.\n"
     "LoadConfig.. invalid breadthwait: 5m.\nLoadConfig.. invalid breadthwait: -1.\n"},
    {"Unlimited", "maxqueuedepth 0\n", "Queue....... max depth is 2147483647.\n"},
    {"RunTime", "  maxruntime forever\nmaxruntime 5 X\nmaxruntime 0:1:0:1",
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
    {"Variants",
     "variant User-Agent: M (X; U: en; +http://x; z);  Accept:  a, b;q=0.1 ;C:d ; E: f;\n"
     "variant \"U: a; B: c\" ; \"D: e; F: g\"\nvariant a:b; http://c\nvariant cache-control: x\n"
     "variant A: b; B: c; a: c\nvariant A: ;\nvariant a/b: c\nvariant A; B: c\n",
     "Variant..... 1 is \"User-Agent: M (X; U: en; +http://x; z); Accept: a, b;q=0.1; C: d; E: "
     "f\".\n"
     "Variant..... 2 is \"U: a; B: c; D: e; F: g\".\n"
     "Variant..... 3 is \"a: b; http://c\".\n"
     "Variant..... refused: the agent sends its own.\n"
     "Variant..... refused: it names a header twice.\n"
     "Variant..... refused: a header has no value.\n"
     "Variant..... refused: not a valid header name.\n"
     "Variant..... refused: a header has no value.\n"},
    {"Version", "refetchdhttpversion 1.1\n",
     "httpVer..... HTTP/1.1 is not fully supported, using 1.0\nhttpVer..... HTTP/1.0.\n"},
};
INSTANTIATE_TEST_SUITE_P(CAcfg, Directive, testing::ValuesIn(kDirectives), rowName);

// Traced before the message of the example; of no interest to readers of the document.
// What is traced of a documented seed in front of its message.
std::string tracedSeed(const std::string &directive)
{
    const bool isPage = directive == "loadurl";
    const std::string host = isPage ? "www.example.com" : "shop.example.com";
    return !isPage && directive != "loadsitemap"
               ? ""
               : "Simplify.... path down to \"/" + std::string(isPage ? "" : "sitemap.xml") +
                     "\".\nAdding...... 1 hit(s) for host \"" + host +
                     "\".\nAdded....... new host \"" + host + "\" to host table.\n";
}

std::vector<DirectiveRow> documentedDirectives()
{
    std::vector<DirectiveRow> directives;
    std::ifstream file(SOURCE_DIRECTORY "/docs/directives.txt");
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && std::islower(line[0]) != 0) {
            directives.push_back({line, "", tracedSeed(line)});
        } else if (line.starts_with("    example  ")) {
            directives.back().lines += line.substr(13) + "\n";
        } else if (line.starts_with("    default  ")) {
            directives.back().byDefault = std::regex_replace(line.substr(13), std::regex("`"), "");
        } else if (line.starts_with("    message  ")) {
            directives.back().traced += line.substr(13) + "\n";
        }
    }
    return directives;
}
INSTANTIATE_TEST_SUITE_P(Docs, Directive, testing::ValuesIn(documentedDirectives()), rowName);

TEST(Docs, DirectiveIsMissingOrUnknownOrItsExampleOrDefaultIsOfAnother)
{
    const AgentState state;
    std::multiset<std::string_view> known;
    for (const CADirective &row : CADirectives()) {
        known.insert(row.name);
    }
    for (const DirectiveRow &directive : documentedDirectives()) {
        EXPECT_EQ(known.erase(directive.name), 1) << directive.name;
        EXPECT_TRUE(directive.lines.starts_with(directive.name + " "));
        const CADirective &row = *CAFindDirective(directive.name);
        const bool isOfTheMachine = row.name == "hostname" || row.name == "updateproxy";
        if (!isOfTheMachine && !CAAddsUp(row.takes) && row.meaning.empty()) {
            EXPECT_EQ(row.shown != nullptr ? row.shown(ac) : row.unset, directive.byDefault);
        }
    }
    EXPECT_THAT(known, testing::IsEmpty());
}

TEST_F(AgentTest, FlagsWithoutMessagesFollowTheirOwnRules)
{
    const auto flags = [] {
        return std::vector{ac.saveFiles, ac.stressMode, ac.transparentProxy, ac.connectToHost};
    };
    configure("slf ON\nstressmode enabled\ntransparentproxy ON\nconnecttohost On\n");
    EXPECT_EQ(flags(), (std::vector{1, 1, 0, 0}));
    configure("slf off\nstressmode off\ntransparentproxy on\nconnecttohost on\n");
    EXPECT_EQ(flags(), (std::vector{1, 0, 1, 1}));
}

struct ListRow : Row {
    std::string bytes;
    std::string read;  // seeds in the queue, and then the bad lines
};

class List : public AgentTestWith<ListRow> {};

TEST_P(List, LineIsReadOtherwise)
{
    configure("loadurl h/0\nloadlist " + dir_.write("list", GetParam().bytes) + "\n");
    std::string read;
    for (const std::string &seed : AgentState::drain()) {
        read += seed.substr(2) + ";";
    }
    const std::string text = trace();
    const std::regex bad("List.*list\": (line.*)[.]\n");
    for (std::sregex_iterator at(text.begin(), text.end(), bad), end; at != end; ++at) {
        read += (*at)[1].str() + ";";
    }
    EXPECT_EQ(read, "http://h/0;" + GetParam().read);
    EXPECT_EQ(ac.adminUrlCount, std::count(read.begin(), read.end(), '/') / 3);
}

std::string line(std::size_t length)
{
    return "http://h/" + std::string(length - 9, 'x');
}

const std::string kOdd = " contains a blank or a control character;";
const std::string kLong = " is longer than 4095 bytes;";

const ListRow kLists[] = {
    {"Urls", "h/a\nhttp://h/b#c\nftp://h/\xc3\xa9", "http://h/a;http://h/b;ftp://h/\xc3\xa9;"},
    {"Skipped", "\n \t\n#\n\t #h/a\n#" + line(9000) + "\n \th/a\t \n", "http://h/a;"},
    {"MarkAndLineEnds", "\xef\xbb\xbfh/a\r\nh/b \r\n\r\nh/c\r",
     "http://h/a;http://h/b;http://h/c;"},
    {"Odd", "h/a b\n\n#\nh/\ta\nh/\x7f\nh\r/\n"s + "h/\0\n\xef\xbb\xbf#\nh/b\n"s,
     "http://\xef\xbb\xbf/;http://h/b;line 1" + kOdd + "line 4" + kOdd + "line 5" + kOdd +
         "line 6" + kOdd + "line 7" + kOdd},
    {"Long", line(4095) + "\r\n" + line(4096) + "\n" + line(4095) + "\n" + line(99999) + "\nh/a",
     line(4095) + ";http://h/a;line 2" + kLong + "line 4" + kLong},
    {"LongBehindMark", "\xef\xbb\xbf" + line(4095) + "\r\n", line(4095) + ";"},
    {"TooLongBehindMark", "\xef\xbb\xbf" + line(4095) + "\rx\n", "line 1" + kLong},
    {"QueriesAndDuplicates", "h/?q\nh/0\nh/a\nh/b/../a\nhttp://h/0", "http://h/a;"},
};
INSTANTIATE_TEST_SUITE_P(CAcfg, List, testing::ValuesIn(kLists), rowName);

struct HostRow : Row {
    const char *directives;
    const char *traced;  // last, before "top N."
    int topCached = 0;
};

class ProxyHost : public AgentTestWith<HostRow> {};

TEST_P(ProxyHost, IsComparedOtherwise)
{
    const std::string before(HTHostName());
    const std::string lines = std::string("loadtopcached 9\n") + GetParam().directives;
    EXPECT_EQ(ac.load(urlQueue, dir_.write("proxy.conf", lines).c_str()), 1);
    HTSetHostName(before.c_str());
    EXPECT_THAT(trace(), testing::EndsWith(GetParam().traced + std::string(" top N.\n")));
    EXPECT_EQ(ac.topCachedCount, GetParam().topCached);
}

const HostRow kHosts[] = {
    {"FromDaemonConfig", "hostname p.x\n", "Hosts....... match (p.x, p.x) --> use", 9},
    {"BareAddress", "hostname ::1\nproxytls on\n",
     "Proxy....... [::1]:443 determined from daemon config file.\n"
     "Hosts....... match (::1, [::1]) --> use",
     9},
    {"PortOfTls", "port 80\nproxytls on\nhostname p\n",
     "Proxy....... p:80 determined from daemon config file.\nHosts....... match (p, p) --> use", 9},
    {"ShortProxy", "hostname p.x\nupdateproxy p:80\n", "match (p.x, p) --> use", 9},
    {"ShortLocal", "hostname p\nupdateproxy p.x\n", "match (p, p.x) --> use", 9},
    {"OtherShortProxy", "hostname p.x\nupdateproxy q:1\n",
     "Mismatch.... on hostname vs proxyname (p.x, q, 1 chars) --> nothing from the"},
    {"OtherShortLocal", "hostname pp\nupdateproxy p.x\n",
     "(pp, p.x, 2 chars) --> nothing from the"},
    {"SameLabelOnly", "hostname p.x\nupdateproxy p.y:1\n", "(p.x, p.y) --> nothing from the"},
};
INSTANTIATE_TEST_SUITE_P(CAcfg, ProxyHost, testing::ValuesIn(kHosts), rowName);

std::string flag(char *text)
{
    return positive(text) ? "yes" : negative(text) ? "no" : "neither";
}
std::string when(char *text)
{
    return CAWhenString(CAParseWhen(text));
}
std::string duration(char *text)
{
    long seconds = -1;
    return parse_time(text, 10, &seconds) == 1 ? std::to_string(seconds) : "invalid";
}

TEST(CAwhen, ValueMeansAnother)
{
    const struct {
        std::string (*read)(char *);
        std::string meaning;
        const char *texts;
    } rows[] = {
        {flag, "yes", "YES;O-n;ok;En_abled;pass;always so"},
        {flag, "no", "No;off;N_one;Dis-abled;failed;NEVER-ever"},
        {flag, "neither", "yess;okay;onn;noo;offf;nones;enabl"},
        {when, "ALWAYS", "Always;ON_;y-es"},
        {when, "ADMIN_ONLY", "Admin"},
        {when, "TOPN_ONLY", "Top-_N"},
        {when, "NEVER", "never;no;off;admin_only;ok;yess;1"},
        {duration, "900", "\t90 "},
        {duration, "5400", "1:30;1 hour 30 min;90Minutes;0:89:60"},
        {duration, "777600", "1 week, 2 days"},
        {duration, "354672000", "1 forever 3months,1year"},
        {duration, "111600", "hour 1 hour 30"},
        {duration, std::to_string(LONG_MAX), "99999999999999999999 years;9223372036854775807"},
        {duration, "invalid", "0:0:0:1;1 hour 10X;5 m; \n"},
    };
    for (const auto &row : rows) {
        std::istringstream in(row.texts);
        for (std::string text; std::getline(in, text, ';');) {
            EXPECT_EQ(row.read(GuardedText(text).data()), row.meaning) << text;
        }
    }
}

}  // namespace
