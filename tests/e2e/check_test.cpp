// refetchd-check: what it shows of a configuration, what it warns of, and that it writes nothing.
#include <filesystem>
#include <fstream>
#include <regex>

#include "Agent.h"

namespace {

struct CheckRow : Row {
    std::string directives;  // all of "proxy.conf", as Agent::expand() takes it
    std::string warnings;    // without the file's name; with a line each behind "; "
    std::string hits = "9 1% http://h/a";
    const char *arguments = "-q proxy.conf";
    std::string error = "";  // the first line of standard error, likewise
};

class Check : public testing::TestWithParam<CheckRow> {};

TEST_P(Check, MistakeGoesUnseen)
{
    const CheckRow &row = GetParam();
    Agent agent(1, "");
    agent.dir.write("logs/hitsfile.txt", row.hits);
    const bool fine = row.warnings.empty() && row.error.empty();
    agent.dir.write("proxy.conf", agent.expand(row.directives + "\n"));
    agent.startProgram(std::string(REFETCHD_CHECK " ") + row.arguments);
    agent.finish(fine ? 0 : 1);
    const std::regex cut("^refetchd-check: |" + agent.dir.path() + "/(proxy.conf:)?");
    const std::string shown = std::regex_replace(agent.process->out(), cut, "");
    EXPECT_EQ(shown, agent.expand(row.warnings + (row.warnings.empty() ? "" : "\n")));
    const std::string error = agent.process->err();
    EXPECT_EQ(std::regex_replace(error.substr(0, error.find('\n')), cut, ""), row.error);
}

const std::string kFine = "updateproxy h:1; loadurl h/a; ";
const std::string kTop = kFine + "serverroot @dir@; loadtopcached 5; caching ";
const std::string kAbsent = ": No such file or directory";

const CheckRow kMistakes[] = {
    {"None", kTop + "on; slf on; slr c; maxruntime 1:30; delay off; foo bar; SLF off", ""},
    {"NoneInHeaders", kFine + "delvedepth 1; requestheader accept-encoding br; modernlinks on", ""},
    {"NearNames", kFine + "LoadULR h/b; pots 3; num-clents 3",
     "3: \"loadulr\" is not a directive: is loadurl meant?; "
     "5: \"numclents\" is not a directive: is numclients meant?"},
    {"LeftOut", kFine + "Load-URL; foo; b {; x; }; ignoreurl \"\"; c {; slf x",
     "3: loadurl: no argument; 8: ignoreurl: \"\" matches nothing; "
     "9: this block has no closing \"}\": all lines below are ignored"},
    {"AllHostsFirst", kFine + "maxhosturls 5 g \"\"; maxhosturls 6 h",
     "4: maxhosturls: no effect: 3 applies to all hosts"},
    {"CachingNever", kTop + "admin", "4: loadtopcached: needs caching always"},
    {"NoRoot", kFine + "caching on; loadtopcached 1", "4: loadtopcached: needs serverroot"},
    {"EmptyHits", kTop + "on", "4: loadtopcached: logs/hitsfile.txt is empty", ""},
    {"BadHits", kTop + "on", "4: loadtopcached: 2 bad lines in logs/hitsfile.txt",
     "#\nbad\n9 1% http://h/a\n1 2\n"},
    {"NoHits", kTop + "on; serverroot @dir@/x",
     "4: loadtopcached: x/logs/hitsfile.txt" + kAbsent +
         "; 6: serverroot: x/pub/de_DE/reports/refetchd.html.tmp" + kAbsent},
    {"NoProxy", "updateproxy :80",
     "1: updateproxy: no proxy is known; loadurl: no seeds: nothing will be requested"},
    {"NoBrackets", "loadurl h/a; updateproxy ::1",
     "2: updateproxy: an IPv6 address must be in brackets, such as [::1]:3128"},
    {"NoPause", kFine + "refetchdrepeat 0; maxruntime soon",
     "4: maxruntime: \"soon\" is not a time; "
     "3: refetchdrepeat: needs maxruntime, or runs follow each other without a pause"},
    {"UpperCase", kFine + "slf ON; slr c; transparentproxy OFF; transparentproxy ON",
     "6: transparentproxy: \"ON\" changes nothing, only \"on\" does"},
    {"Words",
     kFine + "retryafter true; delveinto all; followredirects on; followredirects all; "
             "resultslog r all; resultslog r NoDropped",
     "3: retryafter: \"true\" counts as off; 4: delveinto: \"all\" counts as never; "
     "5: followredirects: \"on\" counts as off; "
     "7: resultslog: \"all\" is neither dropped nor nodropped"},
    {"Number", kFine + "maxurls 9k; delay 1s; port -8; port \"\x1b[31m\x9b\"",
     "3: maxurls: \"9k\" is not a number; 4: delay: \"1s\" is not a number; "
     "6: port: \"\\x1b[31m\\x9b\" is not a number"},
    {"Alone", kFine + "slf on; connecttohost on",
     "3: slf: needs slr; 4: connecttohost: needs transparentproxy on"},
    {"Headers", kFine + "delvedepth 1; requestheader accept-encoding gzip; requestheader Host h",
     "5: requestheader: \"Host h\" is refused: the agent sends its own; "
     "4: requestheader: no links are found in compressed pages without modernlinks on"},
    {"Variants",
     kFine + "delvedepth 1; variant B: b;\taccept-encoding: br; variant HOST: x; variant A B: c; "
             "variant A: b\x01",
     "5: variant: \"HOST: x\" is refused: the agent sends its own; "
     "6: variant: \"A B: c\" is refused: not a valid header name; "
     "7: variant: \"A: b\" is refused: it contains a control character; "
     "4: variant: no links are found in compressed pages without modernlinks on"},
    {"UserAgent", kFine + "useragent a\x01",
     "3: useragent: \"a\" is refused: it contains a control character"},
    {"OpenQuote", kFine + "slr c\"",
     "3: slr: a quote is not closed and counts as an ordinary character"},
    {"Tls", kFine + "proxytls on; proxytlsca x; proxytlsverify of",
     "5: proxytlsverify: \"of\" counts as on; 4: proxytlsca: x" + kAbsent},
    {"TlsUnverified", kFine + "proxytls on; proxytlsverify off",
     "4: proxytlsverify: certificates are not verified: anybody may pose as the proxy"},
    {"TlsAlone", kFine + "proxytlsca x; proxytlsverify off",
     "3: proxytlsca: needs proxytls on; 4: proxytlsverify: needs proxytls on"},
    {"LogDirectory", kFine + "catracelog x/t; metricsfile y/m",
     "3: catracelog: x/t" + kAbsent + "; 4: metricsfile: y/m.tmp" + kAbsent},
    {"ErrorLog", kFine + "errorlog x; errorlog x/y",
     "3: errorlog: \"x\" names no directory; 4: errorlog: x/cacheAgent-errors" + kAbsent},
    {"DeviceForMetrics", kFine + "metricsfile /dev/null",
     "3: metricsfile: /dev/null: not a regular file"},
    {"NoClientsNorWait", kFine + "numclients 0; readtimeout -1",
     "3: numclients: below 1 there are no worker threads: nothing will be requested; "
     "4: readtimeout: below 1 second the agent does not wait for any answer"},
    {"QueryAboveItsLine", kFine + "loadurl h/?q; cachequeries on",
     "3: loadurl: no cachequeries line above allows \"http://h/?q\""},
    {"BehindLongLineAndBlock", kFine + "#" + std::string(3000, 'x') + "; b {; slf x; }; slf x",
     "7: slf: \"x\" changes nothing, only \"on\" does"},
    {"Usage", kFine, "", "", "-h",
     "Usage: refetchd-check [ options ... ] [ <proxy config file> ... ]"},
    {"Directory", kFine, "", "", "proxy.conf logs", "logs: Is a directory"},
    {"Included", "configfile x", "", "", "proxy.conf", "x" + kAbsent + " (configfile, 1)"},
    {"Default", kFine, "", "", "", "/etc/tarnproxy.conf" + kAbsent},
};
INSTANTIATE_TEST_SUITE_P(Settings, Check, testing::ValuesIn(kMistakes), rowName);

TEST(CheckOutput, LacksADirectiveOrASeedOrAFileIsWritten)
{
    Agent agent(1, "", "9 1% http://h/a; 8 1% http://h/i; 7 1% http://h/?; 6 1% http://h/\x1b");
    agent.dir.write("more.conf",
                    "useragent a b\ntransparentproxy on\nrequestheader A b\nvariant A: b\n");
    agent.dir.write("trace", "old");
    agent.dir.write(
        "proxy.conf",
        agent.expand(
            "configfile more.conf; maxhosturls 5 *.h; cachequeries on *x*; ignoreurl *i; "
            "onlyurl *; "
            "loadurl h/a; loadurl h/?q; loadurl h/?x; loadtopcached 4; caching on; "
            "errorlog @dir@/e; errorlog no; service /s internal:cacheagentservice; service x y; "
            "requestheader Host h; "
            "serverroot @dir@; catracelog trace; resultslog r; metricsfile m\n"));
    agent.startProgram(REFETCHD_CHECK " proxy.conf");
    agent.finish(1);
    const std::filesystem::recursive_directory_iterator entries(agent.dir.path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 9);  // five files, four directories
    EXPECT_EQ(agent.dir.read("trace"), "old");
    const std::string shown = agent.process->out();
    EXPECT_EQ(shown.find("\nrequestheader            Host"), shown.npos);
    for (const char *const part :
         {"\nuseragent                a b                     more.conf:1\n",
          "\nreadtimeout              4                       default\n",
          "\nservice                  /s internal:cacheagentservice @dir@/proxy.conf:13\n",
          "/cacheAgent-errors @dir@/proxy.conf:11\n",
          "\n; Seeds; ask   http://h/a   (loadurl, @dir@/proxy.conf:6); "
          "skip  http://h/?q   cachequeries   (loadurl, @dir@/proxy.conf:7); "
          "ask   http://h/?x   (loadurl, @dir@/proxy.conf:8); "
          "skip  http://h/a   processed   (9 hits, @dir@/logs/hitsfile.txt); "
          "skip  http://h/i   ignoreurl   (8 hits, @dir@/logs/hitsfile.txt); "
          "skip  http://h/?   cachequeries   (7 hits, @dir@/logs/hitsfile.txt); "
          "ask   http://h/\\x1b   (6 hits, @dir@/logs/hitsfile.txt); ; Warnings; "}) {
        EXPECT_NE(shown.find(agent.expand(part)), std::string::npos) << part;
    }
    std::ifstream names(SOURCE_DIRECTORY "/docs/directives.txt");
    for (std::string line; std::getline(names, line);) {
        const bool isName = std::regex_match(line, std::regex("(?!loadurl|delayperiod)[a-z]+"));
        EXPECT_TRUE(!isName || shown.find("\n" + line + " ") != std::string::npos) << line;
    }
}

}  // namespace
