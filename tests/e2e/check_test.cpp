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
const std::string kEquals = "leave out the equals sign: a blank separates name and value";
const std::string kPort = "behind the colon, write a port from 1 to 65535, such as 127.0.0.1:3128";
const std::string kScheme = "begin the URL with http:// or https://";
const std::string kExpression =
    "patterns are not regular expressions: write * for any text, such as *.pdf";
const std::string kNoUrl = "matches no URL: begin it with http:// or *, and end a host with /*";

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
    {"NoClientsNorEnd", kFine + "numclients 0",
     "3: numclients: below 1 there are no worker threads, and without maxruntime the agent does "
     "not "
     "start: the run would never end"},
    {"NoClientsNorWait", kFine + "numclients 0; readtimeout -1; maxruntime 9",
     "3: numclients: below 1 there are no worker threads: nothing will be requested; "
     "4: readtimeout: below 1 second the agent does not wait for any answer"},
    {"QueryAboveItsLine", kFine + "loadurl h/?q; cachequeries on",
     "3: loadurl: no cachequeries line above allows \"http://h/?q\""},
    {"BehindLongLineAndBlock", kFine + "#" + std::string(3000, 'x') + "; b {; slf x; }; slf x",
     "7: slf: \"x\" changes nothing, only \"on\" does"},
    {"AddressOfProxy",
     "loadurl h/a; updateproxy http://h:1; updateproxy h:1/x; updateproxy h 1; updateproxy "
     "h:65536; "
     "updateproxy h:x; updateproxy [::1]:1; updateproxy h; port 65536; port 65535; updateproxy = h",
     "2: updateproxy: \"http://h:1\": write host and port without a scheme, such as "
     "127.0.0.1:3128 (for TLS, set proxytls on); "
     "3: updateproxy: \"h:1/x\": write host and port without a path, such as 127.0.0.1:3128; "
     "4: updateproxy: \"h 1\": write host and port as one word with a colon, such as "
     "127.0.0.1:3128; "
     "5: updateproxy: \"h:65536\": " +
         kPort + "; 6: updateproxy: \"h:x\": " + kPort +
         "; 9: port: \"65536\": write a port up to 65535; 11: updateproxy: \"= h\": " + kEquals},
    {"EqualsInName", kFine + "load-url=http://h/b; url=x y; slr= c",
     "3: loadurl: \"loadurl=http://h/b\": " + kEquals + "; 5: slr: \"slr=\": " + kEquals},
    {"AddressOfSeed",
     kFine + "loadurl =h; loadurl htp://h/; loadurl mailto:h; loadurl http:/h/; loadurl http:///x; "
             "loadurl h/b h/c; loadurl h:80/; loadurl [::1]/; loadurl ftp://h/ # x; "
             "loadurl u:pw@h/; loadurl h/p/http://; loadurl u@h:x/",
     "3: loadurl: \"=h\": " + kEquals + "; 4: loadurl: \"htp://h/\": " + kScheme +
         "; 5: loadurl: \"mailto:h\": " + kScheme + "; 6: loadurl: \"http:/h/\": " + kScheme +
         "; 7: loadurl: \"http:///x\": name the host, such as http://www.example.com/; "
         "8: loadurl: \"h/b h/c\": only the first word is used: write another loadurl line for "
         "each "
         "further URL, and %20 for a blank; 14: loadurl: \"u@h:x/\": " +
         kScheme},
    {"HttpsSeeds", kFine + "loadurl https://h/; loadurl https://h/b",
     "3: loadurl: browsers do not get pages with https:// from the cache of a forward proxy, "
     "unless "
     "it decrypts them: leave these lines out, or for a reverse proxy set transparentproxy on"},
    {"SitemapsAreSeeds", "updateproxy h:1; loadsitemap h/s.xml since 2 days", ""},
    {"Sitemaps",
     "updateproxy h:1; loadsitemap auto; loadsitemap h/s sinc 1 day; LoadSitemap h/s since x; "
     "loadsitemap h/s since; loadsitemap h/s since 0; loadsitemap file:/s; loadsitemap http:///s",
     "3: loadsitemap: \"sinc\" is not \"since\": all entries are taken; "
     "4: loadsitemap: \"x\" is not a time: all entries are taken; "
     "5: loadsitemap: \"\" is not a time: all entries are taken; "
     "6: loadsitemap: \"0\" is not a time: all entries are taken; "
     "7: loadsitemap: \"file:/s\": " +
         kScheme +
         "; 8: loadsitemap: \"http:///s\": name the host, such as "
         "http://www.example.com/sitemap.xml; "
         "2: loadsitemap: auto needs loadurl lines: robots.txt is requested from their hosts"},
    {"HttpsSitemap", kFine + "loadsitemap https://h/s",
     "3: loadsitemap: browsers do not get pages with https:// from the cache of a forward proxy, "
     "unless it decrypts them: leave these lines out, or for a reverse proxy set transparentproxy "
     "on"},
    {"HttpsSeedsOfReverseProxy", kFine + "loadurl https://h/; transparentproxy on", ""},
    {"Patterns",
     kFine +
         "ignoreurl h/*; onlyurl ^http; ignoreurl *\\.pdf; onlyurl http://h; ignoreurl *a *b; "
         "ignoreurl http*/p; onlyurl ftp://*; cachequeries on http://h/* h; maxhosturls 5 *.h/*",
     "3: ignoreurl: \"h/*\": " + kNoUrl + "; 4: onlyurl: \"^http\": " + kExpression +
         "; 5: ignoreurl: \"*/.pdf\": " + kExpression + "; 6: onlyurl: \"http://h\": " + kNoUrl +
         "; 7: ignoreurl: \"*a *b\": only the first pattern is used: write another ignoreurl line "
         "for each further one; 10: cachequeries: \"on http://h/* h\": a pattern " +
         kNoUrl +
         "; 11: maxhosturls: \"5 *.h/*\": patterns are compared with host names: write only the "
         "host, such as *.example.com"},
    {"Values", kFine + "numclients 101; slr ON; useragent None; useragent none at all",
     "3: numclients: \"101\": write 100 or less: no more than 100 worker threads are started; "
     "4: slr: \"ON\": name the directory of the copies, such as "
     "/var/lib/refetchd/copies, and switch them on with slf; "
     "5: useragent: \"None\": this word would be sent: remove the line, and the built-in text is "
     "sent"},
    {"Times",
     kFine + "maxruntime 1:90; maxruntime 1 hour 30; maxruntime 90 # s; maxruntime 90; maxruntime "
             "1:30:59; maxruntime 1 week, 2 days",
     "3: maxruntime: \"1:90\": write at most 59 behind a colon, or the units, such as 90 min; "
     "4: maxruntime: \"1 hour 30\": the last number counts as hours: write its unit, such as "
     "1 hour 30 min; 5: maxruntime: \"90\": write the comment on a line of its own"},
    {"HostOfHits", kTop + "on; hostname g",
     "6: hostname: differs from the host in updateproxy, so only the first run reads the hits "
     "file: "
     "write hostname h"},
    {"AnswersTooShort", kFine + "answertimeout 3; maxanswer 5M",
     "4: maxanswer: \"5M\" is not a number; "
     "3: answertimeout: is shorter than readtimeout, which then ends no answer"},
    {"ErrorsWithoutTrace", kFine + "errorlog @dir@/e",
     "3: errorlog: nothing is written there without catracelog: add a catracelog line"},
    {"Mark", "\xef\xbb\xbfupdateproxy h:1; loadurl h/a",
     "1: a byte order mark hides this line from the agent: save the file without it, as plain "
     "UTF-8"},
    {"TwoFiles", kFine + "delvedepth 1; retries 2; configfile logs/hitsfile.txt",
     "logs/hitsfile.txt:1: delvedepth: only this line counts, but 3 says \"1\": remove one of them",
     "delvedepth 2\nretries 2\n"},
    {"Strict", kFine + "retry 3; rps 5; depth 1; metrics x; foo bar; foo; b {; x y; }",
     "3: \"retry\" is not a directive: is retries meant?; "
     "4: \"rps\" is not a directive: is refetchdrequestpersecond meant?; "
     "5: \"depth\" is not a directive: is delvedepth meant?; "
     "6: \"metrics\" is not a directive: is metricsfile meant?; "
     "7: \"foo\" is not a directive; 8: \"foo\" is not a directive",
     "", "-q -s proxy.conf"},
    {"Lists",
     kFine + "loadlist logs/hitsfile.txt; loadlist none; loadlist logs; loadlist /dev/zero; "
             "maxruntime 1; refetchdrepeat 2; loadlist -; loadlist -",
     "3: loadlist: 2 bad lines in logs/hitsfile.txt, the first is line 2; "
     "3: loadlist: no cachequeries line above allows 2 of its URLs; 4: loadlist: none" +
         kAbsent +
         "; 5: loadlist: logs: Is a directory; 6: loadlist: /dev/zero: Illegal seek; "
         "10: loadlist: no effect: 9 reads standard input; "
         "9: loadlist: only the first run can read standard input: name a file",
     "h/a\na b\nh/?\nc d\nh/?x\nh/a"},
    {"ListOfInput", "updateproxy h:1; loadlist -", ""},
    {"OptionsOfTheAgent", "updateproxy h:1; loadurl h/a; errorlog @dir@/e",
     "-rp: refetchdrepeat: needs maxruntime, or runs follow each other without a pause", "",
     "-q -vv -debug geturl -rp 0 -mc 2 -r proxy.conf"},
    {"NoValue", kFine, "", "", "-r",
     "Usage: refetchd-check [ options ... ] [ <proxy config file> ... ]"},
    {"Usage", kFine, "", "", "-h",
     "Usage: refetchd-check [ options ... ] [ <proxy config file> ... ]"},
    {"Directory", kFine, "", "", "proxy.conf logs", "logs: Is a directory"},
    {"Included", "configfile x", "", "", "proxy.conf", "x" + kAbsent + " (configfile, 1)"},
    {"Default", kFine, "", "", "", "/etc/tarnproxy.conf" + kAbsent},
};
INSTANTIATE_TEST_SUITE_P(Settings, Check, testing::ValuesIn(kMistakes), rowName);

