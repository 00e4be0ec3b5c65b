// The stage that reads files which name seeds: sitemaps, feeds and robots.txt.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "base/CAoutcome.h"
#include "parse/CAdecode.h"
#include "parse/CAparse.h"
#include "parse/CAsitemap.h"
#include "url/CAURL.h"

// Enqueues the URLs that the body of a URL with such a role names, as it comes, as seeds: with
// source and depth of that URL, in the lane of their rank. A sitemap that it names gets that role
// itself, with the same age limit, unless that would be nested too deep. A body that is a gzip file
// is decompressed. When the parser is deleted, what was taken is traced, and the administrator is
// told what was wrong. Its sink saves the body when copies are kept, unless another stage does.
class CAParseSitemap : public CAParser, private CASitemapSink {
public:
    static constexpr int kDeepest = 5;  // sitemaps that lead to each other

    CAParseSitemap(CAURL *url, HTThreadContext *threadContext, const CAParseOptions &options);
    ~CAParseSitemap() override;
    CAParseSitemap(const CAParseSitemap &) = delete;
    CAParseSitemap &operator=(const CAParseSitemap &) = delete;

    // Takes everything. Leaves both flags to its sink.
    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;
    // The URLs that came before stay.
    void breakOff() override;

private:
    static constexpr std::size_t kBlock = 16384;

    enum class Start : std::uint8_t { Unknown, Plain, Gzip };

    void read(std::string_view bytes);
    void unpack(std::string_view bytes);
    void entry(const CASitemapEntry &entry) override;
    [[nodiscard]] bool isTooOld(const CASitemapEntry &entry) const;
    void takeSitemap(const std::string &link);
    void takeAs(const std::string &link, CARole role, std::size_t rank);
    void tellCount(std::size_t count, const char *what) const;

    CASitemapReader reader_;
    const std::time_t now_;
    Start start_ = Start::Unknown;
    std::string head_;                    // the first byte, while there is no second
    std::unique_ptr<CADecoder> decoder_;  // of a gzip file
    std::array<char, kBlock> unpacked_{};
    bool isWhole_ = true;
    std::size_t taken_ = 0;
    CADrop lastDrop_ = CADrop::None;  // of a URL that a filter or limit excluded
    std::size_t old_ = 0;             // entries that changed too long ago
    std::size_t notOfWeb_ = 0;
    std::size_t tooDeep_ = 0;  // sitemaps
};

// The parser of a body that names seeds. If a coding is unknown, it only saves the body (reported);
// null when there is nothing to do. The caller owns it.
[[nodiscard]] CAParser *CANewSitemapParser(CAURL *url, HTThreadContext *threadContext,
                                           const CAParseOptions &options, std::string_view codings);

// Decides about the seed `found`, which the file of `from` names or is redirected to. If nothing
// objects, it is counted for its host, recorded as processed and enqueued, and the result is None.
[[nodiscard]] CADrop CATakeSeed(std::unique_ptr<CAURL> found, const CAURL &from, std::size_t rank);

// The rank of a URL in the queue, 0 (the next one) to 19, from the texts of a sitemap. Priorities
// from 1.0 to 0.0 are spread over the ranks; what changes more often than weekly moves forward,
// what changes less often backward. Without these texts, or with others than the protocol's,
// priority 0.5 and weekly count.
[[nodiscard]] std::size_t CASitemapRank(std::string_view priority, std::string_view changefreq);
