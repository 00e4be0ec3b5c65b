#include "parse/CAparseSitemap.h"

#include <algorithm>
#include <utility>

#include "HTString.h"
#include "base/CAtrace.h"
#include "config/CAargument.h"
#include "config/CAcfg.h"
#include "config/CAsitemapSeeds.h"
#include "config/CAwanted.h"
#include "parse/CAparseBinary.h"
#include "parse/CAparseCoded.h"
#include "parse/CAsitemapDate.h"
#include "url/CAhost.h"
#include "url/CAprocessed.h"
#include "url/CAqueue.h"

namespace {

constexpr std::string_view kGzip = "\x1F\x8B";

CASitemapReader::Body bodyOf(const CAURL &url)
{
    return url.role() == CARole::Robots ? CASitemapReader::Body::Robots
                                        : CASitemapReader::Body::Sitemap;
}

std::string counted(std::size_t count, const char *one, const char *several)
{
    return std::to_string(count) + " " + (count == 1 ? one : several);
}

}  // namespace

CAParseSitemap::CAParseSitemap(CAURL *url, HTThreadContext *threadContext,
                               const CAParseOptions &options)
    : CAParser(url, threadContext),
      reader_(this, bodyOf(*url), ac.loadInlineImages != 0),
      now_(HTtime())
{
    if (options.modernLinks) {
        useWebLinks();
    }
}

CAParseSitemap::~CAParseSitemap()
{
    if (start_ == Start::Unknown) {
        reader_.read(head_);
    }
    const bool isUnpacked = decoder_ == nullptr || decoder_->state() == CADecoder::State::Ended;
    reader_.end(isWhole_ && isUnpacked);
    CATrace("Sitemap..... \"%s\": %zu entries, took %zu URLs, %zu entries are too old.\n",
            url_->stringitize(), reader_.entries(), taken_, old_);
    if (!reader_.fault().empty()) {
        CATellOfSitemap(*url_,
                        reader_.fault() + " (" +
                            counted(taken_, "URL was taken before)", "URLs were taken before)"));
    }
    if (taken_ == 0 && lastDrop_ != CADrop::None) {
        CATellOfSitemap(*url_, "it names no URL that may be requested, the last one because of " +
                                   std::string(CADropName(lastDrop_)));
    }
    tellCount(reader_.tooLong(), "longer than 4,095 bytes");
    tellCount(reader_.badUrls() + notOfWeb_, "not a URL of http or https");
    tellCount(reader_.moreLinks(), "beyond 1,000 alternates and images of a page");
    tellCount(tooDeep_, "a sitemap nested more than 5 deep");
}

std::int32_t CAParseSitemap::consume(char *data, std::int32_t length, std::int32_t *finished,
                                     std::int32_t *closeConnection)
{
    if (data == nullptr || length <= 0) {
        return 0;
    }
    CAParser::consume(data, length, finished, closeConnection);
    const std::string_view bytes(data, static_cast<std::size_t>(length));
    if (start_ != Start::Unknown) {
        read(bytes);
        return length;
    }
    head_.append(bytes);
    if (head_.size() >= kGzip.size()) {
        start_ = head_.starts_with(kGzip) ? Start::Gzip : Start::Plain;
        decoder_ = start_ == Start::Gzip ? CANewDecoder("gzip") : nullptr;
        read(head_);
        head_.clear();
    }
    return length;
}

void CAParseSitemap::breakOff()
{
    isWhole_ = false;
    CAParser::breakOff();
}

void CAParseSitemap::read(std::string_view bytes)
{
    if (start_ == Start::Gzip) {
        unpack(bytes);
    } else {
        reader_.read(bytes);
    }
}

void CAParseSitemap::unpack(std::string_view bytes)
{
    bool mayHoldMore = true;
    while (mayHoldMore && !reader_.isDone()) {
        const std::size_t made = decoder_->decode(&bytes, unpacked_.data(), kBlock);
        mayHoldMore =
            decoder_->state() == CADecoder::State::Reading && (made == kBlock || !bytes.empty());
        reader_.read({unpacked_.data(), made});
    }
}

bool CAParseSitemap::isTooOld(const CASitemapEntry &entry) const
{
    if (url_->since() < 1) {
        return false;
    }
    const std::optional<std::int64_t> changed = CAReadDate(entry.date);
    return changed.has_value() && *changed <= now_ - url_->since();
}

