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
};

class Coded : public AgentTestWith<CodedRow> {};

// The links of the page at http://h/, which are digits.
std::string linksOf(const std::string &coding, const std::string &body, const Cuts &cuts)
{
    CAURL url("http://h/");
    CAParseHTTP parser(&url, HTThread_context(), ac.parseOptions);
    feed(&parser,
         "HTTP/1.0 200 OK\r\nContent-Type: text/html\r\nContent-Encoding:" + coding +
             "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n",
         {});
    EXPECT_EQ(feed(&parser, body, cuts).done, 1);
    std::string links;
    for (const std::string &found : AgentState::drain()) {
        links += found.back();
    }
    CAForgetAllProcessed();
    std::sort(links.begin(), links.end());
    return links;
}

const std::string kSettings = "modernlinks on\ndelvedepth 1\nslf on\nslr ";
const std::string kBroken = "Coding...... is broken after ";

TEST_P(Coded, LinksDependOnTheBlocksOrTheCopyIsDecoded)
{
    const auto &[name, coding, body, links, message, directives] = GetParam();
    configure(kSettings + dir_.path("save\n") + directives);
    EXPECT_EQ(linksOf(coding, body, everyByte(body.size())), links);
    for (std::size_t cut = 0; cut < body.size(); cut += 1 + body.size() / 1000) {
        trace();
        ASSERT_EQ(linksOf(coding, body, {cut}), links) << "cut at " << cut;
        ASSERT_EQ(dir_.read("save/h//index.html"), body);
        const std::string traced = trace();
        ASSERT_THAT(traced, testing::HasSubstr(message));
        ASSERT_EQ(traced.find(kBroken) != traced.npos, message.starts_with(kBroken));
    }
}

std::vector<CodedRow> codedRows()
{
    const Pieces pieces = {"<a href=1>", "<a href=2><p>and so on, and so on, and so on<a href=3>"};
    const auto page = [&](const char *coding) { return pack(coding, pieces); };
    const std::string plain = "<a href=1>";
    const std::string skipped = "\x5A\x2A\x4D\x18\3\0\0\0abc"s;
    const std::string window = "\x28\xB5\x2F\xFD\0"s;
    const std::string stored = "\x51\0\0"s + plain;
    const std::string will = "Coding...... will decode \"";
    std::vector<CodedRow> rows = {
        {"Names", " X-GZip", page("gzip"), "123", will},
        {"RawDeflate", "Deflate", page("raw"), "123", will},
        {"OneOfThreeIsNone", "gzip,,Identity, BR ,zstd\t",
         pack("zstd", {pack("br", {page("gzip")})}), "123", will},
        {"NoneAtAll", "identity", plain, "1", "Adding...... new binary-parser"},
        {"FourAtOnce", "br, br, br, br", page("br"), "",
         "Coding...... can't decode \"br, br, br, br\", no links are looked for.\n"},
        {"Unknown", " x-br", page("br"), "", "Coding...... can't decode \"x-br\""},
        {"NotCoded", "gzip", plain, "", kBroken + "0 bytes"},
        {"SeveralMembers", "gzip", pack("gzip", {"<a hr"}) + pack("gzip", {"ef=1>"}), "1", will},
        {"SeveralFrames", "zstd",
         skipped + pack("zstd", {"<a hr"}) + skipped + pack("zstd", {"ef=1>"}), "1", will},
        {"LargestWindow", "zstd", window + "\x68" + stored, "1", will},
        {"WindowTooLarge", "zstd", window + "\x69" + stored, "", kBroken},
        {"OldFormat", "zstd", "\x27\xB5\x2F\xFD \n@\0\n"s + plain + "\xC0\0\0"s, "", kBroken},
        {"NotWanted", "gzip", page("gzip"), "",
         "HTML body.\nHTMLconsume. Don't delve off of URL: \"http://h/\".\nBuffer",
         "delveinto topn"},
    };
    // More than what a decoder gets at once stands behind the link.
    std::string first = plain;
    for (std::minstd_rand random; first.size() < 1500;) {
        first += static_cast<char>('A' + random() % 57);
    }
    for (const std::string coding : {"gzip", "deflate", "br", "zstd"}) {
        const std::string cut = pack(coding, {first}, false);
        const std::string whole = pack(coding, pieces);
        rows.push_back({"Whole_" + coding, coding, whole, "123", will});
        rows.push_back({"CutOff_" + coding, coding, cut, "1", will});
        rows.push_back({"Broken_" + coding, coding, cut + "\xFF\xFF\xFF\xFF", "1", kBroken});
        rows.push_back({"Rubbish_" + coding, coding, whole + "\x1F\x8B<a href=4>", "123", will});
    }
    return rows;
}
INSTANTIATE_TEST_SUITE_P(CAParseCoded, Coded, testing::ValuesIn(codedRows()), rowName);

long peakKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// A GiB, with links at its start, just before the limit, and just after it.
TEST_F(AgentTest, BombTakesMemoryOrIsScannedToItsEnd)
{
    constexpr std::size_t kPiece = 1024 * 1024;
    constexpr std::size_t kLimit = CAParseCoded::kMostDecoded / kPiece;
    configure(kSettings + dir_.path("save\n"));
    const std::string zeros(kPiece, '0');
    const std::string last = "<a href=1>" + zeros.substr(20) + "<a href=2>";
    Pieces pieces(1024, zeros);
    pieces[kLimit - 1] = last;
    pieces[kLimit] = "<a href=3>";
    for (const char *const coding : {"gzip", "br", "zstd"}) {
        const std::string body = pack(coding, pieces);
        Cuts blocks;
        for (std::size_t at = 4096; at < body.size(); at += 4096) {
            blocks.push_back(at);
        }
        const long before = peakKiB();
        EXPECT_EQ(linksOf(coding, body, blocks), "12") << coding;
        EXPECT_LT(peakKiB() - before, 24 * 1024) << coding;
        EXPECT_EQ(dir_.read("save/h//index.html"), body) << coding;
        EXPECT_THAT(trace(), testing::HasSubstr("Coding...... gave 67108864 bytes, no links are"));
    }
}

}  // namespace
