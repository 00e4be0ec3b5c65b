#include "fetch/CAnet.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "HTInet.h"
#include "HTLookup.h"
#include "HTString.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "fetch/CArunNumber.h"
#include "htthread.h"
#include "parse/CAparse.h"
#include "url/CAURL.h"

std::atomic<std::int32_t> CAConnection::connectionCount = 0;

namespace {

constexpr const char *kSource = "server/refetchd/CAnet";  // as traces name the module

// Every request asks for a fresh copy, except with `stressmode`: then the low three bits of a
// random number select one of the headers below (an empty one adds none).
constexpr std::string_view kFreshCopy = "Cache-Control: max-age=0\r\n";
constexpr std::array<std::string_view, 8> kStressDirectives = {{
    "Cache-Control: min-fresh=90\r\n",
    "Cache-Control: max-stale=360\r\n",
    "",
    "",
    kFreshCopy,
    kFreshCopy,
    "Cache-Control: only-if-cached\r\n",
    "Cache-Control: QRX-BUG\r\n",
}};

std::string_view cacheDirective()
{
    if (ac.stressMode == 0) {
        return kFreshCopy;
    }
    // Not seeded, so that each start draws the same numbers. NOLINTNEXTLINE(concurrency-mt-unsafe)
    return kStressDirectives[static_cast<unsigned>(std::rand()) & 7U];
}

// Appends texts to a buffer of fixed size. After the first text that does not fit it writes no
// more, and fits() is false.
class RequestWriter {
public:
    RequestWriter(char *buffer, std::size_t size) : begin_(buffer), at_(buffer), room_(size) {}

    RequestWriter &operator<<(std::string_view text)
    {
        fits_ = fits_ && text.size() <= room_;
        if (fits_) {
            at_ = std::copy(text.begin(), text.end(), at_);
            room_ -= text.size();
        }
        return *this;
    }

    [[nodiscard]] bool fits() const { return fits_; }
    [[nodiscard]] std::size_t length() const { return static_cast<std::size_t>(at_ - begin_); }
    [[nodiscard]] std::string_view from(std::size_t start) const
    {
        return {begin_ + start, length() - start};
    }

private:
    char *const begin_;
    char *at_;
    std::size_t room_;
    bool fits_ = true;
};

// Writes the request target: only the path for a transparent proxy; otherwise the absolute form,
// behind the prefix of the `service` directive if there is one, joined to it by exactly one "/".
void writeTarget(const CAURL *url, RequestWriter *request)
{
    if (ac.transparentProxy != 0) {
        *request << url->transparentStringitize();
        return;
    }
    std::string_view target(url->stringitize());
    if (g_ca_service_prefix != nullptr) {
        const std::string_view prefix(g_ca_service_prefix);
        *request << prefix;
        const bool before = prefix.ends_with('/');
        const bool behind = target.starts_with('/');
        if (before && behind) {
            target.remove_prefix(1);
        } else if (!before && !behind) {
            *request << "/";
        }
    }
    *request << target;
}

std::string_view hostOf(const CAURL *url)
{
    if (const std::string_view host = url->host(); !host.empty()) {
        return host;
    }
    return ac.updateProxy != nullptr ? ac.updateProxy : HTHostName();
}

// The headers by which a site may choose what it sends.
struct Visitor {
    std::string_view accept;
    std::string_view userAgent;
    std::string_view lines;  // others, with CR LF
};

Visitor visitorFor(const CAURL &url)
{
    Visitor visitor = {.accept = "text/html, */*; q=0.10",
                       .userAgent = ac.userAgent != nullptr ? ac.userAgent : kDefaultUserAgent,
                       .lines = ac.requestHeaders != nullptr ? ac.requestHeaders : ""};
    if (!ac.variants.empty()) {
        const CAVariant &variant = ac.variants[url.variant()];
        visitor.accept = variant.accept.empty() ? visitor.accept : variant.accept;
        visitor.userAgent = variant.userAgent.empty() ? visitor.userAgent : variant.userAgent;
        visitor.lines = variant.lines;
    }
    return visitor;
}

// The longest wait, in milliseconds, for bytes that only keep the connection.
constexpr int kShortPatience = 1000;

int timeoutMilliseconds(std::int32_t seconds)
{
    return static_cast<int>(std::clamp<std::int64_t>(std::int64_t{seconds} * 1000, 0, INT_MAX));
}

// How long resolving and connecting may take; below 0: as long as the system lets them.
std::int64_t connectMilliseconds()
{
    const bool isLimited = ac.connectTimeout > 0 || ac.retries > 0;
    const std::int32_t seconds = ac.connectTimeout > 0 ? ac.connectTimeout : ac.readTimeout;
    return isLimited ? std::int64_t{std::max(seconds, 1)} * 1000 : -1;
}

}  // namespace

