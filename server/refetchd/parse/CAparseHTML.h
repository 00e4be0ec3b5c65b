// The sink of HTML pages: finds the links of a page and enqueues those that are wanted.
#pragma once

#include <cstdint>
#include <memory>

#include "parse/CAparse.h"
#include "parse/CAscanHTML.h"
#include "parse/CAscanModern.h"

// Passes each block to the stage behind first (the saver, when bodies are kept), because the scan
// for links writes NULs into it.
class CAParseHTML : public CAParser, private CALinkSink {
public:
    explicit CAParseHTML(CAURL *url);
    CAParseHTML(CAURL *url, HTThreadContext *threadContext, const CAParseOptions &options = {});
    ~CAParseHTML() override;
    CAParseHTML(const CAParseHTML &) = delete;
    CAParseHTML &operator=(const CAParseHTML &) = delete;

    // Takes everything; `data[length]` must be a NUL. Leaves both flags to the stage behind.
    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;

private:
    void commonInit();
    [[nodiscard]] bool delves() const;
    [[nodiscard]] static bool takesLinks();
    void processFoundUrl(const char *link, bool raisesDepth) override;
    void processFoundBase(const char *href) override;

    CAScanHTML links_;
    std::unique_ptr<CAScanModern> modernLinks_;  // in its place, when the options say so
    std::unique_ptr<const CAURL> foundBase_;
};
