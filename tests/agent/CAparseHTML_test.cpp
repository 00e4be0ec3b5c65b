#include "CAparseHTML.h"

#include <gmock/gmock.h>

#include "AgentTest.h"
#include "Feed.h"

namespace {

struct DropRow : Row {
    const char *directives;
    std::string page;
    std::string message;  // traced
    Cuts cuts = {};
};

class Drop : public AgentTestWith<DropRow> {};

// Which links are found is for the fuzz target.
TEST_P(Drop, IsNotTold)
{
    configure(GetParam().directives);
    CAURL url("http://h/d/page");
    CAParseHTML parser(&url);
    feed(&parser, GetParam().page, GetParam().cuts);
    EXPECT_THAT(trace(), testing::HasSubstr(GetParam().message));
}

const std::string kTwo = "<frame src=\"x\"><frame src=\"y\">";

std::string openTag(std::size_t length)
{
    return "<frame src=\"" + std::string(length - 12, 'x');
}

const DropRow kDrops[] = {
    {"Images", "loadinlineimages no\n", "<img src=\"x\">",
     "HTMLconsume. Forgetting about image since LoadInlineImages is set to NO.\n"},
    {"Source", "delveinto topn\n", kTwo,
     "HTMLconsume. Don't delve off of URL: \"http://h/d/page\".\n"},
    {"TooDeep", "", "<a href=\"x\">",
     "URL......... http://h/d/x is too deep (1 > 0).\n"
     "Not......... interested in URL \"http://h/d/x\".\n"},
    {"QueueFullBeforeTheBlock", "maxqueuedepth -1\n", kTwo,
     "HTMLconsume. Bailing 'cause queue is full.\n"},
    {"QueueFullInTheBlock", "maxqueuedepth 1\n", kTwo,
     "Ignoring.... relative URL \"y\" (queue full).\n"},
    {"MaxUrlsInTheBlock", "maxurls 1\n", kTwo,
     "Ignoring.... relative URL \"y\" (hit max #URLs).\n"},
    {"MaxUrlsBeforeTheNextBlock",
     "maxurls 1\n",
     kTwo,
     "HTMLconsume. Bailing 'cause we hit max #URLs.\n",
     {15}},
    {"BufferedAt510", "", openTag(510),
     "HTML........ parser buffering 510 characters of an incomplete tag.\n"},
    {"LostAt511", "", "ab" + openTag(511),
     "HTML........ can't buffer 511 characters (SP is 2 chars in).\n"},
    {"ParsedAt511", "", openTag(509) + "\">", "Found....... URL \"xxx", {509}},
    {"TooLongAt512",
     "",
     openTag(510) + "\">",
     "HTML........ parser ran out of reassembly space (1 extra bytes needed).\n",
     {510}},
    {"QueuedUpTo510",
     "",
     openTag(500) + std::string(10, 'y'),
     "HTML........ parser queueing up another 10 bytes.\n",
     {500}},
    {"GivenUpAt511",
     "",
     openTag(500) + std::string(11, 'y'),
     "HTML........ parser giving up on reassembly (0 buffered + 11 incoming with no end in "
     "sight).\n",
     {500}},
};
INSTANTIATE_TEST_SUITE_P(CAParseHTML, Drop, testing::ValuesIn(kDrops), rowName);

}  // namespace
