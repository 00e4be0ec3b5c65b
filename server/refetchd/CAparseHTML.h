// The sink of HTML pages: finds the links of a page and enqueues those that are wanted.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "CAparse.h"

// Scans the text of a page for tags that carry a link, block by block; builds no document. Each
// block goes to the stage behind first (the saver, when bodies are kept), because the scan writes
// NULs into it. A tag is what stands between "<" and the next ">", quotes or not. A tag that a
// block cuts off is put together again up to a limit.
class CAParseHTML : public CAParser {
public:
    explicit CAParseHTML(CAURL *url);
    CAParseHTML(CAURL *url, HTThreadContext *threadContext);
    ~CAParseHTML() override;
    CAParseHTML(const CAParseHTML &) = delete;
    CAParseHTML &operator=(const CAParseHTML &) = delete;

    // Takes everything; `data[length]` must be a NUL. Leaves both flags to the stage behind.
    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;

private:
    // Room for a cut-off tag, its NUL included.
    static constexpr std::size_t kReassemblySize = 512;

    void commonInit();
    [[nodiscard]] bool wantsLinks() const;
    void scan(char *data, char *end);
    char *finishPending(char *data, char *end);
    void queueUp(const char *data, std::size_t length);
    void parsePending(const char *piece, std::size_t length);
    void bufferIncomplete(const char *tag, std::size_t length, std::size_t offset);
    void parseTag(char *tag);
    void processFoundUrl(const char *link, bool raisesDepth);

    std::array<char, kReassemblySize> reassembly_{};  // a tag that has not ended yet
    std::size_t reassemblyLength_ = 0;                // 0: none is pending
};
