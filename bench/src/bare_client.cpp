// Shows the maximum speed that clients of a proxy can reach: it sends the same kind of requests and
// reads the responses, and does nothing else.
//
//     bare_client [--http11] HOST:PORT CLIENTS <URLS
//
// Each client is a thread with one persistent connection; it requests the next URL of the list
// until none is left. Requests are HTTP/1.0; with --http11 they are HTTP/1.1, so that responses may
// be chunked, and have the headers of refetchd's. Prints how many responses had status 200. The
// exit status is 1 if a response was incomplete, neither chunked nor with a Content-Length, or
// followed by more than it announced, or if the address is unknown; 2 for wrong arguments.
#include <netdb.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kBlock = 16384;
constexpr std::string_view kVersion11 = "HTTP/1.1";

struct Work {
    addrinfo *proxy = nullptr;
    std::string_view version;
    std::vector<std::string_view> urls;
    std::atomic<std::size_t> next{0};
    std::atomic<std::size_t> succeeded{0};
    std::atomic<bool> failed{false};
};

int connectTo(const addrinfo &peer)
{
    const timeval longestWait = {.tv_sec = 30, .tv_usec = 0};
    const int descriptor = socket(peer.ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &longestWait, sizeof longestWait) != 0 ||
        connect(descriptor, peer.ai_addr, peer.ai_addrlen) != 0) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

