#include "HTSocket.h"

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "htthread.h"

namespace {

HTSocket *newSocket()
{
    return HTSocket_new(AF_INET, SOCK_STREAM, IPPROTO_TCP, "test", 1, nullptr);
}

// A connected socket and, as a bare descriptor, its peer.
class HTSocketTest : public testing::Test {
protected:
    HTSocketTest()
    {
        const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        ::listen(listener, 1);  // on a free port
        socklen_t length = sizeof address_;
        ::getsockname(listener, reinterpret_cast<sockaddr *>(&address_), &length);
        EXPECT_EQ(HTSocket_connect(&socket_, &address_, length, &context_), 0);
        peer_ = ::accept(listener, nullptr, nullptr);
        ::close(listener);
    }
    ~HTSocketTest() override
    {
        HTSocket_close(socket_, "test", 2, &context_);
        ::close(peer_);
    }

    HTThreadContext context_;
    sockaddr_in address_{};
    HTSocket *socket_ = newSocket();
    int peer_ = -1;
    std::array<char, 8> buffer_{};
};

TEST_F(HTSocketTest, NullSocketTouchesErrno)
{
    HTSocket *none = nullptr;
    errno = 4711;
    EXPECT_EQ(HTSocket_setsockopt(none, SOL_SOCKET, SO_REUSEADDR, &buffer_, 4, &context_), -1);
    EXPECT_EQ(HTSocket_connect(nullptr, &address_, sizeof address_, &context_), -1);
    EXPECT_EQ(HTSocket_connect(&none, &address_, sizeof address_, &context_), -1);
    EXPECT_EQ(HTSocket_isready(none, 1000, &context_), -1);
    EXPECT_EQ(HTSocket_read(none, buffer_.data(), 1, &context_), -1);
    EXPECT_EQ(HTSocket_writemsg(none, buffer_.data(), 1, &context_), -1);
    EXPECT_EQ(receive_all(none, buffer_.data(), 1, 0), -1);
    EXPECT_EQ(HTSocket_close(none, "test", 1, &context_), -1);
    EXPECT_FALSE(HTSocket_peerClosed(none, &context_));
    EXPECT_EQ(errno, 4711);
}

struct PeerState {
    const char *name;
    void (*act)(int &peer);
    int ready;
    bool closed;
    ssize_t count;
    int error;
};

void PrintTo(const PeerState &state, std::ostream *out)
{
    *out << state.name;
}

void reset(int &peer)
{
    const linger hard = {.l_onoff = 1, .l_linger = 0};
    ::setsockopt(peer, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    ::close(std::exchange(peer, -1));
}

constexpr std::array<PeerState, 4> kStates = {{
    {"silent", [](int & /*peer*/) {}, 0, false, 0, EAGAIN},
    {"sends", [](int &peer) { ::send(peer, "abc", 3, 0); }, 1, false, 3, 0},
    {"ends", [](int &peer) { ::shutdown(peer, SHUT_WR); }, 1, true, 0, 0},
    {"resets", reset, -1, false, -1, ECONNRESET},
}};

class HTSocketPeer : public HTSocketTest, public testing::WithParamInterface<PeerState> {};

INSTANTIATE_TEST_SUITE_P(States, HTSocketPeer, testing::ValuesIn(kStates),
                         testing::PrintToStringParamName());

TEST_P(HTSocketPeer, IsMisread)
{
    const timeval limit = {.tv_sec = 0, .tv_usec = 1000};
    HTSocket_setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit, &context_);
    GetParam().act(peer_);
    errno = 0;
    EXPECT_EQ(HTSocket_isready(socket_, 10, &context_), GetParam().ready);
    EXPECT_EQ(HTSocket_peerClosed(socket_, &context_), GetParam().closed);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(HTSocket_read(socket_, buffer_.data(), 8, &context_), GetParam().count);
    EXPECT_EQ(errno, GetParam().error);
    EXPECT_EQ(socket_->lastError, GetParam().error);
    EXPECT_EQ(context_.lastActivity != 0, GetParam().count != -1);
}

TEST_F(HTSocketTest, BytesAreLostOrNotCounted)
{
    const std::uint64_t sent = HTSocket_totalSent();
    const std::uint64_t received = HTSocket_totalReceived();
    EXPECT_EQ(HTSocket_writemsg(socket_, "hello", 5, &context_), 5);
    EXPECT_EQ(::recv(peer_, buffer_.data(), 8, 0), 5);
    EXPECT_STREQ(buffer_.data(), "hello");
    EXPECT_EQ(::send(peer_, "abcdefg", 7, 0), 7);
    ::shutdown(peer_, SHUT_WR);
    EXPECT_EQ(HTSocket_read(socket_, buffer_.data(), 2, &context_), 2);
    EXPECT_EQ(receive_all(socket_, &buffer_[2], 2, 0), 2);
    EXPECT_EQ(receive_all(socket_, &buffer_[4], 4, 0), 3);
    EXPECT_STREQ(buffer_.data(), "abcdefg");
    EXPECT_EQ(socket_->bytesWritten, 5U);
    EXPECT_EQ(socket_->bytesRead, 2U);
    EXPECT_EQ(HTSocket_totalSent() - sent, 5U);
    EXPECT_EQ(HTSocket_totalReceived() - received, 2U);
}

TEST_F(HTSocketTest, SignalEndsTheWait)
{
    const itimerval often = {.it_interval = {0, 5000}, .it_value = {0, 5000}};
    const itimerval never = {};
    const auto before = std::signal(SIGALRM, [](int) {});
    ::setitimer(ITIMER_REAL, &often, nullptr);
    const std::uint32_t start = getmillicount();
    errno = 0;
    EXPECT_EQ(HTSocket_isready(socket_, 50, &context_), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_GE(getmillicount() - start, 49U);
    ::setitimer(ITIMER_REAL, &never, nullptr);
    std::signal(SIGALRM, before);
}

TEST_F(HTSocketTest, FailureLosesItsErrno)
{
    EXPECT_EQ(HTSocket_setsockopt(socket_, SOL_SOCKET, 9999, &buffer_, 4, &context_), -1);
    EXPECT_EQ(errno, ENOPROTOOPT);
    EXPECT_EQ(socket_->lastError, ENOPROTOOPT);
    EXPECT_EQ(HTSocket_new(-1, SOCK_STREAM, 0, "test", 1, &context_), nullptr);
    EXPECT_EQ(errno, EAFNOSUPPORT);
    const int own = std::exchange(socket_->fd, peer_);  // open, but not one of ours
    EXPECT_EQ(HTSocket_writemsg(socket_, "a", 1, &context_), -1);
    EXPECT_EQ(std::exchange(errno, 0), EBADF);
    EXPECT_EQ(HTSocket_connect(&socket_, &address_, sizeof address_, &context_), -1);
    EXPECT_EQ(errno, EBADF);
    socket_->fd = own;
}

TEST(HTSocket, RecordKeepsItsPastOrIsQueuedTwice)
{
    const HTLibraryConfig config = {.keepSocketOptions = true};
    HTThreadContext context;
    context.config = &config;
    HTSocketQueue_init(1);
    HTSocket *const socket = newSocket();
    const int on = 1;
    HTSocket_setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on, &context);
    ASSERT_NE(socket->options, nullptr);
    EXPECT_EQ(*static_cast<int *>(socket->options->value()), 1);
    EXPECT_EQ(HTSocket_close(socket, "test", 1, nullptr), 0);
    EXPECT_TRUE(socket->fd == -1 && socket->isFree);
    EXPECT_EQ(HTSocket_close(socket, "test", 1, nullptr), -1);
    EXPECT_EQ(newSocket(), socket);
    EXPECT_TRUE(socket->options == nullptr && !socket->isFree);
    HTSocket *const other = newSocket();
    EXPECT_NE(other, socket);
    EXPECT_EQ(HTSocket_close(other, "test", 1, nullptr), 0);
    EXPECT_EQ(HTSocket_close(socket, "test", 1, nullptr), 0);
}

}  // namespace
