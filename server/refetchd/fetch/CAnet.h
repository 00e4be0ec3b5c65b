// A worker thread's connection to the proxy, or to a URL's own host.
#pragma once

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "HTSocket.h"
#include "HTWorkThread.h"
#include "base/CAoutcome.h"

class CAParser;
class CAURL;

// A persistent connection, opened for the first request and kept for the next ones. It is closed
// when the parser of a response asks for that, when writing or reading fails, and before a request
// that follows the last one by more than `persisttimeout` seconds. With `proxytls` it is also
// closed before a request that needs a certificate for another name. After a time-out it stays
// open; one that the peer has closed may stay, too, until the next request replaces it. It belongs
// to the thread that made it.
class CAConnection {
public:
    // `peer` is "host" or "host:port"; without a port the `port` setting applies. An IPv6 address
    // is in brackets. The name is resolved here, which may block; if that fails, every request of
    // the run fails. The IPv6 address of a name that also has an IPv4 address is looked up when it
    // is needed first, because connecting over IPv4 fails.
    //
    // With `connecttimeout` or `retries` the name is resolved for the first request, and resolving
    // and connecting end after that time, or after `readtimeout`.
    explicit CAConnection(const char *peer);
    ~CAConnection();
    CAConnection(const CAConnection &) = delete;
    CAConnection &operator=(const CAConnection &) = delete;

    // Tells the number of the current run. In a new run a name that could not be resolved is looked
    // up again, and what is requested is given up when the run is (CArunNumber.h).
    void beginRun(std::uint32_t run);

    // Requests `url` and feeds the response to `parser` until that has finished, the peer ends the
    // stream, reading fails, no data comes for `readtimeout` seconds, or the response is beyond
    // `answertimeout` or `maxanswer`. 0 when the request was sent, whatever came back; -1 when it
    // could not be sent. failure() has the reason; most failures are traced. With `http11`, a
    // request that the peer leaves unanswered by closing a kept connection is sent once more on a
    // new one.
    int requestURL(const CAURL *url, CAParser *parser);

    // Tries whether the peer can be reached, after looking up its name again: true when it accepts
    // a connection, which is kept for the next request.
    [[nodiscard]] bool probe();
    // Has the name looked up again before the next connection is made; an address that is known
    // already stays when that fails.
    void lookUpAgain();
    [[nodiscard]] bool isOpen() const { return socket_ != nullptr; }

    // True when the last request failed because the peer could not be reached.
    [[nodiscard]] bool isUnreachable() const
    {
        return failure_ == CAFailure::Connect || failure_ == CAFailure::Address;
    }
    // True when the peer accepted a new connection for the last request.
    [[nodiscard]] bool hasReached() const { return !wasKept_ && !isUnreachable(); }
    // True when the last exchange broke on a connection that had carried others before.
    [[nodiscard]] bool brokeWhenKept() const
    {
        return wasKept_ && (failure_ == CAFailure::Closed || failure_ == CAFailure::Reset);
    }

    // Why the last request brought no complete response; None when the parser finished. The end of
    // the stream is reported as Closed even if it ends the body: only the parser knows that.
    [[nodiscard]] CAFailure failure() const { return failure_; }
    // What the TLS library says about failure(), a static text; empty: nothing.
    [[nodiscard]] std::string_view reason() const { return reason_; }
    // The bytes received for the last request.
    [[nodiscard]] std::int64_t received() const { return received_; }
    // Closes the connection, if it is open, so that the next request opens a new one.
    void renew();

    // The steps of requestURL().
    // Opens the connection unless it is open. With `proxytls` the TLS handshake belongs to this,
    // for the name that requestURL() has noted. 0, or -1 (traced).
    int checkConnection();
    // Writes the request for `url` into the buffer. Returns its length, or -1 (traced) when it does
    // not fit, or when target or host contains a control character, which could inject a header.
    std::int32_t composeRequest(const CAURL *url);
    // Sends the first `length` bytes of the buffer. When that fails, or the kept connection is
    // stale, it sends them once more on a new connection. (If only readResponse() shows that the
    // peer had closed the connection, requestURL() does so.) Returns the bytes sent, which may be
    // fewer, or -1 (traced).
    std::int32_t sendRequest(std::int32_t length);
    // Reads the response. 1 when the connection must be closed after it, else 0.
    int readResponse(CAParser *parser);
    // Closes the connection (traced).
    void doneWithConnection();

