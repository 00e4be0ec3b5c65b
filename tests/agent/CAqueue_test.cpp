#include "url/CAqueue.h"

#include <gtest/gtest.h>

namespace {

TEST(CAQueue, EmptiesOneOfItsTwentyLanesBeforeTheNext)
{
    int numbers[39];
    CAQueue queue(1);
    const auto put = [&](int count) {
        for (int i = 0; i < count; ++i) {
            queue.enqueue(&numbers[i]);
        }
    };
    put(39);
    for (int i = 0; i < 39; ++i) {
        if (i == 20) {
            put(2);  // behind the others, though the second goes to the first lane
        }
        EXPECT_EQ(queue.dequeue(), &numbers[i / 2 + i % 2 * 20]) << i;
    }
    EXPECT_EQ(queue.dequeue(), &numbers[0]);
    EXPECT_EQ(queue.dequeue(), &numbers[1]);
    EXPECT_EQ(queue.dequeue(), nullptr);
    put(20);
    EXPECT_EQ(queue.dequeue(), &numbers[0]) << "dealt out from the first lane again";
    EXPECT_EQ(queue.getLength(), 19);
    EXPECT_EQ(queue.getTotalEnqueued(), 61);
}

}  // namespace