void CAParseSitemap::entry(const CASitemapEntry &entry)
{
    if (isTooOld(entry)) {
        ++old_;
    } else if (entry.isSitemap) {
        takeSitemap(entry.url);
    } else {
        const std::size_t rank = CASitemapRank(entry.priority, entry.changefreq);
        if (!entry.url.empty()) {
            takeAs(entry.url, CARole::Page, rank);
        }
        for (const std::string &link : entry.links) {
            takeAs(link, CARole::Page, rank);
        }
    }
}

void CAParseSitemap::takeSitemap(const std::string &link)
{
    if (url_->nesting() >= kDeepest) {
        ++tooDeep_;
    } else {
        takeAs(link, CARole::Sitemap, 0);
    }
}

void CAParseSitemap::takeAs(const std::string &link, CARole role, std::size_t rank)
{
    std::unique_ptr<CAURL> found(resolveFound(link.c_str(), 0));
    if (found == nullptr || (found->protocol() != "http" && found->protocol() != "https" &&
                             found->protocol() != url_->protocol())) {
        ++notOfWeb_;
        return;
    }
    if (role == CARole::Sitemap) {
        found->setRole(role, static_cast<std::uint8_t>(url_->nesting() + 1), url_->since());
    }
    const CADrop why = CATakeSeed(std::move(found), *page_, rank);
    taken_ += why == CADrop::None ? 1 : 0;
    if (why != CADrop::None && why != CADrop::Processed) {
        lastDrop_ = why;
        reportDropped(link.c_str(), 0, why);
    }
}

void CAParseSitemap::tellCount(std::size_t count, const char *what) const
{
    if (count > 0) {
        CATellOfSitemap(*url_,
                        counted(count, "entry is ignored: ", "entries are ignored: ") + what);
    }
}

CAParser *CANewSitemapParser(CAURL *url, HTThreadContext *threadContext,
                             const CAParseOptions &options, std::string_view codings)
{
    CADecoders decoders;
    if (!CAMakeDecoders(codings, &decoders)) {
        CATellOfSitemap(*url, "its coding \"" + std::string(codings) + "\" is not known");
        return CANewCopy(url);
    }
    auto *const parser = new CAParseSitemap(url, threadContext, options);
    if (!decoders.empty()) {
        return CAPutDecoders(url, threadContext, &decoders, parser);
    }
    parser->addSink(CANewCopy(url));
    return parser;
}

CADrop CATakeSeed(std::unique_ptr<CAURL> found, const CAURL &from, std::size_t rank)
{
    const CADrop why = CASeedObjection(*found, from);
    if (why == CADrop::Processed) {
        urlQueue->sink(found->stringitize(), found->depth());
    }
    if (why != CADrop::None) {
        return why;
    }
    const bool isPage = found->role() == CARole::Page;
    if (!isPage && !CARecordSitemap(found->stringitize())) {
        return CADrop::Processed;  // another thread was faster
    }
    const std::string host(found->host());
    CATrace("Will load... seed \"%s\".\n", found->stringitize());
    ht.addHit(host);
    CAURL *const url = found.release();  // another thread's, once it is enqueued
    if (urlQueue->enqueueInLane(url, rank)) {
        return CADrop::None;
    }
    if (!isPage) {  // known as a page, and now a sitemap as well
        urlQueue->enqueue(url);
        return CADrop::None;
    }
    ht.addHits(host, -1);
    delete url;
    return CADrop::Processed;
}

std::size_t CASitemapRank(std::string_view priority, std::string_view changefreq)
{
    constexpr std::int32_t kLast = 19;
    constexpr std::int32_t kOne = 1000;
    struct Move {
        std::string_view name;
        std::int32_t ranks;
    };
    constexpr Move kMoves[] = {{"always", -4}, {"hourly", -3}, {"daily", -2}, {"weekly", 0},
                               {"monthly", 2}, {"yearly", 4},  {"never", 6}};
    const std::int32_t read = CAReadDecimal(priority);
    const std::int32_t value = read < 0 || read > kOne ? kOne / 2 : read;
    std::int32_t rank = (kLast * (kOne - value) + kOne / 2) / kOne;
    for (const Move &move : kMoves) {
        rank += HTEqualsNoCase(move.name, changefreq) ? move.ranks : 0;
    }
    return static_cast<std::size_t>(std::clamp(rank, 0, kLast));
}
