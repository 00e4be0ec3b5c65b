// Internet names: turning "host" or "host:port" into an IPv4 address, and this machine's own name.
#pragma once

#include <netinet/in.h>

#include "HTWorkThread.h"

// Resolves `name` into `*address`. A ":" with a digit behind it ends the host, and the decimal
// number there becomes the port; otherwise the port in `*address` stays. A host of digits and dots
// only is read as an address; any other is resolved, which blocks for as long as the resolver does.
// Returns 0; -1, with `*address` as it was, when the host is empty or no address, when it cannot be
// resolved, or when the port is above 65535. Any thread, with its own context or null.
int HTParseInet(sockaddr_in *address, const char *name, HTThreadContext *context);

// The host name of this machine: the system's, until HTSetHostName() replaces it. Never null; empty
// when there is none. Not to be freed. Any thread, also before main.
[[nodiscard]] const char *HTHostName();

// Replaces the host name; a longer one than 255 bytes is cut, null changes nothing. Call before
// threads start.
void HTSetHostName(const char *name);
