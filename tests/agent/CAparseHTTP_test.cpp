#include <algorithm>
#include <utility>

#include "AgentTest.h"
#include "Feed.h"
#include "parse/CAparseHTTP11.h"

using namespace std::string_literals;

namespace {

struct ResponseRow : Row {
    std::string bytes;
    std::string outcome;       // status, "done", what becomes of the connection | body, queue
    std::string message = "";  // traced once however the bytes are split
    const char *directives = "";
};

class Response : public AgentTestWith<ResponseRow> {};

std::string outcomeOf(const std::string &bytes, const Cuts &cuts)
{
    CAURL url("http://h/dir/page");
    std::string body;
    const auto parser = CANewResponseParser(&url, HTThread_context(), ac.parseOptions);
    parser->addSink(new Recorder(&url, &body));
    const Flags flags = feed(parser.get(), bytes, cuts);
    const char *const close = flags.close == 0 ? " keep" : flags.close == 1 ? " close" : "";
    body = std::to_string(parser->getHTTPRequestRC()) + (flags.done == 1 ? " done" : "") + close +
           "|" + body;
    for (const std::string &enqueued : AgentState::drain()) {
        body += enqueued;
    }
    CAForgetAllProcessed();
    return body;
}

TEST_P(Response, DependsOnItsSplit)
{
    const std::string &bytes = GetParam().bytes;
    const std::string &message = GetParam().message;
    configure(GetParam().directives);
    // The first block is never larger than what one read brings.
    const std::size_t end = std::min<std::size_t>(bytes.size(), 4096);
    for (std::size_t cut = 0; cut < end; cut += 1 + end / 200) {
        ASSERT_EQ(outcomeOf(bytes, {cut}), GetParam().outcome) << "cut at " << cut;
        const std::string traced = trace();
        const std::size_t at = traced.find(message);
        ASSERT_TRUE(message.empty() || (at != traced.npos && at == traced.rfind(message))) << cut;
    }
}

std::string times(int count, const std::string &text)
{
    std::string result;
    while (count-- > 0) {
        result += text;
    }
    return result;
}

const std::string kOk = "HTTP/1.1 200 OK\r\nContent-type: a/b\r\n";
const std::string kChunked = kOk + "\r\n";
const std::string kLength = kOk + "Content-Length: ";
const std::string kMoved = "HTTP/1.0 302 Found\r\nLocation: ";
const std::string kChunk(9001, 'x');

const ResponseRow kResponses[] = {
    {"Length", kLength + "3\r\n\r\nabc", "200 done|abc"},
    {"LineFeedsAlone", "HTTP/1.0 200\nContent-type: a/b\nContent-Length: 1\n\nx", "200 done|x"},
    {"NulInHeader", kOk + "X: a\0b\r\nContent-Length: 1\r\n\r\nx"s, "200 done|x"},
    {"KeepAlive", kOk + "connection: Keep-Alive\r\ncontent-length: 1\r\n\r\nx", "200 done keep|x"},
    {"Close", kOk + "Connection: closed\r\nContent-Length: 1\r\n\r\nx", "200 done close|x"},
    {"ShortBody", kLength + "3\r\n\r\nab", "200|ab"},
    {"LengthZero", kLength + "0\r\n\r\n", "200 done close|"},
    {"LengthNegative", kLength + "-1\r\n\r\n", "200 done close|"},
    {"LengthBeyond64Bits", kLength + "99999999999999999999\r\n\r\nab", "200|ab"},
    {"LengthBeyond32Bits", kLength + "4294967298\r\n\r\nab", "200|ab"},
    {"NoType", "HTTP/1.0 200 OK\r\nContent-Length: 3\r\n\r\nabc", "200 done close|",
     "Parser...... couldn't find the content-type.\n"},
    {"NotHTTP", "ICY 200 OK\r\n", "500 done close|"},
    {"NoBlankInStatusLine", "HTTP/1.1\r\nX: y\r\n\r\n", "500 done close|"},
    {"NoCode", "HTTP/1.1 \r\n200: x\r\n\r\n", "0 done close|",
     "Parser...... abandoning response with RC=0.\n"},
    {"CodeBeyond32Bits", "HTTP/1.1 4294967496 OK\r\n\r\n", "2147483647 done close|"},
    {"NotFound", "HTTP/1.1 404 No\r\n\r\nbody", "404 done close|"},
    {"MovedHere", kMoved + "x\r\n\r\n", "302 done close|0 http://h/dir/x",
     "Interested..   for host \"h\".\n"},
    {"MovedElsewhere", kMoved + "http://g/\r\n\r\n", "302 done close|"},
    {"MovedNowhere", "HTTP/1.0 302 Found\r\n\r\n", "302 done close|"},
    {"MovedWithoutRoom", kMoved + "/x\r\n\r\n", "302|",
     "Ignoring.... location URL \"/x\" (queue full).\n", "maxqueuedepth -1\n"},
    {"MovedBeyondMaxUrls", kMoved + "/x\r\n\r\n", "302|",
     "Ignoring.... location URL \"/x\" (hit max #URLs).\n", "maxurls -1\n"},
    {"MovedBeyondMaxUrlsAtOnce", kMoved + "/x\r\n\r\n", "302 done close|",
     "Ignoring.... location URL \"/x\" (hit max #URLs).\n", "followredirects all\nmaxurls -1\n"},
    {"MovedBeyondMaxUrls11", kMoved + "/x\r\n\r\n", "302 done close|",
     "Ignoring.... location URL \"/x\" (hit max #URLs).\n", "http11 on\nmaxurls -1\n"},
    {"MovedIntoAFullQueue", kMoved + "/x\r\n\r\n", "302 done close|",
     "Ignoring.... location URL \"/x\" (queue full).\n", "followredirects all\nmaxqueuedepth -1\n"},
    {"MovedIntoAFullQueue11", kMoved + "/x\r\n\r\n", "302 done close|",
     "Ignoring.... location URL \"/x\" (queue full).\n", "http11 on\nmaxqueuedepth -1\n"},
    {"ChunksBeyondTheBuffer", kChunked + times(20, "2329\r\n" + kChunk + "\r\n") + "0\r\n\r\n",
     "200 done|" + times(20, kChunk)},
    {"ChunkOfLargestSize", kChunked + "200000\r\n", "200|",
     "HTTP........ get chunk size = 2097152.\n"},
    {"ChunkTooLarge", kChunked + "200001\r\n", "200 done close|",
     "HTTP........ the Chunk size is too big, drop!\n"},
    {"ChunkSizeOf40Digits", kChunked + std::string(40, 'f') + "\r\n", "200 done close|",
     "HTTP........ the hexstring is too long!\n"},
    // Only what is kept takes memory, and must not take it for ever.
    {"ManyShortHeaders",
     "HTTP/1.0 200 OK\r\n" + times(2100, "x: y\r\n") + "x:z \r\n" + kLength.substr(17) +
         "1\r\n\r\nx",
     "200 done|x", "Parser...... found header x:z .\n"},
    {"EndlessHeaders", kOk + times(3000, " \0\nVia:x\nLocation: x\n"s), "200|",
     "Parser...... too many headers, ignoring the rest.\n", "closedelimitedbodies on\n"},
};
INSTANTIATE_TEST_SUITE_P(CAParseHTTP, Response, testing::ValuesIn(kResponses), rowName);

const char *const kOn = "http11 on\n";
const std::string kOld = "HTTP/1.0 200 OK\r\nContent-type: a/b\r\n";
const std::string kNo = "HTTP/1.1 404 No\r\n";
const std::string kCoded = kOk + "Transfer-Encoding: chunked\r\n";
const std::string kEarly = "HTTP/1.1 103 Early\r\nLink: x\r\nContent-Length: 7\r\n\r\n";
const std::string kFramed = "conflicting or bad lengths";

ResponseRow modern(const char *name, const std::string &bytes, const std::string &outcome,
                   const std::string &message = "")
{
    return {{name}, bytes, outcome, message, kOn};
}
ResponseRow broken(const char *name, const std::string &bytes, const std::string &message)
{
    return modern(name, bytes, "500 done close|", message);
}
ResponseRow chunks(const char *name, const std::string &body, const std::string &outcome)
{
    return modern(name, kCoded + "\r\n" + body, outcome);
}

const ResponseRow kResponses11[] = {
    modern("Length", kLength + "3\r\n\r\nabc", "200 done keep|abc"),
    modern("LengthAgain", kLength + "3, 3\r\nContent-length:3\r\n\r\nabc", "200 done keep|abc"),
    modern("ShortBody", kLength + "3\r\n\r\nab", "200|ab"),
    modern("LengthZero", kLength + "0\r\n\r\n", "200 done keep|"),
    modern("OldKept", kOld + "Content-Length: 1\r\nConnection: X,Keep-Alive\r\n\r\nx",
           "200 done keep|x"),
    modern("OldClosed", kOld + "Content-Length: 1\r\n\r\nx", "200 done close|x"),
    modern("Closed", kLength + "1\r\nConnection: x , Close\r\n\r\nx", "200 done close|x"),
    modern("UntilClose", kOk + "\r\nab", "200|ab"),
    modern("OtherCodingUntilClose", kOk + "Transfer-Encoding: chunked, x\r\n\r\n1\r\n",
           "200|1\r\n"),
    modern("NoType", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nab", "200 done keep|ab"),
    modern("NoBlank", "HTTP/1.1 200\nContent-type:a/b\ncontent-length:\t1 \n\nx",
           "200 done keep|x"),
    modern("Interim", "HTTP/1.1 100 Go on\r\n\r\n" + kEarly + kLength + "1\r\n\r\nx",
           "200 done keep|x"),
    modern("NoContent", "HTTP/1.1 204 No\r\nContent-Length: 5\r\n\r\n", "204 done keep|"),
    modern("NotModified", "HTTP/1.1 304 No\r\nTransfer-Encoding: chunked\r\n\r\n",
           "304 done keep|"),
    modern("NotWanted", kNo + "Content-Length: 65536\r\n\r\n" + std::string(65536, 'x'),
           "404 done keep|"),
    modern("NotWantedChunks", kNo + "Transfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n\r\n",
           "404 done keep|"),
    modern("NotWantedTooLong", kNo + "Content-Length: 65537\r\n\r\n", "404 done close|"),
    modern("NotWantedTooManyChunks",
           kNo + "Transfer-Encoding: chunked\r\n\r\n" + times(8, "2329\r\n" + kChunk + "\r\n"),
           "404 done close|"),
    modern("NotWantedUntilClose", kNo + "\r\nx", "404 done close|"),
    modern("Moved", "HTTP/1.1 302 Found\r\nLocation: x\r\nContent-Length: 1\r\n\r\nx",
           "302 done keep|0 http://h/dir/x"),
    chunks("Chunks", "5 ; a=\"b\"\r\nhello\r\n00a\r\n 1\r\n 2\r\n 3\r\n0;x\r\nA: 1\r\nb\r\n\r\n",
           "200 done keep|hello 1\r\n 2\r\n 3"),
    chunks("ChunksWithLineFeeds", "1\nx\n0\n\n", "200 done keep|x"),
    chunks("ChunkOf3Megabytes", "300000\r\nab", "200|ab"),
    chunks("ChunkWithBareReturn", "1\rX\nx\r\n0\r\n\r\n", "200 done close|"),
    chunks("ChunkWithJunk", "1 X\r\nx\r\n0\r\n\r\n", "200 done close|"),
    modern("EmptyMembers", kOk + "Transfer-Encoding: ,chunked,\r\n\r\n1\r\nx\r\n0\r\n\r\n",
           "200 done keep|x"),
    modern("BlankBeforeColon", "HTTP/1.1 302 No\r\nLocation : x\r\nContent-Length : 0\r\n\r\n",
           "302 done keep|0 http://h/dir/x"),
    modern("InterimAlone", "HTTP/1.1 103 Early\r\nLink: x\r\n\r\nHTTP/1.1 2", "0|"),
    chunks("ChunkTooShort", "2\r\nabc\r\n", "200 done close|ab"),
    chunks("ChunkWithoutSize", "\r\nabc", "200 done close|"),
    chunks("ChunkOfNegativeSize", "-1\r\nabc", "200 done close|"),
    chunks("ChunkOfNoSize", "1g\r\nabc", "200 done close|"),
    chunks("ChunkSizeOf40Digits", std::string(40, 'f') + "\r\n", "200 done close|"),
    chunks("EndlessExtension", "1;" + std::string(262145, 'x'), "200 done close|"),
    modern("ChunksWinOverALength",
           kCoded + "Content-Length: 9\r\ncontent-length: x\r\n\r\n1\r\nx\r\n0\r\n\r\n",
           "200 done keep|x"),
    modern("ChunksFromAnOldSender",
           kOld + "Connection: keep-alive\r\nTransfer-Encoding: Chunked\r\n\r\n1\r\nx\r\n0\r\n\r\n",
           "200 done close|x"),
    broken("ConflictingLengths", kLength + "1\r\nContent-Length: 2\r\n\r\nx", kFramed),
    broken("ConflictInOneLine", kLength + "1,2\r\n\r\nx", kFramed),
    broken("NoNumber", kLength + "1x\r\n\r\nx", kFramed),
    broken("NegativeLength", kLength + "-1\r\n\r\n", kFramed),
    broken("EmptyLength", kLength + "\r\n\r\n", kFramed),
    broken("LengthBeyond64Bits", kLength + "99999999999999999999\r\n\r\n", kFramed),
    broken("Folded", kOk + "X: a\r\n b\r\n\r\n", "a folded header"),
    broken("NulInHeader", kOk + "Content-Length: 1\0 2\r\n\r\n"s, "NUL in the head"),
    broken("EndlessHead", kOk + times(9000, "x: " + std::string(30, 'y') + "\r\n"), "too long"),
    broken("EndlessInterim", times(65, "HTTP/1.1 100 x\r\n\r\n"), "too many interim"),
    broken("Switched", "HTTP/1.1 101 x\r\n\r\n", "a change of protocol"),
    broken("NotHTTP", "ICY 200 OK\r\n", "no status line"),
    broken("Http2", "HTTP/2.0 200 OK\r\n", "no status line"),
    broken("CodeOfTwoDigits", "HTTP/1.1 20\r\n", "no status line"),
    broken("CodeOfFourDigits", "HTTP/1.1 2000\r\n", "no status line"),
};
INSTANTIATE_TEST_SUITE_P(CAParseHTTP11, Response, testing::ValuesIn(kResponses11), rowName);

// Takes but a part of each piece, and writes into it.
class Nibbler : public CAParser {
public:
    Nibbler(CAURL *url, std::string *body, std::int32_t divisor)
        : CAParser(url), body_(body), divisor_(divisor)
    {
    }
    std::int32_t consume(char *data, std::int32_t length, std::int32_t * /*finished*/,
                         std::int32_t * /*close*/) override
    {
        EXPECT_EQ(data[length], '\0');
        body_->append(data, static_cast<std::size_t>(length)).append("|");
        std::fill_n(data, length / 2, '\0');
        return divisor_ == 0 ? 0 : length / divisor_;
    }

private:
    std::string *const body_;
    const std::int32_t divisor_;
};

// What the parser takes of each block of at most `size` bytes, the first of which has `first`, and
// what it offers to its sink.
std::string nibbled(const std::string &bytes, std::size_t first, std::size_t size,
                    std::int32_t divisor)
{
    CAURL url("http://h/dir/page");
    std::string taken;
    std::string body;
    CAParseHTTP parser(&url);
    parser.addSink(new Nibbler(&url, &body, divisor));
    Flags flags;
    Cuts cuts;
    for (std::size_t at = first; at < bytes.size(); at += size) {
        cuts.push_back(at);
    }
    inPieces(bytes, cuts, [&](char *block, std::int32_t length) {
        taken += std::to_string(parser.consume(block, length, &flags.done, &flags.close)) + " ";
        return flags.done == 0;
    });
    return taken + body + std::to_string(flags.done + flags.close);
}

class OddResponse : public AgentTestWith<ResponseRow> {};

TEST_P(OddResponse, DependsOnTheTraceOrLosesItsPlace)
{
    const std::string &bytes = GetParam().bytes;
    for (const std::int32_t divisor : {0, 1, 3}) {
        for (std::size_t first = 1; first < std::min<std::size_t>(bytes.size(), 4096);
             first += 1 + bytes.size() / 50) {
            for (const std::size_t size : {3000U, 4096U}) {
                const std::string traced = nibbled(bytes, first, size, divisor);
                FILE *const stream = std::exchange(ac.traceStream, nullptr);
                EXPECT_EQ(nibbled(bytes, first, size, divisor), traced) << first;
                ac.traceStream = stream;
            }
        }
    }
    trace();
    EXPECT_EQ(nibbled(bytes, 2000, 3000, 1), GetParam().outcome);
    EXPECT_THAT(trace(), testing::HasSubstr(GetParam().message));
}

const std::string kLongHead = kLength + "20000\r\n\r\n";
const std::string kLetters = times(400, "abcdefghijklmnopqrstuvwxy");  // 10,000

const ResponseRow kOddResponses[] = {
    // Of the second block a part is taken, and then its start once more.
    {"PartlyTaken", kLongHead + kLetters.substr(0, 5000 - kLongHead.size()),
     "2000 3000 " + kLetters.substr(0, 2000 - kLongHead.size()) + "|" +
         kLetters.substr(2000 - kLongHead.size(), 2096) + "|" +
         kLetters.substr(2000 - kLongHead.size(), 904) + "|-7",
     "Buffer...... bs 4096, cs 0, sz 3000.\nHTTP"},
};
INSTANTIATE_TEST_SUITE_P(CAParseHTTP, OddResponse, testing::ValuesIn(kOddResponses), rowName);

TEST(CABuffer, LosesBytesOrTakesMoreThanItMay)
{
    const struct {
        std::int32_t size;
        std::vector<std::int32_t> offered;  // bytes; a negative number of them is read instead
        std::vector<std::int32_t> taken;
        std::int32_t grown;
    } rows[] = {
        {4096, {0, 4000, 100}, {0, 4000, 100}, 4196},        // grows by what is offered
        {4096, {3000, 9, -3000, 1}, {3000, 9, 0, 1}, 4096},  // moves what is unread to the start
        {70000, {69900, 300, 1}, {69900, 100, 0}, 70000},    // takes what fits when it may not grow
    };
    for (const auto &row : rows) {
        CABuffer buffer(row.size);
        std::string unread;
        for (std::size_t i = 0; i < row.offered.size(); ++i) {
            const std::int32_t count = row.offered[i];
            const std::string text(static_cast<std::size_t>(std::max(count, 0)), "abcd"[i]);
            if (count < 0) {
                buffer.adjustReadP(-count);
                unread.erase(0, static_cast<std::size_t>(-count));
            } else {
                EXPECT_EQ(buffer.addData(text.data(), count), row.taken[i]);
            }
            unread += text.substr(0, static_cast<std::size_t>(row.taken[i]));
        }
        EXPECT_EQ(buffer.getBufferSize(), row.grown);
        EXPECT_EQ(buffer.getReadP(), buffer.getBuffer());
        EXPECT_EQ(buffer.getReadP(), unread);  // up to the NUL behind it
        EXPECT_EQ(buffer.getContentSize(), std::ssize(unread));
    }
}

}  // namespace
