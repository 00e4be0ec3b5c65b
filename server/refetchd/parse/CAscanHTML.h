// Finds the links in the text of a page, block by block; knows nothing of what becomes of them.
#pragma once

#include <array>
#include <cstddef>

// Whoever wants the links.
class CALinkSink {
public:
    CALinkSink() = default;
    virtual ~CALinkSink() = default;
    CALinkSink(const CALinkSink &) = delete;
    CALinkSink &operator=(const CALinkSink &) = delete;

    // Called for each link, in their order: its text as found, which is gone after the call, and
    // whether it leads one level deeper than the page.
    virtual void processFoundUrl(const char *link, bool raisesDepth) = 0;

    // Called for the page's base, against which the links behind it are to be resolved, by a
    // scanner that looks for one.
    virtual void processFoundBase(const char * /*href*/) {}
};

// Looks for tags that carry a link; builds no document. A tag is what stands between "<" and the
// next ">", quotes or not. A tag that a block cuts off is put together again up to a limit. One
// scanner reads one page, on one thread.
class CAScanHTML {
public:
    // The sink gets each link when its tag ends, without images unless `inlineImages`.
    CAScanHTML(CALinkSink *sink, bool inlineImages) : sink_(sink), inlineImages_(inlineImages) {}

    // Scans the block [data, end) and cuts its tags up in place; `*end` must be a NUL.
    void scan(char *data, char *end);

private:
    // Room for a cut-off tag, its NUL included.
    static constexpr std::size_t kReassemblySize = 512;

    char *finishPending(char *data, char *end);
    void queueUp(const char *data, std::size_t length);
    void parsePending(const char *piece, std::size_t length);
    void bufferIncomplete(const char *tag, std::size_t length, std::size_t offset);
    void parseTag(char *tag);

    CALinkSink *const sink_;
    const bool inlineImages_;
    std::size_t reassemblyLength_ = 0;                // 0: none is pending
    std::array<char, kReassemblySize> reassembly_{};  // a tag that has not ended yet
};
