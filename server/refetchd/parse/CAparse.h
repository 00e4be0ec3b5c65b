// The two types on which every stage of a response's way rests: a growable byte buffer, and the
// base of the parser chain.
//
// A chain serves one response: the connection hands each block to the head (CAParseHTTP), which
// takes off status line, headers and chunk framing and passes the body to its sink (CAParseHTML for
// pages, CAParseBinary for bodies that are saved), or to nothing. A chain belongs to one worker
// thread.
#pragma once

#include <cstdint>

#include "HTWorkThread.h"
#include "base/CAoutcome.h"
#include "config/CAoptions.h"

class CAURL;

// A byte buffer with a read and a write position. What is unread is always followed by a NUL.
class CABuffer {
public:
    // A buffer larger than this no longer grows.
    static constexpr std::int32_t maxBufferSize = 65536;

    // `size` bytes of room, which come with the first data: most stages never buffer any. Without
    // memory the buffer takes nothing.
    explicit CABuffer(std::int32_t size);
    virtual ~CABuffer();
    CABuffer(const CABuffer &) = delete;
    CABuffer &operator=(const CABuffer &) = delete;

    // Appends up to `length` bytes. Returns how many were taken (0 for no data or when the buffer
    // is full and may not grow), or -1 when it should have grown and memory is out (nothing
    // changed).
    std::int32_t addData(const char *data, std::int32_t length);

    // Marks `n` bytes as read; with all read, or `n` out of range, the buffer starts afresh.
    // Returns the new read position.
    char *adjustReadP(std::int32_t n);

    [[nodiscard]] std::int32_t getBufferSize() const { return size_; }
    [[nodiscard]] std::int32_t getContentSize() const { return contentSize_; }
    // All null until data was added (the block only while nothing is traced).
    [[nodiscard]] char *getBuffer() const { return buffer_; }
    [[nodiscard]] char *getReadP() const { return readP_; }
    [[nodiscard]] char *getWriteP() const { return writeP_; }
    // For a parser that moves the positions in place; it calls adjustContentSize() afterwards.
    [[nodiscard]] char **getReadPP() { return &readP_; }
    [[nodiscard]] char **getWritePP() { return &writeP_; }
    void adjustContentSize() { contentSize_ = static_cast<std::int32_t>(writeP_ - readP_); }

private:
    void makeBlock();
    std::int32_t grow(const char *data, std::int32_t length);
    void compact();

    std::int32_t size_;      // room
    std::int32_t capacity_;  // what the block has room for, and one byte more for the NUL
    std::int32_t contentSize_ = 0;
    char *buffer_ = nullptr;  // owned
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

    // Offers the next `length` bytes of the stream; `data[length]` may be written. Returns how many
    // bytes were taken: the caller keeps the rest and offers it again. Sets `*finished` to 1 when
    // the response is complete or is to be abandoned, `*closeConnection` to 1 when the connection
    // must be closed after it and to 0 when it may be kept; a stage without a view leaves both
    // alone. The base hands everything to its sink, or drops it.
    virtual std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                                 std::int32_t *closeConnection);

    // Installs `next` (taken over) in place of the sink, which is deleted. Returns `next`.
    CAParser *addSink(CAParser *next);

protected:
    // Builds the URL of a link or redirection found in this response, so many levels deeper.
    [[nodiscard]] CAURL *resolveFound(const char *link, std::int32_t deeper) const;
    // Tells the observer of a link that a limit stands against; nothing without one.
    void reportDropped(const char *link, std::int32_t deeper, CADrop why) const;
    // Takes `found` over: enqueued, counted for its host and recorded when it is interesting,
    // otherwise deleted.
    void takeIfInteresting(CAURL *found) const;

    CAParser *sink_ = nullptr;  // owned
    CAURL *const url_;
    const CAURL *base_ = url_;  // against which links are resolved
    HTThreadContext *const threadContext_;
    CABuffer *const buffer_;  // owned; the stage's input
};
