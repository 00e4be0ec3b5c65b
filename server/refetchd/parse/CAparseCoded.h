// The stage that decodes compressed pages for the search for links.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "parse/CAdecode.h"
#include "parse/CAparse.h"

// Passes each block as it came to a parser that saves it, and what it decodes to its sink. After
// kMostDecoded bytes, and when the coding is broken, it decodes no more; what the sink has found so
// far stays. The rest of the body is read, and saved, all the same.
class CAParseCoded : public CAParser {
public:
    static constexpr std::size_t kMostDecoded = 64UL * 1024 * 1024;

    // Owns all three: the decoder, the sink `next`, and the parser `copy`, which may be null.
    CAParseCoded(CAURL *url, HTThreadContext *threadContext, std::unique_ptr<CADecoder> decoder,
                 CAParser *next, CAParser *copy);
    CAParseCoded(const CAParseCoded &) = delete;
    CAParseCoded &operator=(const CAParseCoded &) = delete;
    ~CAParseCoded() override;

    // Takes everything. Leaves both flags to the parsers behind it.
    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;

    void breakOff() override;

private:
    static constexpr std::size_t kBlock = 16384;

    void stopWhenDone();

    std::unique_ptr<CADecoder> decoder_;  // null when nothing more is decoded
    const std::unique_ptr<CAParser> copy_;
    std::size_t decoded_ = 0;
    std::array<char, kBlock + 1> block_{};  // the sink may write one byte behind those that it gets
};

using CADecoders = std::vector<std::unique_ptr<CADecoder>>;

// Makes a decoder for each coding of a Content-Encoding header, in the order in which the codings
// were applied. False when one is unknown, or there are more than three.
[[nodiscard]] bool CAMakeDecoders(std::string_view codings, CADecoders *decoders);

// Puts the decoders, at least one, in front of `parser`; the first of the chain also saves the body
// when copies are kept. The caller owns the result, and with it `parser`.
[[nodiscard]] CAParser *CAPutDecoders(CAURL *url, HTThreadContext *threadContext,
                                      CADecoders *decoders, CAParser *parser);

// The values of the headers of a page; "" for one that is missing.
struct CAPageHeaders {
    std::string_view contentType = {};
    std::string_view contentEncoding = {};
};

// The parser of a page with these headers. If the links of the page are wanted and all its codings
// are known, at most three, it undoes them, the last one first; with others it only saves what
// comes, and sets `*isUnknown`. Null when there is nothing to do. The caller owns it.
[[nodiscard]] CAParser *CANewPageParser(CAURL *url, HTThreadContext *threadContext,
                                        const CAParseOptions &options, const CAPageHeaders &headers,
                                        bool *isUnknown);
