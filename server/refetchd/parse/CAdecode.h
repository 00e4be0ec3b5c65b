// Undoes the content codings of HTTP: gzip, deflate, br and zstd. A decoder reads one body, in
// blocks of any size, and belongs to one thread. Its memory is bounded: windows of more than 16 MiB
// (br) or 8 MiB (zstd) are refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

class CADecoder {
public:
    enum class State : std::uint8_t {
        Reading,
        Ended,   // the body is complete; what follows it is ignored
        Broken,  // the rest cannot be decoded
    };

    CADecoder() = default;
    virtual ~CADecoder() = default;
    CADecoder(const CADecoder &) = delete;
    CADecoder &operator=(const CADecoder &) = delete;

    // Decodes a part of `*input`, which loses the bytes that were used, into `room` bytes at `out`;
    // `room` is at least 1. Returns the number of decoded bytes, which count whatever the state is.
    // While the state is Reading, call it again until the input is empty and less than `room` came
    // back: then the rest of the body is needed.
    std::size_t decode(std::string_view *input, char *out, std::size_t room);

    [[nodiscard]] State state() const { return state_; }

protected:
    // What one call of the library did.
    struct Step {
        std::size_t used;
        std::size_t made;
        enum class Then : std::uint8_t { GoOn, MemberEnds, BodyEnds, Fails } then;
    };

private:
    virtual Step step(std::string_view input, char *out, std::size_t room) = 0;

    State state_ = State::Reading;
    bool mayEnd_ = false;  // a member is complete and nothing came of another one
};

// A decoder for this coding, whose name may be written in any case; null if it is unknown.
[[nodiscard]] std::unique_ptr<CADecoder> CANewDecoder(std::string_view coding);
