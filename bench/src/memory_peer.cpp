// An HTTP server that answers from memory, for measuring its clients. It answers as fast as it can;
// with --delay, MS milliseconds after each request.
//
//     memory_peer [--delay MS] [--size BYTES] [--tags T] [--pages N] [--links K] [--known M]
//     [--names A]
//                 [--chunk BYTES]
//
// Listens on a free port of 127.0.0.1, which it prints, until it is killed. A target that ends in
// ".html" is a page; its number n is the last number in the target. It has links to pages n*K+1 to
// n*K+K, as far as these are below N, and always to itself and to page 0, each written as
// "page-0000000042.html". With --known it has links to M pages before it instead of the last two, M
// different ones if there are as many, and as much text without tags as makes it BYTES bytes long.
//
// Any other target is a text of BYTES bytes. With --tags it is HTML instead, with T tags, none of
// which can be a link.
//
// With --chunk, an answer to a request of HTTP/1.1 comes in chunks of this size.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <string>
#include <string_view>

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::int64_t delay = 0;
    std::int64_t size = 8192;
    std::int64_t pages = 0;
    std::int64_t tags = 0;
    std::int64_t links = 10;
    std::int64_t known = 0;
    std::int64_t names = 0;
    std::int64_t chunk = 0;
};

std::int64_t lastNumber(std::string_view text)
{
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto end = std::find_if(text.rbegin(), text.rend(), isDigit);
    const auto begin = std::find_if_not(end, text.rend(), isDigit);
    std::int64_t number = 0;
    std::from_chars(begin.base(), end.base(), number);
    return number;
}

std::string inChunks(std::string_view body, std::size_t most)
{
    std::string text;
    while (!body.empty()) {
        const std::string_view chunk = body.substr(0, most);
        std::array<char, 24> size{};
        std::snprintf(size.data(), size.size(), "%zx\r\n", chunk.size());
        text.append(size.data()).append(chunk).append("\r\n");
        body.remove_prefix(chunk.size());
    }
    return text.append("0\r\n\r\n");
}

// Chunks of this size, or a length if it is 0.
std::string answer(std::string_view type, std::string_view body, std::int64_t chunk)
{
    std::string text = "HTTP/1.1 200 OK\r\nContent-Type: ";
    text.append(type).append("\r\nCache-Control: max-age=3600\r\nConnection: keep-alive\r\n");
    if (chunk > 0) {
        text.append("Transfer-Encoding: chunked\r\n\r\n");
        return text.append(inChunks(body, static_cast<std::size_t>(chunk)));
    }
    text.append("Content-Length: ").append(std::to_string(body.size())).append("\r\n\r\n");
    return text.append(body);
}

// Appends words until the body has so many bytes.
void addText(std::string *body, std::size_t size)
{
    constexpr std::string_view words = "the quick brown fox jumps over the lazy dog and rests ";
    while (body->size() < size) {
        body->append(words.substr(0, size - body->size()));
    }
}

// Appends as many tags as are wanted, at equal distances, with text between them, until the body
// has so many bytes.
void addTags(std::string *body, std::int64_t count, std::int64_t size)
{
    constexpr std::array<std::string_view, 10> tags = {
        "<p>",  "<b>",          "</b>",  "<br>",  "</p>",
        "<tr>", "<td class=n>", "</td>", "</tr>", "<a name=n>"};
    const auto before = static_cast<std::int64_t>(body->size());
    for (std::int64_t i = 0; i < count; ++i) {
        body->append(tags[static_cast<std::size_t>(i) % tags.size()]);
        addText(body, static_cast<std::size_t>(before + (size - before) * (i + 1) / count));
    }
    addText(body, static_cast<std::size_t>(size));
}

void addAnchor(std::string *page, std::string_view attribute, std::int64_t number)
{
    std::array<char, 32> target{};
    std::snprintf(target.data(), target.size(), "page-%010ld.html", number);
    page->append("<p><a ").append(attribute).append("=\"").append(target.data());
    page->append("\">page</a> and text\n");
}

