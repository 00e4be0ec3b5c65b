#include "url/CAweb.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string>

#include "HTString.h"
#include "url/CAcharset.h"
#include "url/CAwebHost.h"

namespace {

struct Scheme {
    std::string_view name;
    std::uint32_t port;
};

constexpr std::array<Scheme, 3> kSchemes = {{{"http", 80}, {"https", 443}, {"ftp", 21}}};

constexpr HTCharacterSet kSlashes("/\\");
constexpr HTCharacterSet kEndsAuthority("/\\?");
constexpr HTCharacterSet kDropped("\t\n\r");
constexpr std::size_t kEncoded = 3;  // bytes of "%20"

bool isSlash(char c)
{
    return c == '/' || c == '\\';
}

std::size_t countSlashes(std::string_view text)
{
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isSlash) -
                                    text.begin());
}

// What is percent-encoded.
constexpr HTCharacterSet kInPath = HTCharacterSet::andUnprintable(" \"#<>?^`{}");
constexpr HTCharacterSet kInQuery = HTCharacterSet::andUnprintable(" \"#<>'");

// Drops what browsers drop anywhere in a link: blanks and control characters around it, tabs and
// line ends in it, and the fragment. Null when memory is out.
std::optional<std::string_view> clean(std::string_view link, HTPool *pool)
{
    constexpr auto isBlank = [](char c) { return static_cast<unsigned char>(c) <= ' '; };
    while (!link.empty() && isBlank(link.front())) {
        link.remove_prefix(1);
    }
    while (!link.empty() && isBlank(link.back())) {
        link.remove_suffix(1);
    }
    link = link.substr(0, link.find('#'));
    if (kDropped.in(link) == link.size()) {
        return link;
    }
    char *const copy = pool->copy(link.data(), link.size());
    if (copy == nullptr) {
        return std::nullopt;
    }
    char *const end =
        std::remove_if(copy, copy + link.size(), [](char c) { return kDropped.has(c); });
    return std::string_view(copy, static_cast<std::size_t>(end - copy));
}

// scheme := letter { letter | digit | "+" | "-" | "." } ":"
// Returns its length without the ":"; 0 when the text begins with none.
std::size_t schemeLength(std::string_view text)
{
    if (text.empty() || !HTIsLetter(text.front())) {
        return 0;
    }
    const auto *const end = std::find_if_not(text.begin(), text.end(), [](char c) {
        return HTIsLetter(c) || HTIsDigit(c) || c == '+' || c == '-' || c == '.';
    });
    return end != text.end() && *end == ':' ? static_cast<std::size_t>(end - text.begin()) : 0;
}

const Scheme *findScheme(std::string_view name)
{
    const auto *const row = std::find_if(kSchemes.begin(), kSchemes.end(), [name](const Scheme &s) {
        return HTEqualsNoCase(s.name, name);
    });
    return row == kSchemes.end() ? nullptr : row;
}

// True for "." (`dots` 1) or ".." (2), each dot perhaps as "%2e".
bool isDots(std::string_view segment, std::size_t dots)
{
    for (; dots > 0 && !segment.empty(); --dots) {
        if (segment.front() == '.') {
            segment.remove_prefix(1);
        } else if (HTEqualsNoCase(segment.substr(0, kEncoded), "%2e")) {
            segment.remove_prefix(kEncoded);
        } else {
            return false;
        }
    }
    return dots == 0 && segment.empty();
}

// Builds a path in a block that is large enough for all of it.
class PathWriter {
public:
    explicit PathWriter(char *block) : begin_(block), end_(block) {}

    void copy(std::string_view text) { end_ = std::copy(text.begin(), text.end(), end_); }

    // Removes the last segment and the "/" before it.
    void shorten()
    {
        while (end_ != begin_ && *--end_ != '/') {
        }
    }

    // Adds the segments of `text` behind those that are there. A slash at its start begins the
    // first one.
    void addSegments(std::string_view text)
    {
        text.remove_prefix(!text.empty() && isSlash(text.front()) ? 1 : 0);
        for (bool isLast = false; !isLast;) {
            const std::size_t length = kSlashes.in(text);
            isLast = length == text.size();
            addSegment(text.substr(0, length), isLast);
            text.remove_prefix(isLast ? length : length + 1);
        }
    }

    void encode(std::string_view text, const HTCharacterSet &set)
    {
        for (const char c : text) {
            if (set.has(c)) {
                end_ = HTPercentEncode(c, end_);
            } else {
                *end_++ = c;
            }
        }
    }

    [[nodiscard]] std::string_view text() const
    {
        return {begin_, static_cast<std::size_t>(end_ - begin_)};
    }

private:
    void addSegment(std::string_view segment, bool isLast)
    {
        const bool isUp = isDots(segment, 2);
        if (isUp) {
            shorten();
        }
        if (!isUp && !isDots(segment, 1)) {
            *end_++ = '/';
            encode(segment, kInPath);
        } else if (isLast) {
            *end_++ = '/';
        }
    }

    char *const begin_;
    char *end_;
};

// Where results lie, and the charset of queries.
struct Room {
    HTPool *pool;
    const CACharset *charset;
};

