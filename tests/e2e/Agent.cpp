#include "Agent.h"

#include <gtest/gtest.h>

namespace {

void replaceAll(std::string &text, const std::string &from, const std::string &to)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}

}  // namespace

Agent::Agent(std::uint16_t proxyPort, const std::string &directives, const std::string &hits)
    : peer_("127.0.0.1:" + std::to_string(proxyPort))
{
    dir.write("pub/en_US/reports/keep", "");
    dir.write("logs/hitsfile.txt", expand(hits));
    dir.write("proxy.conf", expand("updateproxy @peer@; " + directives + "\n"));
}

std::string Agent::expand(std::string text) const
{
    replaceAll(text, "; ", "\n");
    replaceAll(text, "@dir@", dir.path());
    replaceAll(text, "@peer@", peer_);
    return text;
}

void Agent::startWith(const std::vector<std::string> &options)
{
    std::vector<std::string> words = {"--chdir=" + dir.path(), "LC_ALL=en_US.UTF-8",
                                      REFETCHD_BINARY};
    for (const std::string &option : options) {
        words.push_back(expand(option));
    }
    process = std::make_unique<Process>(words);
}

void Agent::start(std::vector<std::string> options)
{
    options.insert(options.begin(), {"-vv", "-r", "@dir@/proxy.conf"});
    startWith(options);
}

Process::Result Agent::finish()
{
    const Process::Result result = process->wait(kRunDeadline);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.status, 0) << "signal " << result.signal << "\n" << process->err();
    return result;
}

void Agent::run(const std::vector<std::string> &options)
{
    start(options);
    finish();
}

int Agent::traced(const std::string &text) const
{
    const std::string trace = process->err();
    const std::string wanted = expand(text);
    int count = 0;
    for (std::size_t at = 0; (at = trace.find(wanted, at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

std::vector<std::string> targets(int count)
{
    std::vector<std::string> result;
    for (int number = 0; number < count; ++number) {
        result.push_back("http://h/" + std::to_string(number));
    }
    return result;
}

std::string seeds(int count)
{
    std::string lines;
    for (const std::string &target : targets(count)) {
        lines += "loadurl " + target + "\n";
    }
    return lines;
}

ScriptedPeer::Handler replyOnce(std::size_t count)
{
    return [count](const ScriptedPeer &peer, const ScriptedPeer::Request &) {
        (void)peer.waitForRequests(count, kRunDeadline);
        return Reply::ok();
    };
}