class Companion : public testing::TestWithParam<std::string> {};

TEST_P(Companion, LacksHelpOrVersion)
{
    const std::string &path = GetParam();
    const std::string name = path.substr(path.rfind('/') + 1);
    for (const auto &[option, begin] : {std::pair("--help", "Usage: " + name + " ["),
                                        {"--version", name + " " REFETCHD_VERSION "\n"}}) {
        Process process({path, option});
        EXPECT_EQ(process.wait(kRunDeadline), 0) << process.err();
        EXPECT_THAT(process.out(), testing::StartsWith(begin));
    }
}
INSTANTIATE_TEST_SUITE_P(All, Companion, testing::Values(REFETCHD_CHECK, REFETCHD_HITS));

TEST(CheckOutput, LacksADirectiveOrASeedOrAFileIsWritten)
{
    Agent agent(1, "", "9 1% http://h/a; 8 1% http://h/i; 7 1% http://h/?; 6 1% http://h/\x1b");
    agent.dir.write("more.conf",
                    "useragent a b\ntransparentproxy on\nrequestheader A b\nvariant A: b\n");
    agent.dir.write("trace", "old");
    agent.dir.write("list", "h/l\n");
    agent.dir.write(
        "proxy.conf",
        agent.expand(
            "configfile more.conf; maxhosturls 5 *.h; cachequeries on *x*; ignoreurl *i; "
            "onlyurl *; "
            "loadurl h/a; loadurl h/?q; loadurl h/?x; loadtopcached 4; caching on; "
            "errorlog @dir@/e; errorlog no; service /s internal:cacheagentservice; service x y; "
            "requestheader Host h; "
            "serverroot @dir@; catracelog trace; resultslog r; metricsfile m; loadlist list; "
            "loadsitemap auto; loadsitemap h/s since 1 day\n"));
    agent.startProgram(REFETCHD_CHECK " proxy.conf");
    agent.finish(1);
    const std::filesystem::recursive_directory_iterator entries(agent.dir.path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 10);  // six files, four directories
    EXPECT_EQ(agent.dir.read("trace"), "old");
    const std::string shown = agent.process->out();
    EXPECT_EQ(shown.find("\nrequestheader            Host"), shown.npos);
    for (const char *const part :
         {"\nuseragent                a b                     more.conf:1\n",
          "\nloadsitemap              h/s since 1 day         @dir@/proxy.conf:22\n",
          "\nreadtimeout              4                       default\n",
          "\nservice                  /s internal:cacheagentservice @dir@/proxy.conf:13\n",
          "/cacheAgent-errors @dir@/proxy.conf:11\n",
          "\n; Seeds; ask   http://h/a   (loadurl, @dir@/proxy.conf:6); "
          "skip  http://h/?q   cachequeries   (loadurl, @dir@/proxy.conf:7); "
          "ask   http://h/?x   (loadurl, @dir@/proxy.conf:8); "
          "ask   http://h/l   (loadlist, @dir@/proxy.conf:20); "
          "ask   http://h/s   (loadsitemap, @dir@/proxy.conf:22); "
          "ask   http://h/robots.txt   (loadsitemap, @dir@/proxy.conf:21); "
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
