#include "parse/CAchunks.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr std::int8_t kNoDigit = -1;

// No body is as large. With one more digit it still fits into 64 bits.
constexpr std::uint64_t kMaxSize = std::uint64_t{1} << 56U;

// Limits the time that is spent on extensions and trailer, because a peer may send them for ever.
constexpr std::uint32_t kMaxSkipped = 262144;

// The values of the hexadecimal digits, by character.
constexpr auto kHexValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(kNoDigit);
    for (unsigned i = 0; i < 16; ++i) {
        values[static_cast<unsigned char>("0123456789abcdef"[i])] = static_cast<std::int8_t>(i);
        values[static_cast<unsigned char>("0123456789ABCDEF"[i])] = static_cast<std::int8_t>(i);
    }
    return values;
}();

int hexValue(char c)
{
    return kHexValues[static_cast<unsigned char>(c)];
}

}  // namespace

//     body    := { chunk } last trailer
//     chunk   := size blanks [ ';' extension ] CRLF bytes CRLF
//     last    := "0" { "0" } blanks [ ';' extension ] CRLF
//     trailer := { line CRLF } CRLF
//
// A lone LF also ends a line.
CAChunkReader::Next CAChunkReader::next(const char **at, const char *end, std::string_view *piece)
{
    *piece = {};
    while (*at != end && piece->empty() && state_ != State::Ended && state_ != State::Wrong) {
        switch (state_) {
        case State::Data: state_ = onData(at, end, piece); break;
        case State::Extension: state_ = skipLine(at, end, afterSize()); break;
        case State::TrailerLine: state_ = skipLine(at, end, State::TrailerStart); break;
        case State::FirstDigit:
            state_ = hexValue(**at) == kNoDigit ? State::Wrong : onSize(at, end);
            break;
        case State::Size: state_ = onSize(at, end); break;
        case State::DataEnd: state_ = onLineEnd(at, end, State::FirstDigit); break;
        case State::TrailerStart: state_ = onLineEnd(at, end, State::Ended); break;
        case State::SizeEnd:
        case State::SizeReturn:
        case State::DataLineFeed:
        case State::TrailerReturn: state_ = onByte(*(*at)++); break;
        case State::Ended:
        case State::Wrong: break;
        }
    }
    if (state_ == State::Wrong) {
        return Next::Wrong;
    }
    if (state_ == State::Ended) {
        return Next::End;
    }
    return piece->empty() ? Next::More : Next::Piece;
}

// Mostly CR LF comes as a whole; that takes one step to the state `next`.
CAChunkReader::State CAChunkReader::onLineEnd(const char **at, const char *end, State next) const
{
    if (end - *at >= 2 && (*at)[0] == '\r' && (*at)[1] == '\n') {
        *at += 2;
        return next;
    }
    return onByte(*(*at)++);
}

CAChunkReader::State CAChunkReader::onByte(char c) const
{
    switch (state_) {
    case State::Size:
    case State::SizeEnd: return onSizeEnd(c);
    case State::SizeReturn: return c == '\n' ? afterSize() : State::Wrong;
    case State::DataEnd:
        return c == '\r' ? State::DataLineFeed : c == '\n' ? State::FirstDigit : State::Wrong;
    case State::DataLineFeed: return c == '\n' ? State::FirstDigit : State::Wrong;
    case State::TrailerStart:
        return c == '\r' ? State::TrailerReturn : c == '\n' ? State::Ended : State::TrailerLine;
    case State::TrailerReturn: return c == '\n' ? State::Ended : State::TrailerLine;
    case State::FirstDigit:
    case State::Extension:
    case State::Data:
    case State::TrailerLine:
    case State::Ended:
    case State::Wrong: break;
    }
    return State::Wrong;
}

CAChunkReader::State CAChunkReader::onSize(const char **at, const char *end)
{
    const char *digit = *at;
    std::uint64_t size = left_;
    for (; digit != end && hexValue(*digit) != kNoDigit && size <= kMaxSize; ++digit) {
        size = size * 16 + static_cast<std::uint64_t>(hexValue(*digit));
    }
    left_ = size;
    *at = digit;
    if (size > kMaxSize) {
        return State::Wrong;
    }
    state_ = State::Size;
    return digit == end ? State::Size : onLineEnd(at, end, afterSize());
}

CAChunkReader::State CAChunkReader::onSizeEnd(char c) const
{
    switch (c) {
    case ' ':
    case '\t': return State::SizeEnd;
    case ';': return State::Extension;
    case '\r': return State::SizeReturn;
    case '\n': return afterSize();
    default: return State::Wrong;
    }
}

CAChunkReader::State CAChunkReader::afterSize() const
{
    return left_ == 0 ? State::TrailerStart : State::Data;
}

CAChunkReader::State CAChunkReader::onData(const char **at, const char *end,
                                           std::string_view *piece)
{
    const auto offered = static_cast<std::uint64_t>(end - *at);
    const auto taken = static_cast<std::size_t>(std::min(offered, left_));
    *piece = {*at, taken};
    *at += taken;
    left_ -= taken;
    return left_ == 0 ? State::DataEnd : State::Data;
}

CAChunkReader::State CAChunkReader::skipLine(const char **at, const char *end, State next)
{
    const void *const found = std::memchr(*at, '\n', static_cast<std::size_t>(end - *at));
    const char *const stop = found == nullptr ? end : static_cast<const char *>(found) + 1;
    skipped_ += static_cast<std::uint32_t>(stop - *at);
    *at = stop;
    if (skipped_ > kMaxSkipped) {
        return State::Wrong;
    }
    return found == nullptr ? state_ : next;
}
