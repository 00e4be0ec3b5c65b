// The hosts of URLs as browsers read and write them.
#pragma once

#include <optional>
#include <string_view>

#include "HTMemory.h"

// The form in which browsers ask for the host `text` of an http URL: in lower case, names beyond
// ASCII as "xn--" labels, IPv4 addresses as four decimal numbers ("0x7f.1" is 127.0.0.1), IPv6
// addresses in brackets in their shortest form. `text` is UTF-8 and may be percent-encoded; it has
// no port.
//
// The result is `text` itself or lies in the pool, without a NUL; it is never empty. Null when it
// is no host, or when memory is out. Any thread.
[[nodiscard]] std::optional<std::string_view> CAWebHost(std::string_view text, HTPool *pool);
