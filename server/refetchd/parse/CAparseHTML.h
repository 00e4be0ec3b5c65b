// The parser of HTML pages: finds the links of a page and enqueues those that are wanted.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "parse/CAparse.h"
#include "parse/CAscanHTML.h"
#include "parse/CAscanModern.h"

// When pages are saved, its sink is a CAParseBinary. Each block goes to the sink before it is
// scanned, because the scan writes NULs into it.
class CAParseHTML : public CAParser, private CALinkSink {
public:
    enum class Copy : std::uint8_t {
        IfWanted,  // the parser saves the page when pages are saved
        None,      // another stage does so
    };

    explicit CAParseHTML(CAURL *url);
    CAParseHTML(CAURL *url, HTThreadContext *threadContext, const CAParseOptions &options = {},
                Copy copy = Copy::IfWanted);
    ~CAParseHTML() override;
    CAParseHTML(const CAParseHTML &) = delete;
    CAParseHTML &operator=(const CAParseHTML &) = delete;

    // Declares the charset that the response names; "" if it names none. Has no effect unless links
    // are looked for as browsers do.
    void declareCharset(std::string_view label);

    // True when links of the page with this URL are wanted.
    [[nodiscard]] static bool delves(const CAURL *url);

    // Takes everything. Leaves both flags to its sink.
    std::int32_t consume(char *data, std::int32_t length, std::int32_t *finished,
                         std::int32_t *closeConnection) override;

private:
    void commonInit();
    [[nodiscard]] static bool takesLinks();
    void processFoundUrl(const char *link, bool raisesDepth) override;
    void processFoundBase(const char *href) override;

    CAScanHTML links_;
    std::unique_ptr<CAScanModern> modernLinks_;  // null unless the options ask for it; then used
                                                 // in place of links_
    std::unique_ptr<const CAURL> foundBase_;     // base_ points to it once the page declares a base
};
