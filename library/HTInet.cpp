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
