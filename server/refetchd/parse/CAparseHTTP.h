// The head of every parser chain: reads the status line, the headers, redirects and the framing of
// the body.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "HTAssoc.h"
#include "config/CAoptions.h"
#include "parse/CAparse.h"
#include "parse/CAparseChunked.h"
#include "report/CAverdict.h"

// Reads one response, in blocks that may end at any byte. After status 302, and after the other
// redirects if the options say so, it enqueues the URL of "Location:", which inherits the role of
// the response's URL. After status 200 it passes the body to a sink for that role or for its type.
// All responses except a 200 are abandoned after their headers.
//
// CAParseHTTP11 (CAparseHTTP11.h) does the same by the rules of HTTP/1.1.
class CAParseHTTP : public CAParser {
public:
    explicit CAParseHTTP(CAURL *url);
    CAParseHTTP(CAURL *url, HTThreadContext *threadContext, const CAParseOptions &options = {});
    ~CAParseHTTP() override;
    CAParseHTTP(const CAParseHTTP &) = delete;
    CAParseHTTP &operator=(const CAParseHTTP &) = delete;

    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;

    // The status code; 0 until the status line was read or if it holds no number, 500 if the first
    // line is no status line.
    [[nodiscard]] std::int32_t getHTTPRequestRC() const { return rc_; }

    // False once the first line turned out to be no status line, or the head no HTTP.
    [[nodiscard]] bool isHTTP() const { return isHTTP_; }

    // True when the body ended too early because it broke the rules.
    [[nodiscard]] bool isCutShort() const { return isCutShort_; }

    // True once the headers show that only the end of the connection marks the end of the body.
    [[nodiscard]] bool isUnframed() const { return unframed_; }

    // True when the status is that of a redirect that is followed.
    [[nodiscard]] bool leadsOn() const;

    // True while a limit of the queue keeps out the target of a redirect. Each further block of the
    // response tries it again; if none succeeds, the destructor reports the target as dropped. With
    // the options `followAllRedirects` and `http11` it is always false: the target is taken or
    // dropped once the headers are complete.
    [[nodiscard]] bool waitsForRoom() const { return waitsFor_ != CADrop::None; }

    // The value of a header, unchanged, by its name with the colon, in any case; the last one if
    // there are several. "" if there is none or the header is not kept. Valid as long as the
    // parser.
    [[nodiscard]] std::string_view header(std::string_view name) const;

    // Why links are not looked for in the body of a page although they would be followed.
    // Compression shows only if the options keep its header.
    [[nodiscard]] CAUnsearched unsearched() const { return unsearched_; }

    // The headers that say what the cache did; empty unless the options keep them. Valid as long as
    // the parser.
    [[nodiscard]] CACacheHeaders cacheHeaders() const;

protected:
    static constexpr std::int32_t kOk = 200;
    static constexpr std::int32_t kBadResponse = 500;

    // True for a header that somebody asks for later. The name includes the colon, also below.
    [[nodiscard]] bool isUseful(std::string_view name) const;
    // Keeps a header, unless the headers have used up their memory already.
    void keepHeader(std::string_view name, std::string_view value);
    // True when the body names seeds (CARole).
    [[nodiscard]] bool namesSeeds() const;
    // Follows a redirect. False when a limit of the queue keeps its target out for now.
    [[nodiscard]] bool followIfRedirected();
    // Installs the sink for the body of a 200. False (traced) when the response has no type.
    [[nodiscard]] bool chooseSink();

    const CAParseOptions options_;
    std::int32_t rc_ = 0;
    bool isHTTP_ = true;
    bool unframed_ = false;
    bool isCutShort_ = false;
    // The body has ended, or only the connection ends it. Unless this is so when the parser is
    // deleted, the response has broken off.
    bool hasEnded_ = false;

    enum class State : std::uint8_t {
        StatusLine = 0,
        Headers = 1,
        Complete = 2,  // headers complete: decides what happens to the body
        Body = 3,
        Discard = 4,  // drops everything and sets both flags; final
    };

    void step(std::int32_t *finished, std::int32_t *closeConnection);
    void consumeRC(char **readP, char *const *writeP);
    void consumeHeaders(char **readP, char *const *writeP);
    void addHeader(char *line);
    void addWithoutBlank(const char *line);
    void readFraming(std::int32_t *closeConnection);
    [[nodiscard]] bool needsPageHeaders() const
    {
        return options_.modernLinks || options_.keepMoreHeaders || namesSeeds();
    }
    [[nodiscard]] bool isChunked() const;
    void makeDecision();
    [[nodiscard]] bool decidesAtOnce() const
    {
        return options_.followAllRedirects || options_.http11;
    }
    [[nodiscard]] bool followRedirect();
    void takeRedirect(const char *location);
    void tellOfRedirect(const std::string &fault) const;
    [[nodiscard]] bool refuse(const char *location, CADrop limit);
    void addPageSink(std::string_view contentType);
    void consumeBody(char **readP, char *const *writeP, std::int32_t *finished,
                     std::int32_t *closeConnection);
    void consumeLength(char **readP, std::int32_t avail, std::int32_t *finished,
                       std::int32_t *closeConnection);

    HTAssocList *headers_;         // owned; the names include the colon
    std::size_t headerBytes_ = 0;  // memory for headers_, see kMaxHeaderBytes
    State state_ = State::StatusLine;
    std::int64_t contentLength_ = 0;  // 0 when absent; bodies may be larger than 2 GiB
    std::int64_t bodyDelivered_ = 0;  // bytes of the body that were passed on
    bool chunked_ = false;            // the body is read as chunks, even if no header says so
    bool untilClose_ = false;         // unframed, and read up to the end of the connection
    CAUnsearched unsearched_ = CAUnsearched::None;
    CADrop waitsFor_ = CADrop::None;  // the limit that keeps out the target of the redirect
    CAChunkDecoder chunks_;
};
