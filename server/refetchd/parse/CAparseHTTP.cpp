#include "parse/CAparseHTTP.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstring>
#include <string>
#include <string_view>

#include "HTString.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "config/CAsitemapSeeds.h"
#include "config/CAwanted.h"
#include "parse/CAparseBinary.h"
#include "parse/CAparseCoded.h"
#include "parse/CAparseHTML.h"
#include "parse/CAparseSitemap.h"
#include "url/CAURL.h"

namespace {

// consume() gives up after this many passes in a row in which the input buffer took nothing.
constexpr int kMaxIdlePasses = 3;

constexpr std::int32_t kFound = 302;
constexpr std::array<std::int32_t, 4> kOtherRedirects = {301, 303, 307, 308};

// Names of headers, with their colons.
template <std::size_t count>
class NameSet {
public:
    explicit consteval NameSet(const std::array<std::string_view, count> &names) : names_(names)
    {
        for (const std::string_view name : names) {
            marks_ |= HTNameMark(name);
        }
    }
    [[nodiscard]] bool has(std::string_view name) const
    {
        return (marks_ & HTNameMark(name)) != 0 &&
               std::any_of(names_.begin(), names_.end(), [name](std::string_view member) {
                   return name.size() == member.size() &&
                          strncasecmp(name.data(), member.data(), name.size()) == 0;
               });
    }

private:
    std::array<std::string_view, count> names_;
    std::uint64_t marks_ = 0;
};

// The headers that are always kept, because the parser itself reads them.
constexpr NameSet<5> kKeptHeaders({"Connection:", "Content-Length:", "Content-type:", "Location:",
                                   "Transfer-Encoding:"});

// Kept as well when the options say so.
constexpr NameSet<12> kMoreHeaders({"Age:", "Cache-Control:", "Cache-Status:", "Date:", "Expires:",
                                    "Retry-After:", "Vary:", "Via:", "Warning:", "X-Cache:",
                                    "X-Cache-Lookup:", "X-Varnish:"});

// Kept as well when links are looked for as browsers do, or when the results say why they are not.
constexpr NameSet<1> kPageHeaders({"Content-Encoding:"});

// Limits the memory for kept headers, because a peer may send headers for ever. Each one counts as
// its text and kHeaderRecord bytes for its record.
constexpr std::size_t kMaxHeaderBytes = 262144;
constexpr std::size_t kHeaderRecord = 128;

char *findByte(char *from, char *end, char wanted)
{
    return static_cast<char *>(std::memchr(from, wanted, static_cast<std::size_t>(end - from)));
}

bool isBlankOrTab(char c)
{
    return c == ' ' || c == '\t';
}

// The administrator asks for what a sitemap says, so its body is read even if the connection ends
// it.
CAParseOptions optionsFor(const CAURL &url, CAParseOptions options)
{
    options.closeDelimitedBodies |= url.role() != CARole::Page;
    return options;
}

}  // namespace

CAParseHTTP::CAParseHTTP(CAURL *url) : CAParseHTTP(url, HTThread_context()) {}

CAParseHTTP::CAParseHTTP(CAURL *url, HTThreadContext *threadContext, const CAParseOptions &options)
    : CAParser(url, threadContext),
      options_(optionsFor(*url, options)),
      headers_(HTAssocList_new(threadContext))
{
}

CAParseHTTP::~CAParseHTTP()
{
    if (!hasEnded_) {
        CAParser::breakOff();
    }
    if (waitsForRoom()) {
        const char *const header = HTAssocList_lookupExact(headers_, "Location:");
        const std::string location(header, std::strcspn(header, "\r\n"));
        reportDropped(location.c_str(), 0, waitsFor_);
    }
    HTAssocList_delete(headers_, threadContext_);
}

std::string_view CAParseHTTP::header(std::string_view name) const
{
    const char *const value = HTAssocList_lookupExact(headers_, name);
    if (value == nullptr) {
        return "";
    }
    return value;
}

