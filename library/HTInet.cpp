#include "HTInet.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>

#include "HTMemory.h"
#include "HTString.h"
#include "htthread.h"
#include "tfprintf.h"

namespace {

constexpr std::size_t kLookupBuffer = 4096;
constexpr std::size_t kHostNameSize = 256;
constexpr std::uint32_t kHighestPort = 65535;

// The first ':' that a digit follows; null when there is none.
char *findPort(char *name)
{
    for (char *colon = std::strchr(name, ':'); colon != nullptr;
         colon = std::strchr(colon + 1, ':')) {
        if (HTIsDigit(colon[1])) {
            return colon;
        }
    }
    return nullptr;
}

// The number at the start of `digits`, in network order; none when no port can be so high.
std::optional<in_port_t> readPort(const char *digits)
{
    std::uint32_t port = 0;
    for (; HTIsDigit(*digits); ++digits) {
        port = port * 10 + static_cast<std::uint32_t>(*digits - '0');
        if (port > kHighestPort) {
            return std::nullopt;
        }
    }
    return htons(static_cast<in_port_t>(port));
}

bool lookUp(in_addr *address, const char *host, HTThreadContext *context)
{
    char *const buffer = static_cast<char *>(context->pool.alloc(kLookupBuffer));
    if (buffer == nullptr) {
        return false;
    }
    hostent entry{};
    hostent *found = nullptr;
    int error = 0;
    const int rc = gethostbyname_r(host, &entry, buffer, kLookupBuffer, &found, &error);
    if (rc != 0 || found == nullptr || found->h_length != sizeof(in_addr) ||
        found->h_addr_list[0] == nullptr) {
        if (HTTrace_on(kTraceSocket)) {
            tfprintf(nullptr, "lookup...... for '%s' failed; h_errno=%d.\n", host, error);
        }
        return false;
    }
    context->lastLookup = HTtime();
    std::memcpy(address, found->h_addr_list[0], sizeof(in_addr));
    return true;
}

// False for an address: digits and dots, or something with a ":".
bool isName(const char *host)
{
    return host[std::strspn(host, "0123456789.")] != '\0' && std::strchr(host, ':') == nullptr;
}

bool resolve(in_addr *address, const char *host, HTThreadContext *context)
{
    if (*host == '\0') {
        return false;
    }
    if (std::strspn(host, "0123456789.") == std::strlen(host)) {
        return inet_aton(host, address) != 0;
    }
    return lookUp(address, host, context);
}

// A name, cut in two. The host is null when there is none, the port when none is named.
struct HostAndPort {
    const char *host;
    const char *port;
};

// Cuts "[address]" or "[address]:port"; no host when the text is anything else.
HostAndPort unwrap(char *name)
{
    char *const end = std::strchr(name, ']');
    if (end == nullptr || (end[1] != '\0' && (end[1] != ':' || !HTIsDigit(end[2])))) {
        return {nullptr, nullptr};
    }
    *end = '\0';
    return {name + 1, end[1] == ':' ? end + 2 : nullptr};
}

// Cuts a name for IPv6; no host when it is an address that is not in brackets.
HostAndPort split6(char *name)
{
    if (*name == '[') {
        return unwrap(name);
    }
    char *const colon = findPort(name);
    if (colon != nullptr) {
        *colon = '\0';
    }
    return {isName(name) ? name : nullptr, colon != nullptr ? colon + 1 : nullptr};
}

// Looks up the first IPv6 address of `host`, which is an address itself if `isNumeric`.
bool lookUp6(sockaddr_in6 *address, const char *host, bool isNumeric, HTThreadContext *context)
{
    addrinfo wanted{};
    wanted.ai_flags = isNumeric ? AI_NUMERICHOST : 0;
    wanted.ai_family = AF_INET6;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (const int error = getaddrinfo(host, nullptr, &wanted, &found); error != 0) {
        if (HTTrace_on(kTraceSocket)) {
            tfprintf(nullptr, "lookup...... for '%s' failed: %s.\n", host, gai_strerror(error));
        }
        return false;
    }
    if (!isNumeric) {
        context->lastLookup = HTtime();
    }
    const in_port_t port = address->sin6_port;
    std::memcpy(address, found->ai_addr, sizeof(sockaddr_in6));
    address->sin6_port = port;
    freeaddrinfo(found);
    return true;
}

void traceResolved(const sockaddr_in6 &address)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(AF_INET6, &address.sin6_addr, text.data(), text.size());
    tfprintf(nullptr, "resolved.... address [%s]:%d\n", text.data(), ntohs(address.sin6_port));
}

void traceResolved(const sockaddr_in &address)
{
    std::array<unsigned char, sizeof(in_addr)> bytes{};
    std::memcpy(bytes.data(), &address.sin_addr, bytes.size());
    tfprintf(nullptr, "resolved.... address %d.%d.%d.%d:%d\n", bytes[0], bytes[1], bytes[2],
             bytes[3], ntohs(address.sin_port));
}

using HostName = std::array<char, kHostNameSize>;

HostName machineName()
{
    HostName name{};
    if (gethostname(name.data(), name.size() - 1) != 0) {
        name.front() = '\0';
    }
    return name;
}

HostName &hostName()
{
    static HostName name = machineName();
    return name;
}

}  // namespace

int HTParseInet(sockaddr_in *address, const char *name, HTThreadContext *context)
{
    const int before = errno;  // a successful look-up may change it
    HTThreadContext *const own = context == nullptr ? HTThread_context() : context;
    const HTPoolScope scope(&own->pool);
    char *const host = own->pool.copy(name);
    if (host == nullptr) {
        return -1;
    }
    sockaddr_in result = *address;
    result.sin_family = AF_INET;
    if (char *const colon = findPort(host)) {
        const std::optional<in_port_t> port = readPort(colon + 1);
        if (!port) {
            return -1;
        }
        result.sin_port = *port;
        *colon = '\0';
    }
    if (!resolve(&result.sin_addr, host, own)) {
        return -1;
    }
    if (HTTrace_on(kTraceSocket)) {
        traceResolved(result);
    }
    *address = result;
    errno = before;
    return 0;
}

int HTParseInet6(sockaddr_in6 *address, const char *name, HTThreadContext *context)
{
    const int before = errno;  // a successful look-up may change it
    HTThreadContext *const own = context == nullptr ? HTThread_context() : context;
    const HTPoolScope scope(&own->pool);
    char *const copy = own->pool.copy(name);
    const HostAndPort parts = copy == nullptr ? HostAndPort{} : split6(copy);
    if (parts.host == nullptr) {
        return -1;
    }
    const std::optional<in_port_t> port =
        parts.port == nullptr ? address->sin6_port : readPort(parts.port);
    sockaddr_in6 result{};
    result.sin6_port = port.value_or(0);
    if (!port || !lookUp6(&result, parts.host, *name == '[', own)) {
        return -1;
    }
    if (HTTrace_on(kTraceSocket)) {
        traceResolved(result);
    }
    *address = result;
    errno = before;
    return 0;
}

std::string_view HTHostPart(std::string_view name)
{
    const std::size_t bracket = name.starts_with('[') ? name.find(']') : name.npos;
    return name.substr(0, bracket != name.npos ? bracket + 1 : name.find(':'));
}

const char *HTHostName()
{
    return hostName().data();
}

void HTSetHostName(const char *name)
{
    if (name == nullptr) {
        return;
    }
    HostName fresh{};
    std::memcpy(fresh.data(), name, strnlen(name, fresh.size() - 1));
    hostName() = fresh;
}