    // Connections granted by CAWorkerThread::mayIHaveAConnection() and not yet released. Changed
    // under the lock of CAWorkerThread; atomic so that it can be read without the lock.
    static std::atomic<std::int32_t> connectionCount;

private:
    static constexpr std::int32_t kBlockSize = 4096;
    // A page of 8 KiB comes with its headers in one read.
    static constexpr std::int32_t kReadSize = 4 * kBlockSize;
    // Indexes of `addresses_`.
    static constexpr std::size_t kV4 = 0;
    static constexpr std::size_t kV6 = 1;

    void lookUp(std::size_t family);
    [[nodiscard]] sockaddr_storage lookUpInTime(sa_family_t family);
    void learnAddress();
    [[nodiscard]] bool hasOther();
    [[nodiscard]] bool openSocket(std::size_t address);
    [[nodiscard]] bool connectTo(std::size_t address);
    [[nodiscard]] bool connectWithin(std::int64_t milliseconds, const sockaddr *target,
                                     socklen_t length);
    [[nodiscard]] bool connectToOther();
    void nameFor(const CAURL *url);
    [[nodiscard]] int secure();
    int exchange(std::int32_t length, CAParser *parser);
    [[nodiscard]] int patienceFor(const CAParser &parser, std::int64_t start) const;
    [[nodiscard]] std::int32_t receive(int patience);
    [[nodiscard]] bool isBeyondLimits(std::int64_t start);
    void closeSocket(int line);
    [[nodiscard]] bool readFailed(std::int32_t count);
    void handOver(std::int32_t count, CAParser *parser, std::int32_t *finished,
                  std::int32_t *closeConnection);
    void traceRefusal(const CAURL *url, const char *reason);
    [[nodiscard]] std::int32_t write(std::int32_t length);
    [[nodiscard]] bool isStale();
    [[nodiscard]] bool hasLostRequest(std::int32_t count);
    [[nodiscard]] std::int32_t sendAgain(std::int32_t length);

    HTSocket *socket_ = nullptr;  // null: closed
    // The peer's IPv4 and IPv6 address; the family is AF_UNSPEC while there is none.
    std::array<sockaddr_storage, 2> addresses_{};
    std::size_t first_ = 0;       // the one that is tried first: it worked the last time
    std::array<bool, 2> asks_{};  // the address has still to be looked up
    bool reused_ = false;         // the open connection has carried a request already
    bool wasKept_ = false;        // it had when the last request was sent
    bool surplus_ = false;        // bytes followed the end of the last response
    bool isProven_ = false;       // nothing came behind its first response, see isStale()
    bool isUnchecked_ = false;    // the last request was sent without a look at the connection
    bool isLost_ = false;         // and the peer had closed it before
    std::int32_t requestLength_ = 0;
    std::int64_t begun_ = 0;      // when the last request began, in milliseconds
    std::int64_t idleSince_ = 0;  // when its response was complete; 0: it never was
    CAFailure failure_ = CAFailure::None;
    std::string_view reason_;
    std::int64_t received_ = 0;
    std::uint32_t run_ = 0;
    bool isLookupLate_ = false;  // the last one was given up
    std::string tlsName_;        // the name that the peer's certificate must carry
    char *const peerName_;       // owned
    std::time_t lastUsed_ = 0;   // when the last request began; 0: never
    // The request, then each read of the response. Not cleared: pages that are never written to
    // take no memory.
    const std::unique_ptr<char[]> buffer_ = std::make_unique_for_overwrite<char[]>(kReadSize + 1);
    HTThreadContext *const threadContext_;
};
