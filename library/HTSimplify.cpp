#include "HTSimplify.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "tfprintf.h"

namespace {

bool isSeparator(char c)
{
    return c == '/' || c == '\\';
}

// 16 bytes that are compared at once; compilers take the machine's widest instructions for them.
using Bytes = std::uint8_t __attribute__((vector_size(16)));

Bytes load(const char *from)
{
    Bytes bytes;
    std::memcpy(&bytes, from, sizeof(bytes));
    return bytes;
}

// True when a path is worth a closer look because of one of `bytes` and the one behind it, from
// `next`: ":", "./", "//" or "..".
bool hasMark(Bytes bytes, Bytes next)
{
    const auto dots = bytes == '.';
    const auto marks =
        (bytes == ':') | ((dots | (bytes == '/')) & (next == '/')) | (dots & (next == '.'));
    std::array<std::uint64_t, 2> words{};
    std::memcpy(words.data(), &marks, sizeof(words));
    return (words[0] | words[1]) != 0;
}

// `path` ends with a NUL, which is read as well.
bool needsWork(std::string_view path)
{
    if (path.size() < sizeof(Bytes)) {
        std::array<char, sizeof(Bytes) + 1> padded{};
        std::copy(path.begin(), path.end(), padded.begin());
        return hasMark(load(padded.data()), load(padded.data() + 1));
    }
    const char *const last = path.data() + path.size() - sizeof(Bytes);
    for (const char *at = path.data(); at < last; at += sizeof(Bytes)) {
        if (hasMark(load(at), load(at + 1))) {
            return true;
        }
    }
    return hasMark(load(last), load(last + 1));
}

constexpr std::uint32_t kNoPort = UINT32_MAX;

struct Scheme {
    std::string_view prefix;
    std::uint32_t redundantPort;
    bool hasHost;
};

constexpr std::array<Scheme, 6> kSchemes = {{
    {.prefix = "http://", .redundantPort = 80, .hasHost = true},
    {.prefix = "ftp://", .redundantPort = kNoPort, .hasHost = true},
    {.prefix = "gopher://", .redundantPort = 70, .hasHost = true},
    {.prefix = "https://", .redundantPort = 443, .hasHost = true},
    {.prefix = "file://", .redundantPort = kNoPort, .hasHost = false},
    {.prefix = "", .redundantPort = kNoPort, .hasHost = true},  // any other text
}};

const Scheme &schemeOf(const char *text)
{
    return *std::find_if(kSchemes.begin(), kSchemes.end(), [text](const Scheme &scheme) {
        return strncasecmp(text, scheme.prefix.data(), scheme.prefix.size()) == 0;
    });
}

// Where the path proper begins.
struct Start {
    char *cursor;
    bool leadingSlash = false;
    bool anchored = false;  // the first name, too, may be cancelled by a ".."
};

// Walks over the scheme prefixes and hosts at the start of a URL, of URLs nested in it as well, and
// removes their default ports. Meanwhile there is a gap between the finished text ([path, out)) and
// the text still to be read (from `in`), so that any number of ports is removed in a single pass.
// The text does not begin with a "/".
class PrefixWalk {
public:
    explicit PrefixWalk(char *path) : path_(path), in_(path), out_(path) {}

    [[nodiscard]] Start run()
    {
        bool anchored = false;
        for (char *slash = nextPrefix(); slash != nullptr; slash = nextPrefix()) {
            skipPrefix(slash);
            anchored = true;
        }
        std::memmove(out_, in_, std::strlen(in_) + 1);
        return {.cursor = out_, .anchored = anchored};
    }

private:
    // The "/" that ends the scheme prefix ("http:/") at `in`; nullptr when there is none. It is
    // never the first byte of the path.
    [[nodiscard]] char *nextPrefix() const
    {
        char *const slash = std::strchr(in_, '/');
        return slash != nullptr && slash[-1] == ':' ? slash : nullptr;
    }

    void skipPrefix(char *slash)
    {
        const Scheme &scheme = schemeOf(in_);
        keep(slash + std::strspn(slash, "/"));
        if (scheme.hasHost) {
            keep(in_ + std::strcspn(in_, ":/\\"));
            if (*in_ == ':') {
                dropPort(scheme.redundantPort);
            }
            keep(in_ + std::strcspn(in_, "/\\"));
        }
        if (isSeparator(*in_)) {
            keep(in_ + 1);
        }
    }

    void keep(const char *end)
    {
        const auto length = static_cast<std::size_t>(end - in_);
        std::memmove(out_, in_, length);
        in_ += length;
        out_ += length;
    }

    // `in` is at the colon of a port.
    void dropPort(std::uint32_t redundant)
    {
        constexpr std::uint32_t kTooLarge = 65536;
        const char *end = in_ + 1;
        std::uint32_t port = 0;
        for (; *end >= '0' && *end <= '9'; ++end) {
            port = std::min(port * 10 + static_cast<std::uint32_t>(*end - '0'), kTooLarge);
        }
        if (port != redundant) {
            return;
        }
        if (HTTrace_on(kTraceUri)) {
            tfprintf(stderr, "Removing.... redundant port %u from \"%.*s%s\".\n", port, done(),
                     path_, in_);
        }
        in_ += end - in_;
        if (HTTrace_on(kTraceUri)) {
            tfprintf(stderr, "Removed..... redundant port from \"%.*s%s\".\n", done(), path_, in_);
        }
    }

