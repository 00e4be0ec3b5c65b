// Links in pages: as browsers find them, as the plain scanner does, and what becomes of them.
#include <random>

#include "AgentTest.h"
#include "Feed.h"
#include "PlainLinks.h"
#include "parse/CAmarks.h"
#include "parse/CAparseHTML.h"
#include "parse/CAscanModern.h"

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

std::string repeated(std::string_view piece, int times)
{
    std::string all;
    for (; times > 0; --times) {
        all += piece;
    }
    return all;
}

const std::string kNoReferences =
    "&&am;&ampx;&amp=&LT0;&Amp;&TAB;&apos&Tab&NewLine&#;&#x;&#xg&#-1;&# 65;"
    "&eacutex&eacute=&hellip&nGt;&zz;&;&A";

// Fills the room of a set several times; a reference that the room cuts is none at its end.
const std::string kManyImages = repeated("a&#44;&amp;b (,&#41; ,&Tab;c,d&comma; ", 700);
const std::string kTheirLinks = repeated("-a,&b\n-c,d\n", 700);

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
    {"LinksThatAreHints",
     "<link rel=preconnect href=1><link href=2 REL='\nDNS-Prefetch\tprofile '><link imagesrcset=3 "
     "rel=&#112;ingback href=4 rel=icon><link rel='preconnect stylesheet' href=5><link href=6>"
     "<link href=7 rel=' '><link rel rel=preconnect href=8><a rel=profile href=9>"
     "<link rel=preconnects href=10><link rel=icon href=11 rel=preconnect><link imagesrcset=" +
         text(8191) + " href=" + text(4095) + " rel=" + text(4095) + ">",
     "+5\n+6\n+7\n+8\n+9\n+10\n+11\n+" + text(4095) + "\n"},
    {"NamesEndAtAnySpace",
     "<A\tHREF=1><a\nhref=2><a\fhref=3><a\rhref=4><a/href=5><a x/href=6><a href=7\fx>",
     "+1\n+2\n+3\n+4\n+5\n+6\n+7\n"},
    {"NamesInPart", "<aa href=1><ahref=2><a xhref=3><a hre=4><a hrefx=5><link imagesrcsetx=6>", ""},
    {"NoTags", "< a href=1></a href=2><3 href=3><\xE1 href=4><><<a href=5><a href=\"6\"", "+5\n"},
    {"Quotes", "<a href=\"1'\"><a href='2\"'><a href = \"3\"id=x><a href=4\"><a href=5'x>",
     "+1'\n+2\"\n+3\n+4\"\n+5'x\n"},
    {"CloseInQuotes", "<a title='>' href=1><p title=\"<a href=2>\"><a href='3>'>", "+1\n+3>\n"},
    {"QuotesInNoTag", "</1 x=\"><a href=1>\"><3 x=\"><a href=2>\">", "+1\n+2\n"},
    {"LinksInValuesOfOtherTags",
     "<p t=\"> <a href=x>\"><p t=\"'> <a href=x>\"><p t='\"> <a href=x>'>", ""},
    {"QuotesThatBeginNoValue",
     "<p ab\"><a href=1>\"><p =\"><a href=2>\"><p a= b=\"><a href=3>\"><p a=c\1b=\"><a href=4>\">"
     "<p a=b=\"><a href=5>\"><p a/=\"><a href=6>\"><p a=\"b c\"=\"><a href=7>\"><a>",
     "+1\n+2\n+3\n+4\n+5\n+6\n+7\n"},
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
    {"ClosedScript",
     "<script src=1 /><a href=2><style/><a href=3><script/x><a href=x></script><style / ><a "
     "href=x>",
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
    {"ReferencesByName",
     "<a href='&AElig;&zwnj;&eacute;&Eacute&yen?&frac12;&zscr;&NotEqualTilde;&fjlig;"
     "&CounterClockwiseContourIntegral;&notin;&not'>",
     "+\u00C6\u200C\u00E9\u00C9\u00A5?\u00BD\U0001D4CF\u2242\u0338fj\u2233\u2209\u00AC\n"},
    {"ReferencesInTheMiddle",
     "<a href=1234567890123456&#65;890123456><a href=12345678&#66;9012345678901234567>",
     "+1234567890123456A890123456\n+12345678B9012345678901234567\n"},
    {"DecodedOnce", "<a href='&amp;amp;&#38;lt;'>", "+&amp;&lt;\n"},
    {"SpaceAround",
     "<a href='\n 1\t2\r\n 3\x01 '><a href='&#32;4&#32;'><a href=' 5'><a href='6 '><a "
     "href='/123456789 '>",
     "+12 3\n+4\n+5\n+6\n+/123456789\n"},
    {"LinesInLinks", "<a href='1\n2'><a href='3\r4'><a href='5\t6'>", "+12\n+34\n+56\n"},
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
    {"SetLongerThanItsRoom", "<img src=1 srcset='" + text(4000) + " 1x, " + text(4187) + "'>",
     "-" + text(4000) + "\n-1\n"},
    {"SetOfAnyLength",
     "<img srcset='" + kManyImages + text(20000) + " 2x, 1 " + text(9000) + ", 2, " + text(9000) +
         ", 3 (" + text(9000) + ", x 1x), " + kManyImages + "' src=4>",
     kTheirLinks + "-1\n-2\n-3\n" + kTheirLinks + "-4\n"},
    {"LongNames", "<" + text(5000) + " href=1><a " + text(5000) + "=2 href=3>", "+3\n"},
};
INSTANTIATE_TEST_SUITE_P(CAScanModern, Page, testing::ValuesIn(kPages), rowName);