CAConnection::CAConnection(const char *peer)
    : peerName_(strdup(peer)), threadContext_(HTThread_context())
{
    lookUpAgain();
    if (connectMilliseconds() < 0) {
        learnAddress();
    }
}

void CAConnection::lookUpAgain()
{
    asks_ = {peerName_ != nullptr && *peerName_ != '[', peerName_ != nullptr};
}

void CAConnection::beginRun(std::uint32_t run)
{
    if (run != run_ && addresses_[first_].ss_family == AF_UNSPEC) {
        lookUpAgain();
    }
    run_ = run;
}

bool CAConnection::probe()
{
    lookUpAgain();
    return checkConnection() == 0 || !isUnreachable();
}

namespace {

// True when the `port` setting is one.
bool isPort()
{
    return ac.port >= 0 && ac.port <= UINT16_MAX;
}

// The port of a peer whose name has none, in network order; 0: the `port` setting is invalid, and
// the name must have one.
in_port_t defaultPort()
{
    return isPort() ? htons(static_cast<std::uint16_t>(ac.port)) : in_port_t{0};
}

// True for an address that can be connected to.
bool isUsable(const sockaddr_storage &address)
{
    // The port stands at the same place for both families.
    const auto port = reinterpret_cast<const sockaddr_in &>(address).sin_port;
    return address.ss_family != AF_UNSPEC && (isPort() || port != 0);
}

}  // namespace

// Looks up the peer's address of this family. When there is none, one that was known before stays.
void CAConnection::lookUp(std::size_t family)
{
    asks_[family] = false;
    const sockaddr_storage found = lookUpInTime(family == kV4 ? AF_INET : AF_INET6);
    if (isUsable(found)) {
        addresses_[family] = found;
    }
}

sockaddr_storage CAConnection::lookUpInTime(sa_family_t family)
{
    const std::int64_t limit = connectMilliseconds();
    if (limit < 0) {
        return HTLookUp(peerName_, family, defaultPort());
    }
    isLookupLate_ = false;
    HTLookup lookup(peerName_, family, defaultPort());
    const std::int64_t end = HTUptimeMillis() + limit;
    while (!lookup.wait(kPatienceMilliseconds)) {
        if (HTUptimeMillis() >= end || CAIsGivenUp(run_)) {
            CATrace("Net......... looking up \"%s\" takes too long.\n", peerName_);
            isLookupLate_ = true;
            break;
        }
    }
    return lookup.address();
}

// Looks up the address that is tried first: of IPv4, or of IPv6 when there is no such one.
void CAConnection::learnAddress()
{
    if (asks_[kV4]) {
        lookUp(kV4);
    }
    if (addresses_[first_].ss_family == AF_UNSPEC && hasOther()) {
        first_ = 1 - first_;
    }
}

// True when the peer has another address than the one that is tried first. The IPv6 address is
// looked up by the first call. Leaves errno as it was.
bool CAConnection::hasOther()
{
    const int error = errno;
    if (asks_[1 - first_]) {
        lookUp(1 - first_);
    }
    errno = error;
    return addresses_[1 - first_].ss_family != AF_UNSPEC;
}

CAConnection::~CAConnection()
{
    closeSocket(__LINE__);
    std::free(peerName_);
}

void CAConnection::closeSocket(int line)
{
    if (socket_ != nullptr) {
        HTSocket_close(socket_, kSource, line, threadContext_);
        socket_ = nullptr;
    }
}

void CAConnection::doneWithConnection()
{
    closeSocket(__LINE__);
    CATrace("Net......... cache agent closed the socket.\n");
}

