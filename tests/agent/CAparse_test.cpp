#include "parse/CAparse.h"

#include "AgentTest.h"

namespace {

TEST(CABuffer, LosesBytesOrTakesMoreThanItMay)
{
    const struct {
        std::int32_t size;
        std::vector<std::int32_t> offered;  // bytes; a negative number of them is read instead
        std::vector<std::int32_t> taken;
        std::int32_t grown;
    } rows[] = {
        {4096, {0, 4000, 100}, {0, 4000, 100}, 4196},        // grows by what is offered
        {4096, {3000, 9, -3000, 1}, {3000, 9, 0, 1}, 4096},  // moves what is unread to the start
        {70000, {69900, 300, 1}, {69900, 100, 0}, 70000},    // takes what fits when it may not grow
    };
    for (const auto &row : rows) {
        CABuffer buffer(row.size);
        std::string unread;
        for (std::size_t i = 0; i < row.offered.size(); ++i) {
            const std::int32_t count = row.offered[i];
            const std::string text(static_cast<std::size_t>(std::max(count, 0)), "abcd"[i]);
            if (count < 0) {
                buffer.adjustReadP(-count);
                unread.erase(0, static_cast<std::size_t>(-count));
            } else {
                EXPECT_EQ(buffer.addData(text.data(), count), row.taken[i]);
            }
            unread += text.substr(0, static_cast<std::size_t>(row.taken[i]));
        }
        EXPECT_EQ(buffer.getBufferSize(), row.grown);
        EXPECT_EQ(buffer.getReadP(), buffer.getBuffer());
        EXPECT_EQ(buffer.getReadP(), unread);  // up to the NUL behind it
        EXPECT_EQ(buffer.getContentSize(), std::ssize(unread));
    }
}

}  // namespace
