#include "CAparse.h"

#include "AgentTest.h"

namespace {

class CABufferTest : public AgentTest {};

std::string unread(const CABuffer &buffer)
{
    EXPECT_EQ(*buffer.getWriteP(), '\0');
    return {buffer.getReadP(), static_cast<std::size_t>(buffer.getContentSize())};
}

TEST_F(CABufferTest, RefusesNothingsAndGrowsByWhatIsOffered)
{
    CABuffer buffer(4096);
    const std::string text(4000, 'a');
    EXPECT_EQ(buffer.addData(nullptr, 5), 0);
    EXPECT_EQ(buffer.addData("x", 0), 0);
    EXPECT_EQ(buffer.getReadP(), nullptr);
    EXPECT_EQ(buffer.addData(text.data(), 4000), 4000);
    EXPECT_EQ(buffer.getBufferSize(), 4096);
    EXPECT_EQ(buffer.addData(std::string(100, 'b').data(), 100), 100);
    EXPECT_EQ(buffer.getBufferSize(), 4196);
    EXPECT_EQ(unread(buffer), text + std::string(100, 'b'));
}

TEST_F(CABufferTest, MovesUnreadBytesToTheStartWhenHalfIsRead)
{
    CABuffer buffer(4096);
    const std::string text(3000, 'a');
    ASSERT_EQ(buffer.addData((text + std::string(200, 'b')).data(), 3200), 3200);
    buffer.adjustReadP(3000);
    EXPECT_EQ(buffer.addData("0123456789", 10), 10);
    EXPECT_EQ(buffer.getReadP(), buffer.getBuffer());
    EXPECT_EQ(unread(buffer), std::string(200, 'b') + "0123456789");
    EXPECT_EQ(buffer.adjustReadP(210), buffer.getBuffer());
    EXPECT_EQ(buffer.getWriteP(), buffer.getBuffer());
}

TEST_F(CABufferTest, TakesWhatFitsWhenItMayNotGrow)
{
    CABuffer buffer(70000);
    ASSERT_EQ(buffer.addData(std::string(69900, 'a').data(), 69900), 69900);
    EXPECT_EQ(buffer.addData(std::string(300, 'b').data(), 300), 100);
    EXPECT_EQ(buffer.addData("c", 1), 0);
    EXPECT_EQ(buffer.getBufferSize(), 70000);
}

struct Deleted : CAParser {
    Deleted(CAURL *url, int *count) : CAParser(url), count_(count) {}
    ~Deleted() override { ++*count_; }
    Deleted(const Deleted &) = delete;
    Deleted &operator=(const Deleted &) = delete;
    int *count_;
};

TEST_F(CABufferTest, ParserDeletesItsSinkOnce)
{
    int deleted = 0;
    CAURL url("http://h/");
    {
        CAParser parser(&url);
        char data[] = "abc";
        EXPECT_EQ(parser.consume(data, 3, nullptr, nullptr), 3);
        parser.addSink(new Deleted(&url, &deleted));
        parser.addSink(new Deleted(&url, &deleted));
        EXPECT_EQ(deleted, 1);
    }
    EXPECT_EQ(deleted, 2);
}

}  // namespace
