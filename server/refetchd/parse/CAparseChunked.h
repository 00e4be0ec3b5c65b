// Removes the chunk framing from the body of a response, one block of any size at a time.
//
//     body  := { chunk } last-chunk [ trailer ]
//     chunk := hex-size [ extensions ] CR LF  data  CR LF
//     last-chunk := "0" ... CR LF  CR LF
//
// The first byte that is no hex digit ends the size, and a missing size counts as 0. Data reach the
// sink only when the buffer of decoded bytes is full, and at the end of the body. A trailer line is
// skipped, but the decoder then takes the next line for the size of a chunk, which is 0 unless the
// line begins with a hex digit: a body with an odd number of trailer lines does not end before the
// connection is closed or times out.
#pragma once

#include <array>
#include <cstdint>

#include "parse/CAparse.h"

class CAChunkDecoder {
public:
    // The largest chunk that is accepted, in bytes.
    static constexpr std::int32_t maxChunkedSize = 2097152;

    // The parser that gets the decoded bytes (null: they are dropped), and the flags of
    // CAParser::consume(). All stay the caller's.
    struct Output {
        CAParser *sink;
        std::int32_t *finished;
        std::int32_t *closeConnection;
    };

    CAChunkDecoder() = default;

    // Decodes `length` bytes. Sets `*finished` to 1 when the body has ended and its decoded bytes
    // were offered to the sink. Sets both `*finished` and `*closeConnection` to 1 when the body is
    // dropped because a chunk is too big, memory is out, or the sink takes nothing.
    void decode(const char *data, std::int32_t length, const Output &output);

    // True once the body has ended with a last chunk whose size was written, not just assumed.
    [[nodiscard]] bool hasEnded() const { return hasEnded_; }

private:
    enum class State : std::uint8_t {
        Size = 3,            // collects hex digits
        SizeLineReturn = 4,  // skips extensions, waits for CR
        SizeLineFeed = 5,    // waits for LF; then Data, or LastReturn after size 0
        Data = 6,            // copies chunkRemaining_ bytes
        DataReturn = 8,      // waits for CR after the data
        DataFeed = 9,        // waits for LF; then Size
        LastReturn = 10,     // CR: the end of the body may follow; anything else: a trailer line
        LastFeed = 11,       // LF: the body is complete; anything else: a trailer line
        Trailer = 12,        // at the start of a trailer line
        TrailerReturn = 13,  // waits for CR
        TrailerFeed = 14,    // waits for LF; then Size
        Dropped = 15,        // ignores all further input; final
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
    bool hasLast_ = false;   // a last chunk has come whose size was written
    bool isSpoilt_ = false;  // and then another chunk
    bool hasEnded_ = false;
    std::int32_t chunkRemaining_ = 0;
    std::uint32_t hexLength_ = 0;
    std::array<char, 32> hexDigits_{};
    CABuffer chunkBuffer_{CAParser::kBufferSize};
};
