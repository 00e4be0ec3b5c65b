#include "parse/CAparseHTML.h"

#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "config/CAwanted.h"
#include "parse/CAparseBinary.h"
#include "url/CAURL.h"
#include "url/CAqueue.h"

CAParseHTML::CAParseHTML(CAURL *url) : CAParseHTML(url, HTThread_context()) {}

CAParseHTML::CAParseHTML(CAURL *url, HTThreadContext *threadContext, const CAParseOptions &options,
                         Copy copy)
    : CAParser(url, threadContext), links_(this, ac.loadInlineImages != 0)
{
    if (copy == Copy::IfWanted) {
        commonInit();
    }
    if (options.modernLinks) {
        useWebLinks();
        modernLinks_ = std::make_unique<CAScanModern>(static_cast<CALinkSink *>(this),
                                                      ac.loadInlineImages != 0);
    }
}

void CAParseHTML::commonInit()
{
    addSink(CANewCopy(url_));
}

CAParseHTML::~CAParseHTML()
{
    if (sink_ != nullptr) {
        CATrace("CAParseHTML. deleting its sink.\n");
        addSink(nullptr);
    }
}

void CAParseHTML::declareCharset(std::string_view label)
{
    if (modernLinks_ != nullptr) {
        modernLinks_->declareCharset(label);
    }
}

std::int32_t CAParseHTML::consume(char *data, std::int32_t length, std::int32_t *finished,
                                  std::int32_t *closeConnection)
{
    if (data == nullptr || length <= 0) {
        return 0;
    }
    if (sink_ != nullptr) {
        CATrace("HTML........ parser sending %u bytes to its sink.\n",
                static_cast<unsigned>(length));
        sink_->consume(data, length, finished, closeConnection);
    }
    if (!delves(url_)) {
        return length;
    }
    if (modernLinks_ != nullptr) {
        // Scan every block, even while a limit is reached: the scanner must see where comments and
        // scripts begin and end. processFoundUrl() drops the links.
        modernLinks_->scan(data, data + length);
    } else if (takesLinks()) {
        links_.scan(data, data + length);
    }
    return length;
}

bool CAParseHTML::delves(const CAURL *url)
{
    if (ac.delveInto == NEVER && ac.loadInlineImages == 0) {
        return false;
    }
    if (CAMatchWhen(ac.delveInto, url->source()) == 0) {
        CATrace("HTMLconsume. Don't delve off of URL: \"%s\".\n", url->stringitize());
        return false;
    }
    return true;
}

bool CAParseHTML::takesLinks()
{
    if (urlQueue->isOrderedByDepth()) {
        return true;  // a link may be a shorter way to a URL that waits
    }
    const CADrop limit = CALinkLimit();
    if (limit == CADrop::MaxQueueDepth) {
        CATrace("HTMLconsume. Bailing 'cause queue is full.\n");
    } else if (limit == CADrop::MaxUrls) {
        CATrace("HTMLconsume. Bailing 'cause we hit max #URLs.\n");
    }
    return limit == CADrop::None;
}

void CAParseHTML::processFoundBase(const char *href)
{
    foundBase_ = CAURL::fromLink(href, *page_, modernLinks_->charsetOfQuery());
    base_ = foundBase_ != nullptr ? foundBase_.get() : page_;
}

void CAParseHTML::processFoundUrl(const char *link, bool raisesDepth)
{
    const std::int32_t deeper = raisesDepth ? 1 : 0;
    queryCharset_ = modernLinks_ != nullptr ? modernLinks_->charsetOfQuery() : nullptr;
    if (const CADrop limit = CALinkLimit(); limit != CADrop::None) {
        CATrace("Ignoring.... relative URL \"%s\" (%s).\n", link, CALimitText(limit));
        if (!sinkIfKnown(link, deeper)) {
            reportDropped(link, deeper, limit);
        }
        return;
    }
    takeIfInteresting(resolveFound(link, deeper));
}