void CAConnection::renew()
{
    if (socket_ != nullptr) {
        doneWithConnection();
    }
}

int CAConnection::requestURL(const CAURL *url, CAParser *parser)
{
    failure_ = CAFailure::None;
    reason_ = {};
    received_ = 0;
    wasKept_ = false;
    begun_ = HTUptimeMillis();
    const std::time_t now = begun_ / 1000;
    if (lastUsed_ == 0) {
        lastUsed_ = now;
    }
    if (now - lastUsed_ > ac.persistTimeout) {
        closeSocket(__LINE__);
    }
    lastUsed_ = now;
    if (ac.proxyTls != 0) {
        nameFor(url);
    }
    if (checkConnection() != 0) {
        return -1;
    }
    const std::int32_t length = composeRequest(url);
    if (length < 0) {
        failure_ = CAFailure::Request;
        return -1;
    }
    CATrace("Net......... requesting \"%s\".\n", url->stringitize());
    if (ac.debugFlags[kDebugGetUrl] != 0) {
        std::fprintf(stderr, "Net......... requesting \"%s\".\n", url->stringitize());
    }
    int result = exchange(length, parser);
    if (result == 0 && brokeWhenKept() && received_ == 0 && ac.parseOptions.http11) {
        CATrace("Net......... the kept connection was closed, sending the request once more.\n");
        failure_ = CAFailure::None;
        renew();
        result = checkConnection() == 0 ? exchange(length, parser) : -1;
    }
    return result;
}

// Sends the request in the buffer and reads the response. 0, or -1 when it could not be sent.
int CAConnection::exchange(std::int32_t length, CAParser *parser)
{
    int closes = 0;
    isLost_ = false;
    do {
        const std::int32_t sent = isLost_ ? sendAgain(length) : sendRequest(length);
        if (sent != length) {
            if (sent >= 0) {
                closeSocket(__LINE__);  // the next request must not follow half of this one
                failure_ = CAFailure::Send;
            }
            return -1;
        }
        wasKept_ = reused_;
        reused_ = true;
        closes = readResponse(parser);
    } while (isLost_);  // once at most, because only a connection that was used can have lost it
    if (closes != 0) {
        doneWithConnection();
    }
    return 0;
}

int CAConnection::checkConnection()
{
    learnAddress();
    if (addresses_[first_].ss_family == AF_UNSPEC) {
        CATrace("Net......... address is not valid:  %s\n", peerName_);
        failure_ = isLookupLate_ ? CAFailure::Connect : CAFailure::Address;
        return -1;
    }
    if (socket_ != nullptr) {
        return 0;
    }
    failure_ = CAFailure::Connect;
    if (!openSocket(first_)) {
        return -1;
    }
    if (!connectTo(first_) && !connectToOther()) {
        const int error = errno;
        CATrace("Net......... could not connect to partner; errno=%d.\n", error);
        errno = error;
        return -1;
    }
    if (ac.proxyTls != 0) {
        return secure();
    }
    failure_ = CAFailure::None;
    return 0;
}

// Notes the name that the certificate must carry for `url`. A connection that was opened for
// another name is closed: the server may refuse to answer for this one on it.
void CAConnection::nameFor(const CAURL *url)
{
    const bool isHosts = ac.transparentProxy != 0 && !url->host().empty();
    const std::string_view name = HTHostPart(isHosts ? url->host() : peerName_);
    if (HTEqualsNoCase(name, tlsName_)) {
        return;
    }
    if (socket_ != nullptr) {
        CATrace("Net......... closing the connection for \"%s\".\n", tlsName_.c_str());
        closeSocket(__LINE__);
    }
    tlsName_ = name;
}

namespace {

CAFailure failureOf(HTTLSFault fault)
{
    switch (fault) {
    case HTTLSFault::TimedOut: return CAFailure::TimedOut;
    case HTTLSFault::Closed: return CAFailure::Closed;
    case HTTLSFault::Reset: return CAFailure::Reset;
    case HTTLSFault::Certificate: return CAFailure::Certificate;
    case HTTLSFault::Protocol: break;
    }
    return CAFailure::Handshake;
}

}  // namespace