CACacheHeaders CAParseHTTP::cacheHeaders() const
{
    // Most of them are absent, and the marks of these names are computed at compile time.
    const std::uint64_t marks = HTAssocList_marks(headers_);
    const auto value = [this, marks](std::string_view name) -> std::string_view {
        return (marks & HTNameMark(name)) == 0 ? "" : header(name);
    };
    return {.age = value("Age:"),
            .cacheControl = value("Cache-Control:"),
            .cacheStatus = value("Cache-Status:"),
            .date = value("Date:"),
            .expires = value("Expires:"),
            .via = value("Via:"),
            .warning = value("Warning:"),
            .xCache = value("X-Cache:"),
            .xCacheLookup = value("X-Cache-Lookup:"),
            .xVarnish = value("X-Varnish:"),
            .vary = value("Vary:")};
}

std::int32_t CAParseHTTP::consume(char *data, std::int32_t length, std::int32_t *finished,
                                  std::int32_t *closeConnection)
{
    if (length <= 0) {
        return 0;
    }
    std::int32_t taken = 0;
    int idlePasses = 0;
    while (length > 0 && idlePasses < kMaxIdlePasses) {
        // Kept: if only a part is taken, `data` does not advance, so the same start is offered
        // again. Therefore only what is taken as a whole is read, and written to, in place.
        const bool inPlace = buffer_.lend(data, length);
        const std::int32_t added = inPlace ? length : buffer_.addData(data, length);
        ++idlePasses;
        if (buffer_.getReadP() != nullptr) {
            step(finished, closeConnection);
        }
        if (inPlace) {
            buffer_.takeBack();
        }
        if (added > 0) {
            idlePasses = 0;
            length -= added;
            taken += added;
        }
    }
    return taken;
}

// One pass over the buffered input. Several states may follow each other in it, so that a block
// with a whole response goes through all of them.
void CAParseHTTP::step(std::int32_t *finished, std::int32_t *closeConnection)
{
    char **const readP = buffer_.getReadPP();
    char *const *const writeP = buffer_.getWritePP();
    if (state_ == State::StatusLine) {
        consumeRC(readP, writeP);
    }
    if (state_ == State::Headers) {
        consumeHeaders(readP, writeP);
    }
    if (state_ == State::Complete) {
        readFraming(closeConnection);
        makeDecision();
    }
    if (state_ == State::Body) {
        consumeBody(readP, writeP, finished, closeConnection);
    }
    if (state_ == State::Discard) {
        *readP = *writeP;
        *finished = 1;
        *closeConnection = 1;
    }
    buffer_.adjustContentSize();
}

void CAParseHTTP::consumeRC(char **readP, char *const *writeP)
{
    char *const lineEnd = findByte(*readP, *writeP, '\n');
    if (lineEnd == nullptr) {
        return;
    }
    // Look at this line only: how much has arrived after it depends on the network.
    char *at = findByte(*readP, lineEnd, ' ');
    const std::string_view line(*readP, static_cast<std::size_t>(lineEnd - *readP));
    if (!line.starts_with("HTTP/") || at == nullptr) {
        CATrace("Parser...... can't cope with HTTP/0.x responses.\n");
        state_ = State::Discard;
        rc_ = kBadResponse;
        isHTTP_ = false;
        return;
    }
    while (isBlankOrTab(*at)) {
        ++at;
    }
    state_ = State::Headers;
    if (*at == '\0') {
        // A NUL in place of the status code: the code counts as 0, and the buffered input is lost.
        CATrace("Parser...... can't cope with totally wierded-out response line.\n");
        rc_ = 0;
        *readP = *writeP;
        return;
    }
    rc_ = HTInteger({at, static_cast<std::size_t>(lineEnd - at)});
    *readP = lineEnd + 1;
}

