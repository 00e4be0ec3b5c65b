#include "CAparse.h"

#include "AgentTest.h"

namespace {

std::string unread(const CABuffer &buffer)
{
    EXPECT_EQ(*buffer.getWriteP(), '\0');
    return {buffer.getReadP(), static_cast<std::size_t>(buffer.getContentSize())};
}

TEST(CABuffer, RefusesNothingsAndGrowsByWhatIsOffered)
{
    CABuffer buffer(4096);
    const std::string text(4000, 'a');
    EXPECT_EQ(buffer.addData("x", 0), 0);
    EXPECT_EQ(buffer.getReadP(), nullptr);
    EXPECT_EQ(buffer.addData(text.data(), 4000), 4000);
    EXPECT_EQ(buffer.addData(std::string(100, 'b').data(), 100), 100);
    EXPECT_EQ(buffer.getBufferSize(), 4196);
    EXPECT_EQ(unread(buffer), text + std::string(100, 'b'));
}

TEST(CABuffer, MovesUnreadBytesToTheStartWhenHalfIsRead)
{
    CABuffer buffer(4096);
    const std::string text(3000, 'a');
    ASSERT_EQ(buffer.addData((text + std::string(200, 'b')).data(), 3200), 3200);
    buffer.adjustReadP(3000);
    EXPECT_EQ(buffer.addData("0123456789", 10), 10);
    EXPECT_EQ(buffer.getReadP(), buffer.getBuffer());
    EXPECT_EQ(unread(buffer), std::string(200, 'b') + "0123456789");
}

TEST(CABuffer, TakesWhatFitsWhenItMayNotGrow)
{
    CABuffer buffer(70000);
    ASSERT_EQ(buffer.addData(std::string(69900, 'a').data(), 69900), 69900);
    EXPECT_EQ(buffer.addData(std::string(300, 'b').data(), 300), 100);
    EXPECT_EQ(buffer.addData("c", 1), 0);
}

}  // namespace
