// Takes the chunks of an HTTP/1.1 body apart, strictly: RFC 9112, section 7.1.
#pragma once

#include <cstdint>
#include <string_view>

// Reads the chunks of one body, in blocks that may end at any byte. Copies nothing.
class CAChunkReader {
public:
    enum class Next : std::uint8_t {
        More,   // the block is used up
        Piece,  // the next bytes of the body
        End,    // the body is complete, its trailer included
        Wrong,  // these are no chunks; final
    };

    // Reads on from `*at`, which is moved forward, but not beyond `end`. With Piece, `*piece` is
    // the part of the block that belongs to the body. Not to be called after End.
    Next next(const char **at, const char *end, std::string_view *piece);

private:
    enum class State : std::uint8_t {
        FirstDigit,     // waits for the first digit of a chunk's size
        Size,           // collects the digits
        SizeEnd,        // after blanks: waits for ";" or the end of the line
        SizeReturn,     // after CR: waits for LF
        Extension,      // skips the rest of the line
        Data,           // the chunk's bytes
        DataEnd,        // waits for CR or LF behind them
        DataLineFeed,   // waits for LF
        TrailerStart,   // at the start of a line of the trailer; an empty one is the end
        TrailerReturn,  // after CR there: LF is the end
        TrailerLine,    // skips the rest of the line
        Ended,
        Wrong,
    };

    State onLineEnd(const char **at, const char *end, State next) const;
    [[nodiscard]] State onByte(char c) const;
    State onSize(const char **at, const char *end);
    [[nodiscard]] State onSizeEnd(char c) const;
    [[nodiscard]] State afterSize() const;
    State onData(const char **at, const char *end, std::string_view *piece);
    State skipLine(const char **at, const char *end, State next);

    State state_ = State::FirstDigit;
    std::uint64_t left_ = 0;     // of the chunk
    std::uint32_t skipped_ = 0;  // bytes of extensions and of the trailer
};