void CAParseHTTP::consumeHeaders(char **readP, char *const *writeP)
{
    while (state_ == State::Headers) {
        char *const line = *readP;
        char *end = findByte(line, *writeP, '\n');
        if (end == nullptr) {
            return;
        }
        *readP = end + 1;
        *end = '\0';
        if (end > line && end[-1] == '\r') {
            *--end = '\0';
        }
        if (end - line < 2) {
            state_ = State::Complete;
        } else {
            addHeader(line);
        }
    }
}

bool CAParseHTTP::isUseful(std::string_view name) const
{
    return kKeptHeaders.has(name) || (options_.keepMoreHeaders && kMoreHeaders.has(name)) ||
           (needsPageHeaders() && kPageHeaders.has(name));
}

void CAParseHTTP::keepHeader(std::string_view name, std::string_view value)
{
    std::string all;
    if (HTEqualsNoCase(name, "Vary:") && !header("Vary:").empty()) {
        value = all.append(header("Vary:")).append(", ").append(value);
    }
    if (headerBytes_ > kMaxHeaderBytes) {
        return;
    }
    headerBytes_ += kHeaderRecord + name.size() + value.size();
    if (headerBytes_ > kMaxHeaderBytes) {
        CATrace("Parser...... too many headers, ignoring the rest.\n");
        return;
    }
    HTAssocList_add(headers_, name, value, threadContext_);
}

void CAParseHTTP::addHeader(char *line)
{
    char *const space = std::strchr(line, ' ');
    addWithoutBlank(line);
    if (space == nullptr) {
        return;
    }
    *space = '\0';
    const std::string_view name(line, static_cast<std::size_t>(space - line));
    const char *const value = space + 1;
    if (isUseful(name)) {
        keepHeader(name, value);
    }
    CATrace("Parser...... found header %s %s.\n", line, value);
}

// addHeader() ignores a header without a space after its colon. This keeps such a header all the
// same if it is one that only the options need.
void CAParseHTTP::addWithoutBlank(const char *line)
{
    const bool needsOthers = options_.closeDelimitedBodies || options_.keepMoreHeaders;
    if (!needsOthers && !needsPageHeaders()) {
        return;
    }
    const char *const colon = std::strchr(line, ':');
    if (colon == nullptr || colon[1] == ' ') {
        return;
    }
    const std::string_view name(line, static_cast<std::size_t>(colon + 1 - line));
    const bool isOther = kMoreHeaders.has(name) || HTEqualsNoCase(name, "Transfer-Encoding:");
    const bool isOfPage = kPageHeaders.has(name);
    if ((needsOthers && isOther) || (needsPageHeaders() && isOfPage)) {
        keepHeader(name, colon + 1);
    }
}

void CAParseHTTP::readFraming(std::int32_t *closeConnection)
{
    const char *const connection = HTAssocList_lookupExact(headers_, "Connection:");
    const char *const length = HTAssocList_lookupExact(headers_, "Content-Length:");
    unframed_ = length == nullptr && !isChunked();
    untilClose_ = unframed_ && options_.closeDelimitedBodies && rc_ == kOk;
    if (untilClose_) {
        CATrace("Parser...... No content-length, the body ends with the connection.\n");
    } else if (length == nullptr) {
        CATrace("Parser...... No content-length, will try chunked data.\n");
        chunked_ = true;
    } else {
        contentLength_ = HTDecimal(length);
        CATrace("Parser...... Content-length:  %" PRId64 ", Connection:  %s\n", contentLength_,
                connection != nullptr ? connection : "(null)");
    }
    if (untilClose_) {
        hasEnded_ = true;
        *closeConnection = 1;
    } else if (connection != nullptr) {
        *closeConnection = strcasecmp(connection, "keep-alive") == 0 ? 0 : 1;
    }
}

bool CAParseHTTP::isChunked() const
{
    const char *const coding = HTAssocList_lookupExact(headers_, "Transfer-Encoding:");
    return coding != nullptr && strcasestr(coding, "chunked") != nullptr;
}

