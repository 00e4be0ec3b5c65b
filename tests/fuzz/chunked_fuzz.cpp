// The chunk decoder, in pieces of any size: what was put in chunks must come out of it.
//
// Input: a line of chunk sizes, a line of piece sizes, a line with the rest of the framing,
// then the body.
#include <iomanip>
#include <sstream>

#include "AgentState.h"
#include "Feed.h"
#include "Fuzz.h"
#include "parse/CAparseChunked.h"

namespace {

// With zeros before the sizes, extensions, and ends that are none because of what follows.
std::string encoded(std::string_view body, const Cuts &cuts, const std::string &more)
{
    std::ostringstream out;
    out << std::hex << std::setfill('0') << (more.empty() ? std::uppercase : std::nouppercase);
    inPieces(body, cuts, [&](const char *block, std::int32_t length) {
        out << std::setw(static_cast<int>(more.size() % 33)) << length << ";" << more << "\r\n"
            << std::string_view(block, block + length) << "\r\n";
        return true;
    });
    out << "0\r\n\r" << more << "\r\n0\r\nAge:" << more << "\r\n0\r\n\r\n";
    return out.str();
}

}  // namespace

void fuzz(std::string_view input)
{
    const std::string_view chunkSizes = takeLine(&input);
    const std::string_view sizes = takeLine(&input);
    std::string more(takeLine(&input));
    std::erase(more, '\r');
    const std::string body = "." + std::string(input);  // a chunk at least
    const std::string bytes = encoded(body, cutsOf(chunkSizes, body.size()), more);
    for (const Cuts &cuts : {Cuts{}, everyByte(bytes.size()), cutsOf(sizes, bytes.size())}) {
        CAURL url("http://h/");
        std::string decoded;
        Recorder sink(&url, &decoded);
        Flags flags;
        CAChunkDecoder decoder;
        inPieces(bytes, cuts, [&](char *block, std::int32_t length) {
            require(flags.done == 0, "not complete before the end");
            decoder.decode(block, length, {&sink, &flags.done, &flags.close});
            return true;
        });
        require(flags.done == 1 && flags.close == kUntouched, "complete");
        require(decoded == body, "the same body");
    }
}
