#include "ScriptedPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

Reply Reply::ok(const std::string &body, const std::string &type)
{
    return {{{"HTTP/1.0 200 OK\r\nContent-Type: " + type + "\r\nContent-Length: " +
              std::to_string(body.size()) + "\r\nConnection: keep-alive\r\n\r\n" + body}}};
}

Reply Reply::head(const std::string &status)
{
    return {{{"HTTP/1.0 " + status + "\r\nContent-Length: 0\r\n\r\n"}}};
}

ScriptedPeer::ScriptedPeer(Handler handler, std::uint16_t port)
    : handler_(std::move(handler)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    auto *const generic = reinterpret_cast<sockaddr *>(&address);
    const int on = 1;
    // Connections of a peer before at this port may linger.
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener_, generic, length) != 0 || listen(listener_, handler_ ? 256 : 0) != 0 ||
        getsockname(listener_, generic, &length) != 0) {
        throw std::runtime_error("no loopback port to listen on");
    }
    setsockopt(listener_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // what it accepts inherits it
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { acceptAll(); });
}

ScriptedPeer::ScriptedPeer(const std::multimap<std::string, Reply> &table)
    : ScriptedPeer([table](const ScriptedPeer &self, const Request &request) {
          auto [row, end] = table.equal_range(request.target);
          if (row == end) {
              return Reply::ok();
          }
          const std::vector<std::string> all = self.targets();
          const auto times = std::count(all.begin(), all.end(), request.target);
          const auto turns = std::min<std::ptrdiff_t>(times, std::distance(row, end));
          return std::next(row, turns - 1)->second;
      })
{
}

ScriptedPeer::~ScriptedPeer()
{
    shutdown(listener_, SHUT_RDWR);  // wakes the acceptor
    acceptor_.join();
    for (Connection &connection : connections_) {
        std::unique_lock lock(mutex_);
        shutdown(connection.fd, SHUT_RDWR);  // wakes its thread, unless that has closed it
        lock.unlock();
        connection.thread.join();
    }
    close(listener_);
}

void ScriptedPeer::acceptAll()
{
    int fd = -1;
    while (handler_ && (fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
        const std::lock_guard guard(mutex_);
        Connection &connection = connections_.emplace_back(fd);
        ++accepted_;
        mostOpen_ = std::max(mostOpen_.load(), ++open_);
        connection.thread = std::thread([this, &connection] { serve(connection); });
    }
}

// A send that fails shows in the next recv.
void ScriptedPeer::play(int fd, const Reply &reply)
{
    const auto send = [fd](const Reply::Piece &piece) {
        std::this_thread::sleep_for(std::chrono::milliseconds(piece.pauseMs));
        return ::send(fd, piece.bytes.data(), piece.bytes.size(), MSG_NOSIGNAL) >= 0;
    };
    std::for_each(reply.pieces.begin(), reply.pieces.end(), send);
    for (int again = 0; again < reply.again && send(reply.pieces.back()); ++again) {
    }
}

void ScriptedPeer::serve(Connection &connection)
{
    std::string pending;
    Reply::Then then = Reply::Then::Keep;
    char block[8192];
    ssize_t got = 0;
    while ((then == Reply::Then::Keep || then == Reply::Then::Stall) &&
           (got = recv(connection.fd, block, sizeof block, 0)) > 0) {
        pending.append(block, static_cast<std::size_t>(got));
        std::size_t end = 0;
        while (then == Reply::Then::Keep && (end = pending.find("\r\n\r\n")) != std::string::npos) {
            const Reply reply = handler_(*this, record(pending.substr(0, end + 4)));
            pending.erase(0, end + 4);
            play(connection.fd, reply);
            then = reply.then;
        }
    }
    const linger discard = {then == Reply::Then::Reset ? 1 : 0, 0};
    setsockopt(connection.fd, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
    const std::lock_guard guard(mutex_);
    close(std::exchange(connection.fd, -1));
    --open_;
}

ScriptedPeer::Request ScriptedPeer::record(const std::string &head)
{
    const std::size_t begin = head.find(' ') + 1;
    const std::string target = head.substr(begin, head.find(' ', begin) - begin);
    const std::lock_guard guard(mutex_);
    arrived_.notify_all();
    return requests_.emplace_back(Request{head, target, Clock::now()});
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

std::string ScriptedPeer::asked() const
{
    std::string result;
    for (const std::string &target : targets()) {
        result += (result.empty() ? "" : " ") +
                  (target.starts_with("http://h/") ? target.substr(8) : target);
    }
    return result;
}

bool ScriptedPeer::waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const
{
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return requests_.size() >= count; });
}
