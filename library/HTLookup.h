// Looking up a name for no longer than the caller wants to wait.
//
// The resolver cannot be told how long it may take, so it works on a thread of its own. Who does
// not want to wait any more goes on without it; the thread ends later, and nobody gets its result.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <memory>

// Looks up the address of `family` (AF_INET or AF_INET6) of `name`, as HTParseInet() and
// HTParseInet6() do; without a port in `name` it gets `port`, in network order. The family of the
// result is AF_UNSPEC when there is none. Blocks for as long as the resolver does. Any thread.
[[nodiscard]] sockaddr_storage HTLookUp(const char *name, sa_family_t family, in_port_t port);

struct HTLookupJob;

// One look-up. It belongs to the thread that made it.
class HTLookup {
public:
    // Begins to look up what HTLookUp() does. An address needs no resolver, and is read at once.
    // While kMost threads are in the resolver, or no thread can be started, the look-up has to wait
    // for that within wait().
    HTLookup(const char *name, sa_family_t family, in_port_t port);
    ~HTLookup();
    HTLookup(const HTLookup &) = delete;
    HTLookup &operator=(const HTLookup &) = delete;

    // Waits for the end of the look-up, for up to `milliseconds`. True when it has ended.
    [[nodiscard]] bool wait(std::int32_t milliseconds);

    // The address; its family is AF_UNSPEC when there is none, or while the look-up goes on.
    [[nodiscard]] sockaddr_storage address() const;

    // Most threads of the process in the resolver at a time.
    static constexpr std::int32_t kMost = 100;
    // How many there are now.
    [[nodiscard]] static std::int32_t working();

private:
    std::shared_ptr<HTLookupJob> job_;
    bool isStarted_ = false;
};