void addLink(std::string *page, std::int64_t number)
{
    addAnchor(page, "href", number);
}

// Links to pages before this one, which a client that asks for the pages in their order has seen.
void addKnown(std::string *body, std::int64_t number, std::int64_t count)
{
    const std::int64_t step = number / count + 1;
    for (std::int64_t i = 0; i < count; ++i) {
        addLink(body, i * step % (number + 1));
    }
}

std::string object(const Options &options)
{
    std::string body;
    addTags(&body, options.tags, options.size);
    return body;
}

std::string page(const Options &options, std::int64_t number)
{
    std::string body = "<html><head><title>A page</title></head><body>\n";
    const std::int64_t first = number * options.links + 1;
    for (std::int64_t i = first; i < std::min(first + options.links, options.pages); ++i) {
        addLink(&body, i);
    }
    if (options.known > 0) {
        addKnown(&body, number, options.known);
        for (std::int64_t i = 0; i < options.names; ++i) {
            addAnchor(&body, "name", i);
        }
        addTags(&body, options.tags, options.size);
    } else {
        addLink(&body, number);
        addLink(&body, 0);
    }
    return body.append("</body></html>\n");
}

struct Connection {
    std::string input;
    std::string output;    // what the socket has not taken yet
    std::uint64_t serial;  // unique, while the system reuses the descriptor
};

struct Answer {
    Clock::time_point due;
    int descriptor;
    std::uint64_t serial;
    std::string text;
};

class Server {
public:
    Server(int listener, const Options &options)
        : options_(options),
          listener_(listener),
          epoll_(epoll_create1(EPOLL_CLOEXEC)),
          object_(object(options))
    {
        watch(EPOLL_CTL_ADD, listener_, EPOLLIN);
    }

    [[noreturn]] void run()
    {
        for (;;) {
            std::array<epoll_event, 64> events{};
            const int count = wait(&events);
            for (int i = 0; i < count; ++i) {
                handle(events[static_cast<std::size_t>(i)]);
            }
            // Send one response at a time: a request that has arrived meanwhile must not wait for
            // many others, because its delay begins when it is read.
            if (!later_.empty() && later_.front().due <= Clock::now()) {
                sendNext();
            }
        }
    }

private:
    void watch(int operation, int descriptor, std::uint32_t events) const
    {
        epoll_event event{};
        event.events = events;
        event.data.fd = descriptor;
        epoll_ctl(epoll_, operation, descriptor, &event);
    }

    template <std::size_t N>
    int wait(std::array<epoll_event, N> *events) const
    {
        if (later_.empty()) {
            return epoll_wait(epoll_, events->data(), N, -1);
        }
        const auto left = std::max(later_.front().due - Clock::now(), Clock::duration::zero());
        const timespec limit = {.tv_sec = left / std::chrono::seconds(1),
                                .tv_nsec = (left % std::chrono::seconds(1)).count()};
        return epoll_pwait2(epoll_, events->data(), N, &limit, nullptr);
    }

    void handle(const epoll_event &event)
    {
        if (event.data.fd == listener_) {
            accept();
            return;
        }
        Connection *const connection = &connections_[event.data.fd];
        if ((event.events & EPOLLOUT) != 0) {
            send(event.data.fd, connection, {});
        }
        if ((event.events & ~EPOLLOUT) != 0 && !receive(event.data.fd, connection)) {
            connections_.erase(event.data.fd);
            close(event.data.fd);
        }
    }

    void sendNext()
    {
        const Answer &next = later_.front();
        const auto found = connections_.find(next.descriptor);
        if (found != connections_.end() && found->second.serial == next.serial) {
            send(next.descriptor, &found->second, next.text);
        }
        later_.pop_front();
    }

