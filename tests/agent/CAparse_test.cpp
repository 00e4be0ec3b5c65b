#include "parse/CAparse.h"

#include "AgentTest.h"

namespace {

std::int32_t add(CABuffer *buffer, int count, char c)
{
    return buffer->addData(std::string(static_cast<std::size_t>(count), c).data(), count);
}
std::string unread(const CABuffer &buffer)
{
    EXPECT_EQ(*buffer.getWriteP(), '\0');
    return {buffer.getReadP(), static_cast<std::size_t>(buffer.getContentSize())};
}

TEST(CABuffer, RefusesNothingsAndGrowsByWhatIsOffered)
{
    CABuffer buffer(4096);
    EXPECT_EQ(add(&buffer, 0, 'x'), 0);
    EXPECT_EQ(buffer.getReadP(), nullptr);
    EXPECT_EQ(add(&buffer, 4000, 'a'), 4000);
    EXPECT_EQ(add(&buffer, 100, 'b'), 100);
    EXPECT_EQ(buffer.getBufferSize(), 4196);
    EXPECT_EQ(unread(buffer), std::string(4000, 'a') + std::string(100, 'b'));
}

TEST(CABuffer, MovesUnreadBytesToTheStartWhenHalfIsRead)
{
    CABuffer buffer(4096);
    EXPECT_EQ(add(&buffer, 3000, 'a'), 3000);
    EXPECT_EQ(add(&buffer, 9, 'b'), 9);
    buffer.adjustReadP(3000);
    EXPECT_EQ(add(&buffer, 1, 'c'), 1);
    EXPECT_EQ(buffer.getReadP(), buffer.getBuffer());
    EXPECT_EQ(unread(buffer), "bbbbbbbbbc");
}

TEST(CABuffer, TakesWhatFitsWhenItMayNotGrow)
{
    CABuffer buffer(70000);
    EXPECT_EQ(add(&buffer, 69900, 'a'), 69900);
    EXPECT_EQ(add(&buffer, 300, 'b'), 100);
    EXPECT_EQ(add(&buffer, 1, 'c'), 0);
}

}  // namespace
