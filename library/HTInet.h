// Internet names: turning "host" or "host:port" into an address, and this machine's own name.
#pragma once

#include <netinet/in.h>

#include <string_view>

#include "HTWorkThread.h"

// Resolves `name` into `*address`. A ":" with a digit behind it ends the host, and the decimal
// number there becomes the port; otherwise the port in `*address` stays. A host of digits and dots
// only is read as an address; any other is resolved, which blocks for as long as the resolver does.
// Returns 0; -1, with `*address` as it was, when the host is empty or no address, when it cannot be
// resolved, or when the port is above 65535. Any thread, with its own context or null.
int HTParseInet(sockaddr_in *address, const char *name, HTThreadContext *context);

// The same for IPv6: an address must be in brackets, such as "[::1]:3128" or "[fe80::1%eth0]", and
// a name must have an IPv6 address. Returns -1 for an address of digits and dots.
int HTParseInet6(sockaddr_in6 *address, const char *name, HTThreadContext *context);

// The host in "host" or "host:port": the text before the first ":", or an address in brackets
// together with its brackets. A part of `name`. Any thread.
[[nodiscard]] std::string_view HTHostPart(std::string_view name);

// The host name of this machine: the system's, until HTSetHostName() replaces it. Never null; empty
// when there is none. Not to be freed. Any thread, also before main.
[[nodiscard]] const char *HTHostName();

// Replaces the host name; a longer one than 255 bytes is cut, null changes nothing. Call before
// threads start.
void HTSetHostName(const char *name);
