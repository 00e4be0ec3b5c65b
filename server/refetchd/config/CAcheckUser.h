// As whom refetchd-check judges: whether a file can be written, and where the report is, depends on
// the user and the locale.
#pragma once

#include <cstdint>
#include <vector>

enum class CAJudge : std::uint8_t {
    Caller,     // another configuration, or another user
    Service,    // the package's user, with a configuration of its services
    AsService,  // the same, and it was root until this call
};

// Looks at the configuration files (none: the default one) and at the user. If root asks about a
// configuration of the services of the Debian package, the process becomes the user of these
// services, for good, and the locale is theirs. It stays root if that user does not exist, or
// (reported) if the system does not allow the change. Call before the configuration is read, with
// no other thread.
[[nodiscard]] CAJudge CAChooseJudge(const std::vector<const char *> &files);

// The line that says so.
inline constexpr const char *kAsService = "As the service: user refetchd, locale en_US.UTF-8";
