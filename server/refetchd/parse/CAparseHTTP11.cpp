#include "parse/CAparseHTTP11.h"

#include <algorithm>
#include <cstring>

#include "HTString.h"
#include "base/CAtrace.h"
#include "htthread.h"

namespace {

constexpr std::int32_t kSwitchingProtocols = 101;

// A peer may send lines and interim responses for ever.
constexpr std::size_t kMaxHead = 262144;
constexpr int kMaxInterim = 64;

// Most bytes that are read away to keep the connection, and most seconds that they may take: a new
// connection costs less than more.
constexpr std::int64_t kMaxReadAway = 65536;
constexpr std::time_t kPatience = 1;

}  // namespace

std::int32_t CAParseHTTP11::consume(char *data, std::int32_t length, std::int32_t *finished,
                                    std::int32_t *closeConnection)
{
    char *at = data;
    char *const end = data + std::max(length, 0);
    while (at != end && state_ < State::Complete) {
        state_ = state_ == State::Body ? readBody(&at, end) : readHead(&at, end);
    }
    if (state_ >= State::Complete) {
        hasEnded_ = state_ == State::Complete;
        if (at != end && state_ == State::Complete) {
            CATrace("Parser...... %d bytes follow the end of the response.\n",
                    static_cast<int>(end - at));
        }
        const bool keeps = state_ == State::Complete && at == end && framing_.keepsConnection();
        *finished = 1;
        *closeConnection = keeps ? 0 : 1;
    }
    return std::max(length, 0);
}

// Reads the next line of the head, which may have begun in an earlier block.
CAParseHTTP11::State CAParseHTTP11::readHead(char **at, char *end)
{
    void *const found = std::memchr(*at, '\n', static_cast<std::size_t>(end - *at));
    char *const stop = found == nullptr ? end : static_cast<char *>(found);
    const std::string_view part(*at, static_cast<std::size_t>(stop - *at));
    *at = found == nullptr ? end : stop + 1;
    headBytes_ += part.size();
    if (headBytes_ > kMaxHead) {
        return broken("the head is too long");
    }
    if (found != nullptr && line_.empty()) {
        return readLine(part);
    }
    line_.append(part);
    if (found == nullptr) {
        return state_;
    }
    const State next = readLine(line_);
    line_.clear();
    return next;
}

CAParseHTTP11::State CAParseHTTP11::readLine(std::string_view line)
{
    line.remove_suffix(line.ends_with('\r') ? 1 : 0);
    if (line.find('\0') != std::string_view::npos) {
        return broken("NUL in the head");
    }
    if (state_ == State::StatusLine) {
        return readStatusLine(line);
    }
    return line.empty() ? endHead() : readField(line);
}

//     status-line := "HTTP/1." digit ' ' digit digit digit [ ' ' reason ]
CAParseHTTP11::State CAParseHTTP11::readStatusLine(std::string_view line)
{
    constexpr std::string_view kVersion = "HTTP/1.";
    constexpr std::size_t kCode = kVersion.size() + 2;
    const std::string_view code = line.substr(std::min(kCode, line.size()), 3);
    const std::string_view rest = line.substr(std::min(kCode + 3, line.size()));
    if (!line.starts_with(kVersion) || code.size() != 3 || !HTIsDigit(line[kVersion.size()]) ||
        line[kCode - 1] != ' ' || !std::all_of(code.begin(), code.end(), HTIsDigit) ||
        code.front() == '0' || !(rest.empty() || rest.front() == ' ')) {
        return broken("no status line of HTTP/1");
    }
    const std::int32_t status = HTInteger(code);
    if (status == kSwitchingProtocols) {
        return broken("a change of protocol that nobody asked for");
    }
    rc_ = status < kOk ? 0 : status;  // an interim response is none yet
    keepsByDefault_ = line[kVersion.size()] != '0';
    return State::Headers;
}

//     field := name ':' blanks value blanks
CAParseHTTP11::State CAParseHTTP11::readField(std::string_view line)
{
    if (line.front() == ' ' || line.front() == '\t') {
        return broken("a folded header");
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        CATrace("Parser...... ignoring header without a colon \"%.*s\".\n", CALength(line),
                line.data());
        return State::Headers;
    }
    const std::string_view name = HTTrimmed(line.substr(0, colon));
    const std::string_view value = HTTrimmed(line.substr(colon + 1));
    CATrace("Parser...... found header %.*s: %.*s.\n", CALength(name), name.data(), CALength(value),
            value.data());
    if (rc_ == 0) {
        return State::Headers;  // what an interim response says is not about the final one
    }
    framing_.add(name, value);
    // A copy only when blanks stand before the colon.
    std::string tight;
    std::string_view key = line.substr(0, colon + 1);
    if (name.size() != colon) {
        key = tight.append(name).append(":");
    }
    if (isUseful(key)) {
        keepHeader(key, value);
    }
    return State::Headers;
}

