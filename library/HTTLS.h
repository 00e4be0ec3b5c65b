// TLS on connected sockets, as a client, by OpenSSL's libssl: TLS 1.2 or newer, the name of the
// peer verified, "http/1.1" as the only protocol offered by ALPN.
//
// HTTLS_init() makes the settings of the process, once, before threads start. Each session is used
// by one thread at a time. No call waits without an end. SIGPIPE must be blocked or ignored. A
// failure sets errno; success leaves it as it was. HTSocket calls these functions, except
// HTTLS_init() and HTTLS_version().
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

struct HTTLSSession;

// How a handshake failed.
enum class HTTLSFault : std::uint8_t {
    TimedOut,     // not finished in time
    Closed,       // the peer ended the stream
    Reset,        // reading or writing failed, mostly by a reset
    Certificate,  // the peer's certificate was not accepted
    Protocol,     // everything else: no common version, an alert, no TLS at all
};

struct HTTLSFailure {
    HTTLSFault fault = HTTLSFault::Protocol;
    const char *reason = "";  // the library's text, a static one; may be empty unless Certificate
};

// Prepares all sessions. `caFile` holds the certificates to trust, in PEM, in place of those of the
// system; null: the system's. `verifies`: a peer whose certificate is not valid for its name is
// refused. Returns why this cannot be used, such as "FILE: No such file or directory"; empty on
// success. A later call replaces the settings. Main thread.
[[nodiscard]] std::string HTTLS_init(const char *caFile, bool verifies);

// Makes a session on a connected descriptor that does not block, and finishes the handshake within
// `timeoutMs` milliseconds. `host` is the name, or the address (an IPv6 address may be in
// brackets), that the certificate must be valid for; a name is sent by SNI. Null on failure, with
// `*failure` filled in; the descriptor is then of no further use. Ended with HTTLS_delete().
[[nodiscard]] HTTLSSession *HTTLS_connect(int fd, const char *host, int timeoutMs,
                                          HTTLSFailure *failure);

// The version of the protocol, such as "TLSv1.3"; a static text.
[[nodiscard]] const char *HTTLS_version(const HTTLSSession *session);

// Reads up to `length` bytes, at least one. Waits for up to `timeoutMs` milliseconds (0 or less:
// not at all). The count; 0 at the end of the stream, also when the peer does not announce it; -1
// on failure: with EAGAIN when nothing came in time, with EINPROGRESS when only a part of a record
// did, and with EPROTO when the peer breaks the protocol.
ssize_t HTTLS_read(HTTLSSession *session, void *buffer, std::size_t length, int timeoutMs);

// Writes all bytes, within the time given for the handshake. `length`, or -1, with ETIMEDOUT when
// the peer does not take them in time.
ssize_t HTTLS_write(HTTLSSession *session, const void *buffer, std::size_t length);

// True when HTTLS_read() would return bytes without a wait, because they were received already.
[[nodiscard]] bool HTTLS_isReady(const HTTLSSession *session);

// True when the session can carry another request: nothing has come but messages of TLS itself,
// which it handles, and the peer has not ended the stream. Never waits.
[[nodiscard]] bool HTTLS_isIdle(HTTLSSession *session);

// Announces the end of the stream, unless the session has failed, and frees the session (or null).
// The descriptor stays open.
void HTTLS_delete(HTTLSSession *session);
