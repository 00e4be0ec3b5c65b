// Tests of what is done for single hosts: how many requests they get at a time, and how limits
// count.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>

#include "Agent.h"

namespace {

// Counts the requests to each host that are not answered yet.
class Hosts {
public:
    // One for a request to a host, from its arrival until its answer may be sent.
    class Visit {
    public:
        Visit(Hosts *hosts, const std::string &target) : hosts_(hosts), host_(target[7])
        {
            const std::lock_guard guard(hosts_->mutex_);
            number_ = ++hosts_->arrivals_[host_];
            hosts_->changed_.notify_all();
            int &most = hosts_->most_[host_];
            most = std::max(most, ++hosts_->present_[host_]);
        }
        ~Visit()
        {
            const std::lock_guard guard(hosts_->mutex_);
            --hosts_->present_[host_];
        }
        Visit(const Visit &) = delete;
        Visit &operator=(const Visit &) = delete;

        // The number of this request to its host, from 1.
        [[nodiscard]] int number() const { return number_; }

    private:
        Hosts *const hosts_;
        const char host_;
        int number_ = 0;
    };

    // Waits until so many requests to the host have come.
    bool waitFor(char host, int count)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kRunDeadline, [&] { return arrivals_[host] >= count; });
    }
    int mostAtATime(char host)
    {
        const std::lock_guard guard(mutex_);
        return most_[host];
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<char, int> arrivals_;
    std::map<char, int> present_;
    std::map<char, int> most_;
};

std::string urlsOf(const std::string &host, std::size_t count)
{
    std::string lines;
    for (std::size_t number = 0; number < count; ++number) {
        lines += "loadurl http://" + host + "/" + std::to_string(number) + "\n";
    }
    return lines;
}

class HostConnections : public testing::TestWithParam<const char *> {};

// Host s answers nothing until all URLs of host f were asked for.
TEST_P(HostConnections, AreTooManyOrHoldBackAnotherHost)
{
    constexpr int kUrls = 30;
    Hosts hosts;
    const ScriptedPeer peer([&](const ScriptedPeer &, const ScriptedPeer::Request &request) {
        const Hosts::Visit visit(&hosts, request.target);
        if (request.target[7] == 's') {
            EXPECT_TRUE(hosts.waitFor('f', kUrls));
        }
        return Reply::ok();
    });
    Agent agent(peer.port(), "numclients 5; readtimeout 60; hostconnections 2; " +
                                 urlsOf("s", kUrls) + urlsOf("f", kUrls) + GetParam());
    agent.run();
    EXPECT_EQ(hosts.mostAtATime('s'), 2);
    EXPECT_LE(hosts.mostAtATime('f'), 2);
    EXPECT_EQ(peer.requests().size(), 2 * kUrls);
    Words targets = peer.targets();
    std::sort(targets.begin(), targets.end());
    EXPECT_EQ(std::unique(targets.begin(), targets.end()), targets.end()) << "asked twice";
}
INSTANTIATE_TEST_SUITE_P(Care, HostConnections, testing::Values("", "breadthfirst on"));

// The first half of the answers is slow.
TEST(LatencyLimit, SlowHostKeepsItsClientsOrAFastOneGetsNone)
{
    constexpr std::size_t kUrls = 50;
    const Reply ok = Reply::ok();
    const ScriptedPeer peer([&](const ScriptedPeer &self, const ScriptedPeer::Request &) {
        const int pause = self.requests().size() < kUrls / 2 ? 300 : 0;
        return Reply{{{ok.pieces[0].bytes, pause}}};
    });
    Agent agent(peer.port(),
                "numclients 3; latencylimit 200; metricsfile @dir@/m; " + urlsOf("s", kUrls));
    agent.run();
    const std::string trace = agent.process->err();
    const std::size_t slow = trace.find("(10 answers), it gets 1 client now.\n");
    EXPECT_LT(trace.find("(10 answers), it gets 2 clients now.\n"), slow);
    EXPECT_LT(slow, trace.find("(10 answers), it gets 2 clients now.\n", slow));
    EXPECT_NE(trace.find("(10 answers), it gets 2 clients now.\n", slow), trace.npos);
    EXPECT_EQ(peer.requests().size(), kUrls);
    EXPECT_THAT(agent.dir.read("m"), testing::HasSubstr("\nrefetchd_run_host_slowdowns 2\n"));
}

struct LimitRow : Row {
    std::string directives;
    std::string asked;
};

class LimitsPerRun : public testing::TestWithParam<LimitRow> {};

TEST_P(LimitsPerRun, CountOtherwise)
{
    const ScriptedPeer peer(
        {{"http://h/", Reply::html("<a href=\"/1\"><a href=\"/2\"><a href=\"/3\">")}});
    Agent agent(peer.port(), "numclients 1; delvedepth 1; refetchdrepeat 3; loadurl h/; " +
                                 GetParam().directives);
    agent.run();
    EXPECT_EQ(peer.asked(), GetParam().asked);
}

const LimitRow kLimits[] = {
    {"UrlsOfAllRuns", "maxurls 4", "/ /1 /2 /3 / /"},
    {"UrlsOfEachRun", "maxurls 3; limitsperrun on", "/ /1 /2 / /1 /2 / /1 /2"},
    {"HostOfAllRuns", "maxhosturls 3", "/ /1 /2 / /"},
    {"HostOfEachRun", "maxhosturls 3; limitsperrun on", "/ /1 /2 / /1 /2 / /1 /2"},
};
INSTANTIATE_TEST_SUITE_P(Care, LimitsPerRun, testing::ValuesIn(kLimits), rowName);

}  // namespace