struct CharsetRow : Row {
    const char *contentType;
    std::string page;
    std::string links;  // each in UTF-8 and as a query
};

struct QueryList : CALinkSink {
    void processFoundUrl(const char *link, bool /*raisesDepth*/) override
    {
        const CACharset *const charset = scanner.charsetOfQuery();
        all += link + " "s + (charset != nullptr ? charset->encodeQuery(link) : "") + "\n";
    }

    std::string all;
    CAScanModern scanner{this, true};
};

class Charset : public testing::TestWithParam<CharsetRow> {};

TEST_P(Charset, IsReadWhereverThePageIsCut)
{
    const std::string &page = GetParam().page;
    for (const Cuts &cuts : {Cuts{}, everyByte(page.size())}) {
        QueryList found;
        found.scanner.declareCharset(CACharsetLabel(GetParam().contentType));
        inPieces(page, cuts, [&found](const char *block, std::int32_t length) {
            found.scanner.scan(block, block + length);
            return true;
        });
        EXPECT_EQ(found.all, GetParam().links);
    }
}

const std::string kE = "<a href=\xE9>";

const CharsetRow kCharsets[] = {
    {"None", "text/html", kE + "<a href=\u00E9><a href=&eacute;>",
     "\u00E9 %E9\n\u00E9 \n\u00E9 \n"},
    {"OfHeader", "text/html; Charset = \" Latin1 \"; x",
     kE + "<a href='&eacute;\x80%a&Zcaron;&#x416;&#x1F600;\x81'>",
     "\u00E9 %E9\n\u00E9\u20AC%a\u017D\u0416\U0001F600\u0081 "
     "%E9%80%a%8E%26%231046%3B%26%23128512%3B%81\n"},
    {"Utf8", "text/html;charset='utf-8'", kE + "<a href=\u00E9><meta charset=koi8-r>" + kE,
     "\uFFFD \n\u00E9 \n\uFFFD \n"},
    {"OfSeveralBytes", "charset=GB2312",
     "<a href=\xD6\xD0&eacute;\x81><img srcset='\xD6\xD0 1x, b&comma; \xD6\xD0'>",
     "\u4E2D\u00E9\uFFFD %D6%D0%A8%A6%26%2365533%3B\n\u4E2D %D6%D0\nb b\n\u4E2D %D6%D0\n"},
    {"LettersInTheSecondByte", "charset=sjis", "<a href='\x83\x5C\x83\x41&yen;\xFD'>",
     "\u30BD\u30A2\u00A5\uFFFD %83\\%83A%26%23165%3B%26%2365533%3B\n"},
    {"OfMeta", "text/html",
     kE + "<meta charset=nonsense><meta charset=ISO-8859-5>" + kE + "<meta charset=koi8-r>" + kE,
     "\u00E9 %E9\n\u0449 %E9\n\u0449 %E9\n"},
    {"OfMetaAsHeader", "text/html; charset=nonsense; xcharset",
     "<meta content='text/html; charset=gbk'><meta content='x; charset charset&#61;koi8-r;' "
     "http-equiv=content-TYPE>" +
         kE,
     "\u0418 %E9\n"},
    {"OfMark", "charset=koi8-r", "\xEF\xBB\xBF<meta charset=gbk><a href=\u00E9>", "\u00E9 \n"},
    {"NoMark", "charset=koi8-r", "\xEF\xBB<a href=\xC1>", "\u0430 %C1\n"},
};
INSTANTIATE_TEST_SUITE_P(CAScanModern, Charset, testing::ValuesIn(kCharsets), rowName);

TEST_F(AgentTest, PlainScanFindsOtherLinks)
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