// The path of `text`, what follows the host in a link or a link without one, with `base` as the
// path before it. Null when memory is out.
std::optional<std::string_view> resolvePath(std::string_view text, std::string_view base,
                                            const Room &room)
{
    const std::size_t mark = std::min(text.find('?'), text.size());
    const std::string_view path = text.substr(0, mark);
    std::string_view query = text.substr(mark);
    std::string encoded;
    if (room.charset != nullptr && !CAIsAscii(query)) {
        query = encoded = room.charset->encodeQuery(query);
    }
    char *const block = static_cast<char *>(
        room.pool->alloc(base.size() + kEncoded * (path.size() + query.size()) + 1));
    if (block == nullptr) {
        return std::nullopt;
    }
    PathWriter writer(block);
    if (path.empty() && !base.empty()) {
        writer.copy(query.empty() ? base : base.substr(0, base.find('?')));
    } else {
        if (!path.empty() && !isSlash(path.front()) && !base.empty()) {
            writer.copy(base.substr(0, base.find('?')));
            writer.shorten();
        }
        writer.addSegments(path);
    }
    if (!query.empty()) {
        writer.copy("?");
        writer.encode(query.substr(1), kInQuery);
    }
    return writer.text();
}

// Where the port begins in "host:port", at its ":"; a ":" in brackets belongs to the host.
std::size_t portAt(std::string_view text)
{
    bool isInside = false;
    std::size_t at = 0;
    for (; at < text.size() && (text[at] != ':' || isInside); ++at) {
        isInside = text[at] == '[' || (isInside && text[at] != ']');
    }
    return at;
}

constexpr std::uint32_t kHighestPort = 65535;
constexpr std::uint32_t kNoPort = kHighestPort + 1;

// Reads ":port" or nothing. kNoPort when it is missing or the scheme's own; null when it is none.
std::optional<std::uint32_t> readPort(std::string_view text, const Scheme &scheme)
{
    if (text.size() <= 1) {
        return kNoPort;
    }
    std::uint32_t port = 0;
    for (const char c : text.substr(1)) {
        port = port * 10 + static_cast<std::uint32_t>(c - '0');
        if (!HTIsDigit(c) || port > kHighestPort) {
            return std::nullopt;
        }
    }
    return port == scheme.port ? kNoPort : port;
}

// "host:port" in the form of browsers.
std::string_view join(std::string_view host, std::uint32_t port, HTPool *pool)
{
    constexpr std::size_t kLongestPort = sizeof(":65535") - 1;
    char *const block = static_cast<char *>(pool->alloc(host.size() + kLongestPort));
    if (block == nullptr) {
        return {};
    }
    char *at = std::copy(host.begin(), host.end(), block);
    *at++ = ':';
    at = std::to_chars(at, block + host.size() + kLongestPort, port).ptr;
    return {block, static_cast<std::size_t>(at - block)};
}

// `text` is what follows "scheme://".
CAWebResult resolveAuthority(std::string_view text, const Scheme &scheme, const Room &room)
{
    const std::size_t length = kEndsAuthority.in(text);
    std::string_view authority = text.substr(0, length);
    // npos, for a host without user name, counts as the end of an empty one.
    authority.remove_prefix(authority.rfind('@') + 1);
    const std::size_t colon = portAt(authority);
    const std::optional<std::uint32_t> port = readPort(authority.substr(colon), scheme);
    const std::optional<std::string_view> name =
        port ? CAWebHost(authority.substr(0, colon), room.pool) : std::nullopt;
    if (!name) {
        return {.fault = CAWebFault::Invalid};
    }
    const std::string_view host = *port == kNoPort ? *name : join(*name, *port, room.pool);
    const std::optional<std::string_view> path = resolvePath(text.substr(length), "", room);
    if (host.empty() || !path) {
        return {.fault = CAWebFault::NoMemory};
    }
    return {.parts = {.protocol = scheme.name, .host = host, .path = *path}};
}

}  // namespace

CAWebResult CAResolveWeb(std::string_view link, const CAURLParts &base, HTPool *pool,
                         const CACharset *charset)
{
    const std::optional<std::string_view> cleaned = clean(link, pool);
    if (!cleaned) {
        return {.fault = CAWebFault::NoMemory};
    }
    std::string_view rest = *cleaned;
    const Scheme *scheme = findScheme(base.protocol);
    scheme = scheme == nullptr ? &kSchemes.front() : scheme;
    bool isAbsolute = false;
    if (const std::size_t length = schemeLength(rest); length > 0) {
        scheme = findScheme(rest.substr(0, length));
        rest.remove_prefix(length + 1);
        // "http:x" on a page of the same scheme is the link "x".
        isAbsolute = scheme != nullptr && scheme->name != base.protocol;
    }
    if (scheme == nullptr) {
        return {.fault = CAWebFault::OtherScheme};
    }
    const std::size_t slashes = countSlashes(rest);
    if (isAbsolute || slashes >= 2) {
        return resolveAuthority(rest.substr(slashes), *scheme, {pool, charset});
    }
    const std::optional<std::string_view> path = resolvePath(rest, base.path, {pool, charset});
    if (!path) {
        return {.fault = CAWebFault::NoMemory};
    }
    // Without a host, "//" at the start would be read as one.
    const std::size_t surplus = base.host.empty() ? countSlashes(*path) - 1 : 0;
    return {.parts = {.protocol = base.protocol, .host = base.host, .path = path->substr(surplus)}};
}
