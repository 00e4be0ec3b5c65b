// refetchd-check: what it shows of a configuration, what it warns of, and that it writes nothing.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "Agent.h"

namespace {

// Checks "proxy.conf", `directives` as Agent::expand() takes them; the agent's own directory holds
// the rest.
void check(Agent *agent, const std::string &directives, const std::string &arguments, int status)
{
    agent->dir.write("proxy.conf", agent->expand(directives + "\n"));
    std::vector<std::string> words = {"--chdir=" + agent->dir.path(), "LC_ALL=de_DE.UTF-8",
                                      REFETCHD_CHECK};
    std::istringstream split(arguments);
    words.insert(words.end(), std::istream_iterator<std::string>(split), {});
    agent->process = std::make_unique<Process>(words);
    agent->finish(status);
}

struct CheckRow : Row {
    std::string directives;
    std::string warning;  // all that is shown, without "FILE:"; with a line each behind "; "
    std::string hits = "9 1% http://h/a";
    const char *arguments = "-q proxy.conf";
    const char *error = "";  // begins standard error
};

class Check : public testing::TestWithParam<CheckRow> {};

TEST_P(Check, MistakeGoesUnseen)
{
    const CheckRow &row = GetParam();
    Agent agent(1, "", row.hits);
    check(&agent, row.directives, row.arguments, row.warning.empty() && *row.error == '\0' ? 0 : 1);
    std::string shown = agent.process->out();
    for (const std::string &cut : {agent.dir.path("proxy.conf:"), agent.dir.path() + "/"}) {
        for (std::size_t at = 0; (at = shown.find(cut)) != std::string::npos;) {
            shown.erase(at, cut.size());
        }
    }
    EXPECT_EQ(shown, agent.expand(row.warning + (row.warning.empty() ? "" : "\n")));
    EXPECT_TRUE(agent.process->err().starts_with(agent.expand(row.error))) << agent.process->err();
    EXPECT_EQ(agent.process->err().empty(), *row.error == '\0');
}

const std::string kFine = "updateproxy h:1; loadurl h/a; ";
const std::string kTop = kFine + "serverroot @dir@; loadtopcached 5; caching ";
const std::string kAbsent = ": No such file or directory";
const std::string kLong(3000, 'x');

const CheckRow kMistakes[] = {
    {"None", kTop + "on; slf on; slr c; maxruntime 1:30; delay off; foo bar; SLF off", ""},
    {"NearNames", kFine + "LoadULR h/b; pots 3; num-clents 3",
     "3: \"loadulr\" is no directive: is it loadurl?; "
     "5: \"numclents\" is no directive: is it numclients?"},
    {"AllHostsFirst", kFine + "maxhosturls 5; maxhosturls 6 h",
     "4: maxhosturls: never counts: 3 is for all hosts"},
    {"CachingNever", kTop + "admin", "4: loadtopcached: needs caching always"},
    {"NoRoot", kFine + "caching on; loadtopcached 1", "4: loadtopcached: needs serverroot"},
    {"EmptyHits", kTop + "on", "4: loadtopcached: logs/hitsfile.txt is empty", ""},
    {"NoHits", kTop + "on; serverroot @dir@/x",
     "4: loadtopcached: x/logs/hitsfile.txt" + kAbsent +
         "; 6: serverroot: x/pub/de_DE/reports/refetchd.html.tmp" + kAbsent},
    {"NoProxy", "loadurl h/a; updateproxy :80", "2: updateproxy: no proxy is known"},
    {"NoPause", kFine + "refetchdrepeat 0",
     "3: refetchdrepeat: needs maxruntime, or runs follow each other without a pause"},
    {"Time", kFine + "maxruntime soon", "3: maxruntime: \"soon\" is no time"},
    {"UpperCase", kFine + "slf ON; slr c; transparentproxy OFF; transparentproxy ON",
     "6: transparentproxy: \"ON\" changes nothing, only \"on\" does"},
    {"Words", kFine + "retryafter true; delveinto all; followredirects on",
     "3: retryafter: \"true\" counts as off; 4: delveinto: \"all\" counts as never; "
     "5: followredirects: \"on\" counts as off"},
    {"Number", kFine + "maxurls 9k; delay 1s; port -8",
     "3: maxurls: \"9k\" is no number; 4: delay: \"1s\" is no number"},
    {"Alone", kFine + "slf on; connecttohost on",
     "3: slf: needs slr; 4: connecttohost: needs transparentproxy on"},
    {"Compressed", kFine + "delvedepth 1; requestheader accept-encoding gzip",
     "4: requestheader: no links are found in compressed pages"},
    {"OwnHeader", kFine + "requestheader Host h", "3: requestheader: \"Host h\" is refused"},
    {"LogDirectory", kFine + "catracelog x/t; metricsfile m", "3: catracelog: x/t" + kAbsent},
    {"NoClientsNorWait", kFine + "numclients 0; readtimeout -1",
     "3: numclients: nobody is there to ask; 4: readtimeout: no answer is waited for"},
    {"NoSeeds", "updateproxy h:1", "loadurl: no seeds: nothing is asked for"},
    {"QueryAboveItsLine", kFine + "loadurl h/?q; cachequeries on",
     "3: loadurl: no cachequeries above allows \"http://h/?q\""},
    {"BehindLongLineAndBlock", kFine + "#" + kLong + "; b {; slf x; }; slf x",
     "7: slf: \"x\" changes nothing, only \"on\" does"},
    {"Terminal", kFine + "port \"\x1b[31m\x9b\"", "3: port: \"\\x1b[31m\\x9b\" is no number"},
    {"Usage", kFine, "", "", "-h", "Usage: refetchd-check [ "},
    {"Directory", kFine, "", "", "proxy.conf logs", "refetchd-check: @dir@/logs: Is a directory\n"},
    {"Included", "configfile x", "", "", "proxy.conf",
     "refetchd-check: x: No such file or directory (configfile, @dir@/proxy.conf:1)\n"},
    {"Default", kFine, "", "", "", "refetchd-check: /etc/tarnproxy.conf: No such file or dir"},
};
INSTANTIATE_TEST_SUITE_P(Settings, Check, testing::ValuesIn(kMistakes), rowName);

TEST(CheckOutput, LacksADirectiveOrASeedOrAFileIsWritten)
{
    Agent agent(1, "", "9 1% http://h/a; 8 1% http://h/i; 7 1% http://h/?; 6 1% http://h/\x1b");
    agent.dir.write("more.conf", "useragent a b\ntransparentproxy on\nrequestheader A b\n");
    agent.dir.write("trace", "old");
    check(&agent,
          "configfile more.conf; maxhosturls 5 *.h; cachequeries on *x*; ignoreurl *i; onlyurl *; "
          "loadurl h/a; loadurl h/?q; loadurl h/?x; loadtopcached 4; caching on; errorlog @dir@/e; "
          "serverroot @dir@; catracelog trace; resultslog r; metricsfile m",
          "proxy.conf", 1);
    const std::filesystem::recursive_directory_iterator entries(agent.dir.path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 9);  // five files, four directories
    EXPECT_EQ(agent.dir.read("trace"), "old");
    for (const char *const part :
         {"\nuseragent                a b                     more.conf:1\n",
          "\ntransparentproxy         on                      more.conf:2\n",
          "\nreadtimeout              4                       default\n",
          "/cacheAgent-errors @dir@/proxy.conf:11\n",
          "\n; Seeds; ask   http://h/a   (loadurl, @dir@/proxy.conf:6); "
          "skip  http://h/?q   cachequeries   (loadurl, @dir@/proxy.conf:7); "
          "ask   http://h/?x   (loadurl, @dir@/proxy.conf:8); "
          "skip  http://h/a   processed   (9 hits, @dir@/logs/hitsfile.txt); "
          "skip  http://h/i   ignoreurl   (8 hits, @dir@/logs/hitsfile.txt); "
          "skip  http://h/?   cachequeries   (7 hits, @dir@/logs/hitsfile.txt); "
          "ask   http://h/\\x1b   (6 hits, @dir@/logs/hitsfile.txt); ; Warnings; "}) {
        EXPECT_NE(agent.process->out().find(agent.expand(part)), std::string::npos) << part;
    }
    std::ifstream names(SOURCE_DIRECTORY "/docs/directives.txt");
    for (std::string line; std::getline(names, line);) {
        const bool isName = !line.empty() && line.find_first_of("#= ") == std::string::npos &&
                            line != "loadurl" && line != "delayperiod";
        EXPECT_TRUE(!isName || agent.process->out().find("\n" + line + " ") != std::string::npos)
            << line;
    }
}

}  // namespace
