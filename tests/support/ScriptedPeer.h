// An HTTP peer on a free loopback port that sends whatever a test tells it to, and records what it
// is sent. Each connection has a thread of its own: it reads a request head, records it, asks the
// handler for the reply, plays it, and reads on. All functions may be called from any thread.
#pragma once

#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
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
    static constexpr int kForEver = INT_MAX;

    std::vector<Piece> pieces;
    Then then = Then::Keep;
    int again = 0;  // so often the last piece is sent once more, while the client takes it

    // A 200 with a length that keeps the connection.
    static Reply ok(const std::string &body = "ok", const std::string &type = "text/plain");
    static Reply html(const std::string &body = "page") { return ok(body, "text/html"); }
    // Another status, with headers behind line ends, but without a body.
    static Reply head(const std::string &status);
};

class ScriptedPeer {
public:
    using Clock = std::chrono::steady_clock;

    struct Request {
        std::string bytes;  // the head, to the empty line
        std::string target;
        Clock::time_point arrival;
    };
    // Called on the connection's thread, after the request was recorded; it may wait (bounded).
    using Handler = std::function<Reply(const ScriptedPeer &, const Request &)>;

    // With none it accepts no connection; no more than one fits its backlog.
    explicit ScriptedPeer(Handler handler);
    // Replies by request target: several in turn, the last of them for ever; Reply::ok() to every
    // other target.
    explicit ScriptedPeer(const std::multimap<std::string, Reply> &table = {});
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer &) = delete;
    ScriptedPeer &operator=(const ScriptedPeer &) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

    // What arrived so far, in that order.
    [[nodiscard]] std::vector<Request> requests() const;
    [[nodiscard]] std::vector<std::string> targets() const;
    // The targets without "http://h", a blank between two.
    [[nodiscard]] std::string asked() const;
    // False at the deadline.
    [[nodiscard]] bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const;

    [[nodiscard]] int connections() const { return accepted_; }      // since the start
    [[nodiscard]] int mostConnections() const { return mostOpen_; }  // at one time

    // Closes or resets an idle connection, numbered from 0 in the order of their start, and waits
    // until that is done; false when it was not open.
    bool drop(int connection, Reply::Then how);

private:
    struct Connection {
        int fd;
        bool open = true;
        Reply::Then end = Reply::Then::Close;
        std::thread thread = {};
    };

    void acceptAll();
    void serve(Connection &connection);
    static void play(int fd, const Reply &reply);
    Request record(const std::string &head);

    const Handler handler_;
    const int listener_;
    std::uint16_t port_ = 0;

    mutable std::mutex mutex_;  // guards the next three
    mutable std::condition_variable changed_;
    std::vector<Request> requests_;
    std::deque<Connection> connections_;  // each stays in place; the threads are joined at the end

    std::atomic<int> accepted_ = 0;
    std::atomic<int> open_ = 0;
    std::atomic<int> mostOpen_ = 0;
    std::thread acceptor_;
};
