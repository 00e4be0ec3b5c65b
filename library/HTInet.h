// Internet names: turning "host" or "host:port" into an IPv4 address, and this machine's own name.
#pragma once

#include <netinet/in.h>

#include "HTWorkThread.h"

// Resolves `name` into `*address`. A ":" with a digit behind it ends the host, and the decimal
// number there becomes the port; otherwise the port in `*address` stays. A host of digits and dots
// only is taken as an address, any other is looked up, which blocks for as long as the resolver
// does. Returns 0; -1, with `*address` as it was, when the host is empty or no address, when the
// lookup fails, or when the port is above 65535. Any thread, with its own context (null: found
// out).
int HTParseInet(sockaddr_in *address, const char *name, HTThreadContext *context);

// The name this machine goes by: its own, until HTSetHostName() gives another. Never null; empty
// when there is none. The text stays ours. Any thread, also before main.
[[nodiscard]] const char *HTHostName();

// Replaces the host name; a longer one than 255 bytes is cut, null changes nothing. Call before
// threads start.
void HTSetHostName(const char *name);
