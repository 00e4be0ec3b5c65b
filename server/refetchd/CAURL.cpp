#include "CAURL.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "CAtrace.h"
#include "HTMemory.h"
#include "HTParse.h"
#include "HTSimplify.h"
#include "HTString.h"
#include "HTWorkThread.h"
#include "refetchd.h"

namespace {

constexpr const char *kSource = "server/refetchd/CAURL";

// What the textual forms need beyond name and base: "://", slashes and the final NUL.
constexpr std::size_t kTextMargin = 14;

struct DefaultPort {
    std::string_view protocol;
    std::string_view port;  // as it stands in the host; empty: any port
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

// Cuts a port that says nothing, in place.
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
    // "h.:8080": the dot is cut, and the port goes with it.
    if (colon > host && colon[-1] == '.') {
        colon[-1] = '\0';
    }
}

bool isSeparator(char c)
{
    return c == '/' || c == '\\';
}

// How much of the page's path (without its leading "/") stands before a relative link: up to and
// including the last separator before the query. A separator that is the path's first byte does not
// count.
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

// Writes the joined path, "/" first, into `out`, which has room for both texts.
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

}  // namespace

CAURL::CAURL(const char *name)
{
    parseMe(name, "");
}

CAURL::CAURL(const char *name, const char *base)
{
    parseMe(name, base);
    if (CATraceOn()) {
        CATrace("URL......... [n+n] \"%s\" + \"%s\" --> \"%s\".\n", name, base, stringitize());
    }
}

CAURL::CAURL(const char *name, const CAURL *parent)
    : source_(parent->source_), depth_(parent->depth_)
{
    const char *const base = parent->stringitize();
    parseMe(name, base);
    if (CATraceOn()) {
        CATrace("URL......... [n+u] \"%s\" + \"%s\" --> \"%s\".\n", name, base, stringitize());
    }
}

CAURL::~CAURL()
{
    std::free(protocol_);
    std::free(host_);
    std::free(path_);
    std::free(text_);
}

void CAURL::parseMe(const char *name, const char *base)
{
    HTPool *const pool = &HTThread_context()->pool;
    const HTPoolScope scope(pool);
    const std::size_t nameLength = std::strlen(name);
    const std::size_t baseLength = std::strlen(base);
    const std::size_t size = nameLength + baseLength + kTextMargin;
    text_ = static_cast<char *>(std::malloc(size));
    if (text_ == nullptr) {
        HTOutOfMemory(kSource, "parseMe", __LINE__, size);
    } else {
        textSize_ = size;
    }
    char *const givenText = pool->copy(name, nameLength);
    char *const relatedText = pool->copy(base, baseLength);
    char *const path = static_cast<char *>(pool->alloc(size));
    if (givenText == nullptr || relatedText == nullptr || path == nullptr) {
        return;
    }
    HTURIParts given{};
    HTURIParts related{};
    HTParse_scan(givenText, &given, nameLength);
    HTParse_scan(relatedText, &related, baseLength);

    HTSACopy(&protocol_, given.access != nullptr ? given.access : related.access);
    if (differ(given.access, related.access)) {
        related = HTURIParts{};  // nothing is inherited across schemes
    }

    char *const host = given.host != nullptr ? given.host : related.host;
    if (host != nullptr) {
        cutPort(host, protocol_);
    }
    HTSACopy(&host_, host != nullptr ? host : "");
    if (differ(given.host, related.host)) {
        related.absolute = nullptr;
        related.relative = nullptr;
    }

    joinPath(given, related, path);
    HTSimplify(path, pool);
    HTSACopy(&path_, path);
    CATrace("Simplify.... path down to \"%s\".\n", path);
}

const char *CAURL::stringitize() const
{
    const bool absolute = protocol_ != nullptr && *protocol_ != '\0' && host_ != nullptr &&
                          *host_ != '\0' && path_ != nullptr;
    if (!absolute || text_ == nullptr) {
        return transparentStringitize();
    }
    std::snprintf(text_, textSize_, "%s://%s%s", protocol_, host_, path_);
    return text_;
}

