#include "parse/CAparse.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "config/CAwanted.h"
#include "report/CAresults.h"
#include "url/CAURL.h"
#include "url/CAhost.h"
#include "url/CAprocessed.h"
#include "url/CAqueue.h"

CABuffer::CABuffer(std::int32_t size) : size_(size)
{
    if (CATraceOn()) {
        static_cast<void>(makeBlock());  // now, because the line shows its address
        CATraceLine("Buffer...... new a buffer %" PRIxPTR ".\n",
                    reinterpret_cast<std::uintptr_t>(buffer_));
    }
}

// Makes a block for `size_` bytes, unless there is one; its contents are not kept. If memory is
// out, the size becomes 0, so that the buffer never takes anything.
bool CABuffer::makeBlock()
{
    if (buffer_ != nullptr && capacity_ >= size_) {
        return true;
    }
    std::free(buffer_);
    buffer_ = size_ == 0 ? nullptr
                         : static_cast<char *>(std::malloc(static_cast<std::size_t>(size_) + 1));
    size_ = buffer_ == nullptr ? 0 : size_;
    capacity_ = size_;
    return buffer_ != nullptr;
}

CABuffer::~CABuffer()
{
    std::free(buffer_);
}

bool CABuffer::mustGrow(std::int32_t length) const
{
    return std::int64_t{length} + contentSize_ >= size_ && size_ <= maxBufferSize;
}

std::int32_t CABuffer::addData(const char *data, std::int32_t length)
{
    if (data == nullptr || length <= 0) {
        return 0;
    }
    if (readP_ == nullptr) {
        if (!makeBlock()) {
            return 0;
        }
        readP_ = buffer_ + start_;
        writeP_ = readP_;
    }
    CATrace("Buffer...... bs %d, cs %d, sz %d.\n", size_, contentSize_, length);
    if (mustGrow(length)) {
        return grow(data, length);
    }
    if (readP_ - buffer_ > size_ >> 1) {
        compact();
    }
    const auto room = static_cast<std::int32_t>(buffer_ + size_ - writeP_);
    const std::int32_t taken = std::min(room, length);
    std::memcpy(writeP_, data, static_cast<std::size_t>(taken));
    writeP_ += taken;
    *writeP_ = '\0';
    adjustContentSize();
    return taken;
}

// Keeps account of size and positions as addData() does, so that it makes no difference to later
// data, nor to the trace, whether these were copied.
bool CABuffer::lend(char *data, std::int32_t length)
{
    if (length <= 0 || contentSize_ != 0 || size_ == 0 || length >= INT32_MAX - size_) {
        return false;
    }
    const auto at = static_cast<std::int32_t>(readP_ == nullptr ? start_ : readP_ - buffer_);
    const bool grows = mustGrow(length);
    const std::int32_t start = grows || at > size_ >> 1 ? 0 : at;
    if (!grows && length > size_ - start) {
        return false;
    }
    CATrace("Buffer...... bs %d, cs %d, sz %d.\n", size_, contentSize_, length);
    size_ += grows ? length : 0;
    start_ = start;
    lent_ = data;
    readP_ = data;
    writeP_ = data + length;
    *writeP_ = '\0';
    adjustContentSize();
    return true;
}

void CABuffer::takeBack()
{
    const char *const unread = readP_;
    start_ += static_cast<std::int32_t>(readP_ - std::exchange(lent_, nullptr));
    readP_ = nullptr;
    writeP_ = nullptr;
    if (contentSize_ == 0) {
        return;
    }
    if (!makeBlock()) {
        contentSize_ = 0;
        return;
    }
    readP_ = buffer_ + start_;
    writeP_ = std::copy_n(unread, contentSize_, readP_);
    *writeP_ = '\0';
}

// Increases the size by the offered length, so that the new bytes always fit after the unread
// ones. The block at least doubles when it is replaced: a body that arrives in many pieces is then
// not copied for each of them.
std::int32_t CABuffer::grow(const char *data, std::int32_t length)
{
    const std::int64_t newSize = std::int64_t{size_} + length;
    if (newSize >= INT32_MAX) {
        return -1;
    }
    char *block = buffer_;
    if (newSize > capacity_) {
        const auto capacity = static_cast<std::int32_t>(
            std::clamp<std::int64_t>(2 * std::int64_t{capacity_}, newSize, INT32_MAX - 1));
        block = static_cast<char *>(std::malloc(static_cast<std::size_t>(capacity) + 1));
        if (block == nullptr) {
            return -1;
        }
        capacity_ = capacity;
    }
    std::memmove(block, readP_, static_cast<std::size_t>(contentSize_));
    std::memcpy(block + contentSize_, data, static_cast<std::size_t>(length));
    if (block != buffer_) {
        std::free(buffer_);
        buffer_ = block;
    }
    size_ = static_cast<std::int32_t>(newSize);
    readP_ = block;
    writeP_ = block + contentSize_ + length;
    *writeP_ = '\0';
    adjustContentSize();
    return length;
}

