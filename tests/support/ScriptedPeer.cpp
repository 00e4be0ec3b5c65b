#include "ScriptedPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

constexpr timeval kSendDeadline = {10, 0};
constexpr std::chrono::milliseconds kDropDeadline{10000};
constexpr const char *kHeadEnd = "\r\n\r\n";

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

template <typename Value>
void set(int fd, int level, int option, const Value &value)
{
    setsockopt(fd, level, option, &value, sizeof value);
}

std::string targetOf(const std::string &head)
{
    const std::size_t begin = std::min(head.find(' '), head.size() - 1) + 1;
    return head.substr(begin, head.find(' ', begin) - begin);
}

void send(int fd, const Reply &reply)
{
    for (const Reply::Piece &piece : reply.pieces) {
        std::this_thread::sleep_for(std::chrono::milliseconds(piece.pauseMs));
        if (::send(fd, piece.bytes.data(), piece.bytes.size(), MSG_NOSIGNAL) < 0) {
            return;  // the next read tells
        }
    }
}

}  // namespace

Reply Reply::ok(const std::string &body, const std::string &headers)
{
    return {{{"HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " +
              std::to_string(body.size()) + "\r\nConnection: keep-alive\r\n" + headers + "\r\n" +
              body}}};
}

Reply Reply::inPieces(const std::string &bytes, std::size_t size)
{
    Reply reply;
    for (std::size_t at = 0; at < bytes.size(); at += size) {
        reply.pieces.push_back({bytes.substr(at, size)});
    }
    return reply;
}

ScriptedPeer::ScriptedPeer(Handler handler)
    : handler_(handler ? std::move(handler)
                       : [](const auto &, const auto &) { return Reply::ok(); }),
      listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    auto *const generic = reinterpret_cast<sockaddr *>(&address);
    if (bind(listener_, generic, length) != 0 || listen(listener_, 256) != 0 ||
        getsockname(listener_, generic, &length) != 0) {
        throw std::runtime_error("no loopback port to listen on");
    }
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { acceptAll(); });
}

ScriptedPeer::ScriptedPeer(const std::map<std::string, Reply> &table)
    : ScriptedPeer([table](const ScriptedPeer &, const Request &request) {
          const auto row = table.find(request.target);
          return row == table.end() ? Reply::ok() : row->second;
      })
{
}

ScriptedPeer::~ScriptedPeer()
{
    shutdown(listener_, SHUT_RDWR);  // wakes the acceptor
    acceptor_.join();
    for (Connection &connection : connections_) {
        drop(connection.number, Reply::Then::Close);
        connection.thread.join();
    }
    close(listener_);
}

void ScriptedPeer::acceptAll()
{
    int fd = -1;
    while ((fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
        set(fd, IPPROTO_TCP, TCP_NODELAY, 1);
        set(fd, SOL_SOCKET, SO_SNDTIMEO, kSendDeadline);
        const std::lock_guard guard(mutex_);
        Connection &connection = connections_.emplace_back();
        connection.number = static_cast<int>(connections_.size()) - 1;
        connection.fd = fd;
        mostOpen_ = std::max(mostOpen_, ++open_);
        connection.thread = std::thread([this, &connection] { serve(connection); });
    }
}

void ScriptedPeer::serve(Connection &connection)
{
    std::string pending;
    Request request;
    Reply::Then then = Reply::Then::Keep;
    while (then == Reply::Then::Keep && nextRequest(connection, pending, request)) {
        const Reply reply = handler_(*this, request);
        send(connection.fd, reply);
        then = reply.then;
    }
    char ignored[8192];
    while (then == Reply::Then::Stall && recv(connection.fd, ignored, sizeof ignored, 0) > 0) {
    }
    closed(connection, then);
}

// Reads until a whole head is there, records it and takes it out of `pending`.
bool ScriptedPeer::nextRequest(const Connection &connection, std::string &pending, Request &request)
{
    std::size_t end = 0;
    while ((end = pending.find(kHeadEnd)) == std::string::npos) {
        char block[8192];
        const ssize_t got = recv(connection.fd, block, sizeof block, 0);
        if (got <= 0) {
            return false;
        }
        pending.append(block, static_cast<std::size_t>(got));
    }
    const std::string head = pending.substr(0, end + 4);
    request = {head, targetOf(head), Clock::now(), connection.number};
    pending.erase(0, head.size());
    const std::lock_guard guard(mutex_);
    requests_.push_back(request);
    changed_.notify_all();
    return true;
}

void ScriptedPeer::closed(Connection &connection, Reply::Then how)
{
    const std::lock_guard guard(mutex_);
    if (how == Reply::Then::Reset || connection.end == Reply::Then::Reset) {
        set(connection.fd, SOL_SOCKET, SO_LINGER, linger{1, 0});
    }
    close(connection.fd);
    connection.open = false;
    --open_;
    changed_.notify_all();
}

std::vector<ScriptedPeer::Request> ScriptedPeer::requests() const
{
    const std::lock_guard guard(mutex_);
    return requests_;
}

std::vector<std::string> ScriptedPeer::targets() const
{
    std::vector<std::string> result;
    for (const Request &request : requests()) {
        result.push_back(request.target);
    }
    return result;
}

bool ScriptedPeer::waitForRequests(std::size_t count, Millis timeout) const
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return requests_.size() >= count; });
}

int ScriptedPeer::connections() const
{
    const std::lock_guard guard(mutex_);
    return static_cast<int>(connections_.size());
}

int ScriptedPeer::mostConnections() const
{
    const std::lock_guard guard(mutex_);
    return mostOpen_;
}

bool ScriptedPeer::drop(int connection, Reply::Then how)
{
    std::unique_lock lock(mutex_);
    const auto found = std::find_if(connections_.begin(), connections_.end(),
                                    [&](const Connection &c) { return c.number == connection; });
    if (found == connections_.end() || !found->open) {
        return false;
    }
    found->end = how;
    shutdown(found->fd, SHUT_RD);  // wakes its thread, which then closes
    return changed_.wait_for(lock, kDropDeadline, [&] { return !found->open; });
}

std::string exchange(std::uint16_t port, const std::string &request,
                     std::chrono::milliseconds timeout)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    set(fd, SOL_SOCKET, SO_RCVTIMEO,
        timeval{timeout.count() / 1000, timeout.count() % 1000 * 1000});
    std::string reply;
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
        char block[8192];
        ssize_t got = 0;
        while ((got = recv(fd, block, sizeof block, 0)) > 0) {
            reply.append(block, static_cast<std::size_t>(got));
        }
    }
    close(fd);
    return reply;
}
