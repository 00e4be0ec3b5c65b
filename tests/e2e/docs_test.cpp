// The examples of the documents that need no other program: configurations, and command lines.
// scripts/lib/docs.sh finds them.
#include <gmock/gmock.h>

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

class Examples : public testing::TestWithParam<std::string> {};

TEST_P(Examples, RefreshNothing)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "serverroot @dir@; loadurl www.example.com",
                "9 5% http://www.example.com/top");
    std::string options = "-vv -r proxy.conf";
    if (GetParam().starts_with("updateproxy")) {
        const std::string lines =
            replaced(GetParam(), "/var/lib/refetchd", agent.dir.path().c_str());
        agent.dir.write("proxy.conf",
                        agent.expand(replaced(lines, "^[^;]*", "updateproxy @peer@")));
    } else {
        options = replaced(replaced(GetParam(), "^refetchd", ""), "/etc/tarnproxy", "proxy");
    }
    agent.startWith(options);
    agent.finish();
    ASSERT_FALSE(peer.requests().empty()) << agent.process->err();
    EXPECT_THAT(peer.requests().front().bytes, testing::HasSubstr("Host: www.example.com"));
}

INSTANTIATE_TEST_SUITE_P(Docs, Examples, testing::ValuesIn(examplesOf("updateproxy|refetchd")));

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
