#include "CAparseHTML.h"

#include "CAparseBinary.h"
#include "CAtrace.h"

CAParseHTML::CAParseHTML(CAURL *url) : CAParser(url)
{
    commonInit();
}

CAParseHTML::CAParseHTML(CAURL *url, HTThreadContext *threadContext) : CAParser(url, threadContext)
{
    commonInit();
}

void CAParseHTML::commonInit()
{
    if (ac.saveFiles == 0 || ac.saveRoot == nullptr) {
        return;
    }
    CATrace("Adding...... new binary-parser for URL \"%s\".\n", url_->stringitize());
    addSink(new CAParseBinary(url_));
}

CAParseHTML::~CAParseHTML()
{
    if (sink_ != nullptr) {
        CATrace("CAParseHTML. deleting its sink.\n");
        addSink(nullptr);
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
    if (wantsLinks()) {
        links_.scan(data, data + length);
    }
    return length;
}

bool CAParseHTML::wantsLinks() const
{
    if (ac.delveInto == NEVER && ac.loadInlineImages == 0) {
        return false;
    }
    if (CAMatchWhen(ac.delveInto, url_->source()) == 0) {
        CATrace("HTMLconsume. Don't delve off of URL: \"%s\".\n", url_->stringitize());
        return false;
    }
    if (queueIsFull()) {
        CATrace("HTMLconsume. Bailing 'cause queue is full.\n");
        return false;
    }
    if (urlLimitIsReached()) {
        CATrace("HTMLconsume. Bailing 'cause we hit max #URLs.\n");
        return false;
    }
    return true;
}

void CAParseHTML::processFoundUrl(const char *link, bool raisesDepth)
{
    if (queueIsFull()) {
        CATrace("Ignoring.... relative URL \"%s\" (queue full).\n", link);
        return;
    }
    if (urlLimitIsReached()) {
        CATrace("Ignoring.... relative URL \"%s\" (hit max #URLs).\n", link);
        return;
    }
    CAURL *const found = resolveFound(link);
    if (raisesDepth) {
        found->setDepth(found->depth() + 1);
    }
    takeIfInteresting(found);
}
