// The examples of README.md and of the manual pages: configurations, and command lines of the
// agent.
#include <gtest/gtest.h>

#include <fstream>

#include "Agent.h"

namespace {

// An example is a block of literal lines; here they end in "; ". `file` is one of the sources.
std::vector<std::string> examplesIn(const std::string &file)
{
    std::vector<std::string> blocks = {""};
    bool literal = false;
    std::ifstream lines(SOURCE_DIRECTORY "/" + file);
    for (std::string line; std::getline(lines, line);) {
        const bool indented = line.starts_with("    ");
        if (indented || (literal && !line.starts_with("."))) {
            blocks.back() += line.substr(indented ? 4 : 0) + "; ";
        } else if (!blocks.back().empty()) {
            blocks.emplace_back();
        }
        literal = line == ".Bd -literal -offset indent" || (literal && line != ".Ed");
    }
    return blocks;
}

// An example beginning with `text`, all of them in the documents.
std::vector<std::string> examplesOf(const std::string &text)
{
    std::vector<std::string> examples;
    for (const char *const file :
         {"README.md", "docs/refetchd.8", "docs/refetchd-hits.8", "docs/tarnproxy.conf.5.in"}) {
        for (const std::string &example : examplesIn(file)) {
            if (example.starts_with(text)) {
                examples.push_back(example);
            }
        }
    }
    return examples;
}

void expectSiteIsAskedFor(Agent *agent, const ScriptedPeer &peer, const std::string &options)
{
    agent->startWith(options);
    agent->finish();
    ASSERT_FALSE(peer.requests().empty()) << agent->process->err();
    EXPECT_NE(peer.requests().front().bytes.find("Host: www.example.com"), std::string::npos);
}

std::string replaced(std::string text, const std::string &from, const std::string &to)
{
    const std::size_t at = text.find(from);
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

class Configurations : public testing::TestWithParam<std::string> {};

TEST_P(Configurations, ExampleRefreshesNothing)
{
    const ScriptedPeer peer;
    std::string lines = replaced(GetParam(), "/var/lib/refetchd", "@dir@");
    lines.replace(0, lines.find(';'), "updateproxy @peer@");
    Agent agent(peer.port(), lines, "9 5% http://www.example.com/top");
    expectSiteIsAskedFor(&agent, peer, "-vv -r proxy.conf");
}

INSTANTIATE_TEST_SUITE_P(Docs, Configurations, testing::ValuesIn(examplesOf("updateproxy ")));

class CommandLines : public testing::TestWithParam<std::string> {};

TEST_P(CommandLines, ExampleIsRefused)
{
    const ScriptedPeer peer;
    Agent agent(peer.port(), "serverroot @dir@; loadurl www.example.com");
    const std::string line = GetParam().substr(0, GetParam().find(';'));
    expectSiteIsAskedFor(
        &agent, peer, replaced(line.substr(line.find(' ')), "/etc/tarnproxy.conf", "proxy.conf"));
}

INSTANTIATE_TEST_SUITE_P(Docs, CommandLines, testing::ValuesIn(examplesOf("refetchd ")));

class HitsCommandLines : public testing::TestWithParam<std::string> {};

TEST_P(HitsCommandLines, ExampleFails)
{
    const std::string log = "c - - [1/Jan/2026:0:0:0 +0000] \"GET http://h/ HTTP/1.1\" 200 1\n";
    const TempDir dir;
    for (const char *const file : {"squid/access.log", "squid/access.log.1", "nginx/access.log"}) {
        dir.write(std::string("var/log/") + file, log + log);
    }
    dir.write("var/lib/refetchd/logs/hitsfile.txt", "old\n");
    std::string command = GetParam();
    for (std::size_t at = 0; (at = command.find("/var/", at)) != std::string::npos; ++at) {
        command.erase(at, 1);
    }
    command = replaced(command, "\\e; ", "");
    Process process({"--chdir=" + dir.path(), "bash", "-o", "pipefail", "-c",
                     "refetchd-hits() { " SOURCE_DIRECTORY "/hits/refetchd-hits \"$@\"; }\n"
                     "varnishncsa() { cat var/log/nginx/access.log; }\n" +
                         command});
    EXPECT_EQ(process.wait(kRunDeadline).status, 0) << process.err();
    EXPECT_NE((process.out() + dir.read("var/lib/refetchd/logs/hitsfile.txt")).find(" http://h/\n"),
              std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Docs, HitsCommandLines, testing::ValuesIn(examplesOf("refetchd-hits ")));
INSTANTIATE_TEST_SUITE_P(Pipes, HitsCommandLines, testing::ValuesIn(examplesOf("varnishncsa ")));

}  // namespace
