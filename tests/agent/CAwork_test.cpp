#include "CAwork.h"

#include <thread>

#include "AgentTest.h"
#include "CAnet.h"

namespace {

// Asks from many threads at once; how often the answer was yes.
int grantsAmongThreads(std::int32_t (*ask)())
{
    std::atomic<int> granted = 0;
    std::vector<std::jthread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&granted, ask] {
            for (int i = 0; i < 1000; ++i) {
                granted += ask();
            }
        });
    }
    threads.clear();
    return granted;
}

class CAworkTest : public AgentTest {};

TEST_F(CAworkTest, BudgetOrConnectionLimitIsExceeded)
{
    CAWorkerThread::resetCountPerSecond(123);
    EXPECT_EQ(grantsAmongThreads(CAWorkerThread::mayISendRequest), 123);
    CAWorkerThread::resetCountPerSecond(0);
    EXPECT_EQ(grantsAmongThreads(CAWorkerThread::mayISendRequest), 8000);

    EXPECT_EQ(grantsAmongThreads(CAWorkerThread::mayIHaveAConnection), 8000);
    EXPECT_EQ(CAConnection::connectionCount, 0);  // without a limit nothing is counted
    ac.maxConnections = 45;
    EXPECT_EQ(grantsAmongThreads(CAWorkerThread::mayIHaveAConnection), 45);
    EXPECT_EQ(grantsAmongThreads(CAWorkerThread::releaseAConnection), 45);
}

}  // namespace
