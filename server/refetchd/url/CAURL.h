// One URL to refresh.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/CAwhen.h"

// The record of one URL: made from a seed, a link or a redirection target, queued, fetched,
// deleted.
//
// It belongs to one thread at a time (the loader, then the queue, then the worker that took it) and
// has no lock. Its text may have other holders.
class CAURL {
public:
    // Resolves `name` against nothing, against the text `base` (traced), or against the page
    // `parent` (traced), whose source and depth it then takes over: who follows a link raises the
    // depth with setDepth(). Any text gives some URL; its path always begins with "/".
    explicit CAURL(const char *name);
    CAURL(const char *name, const char *base);
    CAURL(const char *name, const CAURL *parent);
    ~CAURL();
    CAURL(const CAURL &) = delete;
    CAURL &operator=(const CAURL &) = delete;

    void setSource(_source source) { source_ = source; }
    void setDepth(std::int32_t depth) { depth_ = depth; }
    void setHits(std::int32_t hits) { hits_ = hits; }
    void incrementHits() { ++hits_; }
    // Counts that the URL is tried again.
    void countRetry() { ++retries_; }
    // Notes that it is repeated because its host asked to be left alone.
    void setRepeated() { repeated_ = true; }

    // Scheme without ":", "" for none. Host with its port unless that was the scheme's own, "" for
    // none. Path with the query, never the fragment. All stay the record's.
    [[nodiscard]] std::string_view protocol() const;
    [[nodiscard]] std::string_view host() const;
    [[nodiscard]] const char *path() const;
    [[nodiscard]] _source source() const { return source_; }
    [[nodiscard]] std::int32_t depth() const { return depth_; }
    [[nodiscard]] std::int32_t hits() const { return hits_; }
    [[nodiscard]] std::int32_t retries() const { return retries_; }
    [[nodiscard]] bool isRepeated() const { return repeated_; }

    // The absolute form "protocol://host/path", or the path alone when protocol or host is missing;
    // and the path alone, which a transparent proxy wants. Both stay the record's.
    [[nodiscard]] const char *stringitize() const { return text_ != nullptr ? text_ : "/"; }
    [[nodiscard]] const char *transparentStringitize() const { return path(); }
    // stringitize() for one more holder, who gives it back with HTShared_release(); null when
    // memory ran out while the record was made.
    [[nodiscard]] const char *holdText() const;

private:
    void parseMe(const char *name, const char *base);

    // Held, see HTShared.h; null when memory ran out. A text that is no absolute form begins with
    // the path's "/", and has the scheme and the host behind its NUL, a NUL behind each.
    const char *text_ = nullptr;
    std::int32_t depth_ = 0;  // links from a seed to here
    std::int32_t hits_ = 1;
    _source source_ = SOURCE_CONFIG;
    bool repeated_ = false;
    std::uint16_t retries_ = 0;
};
