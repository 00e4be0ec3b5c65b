// Compressed pages: the links that are found in them, and the copies of them.
#include <sys/resource.h>

#include <random>

#include "AgentTest.h"
#include "Feed.h"
#include "Pack.h"
#include "parse/CAparseCoded.h"
#include "parse/CAparseHTTP.h"

using namespace std::string_literals;

namespace {

struct CodedRow {
    std::string name;
    std::string coding;
    std::string body;
    std::string links;
    std::string message;  // traced
    std::string directives = "";

    friend std::ostream &operator<<(std::ostream &out, const CodedRow &row)
    {
        return out << row.name;
    }
};

class CodedTest : public AgentTest {
protected:
    // The links of the page at http://h/, which are numbers.
    std::string linksOf(const std::string &coding, const std::string &body, const Cuts &cuts)
    {
        CAURL url("http://h/");
        CAParseHTTP parser(&url, HTThread_context(), ac.parseOptions);
        const std::string head =
            "HTTP/1.0 200 OK\r\nContent-Type: text/html\r\nContent-Encoding:" + coding +
            "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
        feed(&parser, head, {});
        const Flags flags = feed(&parser, body, cuts);
        EXPECT_EQ(flags.done, 1);
        std::vector<std::string> found = AgentState::drain();
        std::sort(found.begin(), found.end());
        CAForgetAllProcessed();
        std::string links;
        for (const std::string &link : found) {
            links += link.back();
        }
        return links;
    }
    void configureWith(const std::string &directives)
    {
        configure("modernlinks on\ndelvedepth 1\nslf on\nslr " + dir_.path("save") + "\n" +
                  directives);
    }
    std::string copy() const { return dir_.read("save/h//index.html"); }
};

class Coded : public CodedTest, public testing::WithParamInterface<CodedRow> {};

const std::string kBroken = "Coding...... is broken after ";

TEST_P(Coded, LinksDependOnTheBlocksOrTheCopyIsDecoded)
{
    const auto &[name, coding, body, links, message, directives] = GetParam();
    configureWith(directives);
    EXPECT_EQ(linksOf(coding, body, everyByte(body.size())), links);
    for (std::size_t cut = 0; cut < body.size(); cut += 1 + body.size() / 1000) {
        trace();
        ASSERT_EQ(linksOf(coding, body, {cut}), links) << "cut at " << cut;
        ASSERT_EQ(copy(), body);
        const std::string traced = trace();
        ASSERT_THAT(traced, testing::HasSubstr(message));
        ASSERT_EQ(traced.find(kBroken) != traced.npos, message.starts_with(kBroken));
    }
}

// More than what a decoder gets at once stands between the first link and the second.
const std::string kFirst = [] {
    std::string text = "<a href=1>";
    std::minstd_rand random;
    while (text.size() < 1500) {
        text += static_cast<char>('A' + random() % 57);
    }
    return text;
}();
const Pieces kPage = {"<a href=1>", "<a href=2><p>and so on, and so on, and so on<a href=3>"};
const std::string kPlain = "<a href=1>";

std::vector<CodedRow> codedRows()
{
    const auto page = [](const char *coding) { return pack(coding, kPage); };
    const std::string skipped = "\x5A\x2A\x4D\x18\3\0\0\0abc"s;
    const auto withWindow = [](char window) {
        return "\x28\xB5\x2F\xFD\0"s + window + "\x51\0\0"s + kPlain;
    };
    const std::string will = "Coding...... will decode \"";
    std::vector<CodedRow> rows = {
        {"Names", " X-GZip", page("gzip"), "123", will},
        {"RawDeflate", "Deflate", page("raw"), "123", will},
        {"OneOfThreeIsNone", "gzip,,Identity, BR ,zstd\t",
         pack("zstd", {pack("br", {page("gzip")})}), "123", will},
        {"NoneAtAll", "identity", kPlain, "1", "Adding...... new binary-parser"},
        {"FourAtOnce", "br, br, br, br", pack("br", {pack("br", {pack("br", {page("br")})})}), "",
         "Coding...... can't decode \"br, br, br, br\", no links are looked for.\n"},
        {"Unknown", " x-br", page("br"), "", "Coding...... can't decode \"x-br\""},
        {"NotCoded", "gzip", kPlain, "", kBroken + "0 bytes"},
        {"SeveralMembers", "gzip", pack("gzip", {"<a hr"}) + pack("gzip", {"ef=1>"}) + page("gzip"),
         "123", will},
        {"SeveralFrames", "zstd",
         skipped + pack("zstd", {"<a hr"}) + skipped + pack("zstd", {"ef=1>"}) + page("zstd"),
         "123", will},
        {"LargestWindow", "zstd", withWindow(0x68), "1", will},
        {"WindowTooLarge", "zstd", withWindow(0x69), "", kBroken},
        {"OldFormat", "zstd", "\x27\xB5\x2F\xFD \n@\0\n"s + kPlain + "\xC0\0\0"s, "", kBroken},
        {"NotWanted", "gzip", page("gzip"), "",
         "HTML body.\nHTMLconsume. Don't delve off of URL: \"http://h/\".\nBuffer",
         "delveinto topn"},
    };
    for (const std::string coding : {"gzip", "deflate", "br", "zstd"}) {
        const std::string first = pack(coding, {kFirst}, false);
        rows.push_back({"Whole_" + coding, coding, pack(coding, kPage), "123", will});
        rows.push_back({"CutOff_" + coding, coding, first, "1", will});
        rows.push_back({"Broken_" + coding, coding, first + "\xFF\xFF\xFF\xFF", "1", kBroken});
        rows.push_back(
            {"Rubbish_" + coding, coding, pack(coding, kPage) + "\x1F\x8B<a href=4>", "123", will});
    }
    return rows;
}
INSTANTIATE_TEST_SUITE_P(CAParseCoded, Coded, testing::ValuesIn(codedRows()),
                         [](const auto &row) { return row.param.name; });

long peakMemory()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

class Bomb : public CodedTest, public testing::WithParamInterface<const char *> {};

// A GiB, with links at its start, just before the limit, and just after it.
TEST_P(Bomb, TakesMemoryOrIsReadToItsEnd)
{
    constexpr std::size_t kPiece = 1024 * 1024;
    std::string zeros(kPiece, '0');
    std::string last = zeros;
    last.replace(0, 10, "<a href=1>").replace(kPiece - 10, 10, "<a href=2>");
    Pieces pieces(1024, zeros);
    pieces[CAParseCoded::kMostDecoded / kPiece - 1] = last;
    pieces[CAParseCoded::kMostDecoded / kPiece] = "<a href=3>";
    const std::string body = pack(GetParam(), pieces);
    Cuts blocks;
    for (std::size_t at = 4096; at < body.size(); at += 4096) {
        blocks.push_back(at);
    }
    configureWith("");
    const long before = peakMemory();
    EXPECT_EQ(linksOf(GetParam(), body, blocks), "12");
    EXPECT_LT(peakMemory() - before, 24 * 1024);
    EXPECT_EQ(copy(), body);
    EXPECT_THAT(trace(), testing::HasSubstr("Coding...... gave 67108864 bytes, no links are"));
}
INSTANTIATE_TEST_SUITE_P(CAParseCoded, Bomb, testing::Values("gzip", "br", "zstd"),
                         [](const auto &row) { return std::string(row.param); });

}  // namespace
