#include "CAqueue.h"

#include <gmock/gmock.h>

namespace {

TEST(CAQueue, EmptiesOneLaneBeforeTheNext)
{
    int numbers[25];
    CAQueue queue(1);
    for (int i = 0; i < 25; ++i) {
        numbers[i] = i + 1;
        queue.enqueue(&numbers[i]);
    }
    EXPECT_EQ(queue.getLength(), 25);
    std::vector<int> order;
    while (const auto *const element = static_cast<const int *>(queue.dequeue())) {
        order.push_back(*element);
    }
    EXPECT_THAT(order, testing::ElementsAre(1, 21, 2, 22, 3, 23, 4, 24, 5, 25, 6, 7, 8, 9, 10, 11,
                                            12, 13, 14, 15, 16, 17, 18, 19, 20));
    // Empty now: the lanes are dealt out from the first again.
    queue.enqueue(&numbers[1]);
    queue.enqueue(&numbers[0]);
    EXPECT_EQ(queue.dequeue(), &numbers[1]);
    EXPECT_EQ(queue.dequeue(), &numbers[0]);
    EXPECT_EQ(queue.empty(), 1);
    EXPECT_EQ(queue.getTotalEnqueued(), 27);
}

}  // namespace
