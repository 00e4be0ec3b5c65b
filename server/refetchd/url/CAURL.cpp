#include "url/CAURL.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
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

bool isThere(std::string_view part)
{
    return part.data() != nullptr;
}

bool differ(std::string_view a, std::string_view b)
{
    return isThere(a) && isThere(b) && a != b;
}

// The host without the scheme's default port.
std::string_view withoutPort(std::string_view host, std::string_view protocol)
{
    const std::size_t colon = host.find(':');
    if (colon == std::string_view::npos) {
        return host;
    }
    const std::string_view port = host.substr(colon);
    for (const DefaultPort &row : kDefaultPorts) {
        if (row.protocol == protocol && (row.port.empty() || row.port == port)) {
            return host.substr(0, colon);
        }
    }
    // Surprising but wanted: in "h.:8080" the port is cut together with the dot before it.
    return colon > 0 && host[colon - 1] == '.' ? host.substr(0, colon - 1) : host;
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

// A path without its leading "/".
struct JoinedPath {
    std::string_view kept = {};  // of the page's path
    std::string_view rest = {};
};

// `page` is the directory of the path `related.absolute`.
JoinedPath joinPath(const HTURIViews &given, const HTURIViews &related, std::string_view page)
{
    if (isThere(given.absolute)) {
        return {.rest = given.absolute};
    }
    if (!isThere(related.absolute)) {
        return {.rest = isThere(given.relative) ? given.relative : related.relative};
    }
    if (!isThere(given.relative)) {
        return {.rest = related.absolute};
    }
    return {.kept = page, .rest = given.relative};
}

// Writes the path into the pool, simplified. Null when memory is out.
std::string_view simplified(const JoinedPath &path, HTPool *pool)
{
    const std::size_t length = 1 + path.kept.size() + path.rest.size();
    char *const text = static_cast<char *>(pool->alloc(length + 1));
    if (text == nullptr) {
        return {};
    }
    text[0] = '/';
    char *const end = std::copy(path.rest.begin(), path.rest.end(),
                                std::copy(path.kept.begin(), path.kept.end(), text + 1));
    *end = '\0';
    return {text, HTSimplify(text, length, pool)};
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
    const char *const mark = std::strchr(text, '/') - 1;
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

CALinkBase::CALinkBase(const char *text) : text_(text), parts_(HTParse_split(text))
{
    directory_ = parts_.absolute.substr(0, keptLength(parts_.absolute));
}

CALinkBase::CALinkBase(const CAURL &page) : CALinkBase(page.stringitize())
{
    depth_ = page.depth();
    source_ = page.source();
}

CAURL::CAURL(const char *name)
{
    static const CALinkBase nothing("");
    parseMe(name, nothing);
}

CAURL::CAURL(const char *name, const char *base)
{
    parseMe(name, CALinkBase(base));
    CATrace("URL......... [n+n] \"%s\" + \"%s\" --> \"%s\".\n", name, base, stringitize());
}

CAURL::CAURL(const char *name, const CAURL *parent) : CAURL(name, CALinkBase(*parent)) {}

CAURL::CAURL(const char *name, const CALinkBase &page) : depth_(page.depth_)
{
    setSource(page.source_);
    parseMe(name, page);
    CATrace("URL......... [n+u] \"%s\" + \"%s\" --> \"%s\".\n", name, page.text_, stringitize());
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

// As the heap's own: the process ends if memory is out.
void *CAURL::operator new(std::size_t /*size*/)
{
    void *const record = HTRecord_new();
    return record != nullptr ? record : ::operator new(SIZE_MAX);
}

void CAURL::operator delete(void *record)
{
    HTRecord_delete(record);
}

CAURL::~CAURL()
{
    HTShared_release(text_);
}

void CAURL::parseMe(std::string_view name, const CALinkBase &base)
{
    HTPool *const pool = &HTThread_context()->pool;
    const HTPoolScope scope(pool);
    const HTURIViews given = HTParse_split(name);
    HTURIViews related = base.parts_;

    const std::string_view protocol = isThere(given.access) ? given.access : related.access;
    if (differ(given.access, related.access)) {
        related = HTURIViews{};  // nothing is inherited across schemes
    }
    const std::string_view host =
        withoutPort(isThere(given.host) ? given.host : related.host, protocol);
    if (isThere(given.host) && differ(host, related.host)) {
        related.absolute = {};
        related.relative = {};
    }

    const std::string_view path = simplified(joinPath(given, related, base.directory_), pool);
    if (!isThere(path)) {
        return;
    }
    CATrace("Simplify.... path down to \"%s\".\n", path.data());
    text_ = newText(protocol, host, path);
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
