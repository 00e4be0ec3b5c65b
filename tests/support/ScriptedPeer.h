// An HTTP peer on a free loopback port that sends whatever a test tells it to, and records what it
// is sent. Each connection has a thread of its own: it reads a request head, records it, asks the
// handler for the reply, plays it, and reads on. All functions may be called from any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// What the peer does about one request: the pieces in order, then what becomes of the connection.
struct Reply {
    struct Piece {
        std::string bytes;
        int pauseMs = 0;  // before the piece is sent
    };
    enum class Then : std::uint8_t {
        Keep,   // read the next request
        Close,  // close in good order
        Reset,  // close with a reset
        Stall,  // never answer again, until the client goes away or the peer is destroyed
    };
    std::vector<Piece> pieces;
    Then then = Then::Keep;

    // A 200 with a length, of type text/plain, that keeps the connection; `headers` end in CR LF.
    static Reply ok(const std::string &body = "ok", const std::string &headers = "");
    // `bytes` in pieces of `size`.
    static Reply inPieces(const std::string &bytes, std::size_t size = 1);
};

class ScriptedPeer {
public:
    using Clock = std::chrono::steady_clock;
    using Millis = std::chrono::milliseconds;

    struct Request {
        std::string bytes;  // the head, to the empty line
        std::string target;
        Clock::time_point arrival;
        int connection;  // numbered from 0 in the order they were accepted
    };
    // Called on the connection's thread, after the request was recorded; it may wait (bounded).
    using Handler = std::function<Reply(const ScriptedPeer &, const Request &)>;

    explicit ScriptedPeer(Handler handler = nullptr);  // none: Reply::ok() to everything
    // Replies by request target; Reply::ok() to every other one.
    explicit ScriptedPeer(const std::map<std::string, Reply> &table);
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer &) = delete;
    ScriptedPeer &operator=(const ScriptedPeer &) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

    // What arrived so far, in that order.
    [[nodiscard]] std::vector<Request> requests() const;
    [[nodiscard]] std::vector<std::string> targets() const;
    // False at the deadline.
    [[nodiscard]] bool waitForRequests(std::size_t count, Millis timeout) const;

    [[nodiscard]] int connections() const;      // accepted since the start
    [[nodiscard]] int mostConnections() const;  // open at one time

    // Closes or resets an idle connection and waits until that is done; false when it was not open.
    bool drop(int connection, Reply::Then how);

private:
    struct Connection {
        int number = 0;
        int fd = -1;
        bool open = true;
        Reply::Then end = Reply::Then::Close;
        std::thread thread;
    };

    void acceptAll();
    void serve(Connection &connection);
    [[nodiscard]] bool nextRequest(const Connection &connection, std::string &pending,
                                   Request &request);
    void closed(Connection &connection, Reply::Then how);

    const Handler handler_;
    const int listener_;
    std::uint16_t port_ = 0;

    mutable std::mutex mutex_;  // guards what follows, but for the acceptor
    mutable std::condition_variable changed_;
    std::vector<Request> requests_;
    std::list<Connection>
        connections_;  // records stay in place; their threads are joined at the end
    int open_ = 0;
    int mostOpen_ = 0;

    std::thread acceptor_;
};

// Sends `request` to a loopback port and returns what comes back until the peer closes, or nothing
// more comes for `timeout`. Empty when there is no connection.
std::string exchange(std::uint16_t port, const std::string &request,
                     std::chrono::milliseconds timeout);
