// Takes the chunk framing off a response body, one block of any size at a time.
//
//     body  := { chunk } last-chunk [ trailer ]
//     chunk := hex-size [ extensions ] CR LF  data  CR LF
//     last-chunk := "0" ... CR LF  CR LF
//
// Whatever is no hex digit ends the size, and an empty size counts as 0. Data reach the sink only
// when the buffer of decoded bytes is full and at the last chunk. A trailer line is skipped, and
// the decoder then waits for a size again: a body with trailers ends by the connection's time-out.
#pragma once

#include <array>
#include <cstdint>

#include "parse/CAparse.h"

class CAChunkDecoder {
public:
    // The largest chunk that is accepted.
    static constexpr std::int32_t maxChunkedSize = 2097152;

    // Where the decoded bytes go (no parser: dropped), and the flags of CAParser::consume.
    struct Output {
        CAParser *sink;
        std::int32_t *finished;
        std::int32_t *closeConnection;
    };

    CAChunkDecoder() = default;

    // Decodes `length` bytes. Sets `*finished` when the last chunk was seen and what is decoded was
    // offered to the sink; `*finished` and `*closeConnection` when the body is dropped because a
    // chunk is too big, memory is out, or the sink takes nothing.
    void decode(const char *data, std::int32_t length, const Output &output);

private:
    enum class State : std::uint8_t {
        Size = 3,            // gathers hex digits
        SizeLineReturn = 4,  // skips extensions, waits for CR
        SizeLineFeed = 5,    // waits for LF; then Data, or LastReturn after size 0
        Data = 6,            // copies chunkRemaining_ bytes
        DataReturn = 8,      // waits for CR behind the data
        DataFeed = 9,        // waits for LF; then Size
        LastReturn = 10,     // CR here: the end; anything else: a trailer line
        LastFeed = 11,       // LF here: complete
        Trailer = 12,        // a trailer line begins
        TrailerReturn = 13,  // waits for CR
        TrailerFeed = 14,    // waits for LF; then Size
        Dropped = 15,        // takes nothing any more
    };

    struct Input {
        const char *at;
        const char *const end;
    };

    State step(Input *input, const Output &output);
    State onSize(Input *input);
    State onData(Input *input, const Output &output);
    State onLastFeed(Input *input, const Output &output);
    bool deliver(const Output &output);

    State state_ = State::Size;
    std::int32_t chunkRemaining_ = 0;
    std::uint32_t hexLength_ = 0;
    std::array<char, 32> hexDigits_{};
    CABuffer chunkBuffer_{CAParser::kBufferSize};
};
