// The sink of HTML pages: finds the links of a page and enqueues those that are wanted.
#pragma once

#include <cstdint>

#include "CAparse.h"
#include "CAscanHTML.h"

// Passes each block to the stage behind first (the saver, when bodies are kept), because the scan
// for links writes NULs into it.
class CAParseHTML : public CAParser, private CALinkSink {
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
    void commonInit();
    [[nodiscard]] bool wantsLinks() const;
    void processFoundUrl(const char *link, bool raisesDepth) override;

    CAScanHTML links_{this};
};
