// The head of a parser chain for HTTP/1.1: RFC 9112.
#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "parse/CAchunks.h"
#include "parse/CAframing.h"
#include "parse/CAparseHTTP.h"

// Reads one response, in blocks that may end at any byte, as CAParseHTTP does, but strictly.
// Interim responses (1xx) are passed over. The body of a response that is not wanted, such as a
// 404, is read away if it is short, so that the connection can be kept. A response that breaks the
// rules ends the exchange and the connection: isHTTP() is false then, or, when only its chunks are
// wrong, isCutShort() is true. Bytes behind its end cost the connection alone.
class CAParseHTTP11 : public CAParseHTTP {
public:
    using CAParseHTTP::CAParseHTTP;

    // Takes everything.
    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;

private:
    enum class State : std::uint8_t {
        StatusLine,
        Headers,
        Body,
        Complete,
        Broken,   // the response breaks the rules
        GivenUp,  // the rest is not worth reading
    };

    State readHead(char **at, char *end);
    State readLine(std::string_view line);
    State readStatusLine(std::string_view line);
    State readField(std::string_view line);
    State endHead();
    State beginBody();
    State skipBody();
    State readBody(char **at, char *end);
    State readChunks(char **at, char *end);
    State deliver(char *piece, std::int64_t length);
    State broken(const char *why);

    CAFraming framing_;
    CAChunkReader chunks_;
    State state_ = State::StatusLine;
    bool keepsByDefault_ = false;   // the status line names HTTP/1.1
    int interim_ = 0;               // interim responses so far
    std::size_t headBytes_ = 0;     // of the heads so far
    std::int64_t left_ = 0;         // bytes of a body with a length that are still to come
    std::int64_t readAway_ = 0;     // bytes of a body that is not wanted
    std::time_t patienceEnds_ = 0;  // when the rest of such a body is given up
    std::string line_;              // the start of a line that has not ended yet
};

// The head of the chain for the options' version of HTTP.
[[nodiscard]] std::unique_ptr<CAParseHTTP> CANewResponseParser(CAURL *url,
                                                               HTThreadContext *threadContext,
                                                               const CAParseOptions &options);
