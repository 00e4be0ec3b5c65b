#include "HTSocket.h"

#include <fcntl.h>
#include <linux/tcp.h>
#include <poll.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>
#include <utility>

#include "HTHash.h"
#include "HTMemory.h"
#include "htthread.h"
#include "tfprintf.h"

namespace {

constexpr std::uint32_t kOpenBuckets = 251;

static_assert(EAGAIN == EWOULDBLOCK);  // so testing for one is enough

// Bytes received and sent by the process, to be read with a debugger. Any thread adds; relaxed,
// because nothing is ordered by them.
constinit std::atomic<std::uint64_t> totalReceived{0};
constinit std::atomic<std::uint64_t> totalSent{0};

// Restores errno at the end of its scope: locks, traces and memory calls must not hide the error of
// a system call.
class ErrnoKeeper {
public:
    ErrnoKeeper() : value_(errno) {}
    ~ErrnoKeeper() { errno = value_; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

    [[nodiscard]] int value() const { return value_; }

private:
    const int value_;
};

// The free records, last in first out.
class RecordQueue {
public:
    void push(HTSocket *record)
    {
        const PMutexGuard guard(mutex_);
        record->next = top_;
        top_ = record;
    }

    // Null when the queue is empty.
    HTSocket *pop()
    {
        const PMutexGuard guard(mutex_);
        HTSocket *const record = top_;
        if (record != nullptr) {
            top_ = record->next;
        }
        return record;
    }

private:
    PMutex mutex_;
    HTSocket *top_ HT_GUARDED_BY(mutex_) = nullptr;
};

// Created by the first call and never destroyed: threads may outlive main.
RecordQueue &recordQueue()
{
    alignas(RecordQueue) static std::array<std::byte, sizeof(RecordQueue)> storage;
    static RecordQueue *const queue = new (storage.data()) RecordQueue;
    return *queue;
}

std::uint32_t hashRecord(std::uint32_t size, const void *record)
{
    return static_cast<std::uint32_t>(static_cast<const HTSocket *>(record)->fd) % size;
}

int compareRecords(const void *item, const void *key)
{
    return static_cast<const HTSocket *>(item)->fd == static_cast<const HTSocket *>(key)->fd ? 0
                                                                                             : 1;
}

// The records of all open descriptors, with a lock of its own; null when memory was out.
HashTable *openSockets()
{
    static HashTable *const table = HashCreate(kOpenBuckets, compareRecords, hashRecord, 1);
    return table;
}

bool enterOpen(HTSocket *socket)
{
    HashTable *const table = openSockets();
    socket->isOpen = table != nullptr && HashAdd(table, socket) == 0;
    return socket->isOpen;
}

// Whether the table knows the descriptor; errno is EBADF if not. The record remembers it, so that
// sending needs neither the table nor its lock.
bool checkOpen(const HTSocket *socket)
{
    if (!socket->isOpen) {
        errno = EBADF;
    }
    return socket->isOpen;
}

// Takes the descriptor out of the table; false, with errno EBADF, when it was not there.
bool takeFromOpen(HTSocket *socket)
{
    return checkOpen(socket) && HashRemove(openSockets(), socket) != nullptr;
}

// Notes the error of a system call that has failed on the socket, and returns -1.
ssize_t failed(HTSocket *socket)
{
    socket->lastError = errno;
    return -1;
}

// A record ready for use, from the queue or the heap; null (reported) when memory is out.
HTSocket *takeRecord()
{
    HTSocket *const record = recordQueue().pop();
    if (record != nullptr) {
        *record = HTSocket{.fromQueue = true};
        return record;
    }
    auto *const fresh = new (std::nothrow) HTSocket;
    if (fresh == nullptr) {
        HTOutOfMemory("library/HTSocket", "HTSocket_new", __LINE__, sizeof(HTSocket));
        errno = ENOMEM;
    }
    return fresh;
}

void giveRecordBack(HTSocket *socket)
{
    while (HTSocketOption *const option = socket->options) {
        socket->options = option->next;
        std::free(option);
    }
    if (!socket->fromQueue) {
        delete socket;
        return;
    }
    if (HTTrace_on(kTraceSocket)) {
        const auto address = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(socket));
        tfprintf(nullptr, "Socket...... Returning socket struct (%x) to the queue.\n", address);
    }
    socket->fd = -1;
    socket->isFree = true;
    socket->isOpen = false;
    recordQueue().push(socket);
}

// Creates the descriptor of a record and enters it in the table; false with errno set.
bool openDescriptor(HTSocket *socket, int domain, int type, int protocol)
{
    socket->fd = ::socket(domain, type, protocol);
    if (socket->fd == -1) {
        return false;
    }
    if (!enterOpen(socket)) {
        ::close(socket->fd);
        errno = ENOMEM;
        return false;
    }
    return true;
}

void keepOption(HTSocket *socket, const HTSocketOption &option, const void *value)
{
    const std::size_t size = sizeof(HTSocketOption) + option.length;
    void *const memory = std::malloc(size);
    if (memory == nullptr) {
        HTOutOfMemory("library/HTSocket", "HTSocket_setsockopt", __LINE__, size);
        return;
    }
    socket->options = new (memory) HTSocketOption(option);
    std::copy_n(static_cast<const char *>(value), option.length,
                static_cast<char *>(socket->options->value()));
}

// poll() on one descriptor; after a signal it continues with the time that is left.
int pollThroughSignals(pollfd *entry, int timeoutMs)
{
    using Clock = std::chrono::steady_clock;
    using std::chrono::milliseconds;

    const int before = errno;
    const auto deadline = Clock::now() + milliseconds(std::max(timeoutMs, 0));
    int left = timeoutMs;
    for (;;) {
        const int count = ::poll(entry, 1, left);
        if (count >= 0) {
            errno = before;
            return count;
        }
        if (errno != EINTR) {
            return -1;
        }
        if (timeoutMs > 0) {
            const auto rest = std::chrono::ceil<milliseconds>(deadline - Clock::now());
            left = static_cast<int>(std::max<std::int64_t>(rest.count(), 0));
        }
    }
}

}  // namespace