// What random pages are made of.
const std::string kPieces[] = {"<",
                               "<",
                               "<",
                               ">",
                               ">",
                               ">",
                               "</",
                               "<a ",
                               "<A ",
                               "<a\t",
                               "<\n a ",
                               "<img ",
                               "<link ",
                               "<li>",
                               "<frame ",
                               "<iframe ",
                               "<object ",
                               "<layer ",
                               "<ilayer ",
                               "<script ",
                               "<area ",
                               "<body ",
                               "<meta ",
                               "<img src='i'>",
                               "<p class=\"t\">",
                               "<b x='>' y=1>",
                               "<b x= y=\"a>b\"=\"c>",
                               "</p>",
                               "</script>",
                               "<!--",
                               "-->",
                               "href",
                               "HREF",
                               "src",
                               "srcset",
                               "data",
                               "background",
                               "url",
                               "content",
                               "=",
                               "=",
                               "=",
                               "\"",
                               "\"",
                               "'",
                               "'",
                               " ",
                               " ",
                               "\n",
                               "\v",
                               "/",
                               "!",
                               "-",
                               "x",
                               "page.html",
                               "&amp;",
                               "\xE9",
                               "<a href='1'>",
                               "<a href=2>",
                               "href=\"3\" ",
                               "\0"s,
                               text(58),
                               text(500)};

// Each page is cut in three ways. For other pages: --gtest_shuffle --gtest_repeat=N.
TEST(CAScan, RandomPagesGiveTheLinksOfAPlainReading)
{
    std::mt19937 random(static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed()));
    for (int i = 0; i < 1000; ++i) {
        std::string page;
        for (std::size_t left = random() % 60; left > 0; --left) {
            page += kPieces[random() % std::size(kPieces)];
        }
        Cuts cuts;
        for (std::size_t at = random() % 90; at < page.size(); at += random() % 300) {
            cuts.push_back(at);
        }
        const bool images = i % 4 != 0;
        const auto modern = linksOf<CAScanModern>(page, everyByte(page.size()), images);
        for (const Cuts &some : {Cuts{}, cuts, everyByte(page.size())}) {
            ASSERT_EQ(linksOf<CAScanHTML>(page, some, images), plainLinksOf(page, some, images))
                << page;
            ASSERT_EQ(linksOf<CAScanModern>(page, some, images), modern) << page;
        }
    }
}

template <typename Window>
class Marks : public testing::Test {
};

#ifdef __SSE2__
using Windows = testing::Types<CAPlainWindow, CASse2Window>;
#else
using Windows = testing::Types<CAPlainWindow>;
#endif
TYPED_TEST_SUITE(Marks, Windows);

TYPED_TEST(Marks, AreThoseOfTheBytes)
{
    std::mt19937 random(1);
    for (std::size_t length = 0; length <= kCAWindow; ++length) {
        std::string bytes;
        while (bytes.size() < length) {
            constexpr std::string_view kNear = "<=;>\xBC !\x1F\xA0\x7F\x80\xFF\1\"'#&(";
            bytes += random() % 2 != 0 ? kNear[random() % kNear.size()] : char(random());
        }
        bytes.resize(kCAWindow);
        const char *const at = bytes.data();
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            const auto byte = static_cast<unsigned char>(bytes[i]);
            const bool ends = byte == '>' || byte == '"' || byte == '\'';
            EXPECT_EQ(TypeParam::of(at, '<') >> i & 1U, byte == '<' ? 1U : 0U) << i;
            EXPECT_EQ(TypeParam::of(at, '\xBC') >> i & 1U, byte == 0xBC ? 1U : 0U) << i;
            EXPECT_EQ(TypeParam::ofEnds(at) >> i & 1U, ends ? 1U : 0U) << i;
        }
    }
}

struct DropRow : Row {
    const char *directives;
    std::string page;
    std::string message;  // traced
    std::size_t cut = 0;
};

class Drop : public AgentTestWith<DropRow> {};

TEST_P(Drop, IsNotTraced)
{
    configure(GetParam().directives);
    CAURL url("http://h/d/page");
    CAParseHTML parser(&url, HTThread_context(), ac.parseOptions);
    feed(&parser, GetParam().page, {GetParam().cut});
    EXPECT_THAT(trace(), testing::HasSubstr(GetParam().message));
}

const std::string kTwo = "<frame src=\"x\"><frame src=\"y\">";

std::string openTag(std::size_t length)
{
    return "<frame src=\"" + std::string(length - 12, 'x');
}

const char *const kUnwanted =
    "HTMLconsume. Forgetting about image since LoadInlineImages is set to NO.\n";

const DropRow kDrops[] = {
    {"ModernImages", "modernlinks on\nloadinlineimages no\n",
     "<img src=1 srcset=2><video poster=3><input type=image src=5>",
     std::string(kUnwanted) + kUnwanted + kUnwanted + kUnwanted},
    {"ModernValueTooLong", "modernlinks on\n", "<a href=" + text(4096) + ">",
     "HTML........ parser dropping a value of more than 4095 bytes.\n"},
    {"ModernLinkTooLong", "modernlinks on\n", "<img srcset=" + text(4096) + "><base href=1>",
     "HTML........ parser dropping a link of 4096 bytes.\nFound....... base \"1\".\n"},
    {"Images", "loadinlineimages no\n", "<img src=\"x\">", kUnwanted},
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
