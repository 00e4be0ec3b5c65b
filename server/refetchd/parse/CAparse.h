// The types on which all parsers of responses are built: a byte buffer that grows, and the base
// class of the stages of a parser chain.
//
// A chain reads one response. The connection passes each block to the head (CAParseHTTP), which
// removes the status line, the headers and the chunk framing, and passes the body on to its sink:
// CAParseHTML for pages, with CAParseCoded in front if they are compressed; CAParseBinary for other
// bodies that are saved. Without a sink the body is dropped. A chain belongs to one worker thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "HTWorkThread.h"
#include "base/CAoutcome.h"
#include "config/CAoptions.h"
#include "report/CAdropped.h"
#include "url/CAURL.h"

class CACharset;

// A byte buffer with a read and a write position. A NUL always follows the unread bytes.
class CABuffer {
public:
    // A buffer larger than this no longer grows.
    static constexpr std::int32_t maxBufferSize = 65536;

    // A buffer of `size` bytes. They are allocated when the first data are added, because most
    // stages never buffer any. If memory is out then, the buffer takes nothing.
    explicit CABuffer(std::int32_t size);
    virtual ~CABuffer();
    CABuffer(const CABuffer &) = delete;
    CABuffer &operator=(const CABuffer &) = delete;

    // Appends up to `length` bytes. Returns how many were taken: 0 when there are no data, or when
    // the buffer is full and may not grow, or has no memory. Returns -1, with the contents
    // unchanged, when the buffer had to grow and could not.
    std::int32_t addData(const char *data, std::int32_t length);

    // Does the same without a copy: the positions point into `data` until takeBack(), which must be
    // called before anything else is added and while `data` is valid. Writes a NUL to
    // `data[length]`. False, with the buffer as it was, while bytes are unread, or if addData()
    // would not take all `length` bytes.
    [[nodiscard]] bool lend(char *data, std::int32_t length);
    // Copies what is still unread of the data that lend() took. It is lost if memory is out.
    void takeBack();

    // Marks `n` bytes as read; a negative `n` makes bytes unread again. The buffer is emptied when
    // all bytes are read or `n` is out of range. Returns the new read position.
    char *adjustReadP(std::int32_t n);

    [[nodiscard]] std::int32_t getBufferSize() const { return size_; }
    [[nodiscard]] std::int32_t getContentSize() const { return contentSize_; }
    // The block is null until data are added, or allocated at once while tracing is on. The
    // positions may be null while nothing is unread.
    [[nodiscard]] char *getBuffer() const { return buffer_; }
    [[nodiscard]] char *getReadP() const { return readP_; }
    [[nodiscard]] char *getWriteP() const { return writeP_; }
    // For a parser that moves the positions itself and then calls adjustContentSize().
    [[nodiscard]] char **getReadPP() { return &readP_; }
    [[nodiscard]] char **getWritePP() { return &writeP_; }
    void adjustContentSize() { contentSize_ = static_cast<std::int32_t>(writeP_ - readP_); }

private:
    [[nodiscard]] bool mustGrow(std::int32_t length) const;
    [[nodiscard]] bool makeBlock();
    std::int32_t grow(const char *data, std::int32_t length);
    void compact();

    std::int32_t size_;          // most bytes that are kept
    std::int32_t capacity_ = 0;  // bytes of the block, not counting the one for the NUL
    std::int32_t contentSize_ = 0;
    std::int32_t start_ = 0;      // where in the block the next data go, while readP_ is null
    const char *lent_ = nullptr;  // the data that lend() took; null: none
    char *buffer_ = nullptr;      // owned
    char *readP_ = nullptr;
    char *writeP_ = nullptr;
};

// One stage of the chain. A stage owns its sink and its buffer, never the URL.
class CAParser {
public:
    static constexpr std::int32_t kBufferSize = 4096;

    explicit CAParser(CAURL *url);
    CAParser(CAURL *url, HTThreadContext *threadContext);
    virtual ~CAParser();  // deletes the sink, and with it the rest of the chain
    CAParser(const CAParser &) = delete;
    CAParser &operator=(const CAParser &) = delete;

    // Offers the next `length` bytes of the response. The stage may write into them and into
    // `data[length]`. Returns how many bytes were taken; CAParseHTTP offers the rest to its sink
    // again. Sets `*finished` to 1 when the response is complete or no more of it is wanted, and
    // `*closeConnection` to 1 when the connection must be closed afterwards or to 0 when it may be
    // kept. A stage that decides neither leaves both as they are. The base class passes everything
    // to its sink; without one it takes and drops everything.
    virtual std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                                 std::int32_t *closeConnection);

    // Tells this stage and those behind it that the response is not whole: it broke off, or nobody
    // reads its rest. What they have got does not count as a body then.
    virtual void breakOff();

    // True once the rest of the response is read only to keep the connection: nobody should wait
    // long for it.
    [[nodiscard]] bool isUnwanted() const { return isUnwanted_; }

    // Deletes the sink and takes over `next`, which may be null, in its place. Returns `next`.
    CAParser *addSink(CAParser *next);

protected:
    // Resolves links as browsers do from now on.
    void useWebLinks();
    // Makes the URL of a link or redirection of this response; its depth is `deeper` levels more
    // than that of the response's URL. The caller owns it. Null (traced) when browsers make no URL
    // of it.
    [[nodiscard]] CAURL *resolveFound(const char *link, std::int32_t deeper);
    // Reports to `results`, if outcomes are collected, that a limit keeps this link out. After many
    // links that are dropped, the rest are only counted.
    void reportDropped(const char *link, std::int32_t deeper, CADrop why);
    // For a link that a limit keeps out; does nothing, and is false, unless the queue is ordered by
    // depth. True when the link's URL is recorded; if it still waits, it takes the smaller depth,
    // which needs no room in the queue.
    [[nodiscard]] bool sinkIfKnown(const char *link, std::int32_t deeper);
    // Takes `found` over, which may be null. If it is interesting, it is counted for its host,
    // recorded as processed and enqueued. Otherwise it is deleted, and reported as dropped unless
    // it was recorded before.
    void takeIfInteresting(CAURL *found);

    CAParser *sink_ = nullptr;  // owned
    CAURL *const url_;
    bool webLinks_ = false;
    std::unique_ptr<const CAURL> webPage_;     // url_ in the form of browsers; null if it has none
    const CAURL *page_ = url_;                 // what links are compared with
    const CAURL *base_ = url_;                 // links are relative to this
    const CACharset *queryCharset_ = nullptr;  // of the next link, as browsers see it; null: UTF-8
    HTThreadContext *const threadContext_;
    CABuffer buffer_{kBufferSize};  // input that waits to be parsed
    bool isUnwanted_ = false;

private:
    [[nodiscard]] bool countsDropsOnly() const { return drops_ >= CADropped::kMostOfPage; }
    void reportDropped(const CAURL &found, CADrop why);

    std::optional<const CALinkBase> linkBase_;  // url_, once there is a link
    std::int32_t drops_ = 0;
    std::int64_t moreDrops_ = 0;
};
