#include "parse/CAchunks.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr int kNoDigit = -1;

// No body is as large. With one more digit it still fits into 64 bits.
constexpr std::uint64_t kMaxSize = std::uint64_t{1} << 56U;

// Limits the time that is spent on extensions and trailer, because a peer may send them for ever.
constexpr std::uint32_t kMaxSkipped = 262144;

constexpr int hexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : kNoDigit;
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
        case State::Size:
        case State::SizeEnd:
        case State::SizeReturn:
        case State::DataEnd:
        case State::DataLineFeed:
        case State::TrailerStart:
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

CAChunkReader::State CAChunkReader::onByte(char c)
{
    switch (state_) {
    case State::FirstDigit: return hexValue(c) == kNoDigit ? State::Wrong : onSizeByte(c);
    case State::Size: return onSizeByte(c);
    case State::SizeEnd: return onSizeEnd(c);
    case State::SizeReturn: return c == '\n' ? afterSize() : State::Wrong;
    case State::DataEnd:
        return c == '\r' ? State::DataLineFeed : c == '\n' ? State::FirstDigit : State::Wrong;
    case State::DataLineFeed: return c == '\n' ? State::FirstDigit : State::Wrong;
    case State::TrailerStart:
        return c == '\r' ? State::TrailerReturn : c == '\n' ? State::Ended : State::TrailerLine;
    case State::TrailerReturn: return c == '\n' ? State::Ended : State::TrailerLine;
    case State::Extension:
    case State::Data:
    case State::TrailerLine:
    case State::Ended:
    case State::Wrong: break;
    }
    return State::Wrong;
}

CAChunkReader::State CAChunkReader::onSizeByte(char c)
{
    if (const int digit = hexValue(c); digit != kNoDigit) {
        left_ = left_ * 16 + static_cast<std::uint64_t>(digit);
        return left_ > kMaxSize ? State::Wrong : State::Size;
    }
    return onSizeEnd(c);
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