bool CAParseHTTP::leadsOn() const
{
    if (options_.takesNothing) {
        return false;
    }
    return rc_ == kFound ||
           (options_.followAllRedirects && std::find(kOtherRedirects.begin(), kOtherRedirects.end(),
                                                     rc_) != kOtherRedirects.end());
}

void CAParseHTTP::makeDecision()
{
    if (!followIfRedirected() && !decidesAtOnce()) {
        return;
    }
    if (rc_ != kOk) {
        CATrace("Parser...... abandoning response with RC=%d.\n", rc_);
        state_ = State::Discard;
        return;
    }
    state_ = chooseSink() ? State::Body : State::Discard;
}

bool CAParseHTTP::namesSeeds() const
{
    return url_->role() != CARole::Page;
}

bool CAParseHTTP::followIfRedirected()
{
    return !leadsOn() || followRedirect();
}

// Enqueues the target of a redirect if it is interesting. False when a limit of the queue keeps it
// out. A parser that does not decide at once stays in the state Complete then, and the next block
// tries again: it holds its worker thread until the read time-out, and nobody makes room when all
// worker threads wait like that.
bool CAParseHTTP::followRedirect()
{
    CATrace("Parser...... return code was %d (will look for Location:)\n", rc_);
    const char *const header = HTAssocList_lookupExact(headers_, "Location:");
    if (header == nullptr) {
        tellOfRedirect("without a location");
        return true;
    }
    const HTPoolScope scope(&threadContext_->pool);
    const char *const location = threadContext_->pool.copy(header, std::strcspn(header, "\r\n"));
    if (location == nullptr) {
        return true;
    }
    CATrace("Found....... location \"%s\".\n", location);
    if (options_.modernLinks) {
        useWebLinks();
    }
    waitsFor_ = CADrop::None;
    if (const CADrop limit = CALinkLimit(); limit != CADrop::None) {
        return refuse(location, limit);
    }
    takeRedirect(location);
    return true;
}

void CAParseHTTP::takeRedirect(const char *location)
{
    CAURL *const found = resolveFound(location, 0);
    if (!namesSeeds()) {
        return takeIfInteresting(found);
    }
    if (found == nullptr) {
        return tellOfRedirect("to what is not a URL");
    }
    found->setRole(url_->role(), url_->nesting(), url_->since());
    const std::string target = std::string("to ") + found->stringitize() + ", ";
    const CADrop why = CATakeSeed(std::unique_ptr<CAURL>(found), *page_, 0);
    if (why == CADrop::Processed) {
        tellOfRedirect(target + "which has been read already");
    } else if (why != CADrop::None) {
        reportDropped(location, 0, why);
        tellOfRedirect(target + "which " + std::string(CADropName(why)) + " excludes");
    }
}

// Tells the administrator why a redirection of a sitemap brings no seeds.
void CAParseHTTP::tellOfRedirect(const std::string &fault) const
{
    if (url_->role() == CARole::Sitemap) {
        CATellOfSitemap(*url_, "it is redirected " + fault);
    }
}

// Does without a target that a limit keeps out. True when that changes nothing, because it is
// known.
bool CAParseHTTP::refuse(const char *location, CADrop limit)
{
    CATrace("Ignoring.... location URL \"%s\" (%s).\n", location, CALimitText(limit));
    if (sinkIfKnown(location, 0)) {
        return true;
    }
    if (decidesAtOnce()) {
        reportDropped(location, 0, limit);
    } else {
        waitsFor_ = limit;
    }
    return false;
}

