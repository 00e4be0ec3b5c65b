#include "parse/CAparseCoded.h"

#include <algorithm>
#include <utility>

#include "HTString.h"
#include "base/CAtrace.h"
#include "parse/CAparseBinary.h"
#include "parse/CAparseHTML.h"
#include "url/CAcharset.h"

CAParseCoded::CAParseCoded(CAURL *url, HTThreadContext *threadContext,
                           std::unique_ptr<CADecoder> decoder, CAParser *next, CAParser *copy)
    : CAParser(url, threadContext), decoder_(std::move(decoder)), copy_(copy)
{
    addSink(next);
}

// A body that ends within its coding is not whole, although its framing may be.
CAParseCoded::~CAParseCoded()
{
    if (decoder_ != nullptr) {
        CAParser::breakOff();
    }
}

std::int32_t CAParseCoded::consume(char *data, std::int32_t length, std::int32_t *finished,
                                   std::int32_t *closeConnection)
{
    if (data == nullptr || length <= 0) {
        return 0;
    }
    if (copy_ != nullptr) {
        copy_->consume(data, length, finished, closeConnection);
    }
    std::string_view input(data, static_cast<std::size_t>(length));
    bool mayHoldMore = true;
    while (decoder_ != nullptr && mayHoldMore) {
        const std::size_t room = std::min(kBlock, kMostDecoded - decoded_);
        const std::size_t made = decoder_->decode(&input, block_.data(), room);
        mayHoldMore = made == room || !input.empty();
        decoded_ += made;
        CAParser::consume(block_.data(), static_cast<std::int32_t>(made), finished,
                          closeConnection);
        stopWhenDone();
    }
    return length;
}

void CAParseCoded::breakOff()
{
    if (copy_ != nullptr) {
        copy_->breakOff();
    }
    CAParser::breakOff();
}

void CAParseCoded::stopWhenDone()
{
    if (decoder_->state() == CADecoder::State::Broken) {
        CATrace("Coding...... is broken after %zu bytes, no more links are looked for.\n",
                decoded_);
        CAParser::breakOff();
    } else if (decoded_ == kMostDecoded) {
        CATrace("Coding...... gave %zu bytes, no links are looked for in the rest.\n", decoded_);
    } else if (decoder_->state() == CADecoder::State::Reading) {
        return;
    }
    decoder_.reset();
}

namespace {

constexpr std::size_t kMostCodings = 3;

}  // namespace

bool CAMakeDecoders(std::string_view codings, CADecoders *decoders)
{
    while (!codings.empty()) {
        const std::string_view coding = HTTakeMember(&codings);
        if (coding.empty() || HTEqualsNoCase(coding, "identity")) {
            continue;
        }
        decoders->push_back(CANewDecoder(coding));
        if (decoders->back() == nullptr || decoders->size() > kMostCodings) {
            return false;
        }
    }
    return true;
}

CAParser *CAPutDecoders(CAURL *url, HTThreadContext *threadContext, CADecoders *decoders,
                        CAParser *parser)
{
    for (std::unique_ptr<CADecoder> &decoder : *decoders) {
        CAParser *const copy = &decoder == &decoders->back() ? CANewCopy(url) : nullptr;
        parser = new CAParseCoded(url, threadContext, std::move(decoder), parser, copy);
    }
    return parser;
}

CAParser *CANewPageParser(CAURL *url, HTThreadContext *threadContext, const CAParseOptions &options,
                          const CAPageHeaders &headers, bool *isUnknown)
{
    const std::string_view codings = headers.contentEncoding;
    CADecoders decoders;
    if (!codings.empty() && CAParseHTML::delves(url) && !CAMakeDecoders(codings, &decoders)) {
        CATrace("Coding...... can't decode \"%.*s\", no links are looked for.\n",
                static_cast<int>(codings.size()), codings.data());
        *isUnknown = true;
        return CANewCopy(url);
    }
    CAParseHTML *const page =
        new CAParseHTML(url, threadContext, options,
                        decoders.empty() ? CAParseHTML::Copy::IfWanted : CAParseHTML::Copy::None);
    page->declareCharset(CACharsetLabel(headers.contentType));
    if (decoders.empty()) {
        return page;
    }
    CATrace("Coding...... will decode \"%.*s\".\n", static_cast<int>(codings.size()),
            codings.data());
    return CAPutDecoders(url, threadContext, &decoders, page);
}
