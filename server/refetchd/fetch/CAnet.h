// One worker's connection to the proxy, or to a URL's own host.
#pragma once

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>

#include "HTSocket.h"
#include "HTWorkThread.h"
#include "base/CAoutcome.h"

class CAParser;
class CAURL;

// A persistent connection: opened when the first request needs it, kept between requests, closed
// when a response asks for it, when reading or writing fails, or when it was idle for too long. It
// belongs to the thread that made it.
class CAConnection {
public:
    // `peer` is "host" or "host:port"; without a port the `port` setting counts. The name is looked
    // up here, once: a name that is unknown makes every request fail.
    explicit CAConnection(const char *peer);
    ~CAConnection();
    CAConnection(const CAConnection &) = delete;
    CAConnection &operator=(const CAConnection &) = delete;

    // Requests `url` and feeds the response to `parser` until that is done, the peer ends the
    // stream, or nothing came for the `readtimeout` setting. 0 when a response was read, complete
    // or not; -1 when no request could be sent. Every failure is traced.
    int requestURL(const CAURL *url, CAParser *parser);

    // Why the last request brought no whole answer, as far as the connection knows; and the bytes
    // that came for it.
    [[nodiscard]] CAFailure failure() const { return failure_; }
    [[nodiscard]] std::int64_t received() const { return received_; }
    // The next request gets a connection of its own: closes the one at hand, if any.
    void renew();

    // The steps of requestURL().
    // Opens the connection unless it is open. 0, or -1 (traced).
    int checkConnection();
    // Writes the request for `url` into the buffer. Its length, or -1 (traced) when it does not fit
    // or its target or host holds a control character, which could smuggle in a header.
    std::int32_t composeRequest(const CAURL *url);
    // Sends the first `length` bytes of the buffer, once more on a new connection when the one at
    // hand turns out to be dead. The bytes sent, or -1 (traced).
    std::int32_t sendRequest(std::int32_t length);
    // Reads the response. 1 when the connection must be closed after it, else 0.
    int readResponse(CAParser *parser);
    // Closes the connection (traced).
    void doneWithConnection();

    // Connections granted by CAWorkerThread::mayIHaveAConnection() and not yet released. Changed
    // under the lock of CAWorkerThread; atomic so that it may be read without.
    static std::atomic<std::int32_t> connectionCount;

private:
    static constexpr std::int32_t kBlockSize = 4096;
    static constexpr std::int32_t kReadSize = 2 * kBlockSize;

    void closeSocket(int line);
    [[nodiscard]] bool readFailed(std::int32_t count);
    void handOver(std::int32_t count, CAParser *parser, std::int32_t *finished,
                  std::int32_t *closeConnection);
    void traceRefusal(const CAURL *url, const char *reason);
    [[nodiscard]] std::int32_t write(std::int32_t length);

    HTSocket *socket_ = nullptr;  // null: closed
    sockaddr_in address_{};
    bool addressValid_ = false;
    bool reused_ = false;   // the connection at hand carried a request before this one
    bool surplus_ = false;  // and bytes have come that no request has asked for
    CAFailure failure_ = CAFailure::None;
    std::int64_t received_ = 0;
    char *const peerName_;  // owned
    std::time_t lastUsed_ = 0;
    std::array<char, kReadSize + 1> buffer_{};  // the request, then what is read of the response
    HTThreadContext *const threadContext_;
};
