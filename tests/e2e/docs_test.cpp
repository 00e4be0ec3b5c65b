// The examples of the documents that need no other program: configurations, and command lines of
// refetchd-hits; and the configurations that are installed.
// scripts/lib/docs.sh finds them.
#include <gmock/gmock.h>

#include <fstream>
#include <regex>

#include "Agent.h"

namespace {

// All examples that begin with one of these words, "; " between the lines of a configuration.
Words examplesOf(const std::string &words)
{
    Process list({"--chdir=" SOURCE_DIRECTORY, "bash", "-c",
                  "source scripts/lib/docs.sh; examples_for tests/e2e/docs_test.cpp"});
    list.wait(kRunDeadline);
    Words examples;
    std::istringstream lines(list.out());
    for (std::string line; std::getline(lines, line);) {
        if (std::regex_search(line, std::regex("^(" + words + ") "))) {
            examples.push_back(line);
        }
    }
    return examples;
}

std::string replaced(const std::string &text, const char *from, const char *to)
{
    return std::regex_replace(text, std::regex(from), to);
}

// The lines of a configuration file without its comments, likewise; with the seed that is to be
// switched on.
std::string linesOf(const char *file)
{
    std::string lines;
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        line = replaced(line, "^#(loadurl http)", "$1");
        lines += line.starts_with('#') ? "" : line + "; ";
    }
    return lines;
}

class Examples : public testing::TestWithParam<std::string> {};

TEST_P(Examples, RefreshNothing)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "serverroot @dir@; loadurl www.example.com",
                "9 5% http://www.example.com/top");
    const std::string lines = replaced(GetParam(), "/var/(lib|log)/refetchd", "@dir@") + "; ";
    agent.dir.write("proxy.conf", agent.expand(lines));
    agent.startProgram(REFETCHD_CHECK " -q -s proxy.conf");
    agent.finish();
    EXPECT_EQ(agent.process->out(), "");
    // The peer's answers do not show what a proxy did.
    const std::string run = replaced(lines, "failwhen [0-9]*", "failwhen 100");
    agent.dir.write("proxy.conf",
                    agent.expand(replaced(run, "updateproxy [^;]*", "updateproxy @peer@")));
    agent.startWith("-vv -r proxy.conf");
    agent.finish();
    ASSERT_FALSE(peer.requests().empty()) << agent.process->err();
    EXPECT_THAT(peer.requests().front().bytes, testing::HasSubstr("Host: www.example.com"));
}

INSTANTIATE_TEST_SUITE_P(Docs, Examples, testing::ValuesIn(examplesOf("updateproxy")));
INSTANTIATE_TEST_SUITE_P(Installed, Examples,
                         testing::Values(linesOf(SOURCE_DIRECTORY "/docs/nightly.conf"),
                                         linesOf(BUILD_DIRECTORY "/docs/tarnproxy.conf")));

class HitsExamples : public testing::TestWithParam<std::string> {};

TEST_P(HitsExamples, Fail)
{
    const std::string log = "c - - [1/Jan/2026:0:0:0 +0000] \"GET http://h/ HTTP/1.1\" 200 1\n";
    const TempDir dir;
    for (const char *const file : {"squid/access.log", "squid/access.log.1", "nginx/access.log"}) {
        dir.write(std::string("var/log/") + file, log + log);
    }
    dir.write("var/lib/refetchd/logs/hitsfile.txt", "old\n");
    Process process({"--chdir=" + dir.path(), "bash", "-o", "pipefail", "-c",
                     "refetchd-hits() { " SOURCE_DIRECTORY "/hits/refetchd-hits \"$@\"; }\n"
                     "varnishncsa() { cat var/log/nginx/access.log; }\n" +
                         replaced(GetParam(), "/var/", "var/")});
    EXPECT_EQ(process.wait(kRunDeadline), 0) << process.err();
    EXPECT_THAT(process.out() + dir.read("var/lib/refetchd/logs/hitsfile.txt"),
                testing::HasSubstr(" http://h/\n"));
}

INSTANTIATE_TEST_SUITE_P(Docs, HitsExamples,
                         testing::ValuesIn(examplesOf("refetchd-hits|varnishncsa")));

}  // namespace
