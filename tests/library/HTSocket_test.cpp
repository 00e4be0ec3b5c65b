#include "HTSocket.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "htthread.h"

namespace {

HTSocket *newSocket()
{
    return HTSocket_new(AF_INET, SOCK_STREAM, 0, "test", 1, nullptr);
}

int endSocket(HTSocket *socket)
{
    return HTSocket_close(socket, "test", 2, nullptr);
}

// A peer is silent, then sends, then closes without having read what it was sent.
TEST(HTSocket, PeerIsMisreadOrRecordIsUsedTwiceAtATime)
{
    const struct {
        void (*act)(int peer);
        int ready;
        ssize_t count;
        int error;
    } steps[] = {
        {[](int /*peer*/) {}, 0, 0, EAGAIN},
        {[](int peer) { ::send(peer, "abc", 3, 0); }, 1, 3, 0},
        {[](int peer) { ::close(peer); }, -1, -1, ECONNRESET},
    };
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    HTSocketQueue_init(1);
    HTSocket *const socket = newSocket();
    ::dup2(ends[0], socket->fd);
    EXPECT_EQ(HTSocket_writemsg(socket, "x", 1, nullptr), 1);
    for (const auto &step : steps) {
        step.act(ends[1]);
        HTThreadContext context;
        char buffer[8];
        errno = socket->lastError = 0;
        EXPECT_EQ(HTSocket_isStale(socket, &context), step.ready != 0);
        EXPECT_EQ(HTSocket_isready(socket, 10, &context), step.ready);
        EXPECT_EQ(HTSocket_read(socket, buffer, sizeof buffer, &context), step.count);
        EXPECT_EQ(errno, step.error);
        EXPECT_EQ(socket->lastError, step.error);
        EXPECT_EQ(context.lastActivity != 0, step.count >= 0);
    }
    ::close(ends[0]);
    EXPECT_EQ(endSocket(socket), 0);
    EXPECT_EQ(endSocket(socket), -1);
    EXPECT_EQ(newSocket(), socket);
    HTSocket *const other = newSocket();
    EXPECT_NE(other, socket);
    EXPECT_EQ(endSocket(other) + endSocket(socket), 0);
}

TEST(HTSocket, SignalEndsTheWaitOrRestartsItOrLeavesItsError)
{
    static int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    HTSocket *const socket = newSocket();
    ::dup2(ends[0], socket->fd);
    std::signal(SIGALRM, [](int /*number*/) {});
    ::ualarm(20'000, 20'000);
    const std::uint32_t start = getmillicount();
    EXPECT_EQ(HTSocket_isready(socket, 50, nullptr), 0);
    EXPECT_GE(getmillicount() - start, 49U);
    char byte = 0;
    errno = 0;
    EXPECT_EQ(HTSocket_receive(socket, &byte, 1, 50, nullptr), kHTTimedOut);
    EXPECT_GE(getmillicount() - start, 98U);
    ::ualarm(0, 0);
    // The end of a stream counts as an error when an error number is left from before.
    std::signal(SIGALRM, [](int /*number*/) { ::close(ends[1]); });
    ::ualarm(20'000, 0);
    EXPECT_EQ(HTSocket_receive(socket, &byte, 1, 5000, nullptr), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(endSocket(socket), 0);
    ::close(ends[0]);
}

// Whether a peer that has ended its stream had got what was sent, or had gone before.
TEST(HTSocket, LostMessageIsTakenForAReadOneOrSentTwice)
{
    for (const bool closesFirst : {true, false}) {
        sockaddr_in address = {
            .sin_family = AF_INET, .sin_port = 0, .sin_addr = {}, .sin_zero = {}};
        socklen_t length = sizeof address;
        auto *const at = reinterpret_cast<sockaddr *>(&address);
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        ASSERT_EQ(::bind(listener, at, length) + ::listen(listener, 1), 0);
        ASSERT_EQ(::getsockname(listener, at, &length), 0);
        HTSocket *socket = newSocket();
        ASSERT_EQ(HTSocket_connect(&socket, at, length, nullptr), 0);
        const int peer = ::accept(listener, nullptr, nullptr);
        char bytes[8];
        EXPECT_EQ(HTSocket_writemsg(socket, "abc", 3, nullptr), 3);
        EXPECT_EQ(::recv(peer, bytes, 3, MSG_WAITALL), 3);
        EXPECT_EQ(HTSocket_unacknowledged(socket), 0);
        if (closesFirst) {
            ::close(peer);
        }
        EXPECT_EQ(HTSocket_writemsg(socket, "defgh", 5, nullptr), 5);
        if (!closesFirst) {
            EXPECT_EQ(::recv(peer, bytes, 5, MSG_WAITALL), 5);
            ::close(peer);
        }
        EXPECT_EQ(HTSocket_receive(socket, bytes, 1, 5000, nullptr), 0);
        EXPECT_EQ(HTSocket_unacknowledged(socket), closesFirst ? 5 : 0);
        EXPECT_EQ(endSocket(socket) + ::close(listener), 0);
    }
}

TEST(HTSocket, HandshakeFailsOtherwiseOrNeverEnds)
{
    const struct {
        void (*act)(int peer);
        HTTLSFault fault;
        int error;
    } rows[] = {
        {[](int peer) { ::send(peer, "\x16\x03", 2, 0); }, HTTLSFault::TimedOut, ETIMEDOUT},
        {[](int peer) { ::shutdown(peer, SHUT_WR); }, HTTLSFault::Closed, ECONNRESET},
        {[](int peer) { ::send(peer, "HTTP/1.0 ", 9, 0); }, HTTLSFault::Protocol, EPROTO},
    };
    ASSERT_EQ(HTTLS_init(nullptr, true), "");
    std::signal(SIGALRM, [](int /*number*/) {});
    ::ualarm(20'000, 20'000);
    for (const auto &row : rows) {
        int ends[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        HTSocket *const socket = newSocket();
        ::dup2(ends[0], socket->fd);
        row.act(ends[1]);
        HTTLSFailure failure;
        const std::uint32_t start = getmillicount();
        EXPECT_EQ(HTSocket_secure(socket, "h", 50, &failure), -1);
        EXPECT_EQ(errno, row.error);
        EXPECT_EQ(failure.fault, row.fault) << failure.reason;
        EXPECT_GE(getmillicount() - start, row.error == ETIMEDOUT ? 49U : 0U);
        EXPECT_EQ(endSocket(socket) + ::close(ends[0]) + ::close(ends[1]), 0);
    }
    ::ualarm(0, 0);
}

}  // namespace
