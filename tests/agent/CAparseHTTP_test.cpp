#include "CAparseHTTP.h"

#include "AgentTest.h"

namespace {

// Keeps what the head of the chain delivers.
class Recorder : public CAParser {
public:
    Recorder(CAURL *url, std::string *body) : CAParser(url), body_(body) {}
    std::int32_t consume(char *data, std::int32_t length, std::int32_t * /*finished*/,
                         std::int32_t * /*close*/) override
    {
        body_->append(data, static_cast<std::size_t>(length));
        return length;
    }

private:
    std::string *const body_;
};

// What is known of a response when its last byte was consumed.
struct Outcome {
    int rc;
    int done;
    int close;  // -7 is "not touched"
    std::string body;
    std::vector<std::string> enqueued = {};

    bool operator==(const Outcome &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const Outcome &outcome)
    {
        return out << outcome.rc << " done=" << outcome.done << " close=" << outcome.close << " \""
                   << outcome.body << "\" " << testing::PrintToString(outcome.enqueued);
    }
};

struct ResponseRow : Row {
    std::string bytes;
    Outcome outcome;
    std::string message = "";  // traced however the bytes are split
};

class Response : public AgentTestWith<ResponseRow> {
protected:
    // Feeds the pieces that end at `cuts` and at the end, as the connection does.
    Outcome feed(const std::vector<std::size_t> &cuts)
    {
        const std::string &bytes = GetParam().bytes;
        CAURL url("http://h/dir/page");
        Outcome outcome{.rc = 0, .done = 0, .close = -7, .body = ""};
        CAParseHTTP parser(&url);
        parser.addSink(new Recorder(&url, &outcome.body));
        std::size_t begin = 0;
        for (std::size_t i = 0; i <= cuts.size() && outcome.done == 0; ++i) {
            const std::size_t end = i < cuts.size() ? cuts[i] : bytes.size();
            std::vector<char> block(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                                    bytes.begin() + static_cast<std::ptrdiff_t>(end));
            block.push_back('!');  // the spare byte that the head may write
            parser.consume(block.data(), static_cast<std::int32_t>(end - begin), &outcome.done,
                           &outcome.close);
            begin = end;
        }
        outcome.rc = parser.getHTTPRequestRC();
        outcome.enqueued = drain();
        HashDrain(
            processedUrls, [](void *text, void * /*none*/) { std::free(text); }, nullptr);
        EXPECT_NE(trace().find(GetParam().message), std::string::npos);
        return outcome;
    }
};

TEST_P(Response, DependsOnItsSplit)
{
    const Outcome &expected = GetParam().outcome;
    EXPECT_EQ(feed({}), expected) << "whole";
    std::vector<std::size_t> everyByte;
    for (std::size_t cut = 1; cut < GetParam().bytes.size(); ++cut) {
        EXPECT_EQ(feed({cut}), expected) << "cut at " << cut;
        everyByte.push_back(cut);
    }
    EXPECT_EQ(feed(everyByte), expected) << "byte by byte";
}

const std::string kOk = "HTTP/1.1 200 OK\r\nContent-type: a/b\r\n";
const std::string kChunked = kOk + "\r\n";
const std::string kMoved = "HTTP/1.0 302 Found\r\nLocation: ";

INSTANTIATE_TEST_SUITE_P(
    CAParseHTTP, Response,
    testing::Values(
        ResponseRow{"Length", kOk + "Content-Length: 3\r\n\r\nabc", {200, 1, -7, "abc"}},
        ResponseRow{"LineFeedsAlone",
                    "HTTP/1.0 200\nContent-type: a/b\nContent-Length: 1\n\nx",
                    {200, 1, -7, "x"}},
        ResponseRow{"NulInHeader",
                    kOk + std::string("X: a\0b\r\n", 8) + "Content-Length: 1\r\n\r\nx",
                    {200, 1, -7, "x"}},
        ResponseRow{"KeepAlive",
                    kOk + "connection: Keep-Alive\r\ncontent-length: 1\r\n\r\nx",
                    {200, 1, 0, "x"}},
        ResponseRow{
            "Close", kOk + "Connection: closed\r\nContent-Length: 1\r\n\r\nx", {200, 1, 1, "x"}},
        ResponseRow{"ShortBody", kOk + "Content-Length: 3\r\n\r\nab", {200, 0, -7, "ab"}},
        ResponseRow{"LengthZero", kOk + "Content-Length: 0\r\n\r\n", {200, 1, 1, ""}},
        ResponseRow{"LengthNegative", kOk + "Content-Length: -1\r\n\r\n", {200, 1, 1, ""}},
        ResponseRow{"LengthBeyond64Bits",
                    kOk + "Content-Length: 99999999999999999999\r\n\r\nab",
                    {200, 0, -7, "ab"}},
        ResponseRow{
            "LengthBeyond32Bits", kOk + "Content-Length: 4294967298\r\n\r\nab", {200, 0, -7, "ab"}},
        ResponseRow{"NoType",
                    "HTTP/1.0 200 OK\r\nContent-Length: 3\r\n\r\nabc",
                    {200, 1, 1, ""},
                    "Parser...... couldn't find the content-type.\n"},
        ResponseRow{"NotHTTP",
                    "ICY 200 OK\r\n",
                    {500, 1, 1, ""},
                    "Parser...... can't cope with HTTP/0.x responses.\n"},
        ResponseRow{"NoBlankInStatusLine", "HTTP/1.1\r\nX: y\r\n\r\n", {500, 1, 1, ""}},
        ResponseRow{"NoCode",
                    "HTTP/1.1 \r\n200: x\r\n\r\n",
                    {0, 1, 1, ""},
                    "Parser...... abandoning response with RC=0.\n"},
        ResponseRow{"CodeBeyond32Bits", "HTTP/1.1 4294967496 OK\r\n\r\n", {INT32_MAX, 1, 1, ""}},
        ResponseRow{"NotFound",
                    "HTTP/1.1 404 No\r\n\r\nbody",
                    {404, 1, 1, ""},
                    "Parser...... abandoning response with RC=404.\n"},
        ResponseRow{"MovedHere",
                    kMoved + "x\r\n\r\n",
                    {302, 1, 1, "", {"http://h/dir/x"}},
                    "Interested..   for host \"h\".\n"},
        ResponseRow{"MovedElsewhere",
                    kMoved + "http://g/\r\n\r\n",
                    {302, 1, 1, ""},
                    "Not......... interested in URL \"http://g/\".\n"},
        ResponseRow{"MovedNowhere", "HTTP/1.0 302 Found\r\n\r\n", {302, 1, 1, ""}},
        ResponseRow{"Chunked", kChunked + "5\r\nhello\r\n0\r\n\r\n", {200, 1, -7, "hello"}},
        ResponseRow{"ChunkExtensionsAndCase",
                    kChunked + "0A;x=1\r\n0123456789\r\n0;y\r\n\r\n",
                    {200, 1, -7, "0123456789"}},
        ResponseRow{
            "ChunkTrailerNeverEnds", kChunked + "1\r\nx\r\n0\r\nT: y\r\n\r\n", {200, 0, -7, ""}},
        ResponseRow{"ChunkOfLargestSize",
                    kChunked + "200000\r\n",
                    {200, 0, -7, ""},
                    "HTTP........ get chunk size = 2097152.\n"},
        ResponseRow{"ChunkTooLarge",
                    kChunked + "200001\r\n",
                    {200, 1, 1, ""},
                    "HTTP........ the Chunk size is too big, drop!\n"},
        ResponseRow{"ChunkSizeOf40Digits",
                    kChunked + std::string(40, 'f') + "\r\n",
                    {200, 1, 1, ""},
                    "HTTP........ the hexstring is too long!\n"}),
    rowName);

class CAParseHTTPTest : public AgentTest {};

// The buffer of decoded bytes fills up many times over, and chunks end inside it.
TEST_F(CAParseHTTPTest, LargeChunkedBodyIsDeliveredWhole)
{
    CAURL url("http://h/");
    std::string body;
    std::string sent;
    std::string bytes = kChunked;
    for (int i = 0; i < 40; ++i) {
        const std::string chunk(static_cast<std::size_t>(9000 + i),
                                static_cast<char>('a' + i % 26));
        char size[16];
        std::snprintf(size, sizeof(size), "%zx\r\n", chunk.size());
        bytes += size + chunk + "\r\n";
        sent += chunk;
    }
    bytes += "0\r\n\r\n";
    CAParseHTTP parser(&url);
    parser.addSink(new Recorder(&url, &body));
    std::int32_t done = 0;
    std::int32_t close = 0;
    for (std::size_t at = 0; at < bytes.size(); at += 4096) {
        std::string block = bytes.substr(at, 4096) + "!";
        ASSERT_EQ(done, 0);
        parser.consume(block.data(), static_cast<std::int32_t>(block.size() - 1), &done, &close);
    }
    EXPECT_EQ(done, 1);
    EXPECT_EQ(close, 0);
    EXPECT_TRUE(body == sent);
}

// Headers that never end, empty names and values among them, must not take memory for ever.
TEST_F(CAParseHTTPTest, EndlessHeadersAreNotKept)
{
    CAURL url("http://h/");
    CAParseHTTP parser(&url);
    std::int32_t done = 0;
    std::int32_t close = 0;
    std::string block = kOk + std::string(" \0\n", 3) + "!";
    for (int i = 0; i < 10000; ++i) {
        parser.consume(block.data(), static_cast<std::int32_t>(block.size() - 1), &done, &close);
        block = std::string(" \0\n!", 4);
    }
    const std::string traced = trace();
    const std::string message = "Parser...... too many headers, ignoring the rest.\n";
    ASSERT_NE(traced.find(message), std::string::npos);
    EXPECT_EQ(traced.find(message), traced.rfind(message));
    EXPECT_EQ(done, 0);
}

// A redirection that a limit stands against is decided again with each block, and never finished.
TEST_F(CAParseHTTPTest, RedirectionWaitsWhileTheQueueIsFull)
{
    configure("maxqueuedepth 1\nloadurl http://h/only\n");
    CAURL url("http://h/");
    CAParseHTTP parser(&url);
    std::int32_t done = 0;
    std::int32_t close = -7;
    for (std::string block : {kMoved + "/x\r\n\r\n!", std::string("more!")}) {
        parser.consume(block.data(), static_cast<std::int32_t>(block.size() - 1), &done, &close);
        EXPECT_NE(trace().find("Ignoring.... location URL \"/x\" (queue full).\n"),
                  std::string::npos);
    }
    EXPECT_EQ(done, 0);
    EXPECT_EQ(close, -7);
}

}  // namespace
