#include "parse/CAscanModern.h"

#include <gmock/gmock.h>

#include "AgentTest.h"
#include "Feed.h"

using namespace std::string_literals;

namespace {

// One link a line.
std::string linesOf(std::string_view page, const Cuts &cuts, bool images = true)
{
    std::string lines;
    for (const std::string &link : linksOf<CAScanModern>(page, cuts, images)) {
        lines += link + "\n";
    }
    return lines;
}

struct PageRow : Row {
    std::string page;
    std::string links;
};

class Page : public testing::TestWithParam<PageRow> {};

TEST_P(Page, HasTheseLinksWhereverItIsCut)
{
    const std::string &page = GetParam().page;
    EXPECT_EQ(linesOf(page, everyByte(page.size())), GetParam().links);
    for (std::size_t cut = 0; cut < page.size(); cut += 1 + page.size() / 1000 * 100) {
        ASSERT_EQ(linesOf(page, {cut}), GetParam().links) << "cut at " << cut;
    }
}

std::string text(std::size_t length)
{
    return std::string(length, 'x');
}

const std::string kNoReferences =
    "&&am;&ampx;&amp=&LT0;&Amp;&TAB;&apos&Tab&NewLine&nbsp;&#;&#x;&#xg&#-1;&# 65;";

const PageRow kPages[] = {
    {"TagsOfThePlainScan",
     "<a href=1><link href=2><frame src=3><iframe src=4></iframe><object data=5><layer src=6>"
     "<ilayer src=7><script src=8></script><area href=9><body background=10><img src=11>",
     "+1\n+2\n-3\n+4\n-5\n-6\n-7\n-8\n-9\n-10\n-11\n"},
    {"TagsOfMedia",
     "<video poster=1 src=2><audio src=3><source src=4 srcset=5><track src=6><embed src=7>"
     "<link imagesrcset=8 href=9><img srcset='10 1x' src=11>",
     "-1\n-2\n-3\n-4\n-5\n-6\n-7\n-8\n+9\n-10\n-11\n"},
    {"InputByItsType", "<input src=1><input type=text src=2><INPUT SRC=3 TYPE=Image>", "-3\n"},
    {"NamesEndAtAnySpace",
     "<A\tHREF=1><a\nhref=2><a\fhref=3><a\rhref=4><a/href=5><a x/href=6><a href=7\fx>",
     "+1\n+2\n+3\n+4\n+5\n+6\n+7\n"},
    {"NamesInPart", "<aa href=1><ahref=2><a xhref=3><a hre=4><a hrefx=5><link imagesrcsetx=6>", ""},
    {"NoTags", "< a href=1></a href=2><3 href=3><\xE1 href=4><><<a href=5><a href=\"6\"", "+5\n"},
    {"Quotes", "<a href=\"1'\"><a href='2\"'><a href = \"3\"id=x><a href=4\"><a href=5'x>",
     "+1'\n+2\"\n+3\n+4\"\n+5'x\n"},
    {"CloseInQuotes", "<a title='>' href=1><p title=\"<a href=2>\"><a href='3>'>", "+1\n+3>\n"},
    {"ValuesWithout", "<a href><a href=><a href =\n><a href=''><a href=' \n'><a = href=6>", "+6\n"},
    {"Repeated", "<a href=1 href=2><a HREF href=3><img src='' src=4 srcset=5 srcset=6>",
     "+1\n-5\n"},
    {"UnquotedSlash", "<a href=1/><a href=/2/ ><a href=3\tx>", "+1/\n+/2/\n+3\n"},
    {"Comments",
     "<!--><a href=1><!---><a href=2><!-- > -- > --!><a href=3><!--<a href=x>--->"
     "<a href=4><!---!><a href=x>-->",
     "+1\n+2\n+3\n+4\n"},
    {"CommentNeverEnds", "<!--!><a href=1>--<a href=2>-><a href=3>--!-><a href=4>", ""},
    {"Declarations",
     "<!doctype html \"<a href=x>\"><!-><a href=1><?php '<a href=x' ?></ <a href=x><a href=2>",
     "+1\n+2\n"},
    {"TextOfScripts",
     "<script src=1>if (a<b) '</scrip><a href=x></scripts><a href=x><</SCRIPT\n><a href=2>",
     "-1\n+2\n"},
    {"TextOfOthers",
     "<style><a href=x></style x='>'><TITLE><a href=x></title/>"
     "<textarea></title><a href=x></textarea><a href=1>",
     "+1\n"},
    {"ClosedScript", "<script src=1 /><a href=2><style/><a href=3><script/x><a href=x></script>",
     "-1\n+2\n+3\n"},
    {"References",
     "<a href='&amp;&lt;&gt;&quot;&apos;&#65;&#x42;&#X43;&#xe9;&#x7ff;&#8364;&#x1F600;'>",
     "+&<>\"'ABC\xC3\xA9\xDF\xBF\xE2\x82\xAC\xF0\x9F\x98\x80\n"},
    {"ReferencesThatStay", "<a href='" + kNoReferences + "'>", "+" + kNoReferences + "\n"},
    {"OpenReferences", "<a href=&#65><a href='&#38b&#65x;&#x42g&LT &GT/&QUOT;&amp'>",
     "+A\n+&bAx;Bg< >/\"&\n"},
    {"ReferencesToBlanksAndControls",
     "<a href='/a&#10;b&Tab;&NewLine;&#xD;c'><a href='&#32;/e&#13;'><a "
     "href='&#x1F;&#1;f&#1;g&#127;'>",
     "+/abc\n+/e\n+f\1g\x7F\n"},
    {"ReferencesToOtherCharacters",
     "<a href='&#128;&#x9F;&#x81;&#0;&#xDFFF&#x110000;&#4294967361'>",
     "+\u20AC\u0178\xC2\x81\uFFFD\uFFFD\uFFFD\uFFFD\n"},
    {"DecodedOnce", "<a href='&amp;amp;&#38;lt;'>", "+&amp;&lt;\n"},
    {"SpaceAround", "<a href='\n 1\t2\r\n 3\x01 '><a href='&#32;4&#32;'>", "+12 3\n+4\n"},
    {"Nul", "<a href='1\0002'><a href='\0003\0'><a\0 href=4><a \0href=5><\0a href=6>"s, "+3\n"},
    {"Set", "<img srcset=' a.png, b.png 2x,c,d.png 3x , e,, ,f (1,2) 4x,g\n(,h'>",
     "-a.png\n-b.png\n-c,d.png\n-e\n-f\n-g\n"},
    {"SetOfReferences", "<img srcset='a?x&amp;y 1x&#44; b'>", "-a?x&y\n-b\n"},
    {"Refresh",
     "<meta http-equiv=refresh content='5; url=1'>"
     "<META CONTENT=\" 0.5,URL = '2' x\" HTTP-EQUIV=REFRESH>"
     "<meta http-equiv=Refresh content='0;3'><meta http-equiv=refresh content='0 url \"4'>"
     "<meta http-equiv=refresh content='0;\"5\"6'><meta http-equiv=refresh content='0 ; ,7'>",
     "-1\n-2\n-3\n-url \"4\n-5\n-,7\n"},
    {"NoRefresh",
     "<meta name=x content='5; url=1'><meta http-equiv=refresh><meta http-equiv=refresh content=5>"
     "<meta http-equiv=refresh content='x; url=2'><meta http-equiv=refresh content='5x; url=3'>"
     "<meta http-equiv=refresh content='; url=4'>",
     ""},
    {"Base", "<base href=' '><a href=1><base href=' /2 '><base href=3>", "+1\n=/2\n"},
    {"LongestLink", "<a href=" + text(4095) + "><a href='" + text(4096) + "' href=x><a href=1>",
     "+" + text(4095) + "\n+1\n"},
    {"RoomOfTheTagBefore",
     "<img srcset=" + text(8100) + "><img srcset=" + text(8100) + "><a href=1>", "+1\n"},
    {"LongestSet",
     "<img srcset='" + text(4096) + " ," + text(4091) + "1x' src='" + text(4095) + "'>",
     "-" + text(4091) + "1x\n-" + text(4095) + "\n"},
    {"SetTooLong", "<img src=1 srcset='" + text(4000) + " 1x, " + text(4187) + "'>", "-1\n"},
    {"LongNames", "<" + text(5000) + " href=1><a " + text(5000) + "=2 href=3>", "+3\n"},
};
INSTANTIATE_TEST_SUITE_P(CAScanModern, Page, testing::ValuesIn(kPages), rowName);

class Told : public AgentTest {};

TEST_F(Told, UnwantedIsFoundOrLongVanishesWithoutAWord)
{
    const char *const images = "<img src=1 srcset=2><video poster=3 src=4><input type=image src=5>";
    EXPECT_EQ(linesOf(images, {}, false), "-4\n");
    linesOf("<a href=" + text(4096) + "><img srcset=" + text(4096) + "><base href=1>", {});
    const std::string unwanted =
        "HTMLconsume. Forgetting about image since LoadInlineImages is set to NO.\n";
    EXPECT_EQ(trace(), unwanted + unwanted + unwanted + "Found....... URL \"4\".\n" + unwanted +
                           "HTML........ parser dropping a value of more than 4095 bytes.\n"
                           "HTML........ parser dropping a link of 4096 bytes.\n"
                           "Found....... base \"1\".\n");
}

}  // namespace
