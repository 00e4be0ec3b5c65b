#include "HTSocket.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "htthread.h"

namespace {

HTSocket *newSocket(int type)
{
    return HTSocket_new(AF_INET, type, 0, "test", 1, nullptr);
}

int endSocket(HTSocket *socket)
{
    return HTSocket_close(socket, "test", 2, nullptr);
}

struct PeerRow {
    const char *name;
    void (*act)(int peer);
    int ready;
    bool closed;
    ssize_t count;
    int error;

    friend void PrintTo(const PeerRow &row, std::ostream *out) { *out << row.name; }
};

class Peer : public testing::TestWithParam<PeerRow> {};

TEST_P(Peer, IsMisread)
{
    HTThreadContext context;
    HTSocket *socket = newSocket(SOCK_STREAM);
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    ::listen(listener, 1);  // on a free port
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length);
    EXPECT_EQ(HTSocket_connect(&socket, &address, length, &context), 0);
    const int peer = ::accept(listener, nullptr, nullptr);
    const timeval limit = {.tv_sec = 0, .tv_usec = 1000};
    HTSocket_setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit, &context);
    GetParam().act(peer);
    errno = 0;
    EXPECT_EQ(HTSocket_isready(socket, 10, &context), GetParam().ready);
    EXPECT_EQ(HTSocket_peerClosed(socket, &context), GetParam().closed);
    EXPECT_EQ(errno, 0);
    std::array<char, 8> buffer{};
    EXPECT_EQ(HTSocket_read(socket, buffer.data(), buffer.size(), &context), GetParam().count);
    EXPECT_EQ(errno, GetParam().error);
    EXPECT_EQ(socket->lastError, GetParam().error);
    EXPECT_EQ(context.lastActivity != 0, GetParam().count != -1);
    EXPECT_EQ(endSocket(socket), 0);
    ::close(peer);
    ::close(listener);
}

void reset(int peer)
{
    const sockaddr nobody = {.sa_family = AF_UNSPEC, .sa_data = {}};
    ::connect(peer, &nobody, sizeof nobody);
}

constexpr std::array<PeerRow, 4> kRows = {{
    {"Silent", [](int /*peer*/) {}, 0, false, 0, EAGAIN},
    {"Sends", [](int peer) { ::send(peer, "abc", 3, 0); }, 1, false, 3, 0},
    {"Ends", [](int peer) { ::shutdown(peer, SHUT_WR); }, 1, true, 0, 0},
    {"Resets", reset, -1, false, -1, ECONNRESET},
}};
INSTANTIATE_TEST_SUITE_P(HTSocket, Peer, testing::ValuesIn(kRows),
                         testing::PrintToStringParamName());

TEST(HTSocket, SignalEndsTheWaitOrRestartsIt)
{
    HTSocket *const socket = newSocket(SOCK_DGRAM);
    std::signal(SIGALRM, [](int /*number*/) {});
    ::ualarm(20'000, 20'000);
    const std::uint32_t start = getmillicount();
    EXPECT_EQ(HTSocket_isready(socket, 50, nullptr), 0);
    EXPECT_GE(getmillicount() - start, 49U);
    ::ualarm(0, 0);
    EXPECT_EQ(endSocket(socket), 0);
}

TEST(HTSocket, RecordIsUsedTwiceAtATime)
{
    HTSocketQueue_init(1);
    HTSocket *const socket = newSocket(SOCK_STREAM);
    EXPECT_EQ(endSocket(socket), 0);
    EXPECT_EQ(endSocket(socket), -1);
    EXPECT_EQ(newSocket(SOCK_STREAM), socket);
    HTSocket *const other = newSocket(SOCK_STREAM);
    EXPECT_NE(other, socket);
    EXPECT_EQ(endSocket(other) + endSocket(socket), 0);
}

}  // namespace
