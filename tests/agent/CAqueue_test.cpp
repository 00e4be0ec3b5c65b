#include "CAqueue.h"

#include <gmock/gmock.h>

#include "AgentTest.h"

namespace {

std::vector<int> takeAll(CAQueue *queue)
{
    std::vector<int> order;
    while (const auto *const element = static_cast<const int *>(queue->dequeue())) {
        order.push_back(*element);
    }
    return order;
}

TEST(CAQueue, EmptiesOneLaneBeforeTheNext)
{
    std::vector<int> numbers(25);
    CAQueue queue(1);
    for (int i = 0; i < 25; ++i) {
        numbers[static_cast<std::size_t>(i)] = i + 1;
        queue.enqueue(&numbers[static_cast<std::size_t>(i)]);
    }
    EXPECT_EQ(queue.getLength(), 25);
    EXPECT_THAT(takeAll(&queue), testing::ElementsAre(1, 21, 2, 22, 3, 23, 4, 24, 5, 25, 6, 7, 8, 9,
                                                      10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20));
    // Empty now: the lanes are dealt out from the first again.
    queue.enqueue(&numbers[1]);
    queue.enqueue(&numbers[0]);
    EXPECT_THAT(takeAll(&queue), testing::ElementsAre(2, 1));
    EXPECT_EQ(queue.empty(), 1);
    EXPECT_EQ(queue.getTotalEnqueued(), 27);
}

}  // namespace