const char *CAURL::transparentStringitize() const
{
    if (text_ == nullptr || path_ == nullptr) {
        return "/";  // memory ran out while the record was made
    }
    std::snprintf(text_, textSize_, "%s", path_);
    return text_;
}

int CAURL::interesting(const CAURL *parent) const
{
    if (depth_ > ac.delveDepth) {
        CATrace("URL......... %s is too deep (%d > %d).\n", stringitize(), depth_, ac.delveDepth);
        return 0;
    }
    if (ac.ignoreURL(this) != 0 || ac.onlyCheck(this) != 0) {
        return 0;
    }
    if (ac.queryURL(this) != 0 && ac.cacheThisQuery(this) == 0) {
        CATrace("URL......... %s will be ignored: query string.\n", stringitize());
        return 0;
    }
    if (jumpsFromHost(parent)) {
        return 0;
    }
    if (HashLookup(processedUrls, stringitize()) != nullptr) {
        CATrace("URL......... %s will be ignored: already processed.\n", stringitize());
        return 0;
    }
    return hostIsExhausted() ? 0 : 1;
}

bool CAURL::jumpsFromHost(const CAURL *parent) const
{
    if (ac.delveAcrossHosts != 0 || std::strcmp(host(), parent->host()) == 0) {
        return false;
    }
    CATrace("URL......... %s will be ignored: jump from host %s to %s.\n", stringitize(),
            parent->host(), host());
    return true;
}

bool CAURL::hostIsExhausted() const
{
    const std::int32_t max = ac.getMaxHits(host(), &HTThread_context()->pool);
    const std::int32_t hits = ht.getHits(host());
    if (max == 0 || hits < max) {
        return false;
    }
    CATrace("Host........ %s: %d hits, %d max --> ignoring \"%s\".\n", host(), hits, max,
            stringitize());
    return true;
}

namespace {

constexpr std::uint32_t kHostBuckets = 1009;

int HostComparator(const void *a, const void *b)
{
    return std::strcmp(static_cast<const CAHost *>(a)->name, static_cast<const CAHost *>(b)->name);
}

std::uint32_t HostHasher(std::uint32_t size, const void *host)
{
    return ElfHash(size, static_cast<const CAHost *>(host)->name);
}

}  // namespace

CAHost::CAHost(const char *hostName)
{
    HTSACopy(&name, hostName);
}

CAHost::~CAHost()
{
    std::free(name);
}

CAHostTable::CAHostTable()
    : mutex_(new PMutex), hosts_(HashCreate(kHostBuckets, HostComparator, HostHasher, 0))
{
}

void CAHostTable::addHits(const char *host, std::int32_t n)
{
    CATrace("Adding...... %d hit(s) for host \"%s\".\n", n, host);
    const CAHost probe(host);
    if (probe.name == nullptr) {
        return;  // out of memory, reported: this host is not counted
    }
    bool isNew = false;
    {
        const PMutexGuard guard(*mutex_);
        auto *record = static_cast<CAHost *>(HashLookup(hosts_, &probe));
        if (record == nullptr) {
            record = new CAHost(host);
            isNew = record->name != nullptr && HashAdd(hosts_, record) == 0;
            if (!isNew) {
                delete record;
                return;  // as above
            }
        }
        if (__builtin_add_overflow(record->hits, n, &record->hits)) {
            record->hits = n < 0 ? INT32_MIN : INT32_MAX;
        }
    }
    if (isNew) {
        CATrace("Added....... new host \"%s\" to host table.\n", host);
    }
}

std::int32_t CAHostTable::getHits(const char *host)
{
    const CAHost probe(host);
    if (probe.name == nullptr) {
        return 0;
    }
    std::int32_t hits = 0;
    bool known = false;
    {
        const PMutexGuard guard(*mutex_);
        if (const auto *const record = static_cast<const CAHost *>(HashLookup(hosts_, &probe));
            record != nullptr) {
            known = true;
            hits = record->hits;
        }
    }
    if (!known) {
        CATrace("Never....... hit site \"%s\".\n", host);
    }
    return hits;
}