void CABuffer::compact()
{
    std::memmove(buffer_, readP_, static_cast<std::size_t>(contentSize_));
    readP_ = buffer_;
    writeP_ = buffer_ + contentSize_;
    *writeP_ = '\0';
}

char *CABuffer::adjustReadP(std::int32_t n)
{
    const std::int64_t unread = std::int64_t{contentSize_} - n;
    const std::int64_t alreadyRead = readP_ == nullptr ? 0 : readP_ - buffer_;
    if (unread > 0 && alreadyRead + n >= 0) {
        readP_ += n;
        adjustContentSize();
    } else {
        readP_ = buffer_;
        writeP_ = buffer_;
        contentSize_ = 0;
    }
    return readP_;
}

CAParser::CAParser(CAURL *url) : CAParser(url, HTThread_context()) {}

CAParser::CAParser(CAURL *url, HTThreadContext *threadContext)
    : url_(url), threadContext_(threadContext)
{
}

CAParser::~CAParser()
{
    if (moreDrops_ > 0) {
        results.droppedMore(*url_, moreDrops_);
    }
    delete sink_;
}

std::int32_t CAParser::consume(char *data, std::int32_t length, std::int32_t *finished,
                               std::int32_t *closeConnection)
{
    return sink_ == nullptr ? length : sink_->consume(data, length, finished, closeConnection);
}

void CAParser::breakOff()
{
    if (sink_ != nullptr) {
        sink_->breakOff();
    }
}

CAParser *CAParser::addSink(CAParser *next)
{
    delete sink_;
    sink_ = next;
    return next;
}

void CAParser::useWebLinks()
{
    if (webLinks_) {
        return;
    }
    webLinks_ = true;
    webPage_ = url_->inWebForm();
    page_ = webPage_ != nullptr ? webPage_.get() : url_;
    base_ = page_;
}

CAURL *CAParser::resolveFound(const char *link, std::int32_t deeper)
{
    if (!webLinks_ && !linkBase_) {
        linkBase_.emplace(*url_);
    }
    CAURL *const found = webLinks_ ? CAURL::fromLink(link, *base_, queryCharset_).release()
                                   : new CAURL(link, *linkBase_);
    if (found == nullptr) {
        return nullptr;
    }
    found->setDepth(found->depth() + deeper);
    if (ac.debugFlags[kDebugParseUrl] != 0) {
        std::fprintf(CATraceOrStderr(), "Parsed...... \"%s\" + \"%s\" --> \"%s\".\n", link,
                     url_->stringitize(), found->stringitize());
    }
    return found;
}

void CAParser::reportDropped(const CAURL &found, CADrop why)
{
    if (countsDropsOnly()) {
        ++moreDrops_;
    } else {
        ++drops_;  // repeated ones, too, because each is looked up
        results.dropped(found.stringitize(), found.source(), found.depth(), why);
    }
}

void CAParser::reportDropped(const char *link, std::int32_t deeper, CADrop why)
{
    if (!results.observes()) {
        return;
    }
    if (countsDropsOnly()) {
        ++moreDrops_;  // without the work of resolving it
        return;
    }
    const std::unique_ptr<CAURL> found(resolveFound(link, deeper));
    if (found != nullptr) {
        reportDropped(*found, why);
    }
}

bool CAParser::sinkIfKnown(const char *link, std::int32_t deeper)
{
    if (!urlQueue->isOrderedByDepth()) {
        return false;
    }
    const std::unique_ptr<CAURL> found(resolveFound(link, deeper));
    const bool isKnown = found != nullptr && CAObjection(*found, *page_) == CADrop::Processed;
    if (isKnown) {
        urlQueue->sink(found->stringitize(), found->depth());
    }
    return isKnown;
}

void CAParser::takeIfInteresting(CAURL *found)
{
    if (found == nullptr) {
        return;
    }
    CAUrlKey key(*found);
    if (const CADrop why = CAObjection(*found, *page_, &key); why != CADrop::None) {
        CATrace("Not......... interested in URL \"%s\".\n", found->stringitize());
        if (why == CADrop::Processed) {
            urlQueue->sink(found->stringitize(), found->depth());
        }
        if (why != CADrop::Processed && results.observes()) {
            reportDropped(*found, why);
        }
        delete found;
        return;
    }
    const std::string_view host = found->host();
    CATrace("Interested.. in URL \"%s\".\n", found->stringitize());
    CATrace("Interested..   for host \"%.*s\".\n", CALength(host), host.data());
    ht.addHit(host);  // before the URL becomes another thread's
    if (!urlQueue->enqueueFound(found, &key)) {
        ht.addHits(host, -1);
        delete found;
    }
}
