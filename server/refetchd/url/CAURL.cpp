#include "url/CAURL.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

#include "HTMemory.h"
#include "HTParse.h"
#include "HTShared.h"
#include "HTSimplify.h"
#include "HTString.h"
#include "HTWorkThread.h"
#include "base/CAtrace.h"

namespace {

constexpr const char *kSource = "server/refetchd/CAURL";  // as messages name the module

struct DefaultPort {
    std::string_view protocol;
    std::string_view port;  // with its ":"; empty: any port
};

constexpr DefaultPort kDefaultPorts[] = {
    {"http", ":80"},
    {"gopher", ":70"},
    {"file", ""},
};

bool differ(const char *a, const char *b)
{
    return a != nullptr && b != nullptr && std::strcmp(a, b) != 0;
}

// Cuts the scheme's default port off `host`, in place.
void cutPort(char *host, const char *protocol)
{
    char *const colon = std::strchr(host, ':');
    if (colon == nullptr) {
        return;
    }
    const std::string_view port(colon);
    for (const DefaultPort &row : kDefaultPorts) {
        if (protocol != nullptr && row.protocol == protocol &&
            (row.port.empty() || row.port == port)) {
            *colon = '\0';
            return;
        }
    }
    // Surprising but wanted: in "h.:8080" the port is cut together with the dot before it.
    if (colon > host && colon[-1] == '.') {
        colon[-1] = '\0';
    }
}

bool isSeparator(char c)
{
    return c == '/' || c == '\\';
}

// The length of the part of the page's path (without its leading "/") that stays in front of a
// relative link: up to and including the last separator before the query. A separator that is the
// first byte does not count.
std::size_t keptLength(std::string_view page)
{
    if (page.empty()) {
        return 0;
    }
    std::size_t at = std::min(page.find('?'), page.size() - 1);
    while (at > 0 && !isSeparator(page[at])) {
        --at;
    }
    return at == 0 ? 0 : at + 1;
}

std::string_view orEmpty(const char *text)
{
    return text == nullptr ? "" : text;
}

// Writes the joined path into `out`, beginning with "/". `out` has room for both paths, the "/" and
// a NUL.
void joinPath(const HTURIParts &given, const HTURIParts &related, char *out)
{
    std::string_view kept;
    std::string_view rest;
    if (given.absolute != nullptr) {
        rest = given.absolute;
    } else if (related.absolute == nullptr) {
        rest = orEmpty(given.relative != nullptr ? given.relative : related.relative);
    } else if (given.relative == nullptr) {
        rest = related.absolute;
    } else {
        const std::string_view page(related.absolute);
        kept = page.substr(0, keptLength(page));
        rest = given.relative;
    }
    *out++ = '/';
    out = std::copy(kept.begin(), kept.end(), out);
    out = std::copy(rest.begin(), rest.end(), out);
    *out = '\0';
}

constexpr std::string_view kHostMark = "://";
constexpr std::string_view kEnd{"\0", 1};

const char *newText(std::string_view protocol, std::string_view host, std::string_view path)
{
    const bool absolute = !protocol.empty() && !host.empty();
    const std::array<std::string_view, 5> pieces =
        absolute ? std::array{protocol, kHostMark, host, path, std::string_view()}
                 : std::array{path, kEnd, protocol, kEnd, host};
    std::size_t length = 0;
    for (const std::string_view piece : pieces) {
        length += piece.size();
    }
    char *const text = HTShared_new(length);
    if (text == nullptr) {
        HTOutOfMemory(kSource, "parseMe", __LINE__, length);
        return nullptr;
    }
    char *out = text;
    for (const std::string_view piece : pieces) {
        out = std::copy(piece.begin(), piece.end(), out);
    }
    return text;
}

// Splits a text made by newText() into its parts. Neither scheme nor host contains a "/".
CAURLParts split(const char *text)
{
    if (*text == '/') {
        const std::string_view path(text);
        const std::string_view protocol(path.data() + path.size() + 1);
        return {.protocol = protocol, .host = protocol.data() + protocol.size() + 1, .path = path};
    }
    const char *const mark = std::strstr(text, kHostMark.data());
    const char *const host = mark + kHostMark.size();
    const char *const path = std::strchr(host, '/');
    return {.protocol = {text, static_cast<std::size_t>(mark - text)},
            .host = {host, static_cast<std::size_t>(path - host)},
            .path = path};
}

const char *faultText(CAWebFault fault)
{
    switch (fault) {
    case CAWebFault::OtherScheme: return "not of the web";
    case CAWebFault::Invalid: return "not valid";
    case CAWebFault::NoMemory: return "out of memory";
    case CAWebFault::None: break;
    }
    return "";
}

}  // namespace

