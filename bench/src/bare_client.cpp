// Shows the maximum speed that clients of a proxy can reach: it sends the same kind of requests and
// reads the responses, and does nothing else.
//
//     bare_client HOST:PORT CLIENTS <URLS
//
// Each client is a thread with one persistent connection; it requests the next URL of the list
// until none is left. Prints how many responses had status 200. The exit status is 1 if a response
// was incomplete or had no Content-Length, or if the address is unknown; 2 for wrong arguments.
#include <netdb.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

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

struct Work {
    addrinfo *proxy = nullptr;
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

void compose(std::string *request, std::string_view url)
{
    const std::string_view rest = url.substr(url.find("://") + 3);
    request->assign("GET ").append(url).append(" HTTP/1.0\r\nHost: ");
    request->append(rest.substr(0, rest.find('/')));
    request->append("\r\nCache-Control: max-age=0\r\nConnection: Keep-alive\r\n\r\n");
}

// The value of Content-Length; -1 if there is none.
std::int64_t contentLength(std::string_view headers)
{
    constexpr std::string_view name = "\r\ncontent-length: ";
    for (std::size_t at = headers.find("\r\n"); at != std::string_view::npos;
         at = headers.find("\r\n", at + 2)) {
        const std::string_view line = headers.substr(at);
        if (line.size() > name.size() && strncasecmp(line.data(), name.data(), name.size()) == 0) {
            std::int64_t length = -1;
            std::from_chars(line.data() + name.size(), line.data() + line.size(), length);
            return length;
        }
    }
    return -1;
}

// Sends the request and reads the whole response. Returns its status; 0 if it was incomplete or had
// no Content-Length.
int exchange(int descriptor, const std::string &request)
{
    std::array<char, kBlock> block;
    if (send(descriptor, request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size())) {
        return 0;
    }
    std::size_t size = 0;
    std::size_t end = std::string_view::npos;
    while (end == std::string_view::npos) {
        const ssize_t count = recv(descriptor, block.data() + size, block.size() - size, 0);
        if (count <= 0) {
            return 0;
        }
        size += static_cast<std::size_t>(count);
        end = std::string_view(block.data(), size).find("\r\n\r\n");
    }
    const std::int64_t length = contentLength(std::string_view(block.data(), end));
    std::int64_t left = length - static_cast<std::int64_t>(size - end - 4);
    int status = 0;
    std::from_chars(block.data() + std::string_view("HTTP/1.1 ").size(), block.data() + end,
                    status);
    while (left > 0) {
        const ssize_t count = recv(descriptor, block.data(), block.size(), 0);
        if (count <= 0) {
            return 0;
        }
        left -= count;
    }
    return length >= 0 && left == 0 ? status : 0;
}

void runClient(Work *work)
{
    std::string request;
    std::size_t succeeded = 0;
    int descriptor = connectTo(*work->proxy);
    for (std::size_t i = work->next++; i < work->urls.size(); i = work->next++) {
        compose(&request, work->urls[i]);
        const int status = exchange(descriptor, request);
        succeeded += status == 200 ? 1 : 0;
        if (status == 0) {
            work->failed = true;
            close(descriptor);
            descriptor = connectTo(*work->proxy);
        }
    }
    close(descriptor);
    work->succeeded += succeeded;
}

}  // namespace

int main(int argc, char **argv)
{
    const std::string_view address(argc == 3 ? argv[1] : "");
    const std::size_t colon = address.rfind(':');
    const int clients = argc == 3 ? std::atoi(argv[2]) : 0;
    if (colon == std::string_view::npos || clients < 1) {
        std::fputs("usage: bare_client HOST:PORT CLIENTS <URLS\n", stderr);
        return 2;
    }
    Work work;
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
