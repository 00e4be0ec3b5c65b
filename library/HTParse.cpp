#include "HTParse.h"

#include <strings.h>

#include <cstring>

namespace {

constexpr std::size_t kFirstSchemeColon = 2;

// Cuts the scheme off into `access`. Returns the place behind it, `buffer` itself without a scheme.
char *cutScheme(char *buffer, char **access)
{
    char *rest = buffer;
    for (char *at = buffer + std::strcspn(buffer, ":/#"); *at == ':';
         at += 1 + std::strcspn(at + 1, ":/#")) {
        if (static_cast<std::size_t>(at - buffer) < kFirstSchemeColon) {
            continue;
        }
        *at = '\0';
        char *const scheme = rest;
        rest = at + 1;
        if (strcasecmp(scheme, "URL") != 0) {
            *access = scheme;
            break;
        }
    }
    return rest;
}

// Cuts the URL at its first '#'.
char *cutAnchor(char *buffer, std::size_t length)
{
    char *anchor = nullptr;
    for (char *at = buffer + length; at-- != buffer;) {
        if (*at == '#') {
            *at = '\0';
            anchor = at + 1;
        }
    }
    return anchor;
}

// `rest` begins with "//": the host, and the path behind it.
void cutHost(char *rest, HTURIParts *parts)
{
    *rest = '\0';
    parts->host = rest + 2;
    char *const slash = std::strchr(parts->host, '/');
    if (slash != nullptr) {
        *slash = '\0';
        parts->absolute = slash + 1;
    }
}

}  // namespace

void HTParse_scan(char *buffer, HTURIParts *parts, std::size_t length)
{
    *parts = {};
    char *const rest = cutScheme(buffer, &parts->access);
    parts->anchor = cutAnchor(buffer, length);
    if (rest[0] == '/' && rest[1] == '/' && parts->access != nullptr) {
        cutHost(rest, parts);
    } else if (rest[0] == '/') {
        parts->absolute = rest + 1;
    } else if (rest[0] != '\0') {
        parts->relative = rest;
    }
}
