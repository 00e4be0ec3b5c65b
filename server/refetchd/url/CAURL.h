// One URL to refresh.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "HTParse.h"
#include "HTRecord.h"
#include "base/CAwhen.h"
#include "url/CAweb.h"

// What a URL is requested for, besides being refreshed.
enum class CARole : std::uint8_t {
    Page,     // it may have links
    Sitemap,  // it names seeds (CAparseSitemap.h)
    Robots,   // a robots.txt, which may name sitemaps
};

class CAURL;

// A page, or a text, against which links are resolved: its own text is split once for all of them.
// Both that text and the page must outlive it.
class CALinkBase {
public:
    explicit CALinkBase(const char *text);
    explicit CALinkBase(const CAURL &page);

private:
    friend class CAURL;

    const char *text_;
    HTURIViews parts_;
    std::string_view directory_;  // of the path: relative links go behind it
    std::int32_t depth_ = 0;
    _source source_ = SOURCE_CONFIG;
};

// The record of one URL: made from a seed, a link or a redirection target, queued, fetched,
// deleted.
//
// It has no lock and belongs to one owner at a time: the loader or parser that makes it, the queue,
// the worker thread that dequeued it, or the table of resting hosts. Its text is shared and may
// outlive it.
class CAURL {
public:
    // Resolves `name` against nothing, against the text `base` (traced), or against the page
    // `parent` (traced). From `parent` it also copies source and depth, so a caller that follows a
    // link raises the depth with setDepth(). Any text gives some URL, with a path that begins with
    // "/". Scratch memory comes from the calling thread's pool.
    explicit CAURL(const char *name);
    CAURL(const char *name, const char *base);
    CAURL(const char *name, const CAURL *parent);
    CAURL(const char *name, const CALinkBase &page);  // as with `parent`, for many links of a page
    // Resolve as browsers do (CAweb.h), which gives null when they make no URL of it, or when
    // memory is out: `link`, found on the page `base`, whose source and depth it takes over
    // (traced), with its query in `charset` (null: UTF-8); or this URL's own text. `base` must be a
    // result of these.
    [[nodiscard]] static std::unique_ptr<CAURL> fromLink(std::string_view link, const CAURL &base,
                                                         const CACharset *charset = nullptr);
    [[nodiscard]] std::unique_ptr<CAURL> inWebForm() const;
    ~CAURL();
    CAURL(const CAURL &) = delete;
    CAURL &operator=(const CAURL &) = delete;

    // A run may hold millions, so they come from HTRecord.h.
    static void *operator new(std::size_t size);
    static void operator delete(void *record);

    void setSource(_source source) { source_ = source == SOURCE_HITS ? 1 : 0; }
    void setDepth(std::int32_t depth) { depth_ = depth; }
    void setHits(std::int32_t hits) { hits_ = hits; }
    void incrementHits() { ++hits_; }
    // Counts one retry of the current variant.
    void countRetry() { ++retries_; }
    // Marks a URL that is requested once more because its host asked for a pause.
    void setRepeated() { repeated_ = 1; }
    // Marks a URL whose server has refused the connection (status 421).
    void setMisdirected() { misdirected_ = 1; }
    // Marks a URL that is requested once more because a kept connection was reset.
    void setResent() { resent_ = 1; }
    // Makes it a URL that names seeds. `nesting` is the number of sitemaps that lead to it, itself
    // included. Of its entries only those are taken that changed in the last `since` seconds; below
    // 1: all.
    void setRole(CARole role, std::uint8_t nesting, std::int32_t since)
    {
        role_ = static_cast<std::uint32_t>(role) & 3U;
        nesting_ = nesting;
        since_ = since;
    }
    // Goes on to the next variant, which has had no retries yet.
    void advanceVariant()
    {
        ++variant_;
        retries_ = 0;
        repeated_ = 0;
        misdirected_ = 0;
        resent_ = 0;
    }

    // The scheme without ":"; the host, with its port unless that is the default of http or gopher
    // or the scheme is file; the path with the query, without the fragment. "" for a part that is
    // missing. All belong to the record. Kept: https has no default here, so "https://h:443/" and
    // "https://h/" are two URLs.
    [[nodiscard]] std::string_view protocol() const;
    [[nodiscard]] std::string_view host() const;
    [[nodiscard]] const char *path() const;
    [[nodiscard]] _source source() const { return static_cast<_source>(source_); }
    [[nodiscard]] std::int32_t depth() const { return depth_; }
    [[nodiscard]] std::int32_t hits() const { return hits_; }
    [[nodiscard]] std::int32_t retries() const { return static_cast<std::int32_t>(retries_); }
    [[nodiscard]] bool isRepeated() const { return repeated_ != 0; }
    [[nodiscard]] bool isMisdirected() const { return misdirected_ != 0; }
    [[nodiscard]] bool isResent() const { return resent_ != 0; }
    // The variant that is requested next, as an index of CAConfig::variants.
    [[nodiscard]] std::size_t variant() const { return variant_; }

    [[nodiscard]] CARole role() const { return static_cast<CARole>(role_); }
    [[nodiscard]] std::uint8_t nesting() const { return static_cast<std::uint8_t>(nesting_); }
    [[nodiscard]] std::int32_t since() const { return since_; }

    // 1 when this URL, a link or redirection on the page `parent`, is to be enqueued, else 0. A
    // fixed operation of the record; as url/ knows no configuration, it is defined and decided in
    // config/CAwanted.cpp, by CAObjection().
    [[nodiscard]] int interesting(const CAURL *parent) const;

    // The absolute form "protocol://host/path", or only the path when protocol or host is missing;
    // and always only the path, for a transparent proxy. Both belong to the record.
    [[nodiscard]] const char *stringitize() const { return text_ != nullptr ? text_ : "/"; }
    [[nodiscard]] const char *transparentStringitize() const { return path(); }
    // stringitize() for a further holder, who gives it back with HTShared_release(); null when
    // memory ran out while the record was made.
    [[nodiscard]] const char *holdText() const;

private:
    CAURL(const CAURLParts &parts, const CAURL &base);
    void parseMe(std::string_view name, const CALinkBase &base);
    [[nodiscard]] CAURLParts parts() const;

    // A shared text (HTShared.h); null when memory ran out. Either the absolute form, or, when
    // scheme or host is missing, path, scheme and host with a NUL behind each.
    const char *text_ = nullptr;
    std::int32_t depth_ = 0;  // links from the seed to this URL
    std::int32_t hits_ = 1;
    std::int32_t since_ = 0;
    // Packed, because a run may hold millions.
    std::uint32_t variant_ : 8 = 0;
    std::uint32_t retries_ : 8 = 0;  // at most 100, as `retries`
    std::uint32_t nesting_ : 8 = 0;
    std::uint32_t role_ : 2 = 0;    // of CARole
    std::uint32_t source_ : 1 = 0;  // of _source
    std::uint32_t repeated_ : 1 = 0;
    std::uint32_t misdirected_ : 1 = 0;
    std::uint32_t resent_ : 1 = 0;
};

static_assert(sizeof(CAURL) <= kHTRecordSize);