// A connection that is read through a buffer.
class Connection {
public:
    explicit Connection(const addrinfo &peer) : descriptor_(connectTo(peer)) {}
    ~Connection() { close(descriptor_); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    void reopen(const addrinfo &peer)
    {
        close(descriptor_);
        descriptor_ = connectTo(peer);
        unread_ = {};
    }

    bool send(std::string_view request) const
    {
        return ::send(descriptor_, request.data(), request.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(request.size());
    }

    // Sets "line" to the next line without its CR LF, in the buffer. False if the connection ends
    // before, or the line does not fit into the buffer.
    bool readLine(std::string_view *line)
    {
        std::size_t end = unread_.find("\r\n");
        while (end == std::string_view::npos) {
            if (!receive()) {
                return false;
            }
            end = unread_.find("\r\n");
        }
        *line = unread_.substr(0, end);
        unread_.remove_prefix(end + 2);
        return true;
    }

    bool skip(std::uint64_t count)
    {
        while (count > unread_.size()) {
            count -= unread_.size();
            unread_ = {};
            if (!receive()) {
                return false;
            }
        }
        unread_.remove_prefix(count);
        return true;
    }

    bool hasUnread() const { return !unread_.empty(); }

private:
    // Appends what arrives next to what is unread.
    bool receive()
    {
        const std::size_t kept = unread_.size();
        std::copy(unread_.begin(), unread_.end(), block_.begin());
        const ssize_t count = recv(descriptor_, block_.data() + kept, block_.size() - kept, 0);
        unread_ = {block_.data(), kept + static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
        return count > 0;
    }

    int descriptor_;
    std::array<char, kBlock> block_{};
    std::string_view unread_;  // part of block_
};

void compose(std::string *request, std::string_view url, std::string_view version)
{
    const std::string_view rest = url.substr(url.find("://") + 3);
    request->assign("GET ").append(url).append(" ").append(version);
    request->append("\r\nHost: ").append(rest.substr(0, rest.find('/')));
    if (version == kVersion11) {
        // The proxy spends time on each header, so these requests are as long as refetchd's.
        request->append("\r\nAccept: text/html, */*; q=0.10");
        request->append("\r\nUser-Agent: Mozilla/4.0 (emulation; QRX BUG)");
    }
    request->append("\r\nCache-Control: max-age=0\r\nConnection: Keep-alive\r\n\r\n");
}

// Reads a number at the beginning of the text. False if there is none.
template <typename Number>
bool parse(std::string_view text, Number *number, int base = 10)
{
    return std::from_chars(text.data(), text.data() + text.size(), *number, base).ec == std::errc();
}

struct Head {
    int status = 0;
    std::int64_t length = -1;  // -1: not announced
    bool chunked = false;
};

bool readHead(Connection *connection, Head *head)
{
    constexpr std::string_view version = "HTTP/1.1 ";
    constexpr std::string_view length = "Content-Length: ";
    constexpr std::string_view coding = "Transfer-Encoding: chunked";
    const auto startsWith = [](std::string_view line, std::string_view name) {
        return line.size() >= name.size() &&
               strncasecmp(line.data(), name.data(), name.size()) == 0;
    };
    std::string_view line;
    if (!connection->readLine(&line) || line.size() < version.size() ||
        !parse(line.substr(version.size()), &head->status)) {
        return false;
    }
    while (connection->readLine(&line)) {
        if (line.empty()) {
            return true;
        }
        head->chunked = head->chunked || startsWith(line, coding);
        if (startsWith(line, length) && !parse(line.substr(length.size()), &head->length)) {
            return false;
        }
    }
    return false;
}

// Reads chunks up to the last one, which is empty, and the trailers after it.
bool skipChunks(Connection *connection)
{
    constexpr int hexadecimal = 16;
    std::string_view line;
    std::uint64_t size = 0;
    do {
        if (!connection->readLine(&line) || !parse(line, &size, hexadecimal)) {
            return false;
        }
        if (size > 0 &&
            (!connection->skip(size) || !connection->readLine(&line) || !line.empty())) {
            return false;
        }
    } while (size > 0);
    while (connection->readLine(&line)) {
        if (line.empty()) {
            return true;
        }
    }
    return false;
}

// Sends the request and reads the whole response. Returns its status; 0 if it was incomplete, its
// end was not announced, or there was more than announced.
int exchange(Connection *connection, const std::string &request)
{
    Head head;
    if (!connection->send(request) || !readHead(connection, &head)) {
        return 0;
    }
    const bool complete =
        head.chunked
            ? skipChunks(connection)
            : head.length >= 0 && connection->skip(static_cast<std::uint64_t>(head.length));
    return complete && !connection->hasUnread() ? head.status : 0;
}

void runClient(Work *work)
{
    std::string request;
    std::size_t succeeded = 0;
    Connection connection(*work->proxy);
    for (std::size_t i = work->next++; i < work->urls.size(); i = work->next++) {
        compose(&request, work->urls[i], work->version);
        const int status = exchange(&connection, request);
        succeeded += status == 200 ? 1 : 0;
        if (status == 0) {
            work->failed = true;
            connection.reopen(*work->proxy);
        }
    }
    work->succeeded += succeeded;
}

}  // namespace

int main(int argc, char **argv)
{
    const bool http11 = argc > 1 && std::string_view(argv[1]) == "--http11";
    const int first = http11 ? 2 : 1;
    const std::string_view address(argc == first + 2 ? argv[first] : "");
    const std::size_t colon = address.rfind(':');
    const int clients = argc == first + 2 ? std::atoi(argv[first + 1]) : 0;
    if (colon == std::string_view::npos || clients < 1) {
        std::fputs("usage: bare_client [--http11] HOST:PORT CLIENTS <URLS\n", stderr);
        return 2;
    }
    Work work;
    work.version = http11 ? kVersion11 : "HTTP/1.0";
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    if (getaddrinfo(std::string(address.substr(0, colon)).c_str(), address.data() + colon + 1,
                    &hints, &work.proxy) != 0) {
        std::fputs("bare_client: the proxy's address is unknown\n", stderr);
        return 1;
    }
    std::string list;
    std::getline(std::cin, list, '\0');
    for (std::size_t at = 0, end = 0; (end = list.find('\n', at)) != std::string::npos;
         at = end + 1) {
        work.urls.push_back(std::string_view(list).substr(at, end - at));
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back(runClient, &work);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    freeaddrinfo(work.proxy);
    std::printf("%zu\n", work.succeeded.load());
    return work.failed ? 1 : 0;
}