CAURL::CAURL(const char *name)
{
    parseMe(name, "");
}

CAURL::CAURL(const char *name, const char *base)
{
    parseMe(name, base);
    CATrace("URL......... [n+n] \"%s\" + \"%s\" --> \"%s\".\n", name, base, stringitize());
}

CAURL::CAURL(const char *name, const CAURL *parent)
    : depth_(parent->depth_), source_(parent->source_)
{
    parseMe(name, parent->stringitize());
    CATrace("URL......... [n+u] \"%s\" + \"%s\" --> \"%s\".\n", name, parent->stringitize(),
            stringitize());
}

CAURL::CAURL(const CAURLParts &parts, const CAURL &base)
    : text_(newText(parts.protocol, parts.host, parts.path)),
      depth_(base.depth_),
      source_(base.source_)
{
}

std::unique_ptr<CAURL> CAURL::fromLink(std::string_view link, const CAURL &base,
                                       const CACharset *charset)
{
    HTPool *const pool = &HTThread_context()->pool;
    const HTPoolScope scope(pool);
    const auto [fault, parts] = CAResolveWeb(link, base.parts(), pool, charset);
    if (fault != CAWebFault::None) {
        CATrace("Ignoring.... URL \"%.*s\" (%s).\n", CALength(link), link.data(), faultText(fault));
        return nullptr;
    }
    std::unique_ptr<CAURL> found(new CAURL(parts, base));
    CATrace("URL......... [n+u] \"%.*s\" + \"%s\" --> \"%s\".\n", CALength(link), link.data(),
            base.stringitize(), found->stringitize());
    return found;
}

std::unique_ptr<CAURL> CAURL::inWebForm() const
{
    HTPool *const pool = &HTThread_context()->pool;
    const HTPoolScope scope(pool);
    const auto [fault, parts] = CAResolveWeb(stringitize(), {}, pool);
    return std::unique_ptr<CAURL>(fault == CAWebFault::None ? new CAURL(parts, *this) : nullptr);
}

CAURL::~CAURL()
{
    HTShared_release(text_);
}

void CAURL::parseMe(const char *name, const char *base)
{
    HTPool *const pool = &HTThread_context()->pool;
    const HTPoolScope scope(pool);
    const std::size_t nameLength = std::strlen(name);
    const std::size_t baseLength = std::strlen(base);
    char *const givenText = pool->copy(name, nameLength);
    char *const relatedText = pool->copy(base, baseLength);
    char *const path = static_cast<char *>(pool->alloc(nameLength + baseLength + sizeof("/")));
    if (givenText == nullptr || relatedText == nullptr || path == nullptr) {
        return;
    }
    HTURIParts given{};
    HTURIParts related{};
    HTParse_scan(givenText, &given, nameLength);
    HTParse_scan(relatedText, &related, baseLength);

    const char *const protocol = given.access != nullptr ? given.access : related.access;
    if (differ(given.access, related.access)) {
        related = HTURIParts{};  // nothing is inherited across schemes
    }

    char *const host = given.host != nullptr ? given.host : related.host;
    if (host != nullptr) {
        cutPort(host, protocol);
    }
    if (differ(given.host, related.host)) {
        related.absolute = nullptr;
        related.relative = nullptr;
    }

    joinPath(given, related, path);
    HTSimplify(path, pool);
    CATrace("Simplify.... path down to \"%s\".\n", path);
    text_ = newText(orEmpty(protocol), orEmpty(host), path);
}

CAURLParts CAURL::parts() const
{
    return text_ == nullptr ? CAURLParts{.path = "/"} : split(text_);
}

std::string_view CAURL::protocol() const
{
    return parts().protocol;
}

std::string_view CAURL::host() const
{
    return parts().host;
}

const char *CAURL::path() const
{
    return parts().path.data();
}

const char *CAURL::holdText() const
{
    return HTShared_hold(text_);
}