    void accept()
    {
        const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (descriptor >= 0) {
            const int on = 1;
            setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            connections_[descriptor] = {.input = {}, .output = {}, .serial = ++serial_};
            watch(EPOLL_CTL_ADD, descriptor, EPOLLIN);
        }
    }

    // Answers each complete request. False when the client has closed the connection.
    bool receive(int descriptor, Connection *connection)
    {
        std::array<char, 65536> block;
        const ssize_t count = read(descriptor, block.data(), block.size());
        if (count <= 0) {
            return false;
        }
        std::string &input =
            connection->input.append(block.data(), static_cast<std::size_t>(count));
        for (std::size_t end = input.find("\r\n\r\n"); end != std::string::npos;
             end = input.find("\r\n\r\n")) {
            respond(descriptor, connection, std::string_view(input).substr(0, input.find('\r')));
            input.erase(0, end + 4);
        }
        return true;
    }

    std::string answerTo(std::string_view line) const
    {
        const std::size_t begin = line.find(' ') + 1;
        const std::string_view target = line.substr(begin, line.find(' ', begin) - begin);
        const std::int64_t chunk = line.ends_with("HTTP/1.1") ? options_.chunk : 0;
        if (target.ends_with(".html")) {
            return answer("text/html", page(options_, lastNumber(target)), chunk);
        }
        return answer(options_.tags > 0 ? "text/html" : "text/plain", object_, chunk);
    }

    void respond(int descriptor, Connection *connection, std::string_view line)
    {
        const std::string text = answerTo(line);
        if (options_.delay == 0) {
            send(descriptor, connection, text);
            return;
        }
        later_.push_back({.due = Clock::now() + std::chrono::milliseconds(options_.delay),
                          .descriptor = descriptor,
                          .serial = connection->serial,
                          .text = text});
    }

    void send(int descriptor, Connection *connection, std::string_view text)
    {
        const bool waited = !connection->output.empty();
        connection->output.append(text);
        const ssize_t count =
            ::send(descriptor, connection->output.data(), connection->output.size(), MSG_NOSIGNAL);
        connection->output.erase(0, count > 0 ? static_cast<std::size_t>(count) : 0);
        const bool waits = !connection->output.empty();
        if (waits != waited) {
            watch(EPOLL_CTL_MOD, descriptor, waits ? EPOLLIN | EPOLLOUT : EPOLLIN);
        }
    }

    const Options options_;
    const int listener_;
    const int epoll_;
    const std::string object_;
    std::map<int, Connection> connections_;
    std::deque<Answer> later_;  // in the order in which they are due, as all have the same delay
    std::uint64_t serial_ = 0;
};

// Makes a socket that listens on a free port, and prints the port. -1 on failure.
int listenSomewhere()
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto *const generic = reinterpret_cast<sockaddr *>(&address);
    if (bind(listener, generic, length) != 0 || listen(listener, 1024) != 0 ||
        getsockname(listener, generic, &length) != 0) {
        return -1;
    }
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return listener;
}

bool readOptions(int argc, char **argv, Options *options)
{
    const std::map<std::string_view, std::int64_t *> names = {
        {"--delay", &options->delay}, {"--size", &options->size},   {"--tags", &options->tags},
        {"--pages", &options->pages}, {"--links", &options->links}, {"--known", &options->known},
        {"--names", &options->names}, {"--chunk", &options->chunk}};
    for (int i = 1; i < argc; i += 2) {
        const auto found = names.find(argv[i]);
        if (found == names.end() || i + 1 == argc) {
            return false;
        }
        *found->second = std::atoll(argv[i + 1]);
    }
    return true;
}

}  // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!readOptions(argc, argv, &options)) {
        std::fputs(
            "usage: memory_peer [--delay MS] [--size BYTES] [--tags T] [--pages N]"
            " [--links K] [--known M] [--names A] [--chunk BYTES]\n",
            stderr);
        return 2;
    }
    const int listener = listenSomewhere();
    if (listener < 0) {
        std::perror("memory_peer");
        return 1;
    }
    Server(listener, options).run();
}
