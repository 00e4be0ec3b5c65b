#include "parse/CAparseHTML.h"

#include <gmock/gmock.h>

#include "AgentTest.h"
#include "Feed.h"

namespace {

class CAScanHTMLTest : public AgentTest {};

TEST_F(CAScanHTMLTest, FindsOtherLinks)
{
    const struct {
        const char *page;
        std::vector<std::string> links;
        std::size_t cut = 0;  // where the second block begins
        std::size_t end = 0;  // and the third
    } rows[] = {
        {R"(<A HREF="a"><img src="i"><link rel=s href='l'><frame src="f">)",
         {"+a", "-i", "+l", "-f"}},
        {R"(<iframe src="if"><object data="o"><layer src="la"><ilayer src="il">)",
         {"+if", "-o", "-la", "-il"}},
        {R"(<script src="s"><area href="ar"><body background="b">)", {"-s", "-ar", "-b"}},
        {R"(<meta content="0; url=m "><meta content="0; URL = 'q'">)", {"-m", "-q"}},
        {"< \n a href='x'><a\thref='tab'><a\nhref='lf'><ab href='name'><a><>", {"+x"}},
        {R"(<a href="x" href="y"><a xhref="1"><!-- <a href="c"><a href = ' y z ' >)",
         {"+x", "+1", "+y z"}},
        {R"(<a href="open><a href='mixed"><a href x><a href= ><a href="?q">)", {"+?q"}},
        {"<a href=x id=y><a href=t\ta><a href=v\vb ><a href='r\r'>", {"+x", "+t", "+v\vb", "+r"}},
        {R"(<a title="a>b" href="c"><a alt="href=in" href="out">)", {"+in\""}},
        {"<a href=x>", {}},
        {"<a href=x>", {"+x"}, 9},
        {"<a href=x> b>", {"+x"}, 3, 10},
        {"<a href=x <a href=y >", {"+x"}},
        {"<a href=x <a href=y > b>", {"+y"}, 10, 22},
    };
    for (const auto &row : rows) {
        const Cuts cuts{row.cut, std::max(row.cut, row.end)};
        EXPECT_EQ(linksOf<CAScanHTML>(row.page, cuts), row.links)
            << row.page << " cut at " << row.cut;
    }
}

struct DropRow : Row {
    const char *directives;
    std::string page;
    std::string message;  // traced
    std::size_t cut = 0;
};

class Drop : public AgentTestWith<DropRow> {};

TEST_P(Drop, IsNotTold)
{
    configure(GetParam().directives);
    CAURL url("http://h/d/page");
    CAParseHTML parser(&url);
    feed(&parser, GetParam().page, {GetParam().cut});
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
    {"OfAdministrator", "delveinto admin\n", kTwo, "Found....... URL \"y\".\n"},
    {"TooDeep", "", "<a href=\"x\">",
     "URL......... http://h/d/x is too deep (1 > 0).\n"
     "Not......... interested in URL \"http://h/d/x\".\n"},
    {"QueueFullBeforeTheBlock", "maxqueuedepth -1\n", kTwo,
     "HTMLconsume. Bailing 'cause queue is full.\n"},
    {"QueueFullInTheBlock", "maxqueuedepth 1\n", kTwo,
     "Ignoring.... relative URL \"y\" (queue full).\n"},
    {"MaxUrlsInTheBlock", "maxurls 1\n", kTwo,
     "Ignoring.... relative URL \"y\" (hit max #URLs).\n"},
    {"MaxUrlsBeforeTheNextBlock", "maxurls 1\n", kTwo,
     "HTMLconsume. Bailing 'cause we hit max #URLs.\n", 15},
    {"BufferedAt510", "", openTag(510),
     "HTML........ parser buffering 510 characters of an incomplete tag.\n"},
    {"LostAt511", "", "ab" + openTag(511),
     "HTML........ can't buffer 511 characters (SP is 2 chars in).\n"},
    {"ParsedAt511", "", openTag(509) + "\">", "Found....... URL \"xxx", 509},
    {"TooLongAt512", "", openTag(510) + "\">",
     "HTML........ parser ran out of reassembly space (1 extra bytes needed).\n", 510},
    {"QueuedUpTo510", "", openTag(510), "HTML........ parser queueing up another 10 bytes.\n", 500},
    {"GivenUpAt511", "", openTag(511),
     "HTML........ parser giving up on reassembly (0 buffered + 11 incoming with no end in "
     "sight).\n",
     500},
};
INSTANTIATE_TEST_SUITE_P(CAParseHTML, Drop, testing::ValuesIn(kDrops), rowName);

}  // namespace