void HTSocketQueue_init(int count)
{
    for (int i = 0; i < count; ++i) {
        auto *const record = new (std::nothrow) HTSocket{.fromQueue = true, .isFree = true};
        if (record == nullptr) {
            HTOutOfMemory("library/HTSocket", "HTSocketQueue_init", __LINE__, sizeof(HTSocket));
            return;
        }
        recordQueue().push(record);
    }
}

HTSocket *HTSocket_new(int domain, int type, int protocol, const char *sourceFile, int line,
                       HTThreadContext * /*context*/)
{
    HTSocket *const socket = takeRecord();
    if (socket == nullptr) {
        return nullptr;
    }
    const int before = errno;
    const bool open = openDescriptor(socket, domain, type, protocol);
    if (open) {
        errno = before;  // allocating memory for the table may have changed it
    }
    const ErrnoKeeper kept;
    if (HTTrace_on(kTraceSocket)) {
        tfprintf(nullptr, "socket...... %d created for %s:%d errno=%d\n", socket->fd, sourceFile,
                 line, open ? 0 : kept.value());
    }
    if (!open) {
        giveRecordBack(socket);
        return nullptr;
    }
    return socket;
}

int HTSocket_setsockopt(HTSocket *socket, int level, int name, const void *value, socklen_t length,
                        HTThreadContext *context)
{
    if (socket == nullptr) {
        return -1;
    }
    const int result = ::setsockopt(socket->fd, level, name, value, length);
    const ErrnoKeeper kept;
    if (result == -1) {
        socket->lastError = kept.value();
    } else if (context != nullptr && context->config != nullptr &&
               context->config->keepSocketOptions) {
        keepOption(socket,
                   {.level = level, .name = name, .length = length, .next = socket->options},
                   value);
    }
    return result;
}

