// Finds the links in the text of a page, block by block. What happens to them is up to a
// CALinkSink.
#pragma once

#include <array>
#include <cstddef>

// Receives the links of a page. Called on the thread that scans.
class CALinkSink {
public:
    CALinkSink() = default;
    virtual ~CALinkSink() = default;
    CALinkSink(const CALinkSink &) = delete;
    CALinkSink &operator=(const CALinkSink &) = delete;

    // Called for each link, in the order of the page. `link` is valid only during the call;
    // `raisesDepth` says that the link is one level deeper than the page.
    virtual void processFoundUrl(const char *link, bool raisesDepth) = 0;

    // Called at most once, with the base URL that the page declares: the links that follow are
    // relative to it. Only CAScanModern looks for one.
    virtual void processFoundBase(const char * /*href*/) {}
};

// Looks for tags with links, without building a document. A tag is the text between "<" and the
// next ">", even inside quotes. A tag that continues in the next block is put together in a buffer;
// one that is too long for it is skipped. One scanner reads one page, on one thread.
class CAScanHTML {
public:
    // The sink, which stays the caller's, gets each link when its tag ends. Links to images are
    // left out unless `inlineImages` is set.
    CAScanHTML(CALinkSink *sink, bool inlineImages) : sink_(sink), inlineImages_(inlineImages) {}

    // Scans the block [data, end) and writes NULs into its tags.
    void scan(char *data, char *end);

private:
    // The longest tag that is put together from several blocks, plus one for the NUL.
    static constexpr std::size_t kReassemblySize = 512;

    char *parseTags(char *at, char *end);
    char *finishPending(char *data, char *end);
    void queueUp(const char *data, std::size_t length);
    void parsePending(const char *piece, std::size_t length);
    void bufferIncomplete(const char *tag, std::size_t length, std::size_t offset);
    void parseTag(char *tag, char *end);

    CALinkSink *const sink_;
    const bool inlineImages_;
    std::size_t reassemblyLength_ = 0;                // 0: no tag is pending
    std::array<char, kReassemblySize> reassembly_{};  // the start of a tag that has not ended yet
};
