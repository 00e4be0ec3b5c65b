// Benchmark of the head of the parser chain, with a whole response whose body is dropped.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "Micro.h"
#include "parse/CAparseHTTP.h"

namespace {

constexpr const char *kHead =
    "HTTP/1.1 200 OK\r\nDate: Mon, 04 Mar 2024 10:00:00 GMT\r\nServer: Apache\r\n"
    "Last-Modified: Sun, 03 Mar 2024 10:00:00 GMT\r\nCache-Control: max-age=3600\r\n"
    "Content-type: image/jpeg\r\nVia: 1.1 proxy.example.com:3128\r\nConnection: keep-alive\r\n";

std::string withLength(std::size_t size)
{
    return kHead + ("Content-Length: " + std::to_string(size)) + "\r\n\r\n" +
           std::string(size, 'x');
}

std::string inChunks(std::size_t size)
{
    std::string text = std::string(kHead) + "Transfer-Encoding: chunked\r\n\r\n";
    for (; size >= 0x800; size -= 0x800) {
        text += "800\r\n" + std::string(0x800, 'x') + "\r\n";
    }
    return text + "0\r\n\r\n";
}

void readResponse(benchmark::State &state, std::string (*make)(std::size_t size))
{
    startAgent();
    const std::string response = make(static_cast<std::size_t>(state.range(0)));
    CAURL url("http://www.example.com/images/photo.jpg");
    std::int32_t finished = 0;
    for (auto _ : state) {
        CAParseHTTP parser(&url);
        finished = 0;
        std::int32_t close = 0;
        inBlocks(response, [&](char *block, std::size_t length) {
            parser.consume(block, static_cast<std::int32_t>(length), &finished, &close);
        });
    }
    if (finished == 0) {
        state.SkipWithError("the response has no end");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(response.size()));
}
BENCHMARK_CAPTURE(readResponse, length, withLength)->Arg(8192)->Arg(65536);
BENCHMARK_CAPTURE(readResponse, chunked, inChunks)->Arg(8192)->Arg(65536);

}  // namespace
