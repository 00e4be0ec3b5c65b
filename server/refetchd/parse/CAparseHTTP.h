// The head of every parser chain: status line, headers, redirections, and the body's framing.
#pragma once

#include <cstdint>
#include <string_view>

#include "HTAssoc.h"
#include "config/CAoptions.h"
#include "parse/CAparse.h"
#include "parse/CAparseChunked.h"
#include "report/CAverdict.h"

// Reads one response. A 302 enqueues its "Location:"; a 200 hands its body to the sink that fits
// its type; every other status is abandoned, unless the options say otherwise. Any byte may be the
// last of a block.
class CAParseHTTP : public CAParser {
public:
    explicit CAParseHTTP(CAURL *url);
    CAParseHTTP(CAURL *url, HTThreadContext *threadContext, const CAParseOptions &options = {});
    ~CAParseHTTP() override;
    CAParseHTTP(const CAParseHTTP &) = delete;
    CAParseHTTP &operator=(const CAParseHTTP &) = delete;

    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;

    // The status code; 0 until the status line was read, 500 when it was none.
    [[nodiscard]] std::int32_t getHTTPRequestRC() const { return rc_; }

    // False once what came turned out to be no HTTP response.
    [[nodiscard]] bool isHTTP() const { return isHTTP_; }

    // True once it is known that nothing but the end of the connection tells where the body ends.
    [[nodiscard]] bool isUnframed() const { return unframed_; }

    // True while a limit of the queue stands against a redirection, which is looked at again with
    // each block.
    [[nodiscard]] bool waitsForRoom() const { return waitsFor_ != CADrop::None; }

    // The value of a header that is kept (its name with the colon), as it stands; "" without one.
    [[nodiscard]] std::string_view header(const char *name) const;

    // Those that say what the cache did; they stay the parser's.
    [[nodiscard]] CACacheHeaders cacheHeaders() const;

private:
    enum class State : std::uint8_t {
        StatusLine = 0,
        Headers = 1,
        Complete = 2,  // headers complete: decides what becomes of the body
        Body = 3,
        Discard = 4,  // drops everything, done and close; final
    };

    void step(std::int32_t *finished, std::int32_t *closeConnection);
    void consumeRC(char **readP, char *const *writeP);
    void consumeHeaders(char **readP, char *const *writeP);
    void addHeader(char *line);
    void keepHeader(const char *name, const char *value);
    void addWithoutBlank(const char *line);
    void readFraming(std::int32_t *closeConnection);
    [[nodiscard]] bool isChunked() const;
    [[nodiscard]] bool leadsOn() const;
    void makeDecision();
    [[nodiscard]] bool followRedirect();
    void chooseSink();
    void consumeBody(char **readP, char *const *writeP, std::int32_t *finished,
                     std::int32_t *closeConnection);
    void consumeLength(char **readP, std::int32_t avail, std::int32_t *finished,
                       std::int32_t *closeConnection);

    const CAParseOptions options_;
    HTAssocList *headers_;  // owned; names keep their colon
    std::size_t headerBytes_ = 0;
    State state_ = State::StatusLine;
    std::int32_t rc_ = 0;
    std::int64_t contentLength_ = 0;  // 0 when absent; bodies may be larger than 2 GiB
    std::int64_t bodyDelivered_ = 0;
    bool chunked_ = false;
    bool unframed_ = false;
    bool untilClose_ = false;  // unframed, and its body is wanted all the same
    bool isHTTP_ = true;
    CADrop waitsFor_ = CADrop::None;  // the limit that stands against the redirection
    CAChunkDecoder chunks_;
};
