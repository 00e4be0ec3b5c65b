// Sockets: a record around each descriptor, with the error and the byte counts of its life.
//
// Records come from a queue that is filled at start-up, and from the heap when it is empty. The
// descriptors of all open records are kept in a table; a record notes whether its own is in it, and
// is refused with EBADF if not. Any thread may call; one record is used by one thread at a time.
// The last argument of a call is the calling thread's context, which notes the times of network
// activity (null notes nothing).
//
// Calls that fail return -1 (or null) and leave errno as the failing system call set it; no call
// changes errno otherwise. A null socket gives -1 with errno untouched.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "HTTLS.h"
#include "HTWorkThread.h"

// An option set on a socket; the copy of its value lies behind the record.
struct HTSocketOption {
    int level;
    int name;
    socklen_t length;
    HTSocketOption *next;

    [[nodiscard]] void *value() { return this + 1; }
};

struct HTSocket {
    int fd = -1;             // -1 while free
    int lastError = 0;       // errno of the last call that failed on it
    bool fromQueue = false;  // goes back to the queue when closed
    bool isFree = false;     // waits in the queue
    bool isOpen = false;     // its descriptor is in the table of open ones
    HTSocketOption *options =
        nullptr;                  // newest first; only with HTLibraryConfig::keepSocketOptions
    bool secure = false;          // carries TLS
    HTTLSSession *tls = nullptr;  // owned; null unless secure
    std::uint32_t bytesRead = 0;
    std::uint32_t bytesWritten = 0;
    int receiveTimeoutMs = 0;  // as the system knows it; 0: waits for ever
    HTSocket *next = nullptr;  // behind it in the queue
};

// Adds `count` records to the queue. Fewer (reported) when memory is out.
void HTSocketQueue_init(int count);

// A new socket as socket() makes it; null on failure. `sourceFile` and `line` label the trace line.
// Ended with HTSocket_close().
[[nodiscard]] HTSocket *HTSocket_new(int domain, int type, int protocol, const char *sourceFile,
                                     int line, HTThreadContext *context);

// setsockopt(); its result.
int HTSocket_setsockopt(HTSocket *socket, int level, int name, const void *value, socklen_t length,
                        HTThreadContext *context);

// Connects the socket in `*socketHolder`, blocking for as long as the system does. connect()'s
// result.
int HTSocket_connect(HTSocket **socketHolder, const sockaddr *address, socklen_t length,
                     HTThreadContext *context);

// Connects in steps, for callers that do not want to wait so long. HTSocket_beginConnect() starts;
// HTSocket_awaitConnect() then waits for up to `timeoutMs` milliseconds each time it is called. 1:
// connected, and the socket blocks again. 0: not yet. -1: failed; the socket can only be closed.
[[nodiscard]] int HTSocket_beginConnect(HTSocket *socket, const sockaddr *address, socklen_t length,
                                        HTThreadContext *context);
[[nodiscard]] int HTSocket_awaitConnect(HTSocket *socket, int timeoutMs);

// Begins TLS on a connected socket, as HTTLS_connect() does; the socket does not block any more.
// From then on the calls below work on the data inside TLS. 0, or -1 with `*failure` filled in and
// errno set: then the socket can only be closed.
int HTSocket_secure(HTSocket *socket, const char *host, int timeoutMs, HTTLSFailure *failure);

// Waits up to `timeoutMs` milliseconds (for ever when negative) for input; signals do not end the
// wait. 1: readable, which the end of the stream is too. 0: nothing came. -1: failed, or the socket
// has an error or a hang-up, which the next read reports.
int HTSocket_isready(HTSocket *socket, int timeoutMs, HTThreadContext *context);

// For a connection that is idle: true when it should not be used for another request, because bytes
// have come, the peer has ended its stream, or the connection has failed. Never waits. Null gives
// false.
[[nodiscard]] bool HTSocket_isStale(const HTSocket *socket, HTThreadContext *context);

// Reads up to `length` bytes. The count; 0 at the end of the stream, and when a non-blocking socket
// (such as one with TLS) has nothing; -1 on failure.
ssize_t HTSocket_read(HTSocket *socket, void *buffer, std::size_t length, HTThreadContext *context);

// The results of HTSocket_receive() when nothing came in time; and when bytes came, which are no
// data yet.
inline constexpr ssize_t kHTTimedOut = -2;
inline constexpr ssize_t kHTPartial = -3;

// Reads as HTSocket_read() does, but waits for at most `timeoutMs` milliseconds (not at all when 0
// or less), which signals do not end: kHTTimedOut, with errno as it was, when nothing came. It is
// HTSocket_isready() and HTSocket_read() in one, mostly at the cost of one system call. Not for
// sockets that do not block, nor beside those two on one socket. With TLS, kHTPartial when only a
// part of a record came.
ssize_t HTSocket_receive(HTSocket *socket, void *buffer, std::size_t length, int timeoutMs,
                         HTThreadContext *context);

// Sends the bytes as one message. The count sent, which may be less than `length`; -1 on failure.
// SIGPIPE must be blocked or ignored. With TLS it sends all, or fails, for example with ETIMEDOUT
// after the time given for the handshake.
ssize_t HTSocket_writemsg(HTSocket *socket, const void *buffer, std::size_t length,
                          HTThreadContext *context);

// How many of the bytes sent so far the peer's system has not acknowledged; -1 when that is not
// known, as with TLS. When the stream has ended and that is all of a message, the peer had closed
// its side before it could read any of it.
[[nodiscard]] std::int64_t HTSocket_unacknowledged(const HTSocket *socket);

// Reads until `length` bytes have come or the stream ends; recv() with `flags`. The count, or -1.
// Not with TLS.
ssize_t receive_all(HTSocket *socket, void *buffer, std::size_t length, int flags);

// Ends TLS, if there is any, closes the descriptor and releases the record, whatever the result:
// close()'s, or -1 with EBADF for a record that is closed already.
int HTSocket_close(HTSocket *socket, const char *sourceFile, int line, HTThreadContext *context);