// Begins TLS on the new connection. 0; or -1 (traced), and the connection is closed.
int CAConnection::secure()
{
    HTTLSFailure failure;
    if (HTSocket_secure(socket_, tlsName_.c_str(), timeoutMilliseconds(ac.readTimeout), &failure) ==
        0) {
        CATrace("TLS......... %s with \"%s\".\n", HTTLS_version(socket_->tls), tlsName_.c_str());
        failure_ = CAFailure::None;
        return 0;
    }
    const int error = errno;
    closeSocket(__LINE__);
    failure_ = failureOf(failure.fault);
    const bool isOwn = failure_ == CAFailure::Certificate || failure_ == CAFailure::Handshake;
    reason_ = isOwn ? failure.reason : "";
    CATrace("TLS......... failed with \"%s\", %s%s%s.\n", tlsName_.c_str(),
            CAFailureText(failure_).data(), *failure.reason == '\0' ? "" : ": ", failure.reason);
    errno = error;
    return -1;
}

// Makes a socket for this address. False (traced), with errno set, on failure.
bool CAConnection::openSocket(std::size_t address)
{
    socket_ = HTSocket_new(addresses_[address].ss_family, SOCK_STREAM, IPPROTO_TCP, kSource,
                           __LINE__, threadContext_);
    if (socket_ == nullptr) {
        const int error = errno;
        CATrace("Net......... could not create a new socket.\n");
        errno = error;
        return false;
    }
    reused_ = false;
    surplus_ = false;
    isProven_ = false;
    const int on = 1;
    HTSocket_setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on), threadContext_);
    // Urgent data is read inline, as ordinary bytes: out of band it would be missing from the
    // response.
    HTSocket_setsockopt(socket_, SOL_SOCKET, SO_OOBINLINE, &on, sizeof(on), threadContext_);
    return true;
}

// Connects the socket to this address. On failure closes the socket and returns false with errno
// set.
bool CAConnection::connectTo(std::size_t address)
{
    const auto *const target = reinterpret_cast<const sockaddr *>(&addresses_[address]);
    const socklen_t length = address == kV4 ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    const std::int64_t limit = connectMilliseconds();
    const bool isConnected = limit < 0
                                 ? HTSocket_connect(&socket_, target, length, threadContext_) == 0
                                 : connectWithin(limit, target, length);
    if (isConnected) {
        return true;
    }
    const int error = errno;
    closeSocket(__LINE__);
    errno = error;
    return false;
}

// Connects the socket in this time. False with errno set on failure.
bool CAConnection::connectWithin(std::int64_t milliseconds, const sockaddr *target,
                                 socklen_t length)
{
    const std::int64_t end = HTUptimeMillis() + milliseconds;
    int state = HTSocket_beginConnect(socket_, target, length, threadContext_);
    while (state == 0 && HTUptimeMillis() < end && !CAIsGivenUp(run_)) {
        state = HTSocket_awaitConnect(socket_, kPatienceMilliseconds);
    }
    if (state == 0) {
        errno = ETIMEDOUT;
    }
    return state == 1;
}

// After connecting to the first address has failed, connects to the other one, which then becomes
// the first. False with errno set when there is none or when that fails, too.
bool CAConnection::connectToOther()
{
    if (!hasOther()) {
        return false;
    }
    const std::size_t other = 1 - first_;
    const int error = errno;
    CATrace("Net......... could not connect; errno=%d, trying %s.\n", error,
            other == kV4 ? "IPv4" : "IPv6");
    if (!openSocket(other)) {
        errno = error;  // this host may lack IPv6; that is not why the peer is not reached
        return false;
    }
    if (!connectTo(other)) {
        return false;
    }
    first_ = other;
    return true;
}

// Traces why no request is made for `url`, in one line: its control characters are percent-encoded.
void CAConnection::traceRefusal(const CAURL *url, const char *reason)
{
    if (!CATraceOn()) {
        return;
    }
    const char *const text = url->stringitize();
    const HTPoolScope scope(&threadContext_->pool);
    char *const shown = static_cast<char *>(threadContext_->pool.alloc(3 * std::strlen(text) + 1));
    if (shown == nullptr) {
        return;
    }
    char *out = shown;
    for (const char *in = text; *in != '\0'; ++in) {
        if (HTIsControl(*in)) {
            out = HTPercentEncode(*in, out);
        } else {
            *out++ = *in;
        }
    }
    *out = '\0';
    CATrace("Request..... refused, %s: \"%s\".\n", reason, shown);
}

