#include "CAparseHTTP.h"

#include <algorithm>

#include "AgentTest.h"
#include "Feed.h"

namespace {

// What is known of a response when its last byte was consumed.
struct Outcome {
    int rc;
    int done;
    int close;
    std::string body = "";
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
    std::string message = "";  // traced once however the bytes are split
    const char *directives = "";
};

class Response : public AgentTestWith<ResponseRow> {};

TEST_P(Response, DependsOnItsSplit)
{
    const std::string &bytes = GetParam().bytes;
    const std::string &message = GetParam().message;
    configure(GetParam().directives);
    // The first block is never larger than what one read brings.
    const std::size_t end = std::min<std::size_t>(bytes.size(), 4096);
    for (std::size_t cut = 0; cut < end; cut += 1 + end / 200) {
        CAURL url("http://h/dir/page");
        Outcome outcome{};
        {
            CAParseHTTP parser(&url);
            parser.addSink(new Recorder(&url, &outcome.body));
            const Flags flags = feed(&parser, bytes, {cut});
            outcome.done = flags.done;
            outcome.close = flags.close;
            outcome.rc = parser.getHTTPRequestRC();
        }
        outcome.enqueued = AgentState::drain();
        AgentState::forgetProcessed();
        ASSERT_EQ(outcome, GetParam().outcome) << "cut at " << cut;
        const std::string traced = trace();
        const std::size_t at = traced.find(message);
        ASSERT_TRUE(message.empty() || (at != traced.npos && at == traced.rfind(message))) << cut;
    }
}

std::string times(int count, const std::string &text)
{
    std::string result;
    for (int i = 0; i < count; ++i) {
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
    {"Length", kLength + "3\r\n\r\nabc", {200, 1, kUntouched, "abc"}},
    {"LineFeedsAlone",
     "HTTP/1.0 200\nContent-type: a/b\nContent-Length: 1\n\nx",
     {200, 1, kUntouched, "x"}},
    {"NulInHeader",
     kOk + std::string("X: a\0b\r\n", 8) + "Content-Length: 1\r\n\r\nx",
     {200, 1, kUntouched, "x"}},
    {"KeepAlive", kOk + "connection: Keep-Alive\r\ncontent-length: 1\r\n\r\nx", {200, 1, 0, "x"}},
    {"Close", kOk + "Connection: closed\r\nContent-Length: 1\r\n\r\nx", {200, 1, 1, "x"}},
    {"ShortBody", kLength + "3\r\n\r\nab", {200, 0, kUntouched, "ab"}},
    {"LengthZero", kLength + "0\r\n\r\n", {200, 1, 1}},
    {"LengthNegative", kLength + "-1\r\n\r\n", {200, 1, 1}},
    {"LengthBeyond64Bits", kLength + "99999999999999999999\r\n\r\nab", {200, 0, kUntouched, "ab"}},
    {"LengthBeyond32Bits", kLength + "4294967298\r\n\r\nab", {200, 0, kUntouched, "ab"}},
    {"NoType",
     "HTTP/1.0 200 OK\r\nContent-Length: 3\r\n\r\nabc",
     {200, 1, 1},
     "Parser...... couldn't find the content-type.\n"},
    {"NotHTTP",
     "ICY 200 OK\r\n",
     {500, 1, 1},
     "Parser...... can't cope with HTTP/0.x responses.\n"},
    {"NoBlankInStatusLine", "HTTP/1.1\r\nX: y\r\n\r\n", {500, 1, 1}},
    {"NoCode",
     "HTTP/1.1 \r\n200: x\r\n\r\n",
     {0, 1, 1},
     "Parser...... abandoning response with RC=0.\n"},
    {"CodeBeyond32Bits", "HTTP/1.1 4294967496 OK\r\n\r\n", {INT32_MAX, 1, 1}},
    {"NotFound",
     "HTTP/1.1 404 No\r\n\r\nbody",
     {404, 1, 1},
     "Parser...... abandoning response with RC=404.\n"},
    {"MovedHere",
     kMoved + "x\r\n\r\n",
     {302, 1, 1, "", {"0 http://h/dir/x"}},
     "Interested..   for host \"h\".\n"},
    {"MovedElsewhere",
     kMoved + "http://g/\r\n\r\n",
     {302, 1, 1},
     "Not......... interested in URL \"http://g/\".\n"},
    {"MovedNowhere", "HTTP/1.0 302 Found\r\n\r\n", {302, 1, 1}},
    {"MovedWithoutRoom",
     kMoved + "/x\r\n\r\n",
     {302, 0, kUntouched},
     "Ignoring.... location URL \"/x\" (queue full).\n",
     "maxqueuedepth -1\n"},
    {"Chunked", kChunked + "5\r\nhello\r\n0\r\n\r\n", {200, 1, kUntouched, "hello"}},
    {"ChunksBeyondTheBuffer",
     kChunked + times(20, "2329\r\n" + kChunk + "\r\n") + "0\r\n\r\n",
     {200, 1, kUntouched, times(20, kChunk)}},
    {"ChunkOfLargestSize",
     kChunked + "200000\r\n",
     {200, 0, kUntouched},
     "HTTP........ get chunk size = 2097152.\n"},
    {"ChunkTooLarge",
     kChunked + "200001\r\n",
     {200, 1, 1},
     "HTTP........ the Chunk size is too big, drop!\n"},
    {"ChunkSizeOf40Digits",
     kChunked + std::string(40, 'f') + "\r\n",
     {200, 1, 1},
     "HTTP........ the hexstring is too long!\n"},
    // Empty names and values among them: they must not take memory for ever.
    {"EndlessHeaders",
     kOk + times(3000, std::string(" \0\n", 3)),
     {200, 0, kUntouched},
     "Parser...... too many headers, ignoring the rest.\n"},
};
INSTANTIATE_TEST_SUITE_P(CAParseHTTP, Response, testing::ValuesIn(kResponses), rowName);

}  // namespace
