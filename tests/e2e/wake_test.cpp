// Tests of `wakeclients`: work that is found begins at once, and no limit is exceeded by that.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <set>

#include "Agent.h"

namespace {

// Pages in pairs: the first of each pair is answered when the second is asked for, and links to the
// next pair. So each pair needs a client that sleeps when its links are found.
class Pairs {
public:
    explicit Pairs(int count) : count_(count) {}

    Reply answer(const std::string &target)
    {
        const int number = std::stoi(target.substr(target.rfind('/') + 1));
        std::unique_lock lock(mutex_);
        asked_.insert(number);
        changed_.notify_all();
        if (number % 2 != 0) {
            return Reply::ok();
        }
        changed_.wait_for(lock, kRunDeadline, [&] { return asked_.count(number + 1) > 0; });
        return number + 2 < 2 * count_ ? Reply::html(link(number + 2) + link(number + 3))
                                       : Reply::ok();
    }
    std::size_t asked()
    {
        const std::lock_guard guard(mutex_);
        return asked_.size();
    }

private:
    static std::string link(int number) { return "<a href=\"/" + std::to_string(number) + "\">"; }

    const int count_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::multiset<int> asked_;
};

struct WakeRow : Row {
    std::string directives;
};

class Wake : public testing::TestWithParam<WakeRow> {};

// Clients that are not woken need about a second for each pair.
TEST_P(Wake, ComesLateOrTwice)
{
    constexpr int kPairs = 30;
    constexpr Millis kTooLong{15000};
    Pairs pairs(kPairs);
    const ScriptedPeer peer(
        [&](const auto &, const auto &request) { return pairs.answer(request.target); });
    Agent agent(peer.port(), "wakeclients on; numclients 4; delvedepth 100; " + seeds(2) +
                                 GetParam().directives);
    const auto begin = ScriptedPeer::Clock::now();
    agent.run();
    EXPECT_LT(ScriptedPeer::Clock::now() - begin, kTooLong);
    EXPECT_EQ(pairs.asked(), 2 * kPairs);
}

const WakeRow kWakes[] = {
    {"Queue", ""},
    {"ByDepth", "breadthfirst on"},
    {"HostSlots", "hostconnections 2"},
    {"HostSlotsByDepth", "breadthfirst on; hostconnections 3"},
    {"Rests", "retryafter on"},
    {"OthersBeginLater", "slowstart 3"},
    {"Http11", "http11 on; modernlinks on"},
};
INSTANTIATE_TEST_SUITE_P(E, Wake, testing::ValuesIn(kWakes), rowName);

// The end of each of these waits for no poll; only the next run does.
struct EndRow : Row {
    std::string directives;
    int runs;
};

class WokenEnd : public testing::TestWithParam<EndRow> {};

TEST_P(WokenEnd, LeavesOutOrHurriesARun)
{
    const ScriptedPeer peer(
        [](const ScriptedPeer &, const ScriptedPeer::Request &) { return Reply::ok(); });
    Agent agent(peer.port(), "wakeclients on; loadurl h/; " + GetParam().directives);
    agent.run();
    const std::vector<ScriptedPeer::Request> requests = peer.requests();
    ASSERT_EQ(requests.size(), static_cast<std::size_t>(GetParam().runs));
    for (std::size_t i = 1; i < requests.size(); ++i) {
        EXPECT_GE(requests[i].arrival - requests[i - 1].arrival, Millis(900));
    }
}

const EndRow kEnds[] = {
    {"One", "", 1},
    {"Three", "refetchdrepeat 3", 3},
    {"WithResults", "refetchdrepeat 2; resultslog @dir@/log", 2},
    {"FewerConnections", "numclients 4; refetchdmaxconnection 2; refetchdrepeat 2", 2},
};
INSTANTIATE_TEST_SUITE_P(E, WokenEnd, testing::ValuesIn(kEnds), rowName);

// The budget is renewed once a second, however often the master thread is woken.
TEST(Waking, RenewsTheBudget)
{
    constexpr std::size_t kBudget = 2;
    const ScriptedPeer peer(
        [](const ScriptedPeer &, const ScriptedPeer::Request &) { return Reply::ok(); });
    Agent agent(peer.port(),
                "wakeclients on; numclients 4; refetchdrequestpersecond 2; " + seeds(8));
    agent.run();
    const std::vector<ScriptedPeer::Request> requests = peer.requests();
    ASSERT_EQ(requests.size(), 8U);
    for (std::size_t i = 2 * kBudget; i < requests.size(); ++i) {
        EXPECT_GE(requests[i].arrival - requests[i - 2 * kBudget].arrival, Millis(900));
    }
}

}  // namespace
