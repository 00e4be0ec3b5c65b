// A real Squid on a free loopback port: configuration, logs and pid file in a directory of its own,
// the cache in memory only. It runs as a child of ours and is stopped with this object.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Process.h"
#include "TempDir.h"

class Squid {
public:
    // Throws when Squid is not installed or does not take connections within half a minute.
    Squid();
    ~Squid();
    Squid(const Squid &) = delete;
    Squid &operator=(const Squid &) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }
    // Asks for `url` as an ordinary client; the whole response.
    [[nodiscard]] std::string get(const std::string &url) const;
    [[nodiscard]] std::string accessLog() const { return dir_.read("access.log"); }

private:
    TempDir dir_;
    std::uint16_t port_ = 0;
    std::unique_ptr<Process> process_;
};
