#include "CAparseHTML.h"

#include <gmock/gmock.h>

#include "AgentTest.h"

namespace {

// Feeds a page in the pieces that end at `cuts` and at the end. What was enqueued, depth first.
std::vector<std::string> linksOf(const std::string &page, const std::vector<std::size_t> &cuts)
{
    CAURL url("http://h/d/page");
    CAParseHTML parser(&url);
    std::int32_t finished = 0;
    std::int32_t close = 0;
    std::size_t begin = 0;
    for (std::size_t i = 0; i <= cuts.size(); ++i) {
        const std::size_t end = i < cuts.size() ? cuts[i] : page.size();
        std::string block = page.substr(begin, end - begin);
        EXPECT_EQ(
            parser.consume(block.data(), static_cast<std::int32_t>(end - begin), &finished, &close),
            static_cast<std::int32_t>(end - begin));
        begin = end;
    }
    std::vector<std::string> links;
    while (auto *const link = static_cast<CAURL *>(urlQueue->dequeue())) {
        links.push_back(std::to_string(link->depth()) + " " + link->stringitize());
        delete link;
    }
    HashDrain(
        processedUrls, [](void *text, void * /*none*/) { std::free(text); }, nullptr);
    return links;
}

struct TagRow : Row {
    const char *tag;
    const char *whole;            // depth and URL behind http://h; empty: no link
    const char *split = nullptr;  // when the tag is cut anywhere; null: the same
};

class Tag : public AgentTestWith<TagRow> {};

std::vector<std::string> expected(const char *link)
{
    const std::string text(link);
    return text.empty() ? std::vector<std::string>{}
                        : std::vector<std::string>{text.substr(0, 2) + "http://h" + text.substr(2)};
}

TEST_P(Tag, IsMisread)
{
    configure("delvedepth 1\ncachequeries on\n");
    const TagRow &row = GetParam();
    const std::string tag(row.tag);
    const std::string page = "text " + tag + " text";
    EXPECT_EQ(linksOf(page, {}), expected(row.whole)) << "whole";
    const auto split = expected(row.split != nullptr ? row.split : row.whole);
    std::vector<std::size_t> everyByte;
    for (std::size_t cut = 1; cut < tag.size(); ++cut) {
        EXPECT_EQ(linksOf(page, {5 + cut}), split) << "cut at " << cut;
        everyByte.push_back(5 + cut);
    }
    EXPECT_EQ(linksOf(page, everyByte), split) << "byte by byte";
}

INSTANTIATE_TEST_SUITE_P(
    CAParseHTML, Tag,
    testing::Values(
        TagRow{"Anchor", "<A HREF=\"x.html\">", "1 /d/x.html"},
        TagRow{"Apostrophes", "<a class=b href = ' /y ' >", "1 /y"},
        TagRow{"NameBeforeTab", "<a\thref=\"x\">", ""}, TagRow{"OtherTag", "<ab href=\"x\">", ""},
        TagRow{"BlankBeforeName", "< a href=\"x\">", "1 /d/x"},
        TagRow{"Unquoted", "<a href=x id=y>", "1 /d/x"},
        TagRow{"UnquotedAtTheEnd", "<a href=x.html>", "", "1 /d/x.html"},
        TagRow{"QuoteNotClosed", "<a href=\"x>", ""}, TagRow{"NoEquals", "<a href x>", ""},
        TagRow{"FirstOccurrenceCounts", "<a xhref=\"1\" href=\"2\">", "1 /d/1"},
        TagRow{"Image", "<img alt=\"\" src=\"i.gif\">", "0 /d/i.gif"},
        TagRow{"Link", "<link rel=s href=\"s.css\">", "1 /d/s.css"},
        TagRow{"Frame", "<frame src=\"f\">", "0 /d/f"},
        TagRow{"IFrame", "<iframe src=\"f\">", "1 /d/f"},
        TagRow{"Object", "<object data=\"o\">", "0 /d/o"},
        TagRow{"Layer", "<layer src=\"l\">", "0 /d/l"},
        TagRow{"ILayer", "<ilayer src=\"l\">", "0 /d/l"},
        TagRow{"Script", "<script src=\"s\">", "0 /d/s"},
        TagRow{"Area", "<area href=\"a\">", "0 /d/a"},
        TagRow{"Body", "<body background=\"b\">", "0 /d/b"},
        TagRow{"Meta", "<meta content=\"0; url=next.html \">", "0 /d/next.html"},
        TagRow{"MetaAtTheEnd", "<meta content=\"0; url=next.html\">", "", "0 /d/next.html\""},
        TagRow{"GreaterEndsTheTag", "<a title=\"a>b\" href=\"x\">", ""}),
    rowName);

struct DropRow : Row {
    const char *directives;
    std::string page;
    std::string message;  // traced
    std::vector<std::size_t> cuts = {};
    std::vector<std::string> links = {};
};

class Drop : public AgentTestWith<DropRow> {};

TEST_P(Drop, IsNotTold)
{
    configure(GetParam().directives);
    trace();
    EXPECT_EQ(linksOf(GetParam().page, GetParam().cuts), GetParam().links);
    EXPECT_THAT(trace(), testing::HasSubstr(GetParam().message));
}

const std::string kAnchor = "<frame src=\"x\">";

std::string openTag(std::size_t length)
{
    return "<frame src=\"" + std::string(length - 12, 'x');
}

INSTANTIATE_TEST_SUITE_P(
    CAParseHTML, Drop,
    testing::Values(
        DropRow{"Images", "loadinlineimages no\n", "<img src=\"x\">",
                "HTMLconsume. Forgetting about image since LoadInlineImages is set to NO.\n"},
        DropRow{"Source", "delveinto topn\n", kAnchor,
                "HTMLconsume. Don't delve off of URL: \"http://h/d/page\".\n"},
        DropRow{"TooDeep", "", "<a href=\"x\">",
                "URL......... http://h/d/x is too deep (1 > 0).\nNot......... interested in URL "
                "\"http://h/d/x\".\n"},
        DropRow{"QueueFullBeforeTheBlock", "maxqueuedepth -1\n", kAnchor,
                "HTMLconsume. Bailing 'cause queue is full.\n"},
        DropRow{"QueueFullInTheBlock",
                "maxqueuedepth 1\n",
                kAnchor + "<frame src=\"y\">",
                "Ignoring.... relative URL \"y\" (queue full).\n",
                {},
                {"0 http://h/d/x"}},
        DropRow{"MaxUrlsInTheBlock",
                "maxurls 1\n",
                kAnchor + "<frame src=\"y\">",
                "Ignoring.... relative URL \"y\" (hit max #URLs).\n",
                {},
                {"0 http://h/d/x"}},
        DropRow{"MaxUrlsBeforeTheNextBlock",
                "maxurls 1\n",
                kAnchor + "<frame src=\"y\">",
                "HTMLconsume. Bailing 'cause we hit max #URLs.\n",
                {15},
                {"0 http://h/d/x"}},
        DropRow{"BufferedAt510", "", openTag(510),
                "HTML........ parser buffering 510 characters of an incomplete tag.\n"},
        DropRow{"LostAt511", "", "ab" + openTag(511),
                "HTML........ can't buffer 511 characters (SP is 2 chars in).\n"},
        DropRow{"ParsedAt511",
                "",
                openTag(509) + "\">",
                "Found....... URL \"xxx",
                {509},
                {"0 http://h/d/" + std::string(497, 'x')}},
        DropRow{"TooLongAt512",
                "",
                openTag(510) + "\">",
                "HTML........ parser ran out of reassembly space (1 extra bytes needed).\n",
                {510}},
        DropRow{"QueuedUpTo510",
                "",
                openTag(500) + std::string(10, 'y'),
                "HTML........ parser queueing up another 10 bytes.\n",
                {500}},
        DropRow{"GivenUpAt511",
                "",
                openTag(500) + std::string(11, 'y'),
                "HTML........ parser giving up on reassembly (0 buffered + 11 incoming with no end "
                "in sight).\n",
                {500}},
        DropRow{"NextTagBegins", "", "<frame src=\"x" + kAnchor, "", {13}, {"0 http://h/d/x"}}),
    rowName);

}  // namespace
