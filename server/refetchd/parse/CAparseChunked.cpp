#include "parse/CAparseChunked.h"

#include <algorithm>
#include <cstring>

#include "base/CAtrace.h"

namespace {

constexpr int kNoDigit = -1;

constexpr int hexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return kNoDigit;
}

// The size that the digits give, or kTooBig when it is more than maxChunkedSize.
std::int32_t sizeOf(const char *digits, std::size_t count)
{
    constexpr std::int32_t kTooBig = CAChunkDecoder::maxChunkedSize + 1;
    std::int32_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value = std::min(value * 16 + hexValue(digits[i]), kTooBig);
    }
    return value;
}

}  // namespace

void CAChunkDecoder::decode(const char *data, std::int32_t length, const Output &output)
{
    Input input{.at = data, .end = data + length};
    while (input.at != input.end && state_ != State::Dropped) {
        state_ = step(&input, output);
    }
    if (state_ == State::Dropped) {
        *output.finished = 1;
        *output.closeConnection = 1;
    }
}

namespace {

// Skips past the next `wanted` byte. False, with all input skipped, when there is none.
bool skipPast(char wanted, const char **at, const char *end)
{
    const void *const found = std::memchr(*at, wanted, static_cast<std::size_t>(end - *at));
    *at = found == nullptr ? end : static_cast<const char *>(found) + 1;
    return found != nullptr;
}

}  // namespace

CAChunkDecoder::State CAChunkDecoder::step(Input *input, const Output &output)
{
    // Skips past the next `wanted` byte. Stays in the current state when the input has none.
    const auto after = [this, input](char wanted, State next) {
        return skipPast(wanted, &input->at, input->end) ? next : state_;
    };
    switch (state_) {
    case State::Size: return onSize(input);
    case State::SizeLineReturn: return after('\r', State::SizeLineFeed);
    case State::SizeLineFeed:
        return after('\n', chunkRemaining_ == 0 ? State::LastReturn : State::Data);
    case State::Data: return onData(input, output);
    case State::DataReturn: return after('\r', State::DataFeed);
    case State::DataFeed: return after('\n', State::Size);
    case State::LastReturn:
        if (*input->at != '\r') {
            return State::Trailer;
        }
        ++input->at;
        return State::LastFeed;
    case State::LastFeed: return onLastFeed(input, output);
    case State::Trailer: return State::TrailerReturn;
    case State::TrailerReturn: return after('\r', State::TrailerFeed);
    case State::TrailerFeed: return after('\n', State::Size);
    case State::Dropped: break;
    }
    return State::Dropped;
}

CAChunkDecoder::State CAChunkDecoder::onSize(Input *input)
{
    while (hexLength_ < hexDigits_.size() && hexValue(*input->at) != kNoDigit) {
        hexDigits_[hexLength_++] = *input->at++;
        if (input->at == input->end) {
            return State::Size;
        }
    }
    if (hexLength_ == hexDigits_.size()) {
        CATrace("HTTP........ the hexstring is too long!\n");
    }
    chunkRemaining_ = sizeOf(hexDigits_.data(), hexLength_);
    if (hexLength_ > 0) {
        // A trailer line that begins with digits was taken for a chunk: the data are wrong.
        isSpoilt_ = isSpoilt_ || (hasLast_ && chunkRemaining_ > 0);
        hasLast_ = hasLast_ || chunkRemaining_ == 0;
    }
    hexLength_ = 0;
    if (chunkRemaining_ > maxChunkedSize) {
        CATrace("HTTP........ the Chunk size is too big, drop!\n");
        return State::Dropped;
    }
    CATrace("HTTP........ get chunk size = %d.\n", chunkRemaining_);
    return State::SizeLineReturn;
}

CAChunkDecoder::State CAChunkDecoder::onData(Input *input, const Output &output)
{
    const auto offered =
        static_cast<std::int32_t>(std::min<std::int64_t>(input->end - input->at, chunkRemaining_));
    const std::int32_t taken = chunkBuffer_.addData(input->at, offered);
    if (taken < 0 || (taken == 0 && !deliver(output))) {
        return State::Dropped;
    }
    input->at += taken;
    chunkRemaining_ -= taken;
    return chunkRemaining_ == 0 ? State::DataReturn : State::Data;
}

CAChunkDecoder::State CAChunkDecoder::onLastFeed(Input *input, const Output &output)
{
    if (*input->at != '\n') {
        return State::Trailer;
    }
    ++input->at;
    deliver(output);
    hasEnded_ = hasLast_ && !isSpoilt_;
    *output.finished = 1;
    return State::Size;
}

// Passes the decoded bytes to the sink. False when there are none or the sink took none. For
// onData() this means that no progress is possible: no memory, or a sink that takes nothing.
bool CAChunkDecoder::deliver(const Output &output)
{
    const std::int32_t unread = chunkBuffer_.getContentSize();
    if (unread == 0) {
        return false;
    }
    const std::int32_t eaten = output.sink == nullptr
                                   ? unread
                                   : output.sink->consume(chunkBuffer_.getReadP(), unread,
                                                          output.finished, output.closeConnection);
    if (eaten <= 0) {
        return false;
    }
    chunkBuffer_.adjustReadP(eaten);
    return true;
}
