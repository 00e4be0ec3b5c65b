// One URL to refresh.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "base/CAwhen.h"
#include "url/CAweb.h"

// What a URL is requested for, besides being refreshed.
enum class CARole : std::uint8_t {
    Page,     // it may have links
    Sitemap,  // it names seeds (CAparseSitemap.h)
    Robots,   // a robots.txt, which may name sitemaps
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

    void setSource(_source source) { source_ = source; }
    void setDepth(std::int32_t depth) { depth_ = depth; }
    void setHits(std::int32_t hits) { hits_ = hits; }
    void incrementHits() { ++hits_; }
    // Counts one retry of the current variant.
    void countRetry() { ++retries_; }
    // Marks a URL that is requested once more because its host asked for a pause.
    void setRepeated() { repeated_ = true; }
    // Marks a URL whose server has refused the connection (status 421).
    void setMisdirected() { misdirected_ = true; }
    // Marks a URL that is requested once more because a kept connection was reset.
    void setResent() { resent_ = true; }
    // Makes it a URL that names seeds. `nesting` is the number of sitemaps that lead to it, itself
    // included. Of its entries only those are taken that changed in the last `since` seconds; below
    // 1: all.
    void setRole(CARole role, std::uint8_t nesting, std::int32_t since)
    {
        role_ = role;
        nesting_ = nesting;
        since_ = since;
    }
    // Goes on to the next variant, which has had no retries yet.
    void advanceVariant()
    {
        ++variant_;
        retries_ = 0;
        repeated_ = false;
        misdirected_ = false;
        resent_ = false;
    }

    // The scheme without ":"; the host, with its port unless that is the default of http or gopher
    // or the scheme is file; the path with the query, without the fragment. "" for a part that is
    // missing. All belong to the record. Kept: https has no default here, so "https://h:443/" and
    // "https://h/" are two URLs.
    [[nodiscard]] std::string_view protocol() const;
    [[nodiscard]] std::string_view host() const;
    [[nodiscard]] const char *path() const;
    [[nodiscard]] _source source() const { return source_; }
    [[nodiscard]] std::int32_t depth() const { return depth_; }
    [[nodiscard]] std::int32_t hits() const { return hits_; }
    [[nodiscard]] std::int32_t retries() const { return retries_; }
    [[nodiscard]] bool isRepeated() const { return repeated_; }
    [[nodiscard]] bool isMisdirected() const { return misdirected_; }
    [[nodiscard]] bool isResent() const { return resent_; }
    // The variant that is requested next, as an index of CAConfig::variants.
    [[nodiscard]] std::size_t variant() const { return variant_; }

    [[nodiscard]] CARole role() const { return role_; }
    [[nodiscard]] std::uint8_t nesting() const { return nesting_; }
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
    void parseMe(const char *name, const char *base);
    [[nodiscard]] CAURLParts parts() const;

    // A shared text (HTShared.h); null when memory ran out. Either the absolute form, or, when
    // scheme or host is missing, path, scheme and host with a NUL behind each.
    const char *text_ = nullptr;
    std::int32_t depth_ = 0;  // links from the seed to this URL
    std::int32_t hits_ = 1;
    _source source_ = SOURCE_CONFIG;
    bool repeated_ = false;
    bool misdirected_ = false;
    bool resent_ = false;
    std::uint8_t retries_ = 0;  // at most 100, as `retries`
    std::uint8_t variant_ = 0;
    CARole role_ = CARole::Page;
    std::uint8_t nesting_ = 0;
    std::int32_t since_ = 0;
};

// The queue may hold millions.
static_assert(sizeof(CAURL) <= 32);