int HTSocket_connect(HTSocket **socketHolder, const sockaddr *address, socklen_t length,
                     HTThreadContext *context)
{
    HTSocket *const socket = socketHolder == nullptr ? nullptr : *socketHolder;
    if (socket == nullptr) {
        return -1;
    }
    if (!checkOpen(socket)) {
        return static_cast<int>(failed(socket));
    }
    if (context != nullptr) {
        context->lastConnect = HTtime();
    }
    const int result = ::connect(socket->fd, address, length);
    return result == -1 ? static_cast<int>(failed(socket)) : result;
}

namespace {

// Sets or clears O_NONBLOCK. False with errno set on failure.
bool setBlocking(const HTSocket *socket, bool blocks)
{
    const int flags = ::fcntl(socket->fd, F_GETFL);
    const int wanted = blocks ? flags & ~O_NONBLOCK : flags | O_NONBLOCK;
    return flags != -1 && ::fcntl(socket->fd, F_SETFL, wanted) != -1;
}

// After connecting: 1, or -1 when the socket cannot be made to block again.
int connected(HTSocket *socket)
{
    return setBlocking(socket, true) ? 1 : static_cast<int>(failed(socket));
}

}  // namespace

int HTSocket_beginConnect(HTSocket *socket, const sockaddr *address, socklen_t length,
                          HTThreadContext *context)
{
    if (socket == nullptr) {
        return -1;
    }
    const int before = errno;
    if (!setBlocking(socket, false)) {
        return static_cast<int>(failed(socket));
    }
    const int result = HTSocket_connect(&socket, address, length, context);
    if (result == -1 && errno != EINPROGRESS) {
        return -1;
    }
    errno = before;
    return result == 0 ? connected(socket) : 0;
}