std::int32_t CAConnection::composeRequest(const CAURL *url)
{
    RequestWriter request(buffer_.get(), kBlockSize);
    request << "GET ";
    const std::size_t targetStart = request.length();
    writeTarget(url, &request);
    const std::string_view target = request.from(targetStart);
    const std::string_view host = hostOf(url);
    if (HTHasControl(target) || HTHasControl(host)) {
        traceRefusal(url, "control character in target or host");
        return -1;
    }
    const bool http11 = ac.parseOptions.http11;
    const Visitor visitor = visitorFor(*url);
    request << " " << (http11 ? "HTTP/1.1" : ac.httpVersion) << "\r\nAccept: " << visitor.accept
            << "\r\nUser-Agent: " << visitor.userAgent << "\r\nHost: " << host << "\r\n"
            << cacheDirective() << visitor.lines
            << (http11 ? "Connection: keep-alive\r\n\r\n" : "Connection: Keep-alive\r\n\r\n");
    if (!request.fits()) {
        traceRefusal(url, "too long for the request buffer");
        return -1;
    }
    buffer_[request.length()] = '\0';
    CATrace("Request..... built: %s\n", buffer_.get());
    return static_cast<std::int32_t>(request.length());
}

std::int32_t CAConnection::write(std::int32_t length)
{
    return static_cast<std::int32_t>(HTSocket_writemsg(
        socket_, buffer_.get(), static_cast<std::size_t>(length), threadContext_));
}

// If the peer has closed its side, the first write still succeeds, and a reset follows; if bytes
// have come already, they would be taken for the response. Either way the request would be lost, so
// such a connection is treated as one on which writing failed.
//
// To look costs a system call. It is not made if the last response was complete just now, as long
// as nothing came behind the first response on the connection: a peer that sends more than it
// announces does so then, too. If such a connection turns out to be closed, hasLostRequest() sees
// it afterwards; it needs what the system knows of the connection, which is tried here first.
bool CAConnection::isStale()
{
    constexpr std::int64_t kJustNow = 1;
    if (!reused_ || surplus_) {
        return surplus_;
    }
    isUnchecked_ = isProven_ && begun_ - idleSince_ <= kJustNow;
    if (isUnchecked_) {
        return false;
    }
    if (HTSocket_isStale(socket_, threadContext_)) {
        return true;
    }
    isProven_ = isProven_ || HTSocket_unacknowledged(socket_) == 0;
    return false;
}

std::int32_t CAConnection::sendRequest(std::int32_t length)
{
    isUnchecked_ = false;
    requestLength_ = length;
    const std::int32_t sent = isStale() ? -1 : write(length);
    return sent >= 0 ? sent : sendAgain(length);
}

// Sends the request once more, on a new connection.
std::int32_t CAConnection::sendAgain(std::int32_t length)
{
    isLost_ = false;
    isUnchecked_ = false;
    closeSocket(__LINE__);
    CATrace("Net......... Unable to write, retrying. . .\n");
    if (checkConnection() != 0) {
        const int error = errno;
        CATrace("Net......... could not connect to partner; errno=%d.\n", error);
        return -1;
    }
    const std::int32_t sent = write(length);
    if (sent < 0) {
        const int error = errno;
        CATrace("Net......... could not send request; errno=%d.\n", error);
        failure_ = CAFailure::Send;
        return -1;
    }
    return sent;
}

// Sets isLost_, and returns it: `count`, the result of a read, shows the end of the stream, and
// that lay before the request, of which the peer has read nothing then.
bool CAConnection::hasLostRequest(std::int32_t count)
{
    isLost_ = count == 0 && isUnchecked_ && received_ == 0 &&
              HTSocket_unacknowledged(socket_) == requestLength_;
    return isLost_;
}

