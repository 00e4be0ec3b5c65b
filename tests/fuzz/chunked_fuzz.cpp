// The chunk decoder, in pieces of any size, against a decoder of the whole body.
//
// Input: a line of piece sizes, then the body.
#include "AgentState.h"
#include "CAparseChunked.h"
#include "Feed.h"
#include "Fuzz.h"

namespace {

struct Decoded {
    std::string body;
    bool done = false;  // complete, or dropped
    bool dropped = false;

    bool operator==(const Decoded &) const = default;
};

// Takes the body off `*rest`: what follows its end is none of it.
Decoded reference(std::string_view *rest)
{
    Decoded out;
    std::string_view &in = *rest;
    const auto skipLine = [&] {  // past the next CR, then past the next LF
        in.remove_prefix(std::min(in.find('\r'), in.size() - 1) + 1);
        in.remove_prefix(in.empty() ? 0 : std::min(in.find('\n'), in.size() - 1) + 1);
    };
    while (!in.empty()) {
        const std::size_t digits =
            std::min<std::size_t>(in.find_first_not_of("0123456789abcdefABCDEF"), 32);
        if (digits >= in.size()) {
            break;
        }
        const std::string number(in.substr(0, digits));
        const std::size_t significant = std::min(number.find_first_not_of('0'), number.size());
        const std::size_t size =
            number.size() - significant > 6 ? SIZE_MAX : std::strtoul(number.c_str(), nullptr, 16);
        if (size > 2097152) {
            in.remove_prefix(digits + 1);
            return {.body = out.body, .done = true, .dropped = true};
        }
        in.remove_prefix(digits);
        skipLine();
        if (size > 0) {
            out.body += in.substr(0, size);
            in.remove_prefix(std::min(size, in.size()));
        } else if (in.starts_with('\r')) {
            in.remove_prefix(1);
            if (in.starts_with('\n')) {
                in.remove_prefix(1);
                out.done = true;
                break;
            }
        }
        if (!in.empty()) {
            skipLine();
        }
    }
    return out;
}

Decoded decode(std::string_view bytes, const Cuts &cuts)
{
    CAURL url("http://h/");
    Decoded out;
    Recorder sink(&url, &out.body);
    Flags flags;
    CAChunkDecoder decoder;
    inPieces(bytes, cuts, [&](char *block, std::int32_t length) {
        decoder.decode(block, length, {&sink, &flags.done, &flags.close});
        return flags.done == 0;
    });
    out.done = flags.done == 1;
    out.dropped = flags.close == 1;
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Input input(data, size);
    const std::string_view sizes = input.line();
    std::string_view rest = input.rest();
    const Decoded expected = reference(&rest);
    const std::string_view body = input.rest().substr(0, input.rest().size() - rest.size());
    for (const Cuts &cuts : {Cuts{}, everyByte(body.size()), cutsOf(sizes, body.size())}) {
        const Decoded decoded = decode(body, cuts);
        require(decoded.done == expected.done && decoded.dropped == expected.dropped, "same end");
        // Decoded bytes wait for the end of the body or of the buffer's room.
        require(expected.done && !expected.dropped ? decoded.body == expected.body
                                                   : expected.body.starts_with(decoded.body),
                "same body");
    }
    return 0;
}