CAParseHTTP11::State CAParseHTTP11::endHead()
{
    if (rc_ == 0) {
        CATrace("Parser...... passing over an interim response.\n");
        return ++interim_ > kMaxInterim ? broken("too many interim responses") : State::StatusLine;
    }
    if (!framing_.decide(rc_, keepsByDefault_)) {
        return broken("conflicting or bad lengths");
    }
    return beginBody();
}

CAParseHTTP11::State CAParseHTTP11::beginBody()
{
    constexpr std::string_view kBodies[] = {"none", "by length", "chunked", "up to the close"};
    left_ = framing_.body() == CAFraming::Body::Length ? framing_.length() : 0;
    unframed_ = framing_.body() == CAFraming::Body::UntilClose;
    hasEnded_ = unframed_;
    CATrace("Parser...... body: %s, connection: %s.\n",
            kBodies[static_cast<std::size_t>(framing_.body())].data(),
            framing_.keepsConnection() ? "kept" : "closed");
    const bool hasRoom = followIfRedirected();
    if (rc_ == kOk) {
        // Without a type it is read all the same: the proxy stores it when it has all of it.
        static_cast<void>(chooseSink());
    } else {
        CATrace("Parser...... abandoning response with RC=%d%s.\n", rc_,
                hasRoom ? "" : ", its location has no room");
        isUnwanted_ = true;
    }
    if (framing_.body() == CAFraming::Body::None) {
        return State::Complete;
    }
    return isUnwanted_ ? skipBody() : State::Body;
}

// Decides whether the body is read away.
CAParseHTTP11::State CAParseHTTP11::skipBody()
{
    const bool isWorthIt = framing_.keepsConnection() && left_ <= kMaxReadAway;
    patienceEnds_ = HTUptime() + kPatience;
    return isWorthIt ? State::Body : State::GivenUp;
}

CAParseHTTP11::State CAParseHTTP11::readBody(char **at, char *end)
{
    if (framing_.body() == CAFraming::Body::Chunked) {
        return readChunks(at, end);
    }
    const std::int64_t offered = end - *at;
    const std::int64_t taken = unframed_ ? offered : std::min(offered, left_);
    const State next = deliver(*at, taken);
    *at += taken;
    left_ -= unframed_ ? 0 : taken;
    return next == State::Body && !unframed_ && left_ == 0 ? State::Complete : next;
}

CAParseHTTP11::State CAParseHTTP11::readChunks(char **at, char *end)
{
    const char *read = *at;
    std::string_view piece;
    const CAChunkReader::Next next = chunks_.next(&read, end, &piece);
    char *const start = *at + (piece.empty() ? 0 : piece.data() - *at);
    *at += read - *at;
    switch (next) {
    case CAChunkReader::Next::More: return State::Body;
    case CAChunkReader::Next::Piece: return deliver(start, std::ssize(piece));
    case CAChunkReader::Next::End: return State::Complete;
    case CAChunkReader::Next::Wrong: break;
    }
    CATrace("Parser...... can't cope with the response: the body has no proper chunks.\n");
    isCutShort_ = true;
    return State::Broken;
}

// Passes a part of the body on. The sink may write a NUL behind it.
CAParseHTTP11::State CAParseHTTP11::deliver(char *piece, std::int64_t length)
{
    if (isUnwanted_) {
        readAway_ += length;
        const bool isTooMuch = readAway_ > kMaxReadAway || HTUptime() > patienceEnds_;
        return isTooMuch ? State::GivenUp : State::Body;
    }
    if (sink_ == nullptr) {
        return State::Body;
    }
    std::int32_t finished = 0;
    std::int32_t closeConnection = 0;
    const char next = piece[length];
    sink_->consume(piece, static_cast<std::int32_t>(length), &finished, &closeConnection);
    piece[length] = next;
    return finished == 0 ? State::Body : State::GivenUp;
}

CAParseHTTP11::State CAParseHTTP11::broken(const char *why)
{
    CATrace("Parser...... can't cope with the response: %s.\n", why);
    isHTTP_ = false;
    rc_ = kBadResponse;
    return State::Broken;
}

std::unique_ptr<CAParseHTTP> CANewResponseParser(CAURL *url, HTThreadContext *threadContext,
                                                 const CAParseOptions &options)
{
    if (options.http11) {
        return std::make_unique<CAParseHTTP11>(url, threadContext, options);
    }
    return std::make_unique<CAParseHTTP>(url, threadContext, options);
}