    [[nodiscard]] int done() const { return static_cast<int>(out_ - path_); }

    char *const path_;
    char *in_;
    char *out_;
};

Start findStart(char *path)
{
    if (path[0] == '.' && isSeparator(path[1])) {
        return {.cursor = path + 2, .anchored = true};
    }
    if (path[0] == '/') {
        return {.cursor = path, .leadingSlash = true, .anchored = true};
    }
    return PrefixWalk(path).run();
}

// A run of bytes between separators; empty when there is none.
struct Segment {
    char *begin;
    char *end;

    [[nodiscard]] bool empty() const { return begin == end; }
    [[nodiscard]] std::string_view text() const
    {
        return {begin, static_cast<std::size_t>(end - begin)};
    }
    [[nodiscard]] bool isReal() const { return text() != "." && text() != ".."; }
    // A cancelled segment becomes separators, which the searches below skip.
    void cancel() const { std::fill(begin, end, '/'); }
};

Segment segmentFrom(char *at, char *end)
{
    char *const begin = std::find_if_not(at, end, isSeparator);
    return {.begin = begin, .end = std::find_if(begin, end, isSeparator)};
}

Segment segmentBefore(const char *start, char *at)
{
    while (at != start && isSeparator(at[-1])) {
        --at;
    }
    char *begin = at;
    while (begin != start && !isSeparator(begin[-1])) {
        --begin;
    }
    return {.begin = begin, .end = at};
}

Segment realSegmentBefore(const char *start, char *at)
{
    Segment segment = segmentBefore(start, at);
    while (!segment.empty() && !segment.isReal()) {
        segment = segmentBefore(start, segment.begin);
    }
    return segment;
}

// Cancels the dots from the last segment to the first. Each ".." cancels a name further to the left
// than the one before, so the search for the next name continues where the last one ended.
void cancelDots(char *cursor, char *end, std::size_t names, bool anchored)
{
    char *taken = end;  // no name at or behind this is left for a ".."
    for (Segment segment = segmentBefore(cursor, end); !segment.empty();
         segment = segmentBefore(cursor, segment.begin)) {
        if (segment.text() == ".") {
            segment.cancel();
        } else if (segment.text() == ".." && (names >= 2 || anchored)) {
            const Segment name = realSegmentBefore(cursor, std::min(taken, segment.begin));
            taken = name.begin;
            if (!name.empty()) {
                name.cancel();
                segment.cancel();
                --names;
            }
        }
    }
}

// Closes the segments up behind `cursor`, and ends the text there.
void rebuild(const char *path, const Start &start, char *end, bool trailingSlash)
{
    char *out = start.cursor;
    if (start.leadingSlash) {
        *out++ = '/';
    }
    bool first = true;
    for (Segment segment = segmentFrom(out, end); !segment.empty();
         segment = segmentFrom(segment.end, end)) {
        if (!first) {
            *out++ = '/';
        }
        first = false;
        out = std::copy(segment.begin, segment.end, out);
    }
    if (trailingSlash && (out == path || out[-1] != '/')) {
        *out++ = '/';
    }
    *out = '\0';
}

void simplifyFrom(char *path, Start start)
{
    char *const end = start.cursor + std::strlen(start.cursor);
    const bool trailingSlash = isSeparator(end[-1]);
    std::size_t names = 0;
    for (Segment segment = segmentFrom(start.cursor, end); !segment.empty();
         segment = segmentFrom(segment.end, end)) {
        if (segment.isReal()) {
            ++names;
        } else if (names == 0 && segment.text() == "..") {
            start.anchored = true;
        }
    }
    cancelDots(start.cursor, end, names, start.anchored);
    rebuild(path, start, end, trailingSlash);
}

}  // namespace

void HTSimplify(char *path, HTPool *pool)
{
    HTSimplify(path, std::strlen(path), pool);
}

std::size_t HTSimplify(char *path, std::size_t length, HTPool * /*pool*/)
{
    const bool traced = HTTrace_on(kTraceUri);
    if (traced) {
        tfprintf(stderr, "HTSimplify.. simplifying `%s' \n", path);
    }
    if (!needsWork({path, length})) {
        if (traced) {
            tfprintf(stderr, "HTSimplify.. nothing to do!\n");
        }
        return length;
    }
    const Start start = findStart(path);
    if (*start.cursor == '\0') {
        if (traced) {
            tfprintf(stderr, "HTSimplify.. No simplification possible\n");
        }
        return std::strlen(path);
    }
    simplifyFrom(path, start);
    if (traced) {
        tfprintf(stderr, "HTSimplify.. into `%s'\n", path);
    }
    return std::strlen(path);
}
