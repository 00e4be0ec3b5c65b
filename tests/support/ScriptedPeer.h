// An HTTP peer on a free loopback port that sends what the test wants and records each request.
// Each connection has its own thread: it reads a request head, records it, asks the handler for the
// reply, plays it, and reads on. All functions may be called from any thread.
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

// The answer to one request: the pieces in order, then what happens to the connection.
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
    int again = 0;  // how often the last piece is repeated while the client accepts it

    // A 200 with a length that keeps the connection.
    static Reply ok(const std::string &body = "ok", const std::string &type = "text/plain");
    static Reply html(const std::string &body = "page") { return ok(body, "text/html"); }
    // Another status without a body; `status` may continue with header lines.
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

    // Without a handler no connection is accepted, and the backlog holds only one. Without a port
    // it takes a free one.
    explicit ScriptedPeer(Handler handler, std::uint16_t port = 0);
    // Replies by request target: several are sent in turn and the last is repeated; every other
    // target gets Reply::ok().
    explicit ScriptedPeer(const std::multimap<std::string, Reply> &table = {});
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer &) = delete;
    ScriptedPeer &operator=(const ScriptedPeer &) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }
    [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

    // The requests so far, in the order of their arrival.
    [[nodiscard]] std::vector<Request> requests() const;
    [[nodiscard]] std::vector<std::string> targets() const;
    // The targets without "http://h", separated by blanks.
    [[nodiscard]] std::string asked() const;
    // False at the deadline.
    [[nodiscard]] bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const;

    [[nodiscard]] int connections() const { return accepted_; }      // since the start
    [[nodiscard]] int mostConnections() const { return mostOpen_; }  // at one time

private:
    struct Connection {
        explicit Connection(int socket) : fd(socket) {}
        int fd;  // -1 once it is closed
        std::thread thread;
    };

    void acceptAll();
    void serve(Connection &connection);
    static void play(int fd, const Reply &reply);
    Request record(const std::string &head);

    const Handler handler_;
    const int listener_;
    std::uint16_t port_ = 0;

    mutable std::mutex mutex_;  // guards the next three
    mutable std::condition_variable arrived_;
    std::vector<Request> requests_;
    std::deque<Connection> connections_;  // elements keep their address; joined at the end

    std::atomic<int> accepted_ = 0;
    std::atomic<int> open_ = 0;
    std::atomic<int> mostOpen_ = 0;
    std::thread acceptor_;
};