// Hands the bytes read to the parser, in blocks of at most kBlockSize.
void CAConnection::handOver(std::int32_t count, CAParser *parser, std::int32_t *finished,
                            std::int32_t *closeConnection)
{
    char *block = buffer_.get();
    char *const end = block + count;
    while (block != end && *finished == 0) {
        const auto length =
            static_cast<std::int32_t>(std::min<std::ptrdiff_t>(end - block, kBlockSize));
        CATrace("Cache Agent read %d bytes from socket %d.\n", length, socket_->fd);
        const char next = block[length];  // the parser writes a NUL there
        parser->consume(block, length, finished, closeConnection);
        block += length;
        *block = next;
    }
    surplus_ = block != end;
    if (*finished != 0) {
        CATrace("Net.. stop reading the socket.\n");
    }
}

// Handles a read without data: sets failure_, and traces time-outs and errors. True when the
// connection must be closed.
bool CAConnection::readFailed(std::int32_t count)
{
    // Kept: the end of the stream does not set errno, which may hold an older error. The connection
    // is then closed at once, and otherwise when the next request replaces it. Both are correct.
    const int error = errno;
    if (count == kHTTimedOut) {
        CATrace("Net.. Cache agent time out!\n");
        failure_ = CAFailure::TimedOut;
        return false;
    }
    failure_ = count == 0 ? CAFailure::Closed : CAFailure::Reset;
    if (error == 0) {
        return false;
    }
    CATrace("Net.. cache agent error reading from socket; errno=%d, status=%d.\n", error, count);
    return true;
}

// Waits for up to `patience` milliseconds for data, as HTSocket_receive() does, but not beyond the
// run.
std::int32_t CAConnection::receive(int patience)
{
    ssize_t count = kHTTimedOut;
    for (int left = patience; count == kHTTimedOut; left -= kPatienceMilliseconds) {
        count = HTSocket_receive(socket_, buffer_.get(), kReadSize,
                                 std::min(left, kPatienceMilliseconds), threadContext_);
        if (left <= kPatienceMilliseconds || CAIsGivenUp(run_)) {
            break;
        }
    }
    return static_cast<std::int32_t>(count);
}

// True (traced) when the response, which began at the time `start`, is to be given up: with its
// run, or because of its length or duration.
bool CAConnection::isBeyondLimits(std::int64_t start)
{
    if (CAIsGivenUp(run_)) {
        failure_ = CAFailure::Stopped;
    } else if (ac.maxAnswer > 0 && received_ > ac.maxAnswer) {
        failure_ = CAFailure::TooLong;
    } else if (ac.answerTimeout > 0 &&
               HTUptimeMillis() - start >= std::int64_t{ac.answerTimeout} * 1000) {
        failure_ = CAFailure::TooSlow;
    } else {
        return false;
    }
    CATrace("Net.. giving up the answer: %s.\n", CAFailureText(failure_).data());
    return true;
}

// How long to wait for the next bytes of a response that began at the time `start`.
int CAConnection::patienceFor(const CAParser &parser, std::int64_t start) const
{
    const int patience = timeoutMilliseconds(ac.readTimeout);
    if (parser.isUnwanted()) {
        return std::min(patience, kShortPatience);
    }
    if (ac.answerTimeout < 1) {
        return patience;
    }
    const std::int64_t left = start + std::int64_t{ac.answerTimeout} * 1000 - HTUptimeMillis();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, patience));
}

int CAConnection::readResponse(CAParser *parser)
{
    std::int32_t finished = 0;
    std::int32_t closeConnection = 0;
    const std::int64_t start = ac.answerTimeout > 0 ? HTUptimeMillis() : 0;
    while (finished == 0) {
        const std::int32_t count = receive(patienceFor(*parser, start));
        if (hasLostRequest(count)) {
            return 1;
        }
        if (count > 0) {
            received_ += count;
            handOver(count, parser, &finished, &closeConnection);
        }
        if (const bool hasEnded = finished != 0 || count == 0 || count == -1;
            !hasEnded && isBeyondLimits(start)) {
            return 1;
        }
        if (count <= 0 && count != kHTPartial) {
            if (readFailed(count)) {
                return 1;
            }
            break;
        }
    }
    if (closeConnection != 0) {
        CATrace("Net.. the socket will be closed.\n");
    }
    idleSince_ = finished != 0 ? HTUptimeMillis() : 0;
    return closeConnection;
}