int HTSocket_awaitConnect(HTSocket *socket, int timeoutMs)
{
    if (socket == nullptr) {
        return -1;
    }
    pollfd entry = {.fd = socket->fd, .events = POLLOUT, .revents = 0};
    const int count = pollThroughSignals(&entry, timeoutMs);
    if (count == 0) {
        return 0;
    }
    int error = 0;
    socklen_t length = sizeof error;
    if (count < 0 || ::getsockopt(socket->fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
        return static_cast<int>(failed(socket));
    }
    if (error != 0) {
        errno = error;
        return static_cast<int>(failed(socket));
    }
    return connected(socket);
}

int HTSocket_secure(HTSocket *socket, const char *host, int timeoutMs, HTTLSFailure *failure)
{
    if (socket == nullptr) {
        return -1;
    }
    const int before = errno;
    if (!setBlocking(socket, false)) {
        *failure = {HTTLSFault::Reset, ""};
        return static_cast<int>(failed(socket));
    }
    socket->tls = HTTLS_connect(socket->fd, host, timeoutMs, failure);
    if (socket->tls == nullptr) {
        return static_cast<int>(failed(socket));
    }
    socket->secure = true;
    errno = before;
    return 0;
}

int HTSocket_isready(HTSocket *socket, int timeoutMs, HTThreadContext * /*context*/)
{
    if (socket == nullptr) {
        return -1;
    }
    if (socket->secure && HTTLS_isReady(socket->tls)) {
        return 1;
    }
    if (socket->fd < 0) {
        errno = EBADF;  // poll() would ignore it and wait
        return static_cast<int>(failed(socket));
    }
    pollfd entry = {.fd = socket->fd, .events = POLLIN | POLLPRI, .revents = 0};
    const int result = pollThroughSignals(&entry, timeoutMs);
    const ErrnoKeeper kept;
    if (HTTrace_on(kTraceSocket)) {
        tfprintf(nullptr, "Poll returned %d with the following return events 0x%x\n", result,
                 static_cast<unsigned>(entry.revents));
    }
    if (result == -1) {
        return static_cast<int>(failed(socket));
    }
    return (entry.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0 ? -1 : result;
}

// POLLIN reports bytes and a FIN; errors and hang-ups are always reported.
bool HTSocket_isStale(const HTSocket *socket, HTThreadContext * /*context*/)
{
    if (socket == nullptr) {
        return false;
    }
    if (socket->secure) {
        return !HTTLS_isIdle(socket->tls);
    }
    pollfd entry = {.fd = socket->fd, .events = POLLIN, .revents = 0};
    const ErrnoKeeper kept;
    return pollThroughSignals(&entry, 0) == 1;
}

namespace {

// Counts bytes that have come; 0 at the end of the stream.
void noteReceived(HTSocket *socket, ssize_t count, HTThreadContext *context)
{
    totalReceived.fetch_add(static_cast<std::uint64_t>(count), std::memory_order_relaxed);
    socket->bytesRead += static_cast<std::uint32_t>(count);
    if (context != nullptr) {
        context->lastActivity = HTtime();
    }
}

void traceRead(const HTSocket *socket, ssize_t count)
{
    if (HTTrace_on(kTraceSocket)) {
        tfprintf(nullptr, "Socket...... read %d bytes on socket %d.\n", static_cast<int>(count),
                 socket->fd);
    }
}

// Limits the time that recv() waits on the socket.
void limitWait(HTSocket *socket, int timeoutMs)
{
    if (socket->receiveTimeoutMs == timeoutMs) {
        return;
    }
    const timeval limit = {.tv_sec = timeoutMs / 1000, .tv_usec = timeoutMs % 1000 * 1000L};
    if (::setsockopt(socket->fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0) {
        socket->receiveTimeoutMs = timeoutMs;
    }
}

// recv() that fails with EAGAIN when nothing has come in time. The socket's own time limit needs no
// further system call, but it ends late by a part of its length. It is therefore kept short, and
// poll() waits for the rest of the time.
ssize_t receiveInTime(HTSocket *socket, void *buffer, std::size_t length, int timeoutMs)
{
    using Clock = std::chrono::steady_clock;
    using std::chrono::milliseconds;
    constexpr int kLongestLimit = 500;

    int left = timeoutMs;
    if (timeoutMs > 1) {
        const auto deadline = Clock::now() + milliseconds(timeoutMs);
        limitWait(socket, std::min(timeoutMs / 2, kLongestLimit));
        const ssize_t count = ::recv(socket->fd, buffer, length, 0);
        if (count != -1 || (errno != EAGAIN && errno != EINTR)) {
            return count;
        }
        const auto rest = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        left = static_cast<int>(rest.count());
    }
    pollfd entry = {.fd = socket->fd, .events = POLLIN, .revents = 0};
    pollThroughSignals(&entry, std::max(left, 0));
    return ::recv(socket->fd, buffer, length, MSG_DONTWAIT);
}

}  // namespace

ssize_t HTSocket_read(HTSocket *socket, void *buffer, std::size_t length, HTThreadContext *context)
{
    if (socket == nullptr) {
        return -1;
    }
    ssize_t count = socket->secure ? HTTLS_read(socket->tls, buffer, length, 0)
                                   : ::recv(socket->fd, buffer, length, 0);
    const ErrnoKeeper kept;
    if (count == -1) {
        count = failed(socket);
        if (kept.value() == EAGAIN || (socket->secure && kept.value() == EINPROGRESS)) {
            count = 0;
            if (HTTrace_on(kTraceSocket)) {
                tfprintf(nullptr,
                         "Socket...... recv() returned EWOULDBLOCK; setting bytes to 0.\n");
            }
        }
    }
    if (count != -1) {
        noteReceived(socket, count, context);
    }
    traceRead(socket, count);
    return count;
}

ssize_t HTSocket_receive(HTSocket *socket, void *buffer, std::size_t length, int timeoutMs,
                         HTThreadContext *context)
{
    if (socket == nullptr) {
        return -1;
    }
    const int before = errno;
    const ssize_t count = socket->secure ? HTTLS_read(socket->tls, buffer, length, timeoutMs)
                                         : receiveInTime(socket, buffer, length, timeoutMs);
    if (count == -1 && (errno == EAGAIN || (socket->secure && errno == EINPROGRESS))) {
        const ssize_t result = errno == EAGAIN ? kHTTimedOut : kHTPartial;
        errno = before;
        return result;
    }
    if (count == -1) {
        failed(socket);
    } else {
        errno = before;
        noteReceived(socket, count, context);
    }
    const ErrnoKeeper kept;
    traceRead(socket, count);
    return count;
}

namespace {

ssize_t sendMessage(int fd, const void *buffer, std::size_t length)
{
    iovec segment = {.iov_base = const_cast<void *>(buffer), .iov_len = length};
    msghdr message{};
    message.msg_iov = &segment;
    message.msg_iovlen = 1;
    return ::sendmsg(fd, &message, 0);
}

}  // namespace

ssize_t HTSocket_writemsg(HTSocket *socket, const void *buffer, std::size_t length,
                          HTThreadContext * /*context*/)
{
    if (socket == nullptr) {
        return -1;
    }
    if (!checkOpen(socket)) {
        return failed(socket);
    }
    const ssize_t count = socket->secure ? HTTLS_write(socket->tls, buffer, length)
                                         : sendMessage(socket->fd, buffer, length);
    if (count == -1) {
        return failed(socket);
    }
    totalSent.fetch_add(static_cast<std::uint64_t>(count), std::memory_order_relaxed);
    socket->bytesWritten += static_cast<std::uint32_t>(count);
    return count;
}

std::int64_t HTSocket_unacknowledged(const HTSocket *socket)
{
    const ErrnoKeeper kept;
    tcp_info info{};
    socklen_t length = sizeof info;
    constexpr std::size_t needed = offsetof(tcp_info, tcpi_bytes_acked) + sizeof(std::uint64_t);
    if (socket == nullptr || socket->secure ||
        ::getsockopt(socket->fd, IPPROTO_TCP, TCP_INFO, &info, &length) != 0 || length < needed) {
        return -1;
    }
    // The handshake counts as one byte. The counts of the record wrap around, so this one does,
    // too.
    const std::uint64_t acknowledged = info.tcpi_bytes_acked - 1;
    return socket->bytesWritten - static_cast<std::uint32_t>(acknowledged);
}

ssize_t receive_all(HTSocket *socket, void *buffer, std::size_t length, int flags)
{
    if (socket == nullptr) {
        return -1;
    }
    std::size_t total = 0;
    while (total < length) {
        const ssize_t count =
            ::recv(socket->fd, static_cast<char *>(buffer) + total, length - total, flags);
        if (count == -1) {
            return failed(socket);
        }
        if (count == 0) {
            break;
        }
        total += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(total);
}

int HTSocket_close(HTSocket *socket, const char *sourceFile, int line,
                   HTThreadContext * /*context*/)
{
    if (socket == nullptr) {
        return -1;
    }
    if (socket->isFree) {
        errno = EBADF;
        return -1;
    }
    HTTLS_delete(std::exchange(socket->tls, nullptr));
    // The table comes first: once it is closed, another thread may get the same descriptor number.
    const int result = takeFromOpen(socket) ? ::close(socket->fd) : -1;
    const ErrnoKeeper kept;
    if (HTTrace_on(kTraceSocket)) {
        tfprintf(nullptr, "socket...... %d closed for %s:%d errno=%d\n", socket->fd, sourceFile,
                 line, result == -1 ? kept.value() : 0);
    }
    giveRecordBack(socket);
    return result;
}