namespace {

// True when links of the page would be followed.
bool leadsFurther(const CAURL &url)
{
    return url.depth() < ac.delveDepth && CAMatchWhen(ac.delveInto, url.source()) != 0;
}

// True for a number that is 0; false for what is no number.
bool isZero(std::string_view number)
{
    const std::size_t end = number.find_last_not_of(" \t") + 1;
    const std::size_t begin = std::min(number.find_first_not_of(" \t"), end);
    const std::string_view digits = number.substr(begin, end - begin);
    return !digits.empty() && digits.find_first_not_of('0') == std::string_view::npos;
}

bool isCoded(std::string_view codings)
{
    return std::any_of(codings.begin(), codings.end(), [](char c) { return !HTIsBlank(c); }) &&
           !HTEqualsNoCase(codings, "identity");
}

}  // namespace

void CAParseHTTP::addPageSink(std::string_view contentType)
{
    const std::string_view codings = header("Content-Encoding:");
    bool isUnknown = false;
    addSink(CANewPageParser(
        url_, threadContext_, options_,
        {.contentType = contentType, .contentEncoding = options_.modernLinks ? codings : ""},
        &isUnknown));
    if (!leadsFurther(*url_)) {
        return;
    }
    if (isUnknown || (isCoded(codings) && !options_.modernLinks)) {
        unsearched_ = CAUnsearched::Coded;
    } else if (unframed_ && !untilClose_ && !options_.http11) {
        unsearched_ = CAUnsearched::Unframed;
    }
}

bool CAParseHTTP::chooseSink()
{
    if (namesSeeds() && !options_.takesNothing) {
        addSink(CANewSitemapParser(url_, threadContext_, options_, header("Content-Encoding:")));
        return true;
    }
    const char *const header = HTAssocList_lookupExact(headers_, "Content-type:");
    if (header == nullptr) {
        CATrace("Parser...... couldn't find the content-type.\n");
        return false;
    }
    if (options_.takesNothing) {
        return true;
    }
    const std::string_view type(header, std::strcspn(header, ";"));
    if (type == "text/html") {
        CATrace("Parser...... will parse HTML body.\n");
        addPageSink(header);
        return true;
    }
    CATrace("Parser...... doesn't understand Content-type: %.*s\n", static_cast<int>(type.size()),
            type.data());
    if (ac.saveFiles != 0 && ac.saveRoot != nullptr) {
        CATrace("So.......... we added a binary parser.\n");
        addSink(new CAParseBinary(url_));
    }
    return true;
}

void CAParseHTTP::consumeBody(char **readP, char *const *writeP, std::int32_t *finished,
                              std::int32_t *closeConnection)
{
    const auto avail = static_cast<std::int32_t>(*writeP - *readP);
    if (contentLength_ > 0) {
        consumeLength(readP, avail, finished, closeConnection);
    } else if (untilClose_) {
        CATrace("HTTP........ parser sending %d bytes to its sink.\n", avail);
        *readP += CAParser::consume(*readP, avail, finished, closeConnection);
    } else if (chunked_) {
        CATrace("HTTP........ unchunking %d bytes data into the buffer.\n", avail);
        chunks_.decode(*readP, avail,
                       {.sink = sink_, .finished = finished, .closeConnection = closeConnection});
        *readP += avail;
        hasEnded_ = chunks_.hasEnded();
    } else {
        hasEnded_ = isZero(header("Content-Length:")) && avail == 0;
        state_ = State::Discard;
    }
}

void CAParseHTTP::consumeLength(char **readP, std::int32_t avail, std::int32_t *finished,
                                std::int32_t *closeConnection)
{
    CATrace("HTTP........ parser sending %u bytes to its sink, (%" PRId64 "/%" PRId64 ") .\n",
            static_cast<unsigned>(avail), bodyDelivered_, contentLength_);
    const std::int32_t eaten = CAParser::consume(*readP, avail, finished, closeConnection);
    bodyDelivered_ += eaten;
    *readP += eaten;
    CATrace("HTTP........ the sink eat %d bytes, %" PRId64 " bytes more wanted.\n", eaten,
            contentLength_ - bodyDelivered_);
    if (bodyDelivered_ == contentLength_) {
        hasEnded_ = true;
        *finished = 1;
    }
}
