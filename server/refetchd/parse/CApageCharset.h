// The charset in which the links of a page are written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "url/CAcharset.h"

// Begins without a charset; then each link that is valid UTF-8 counts as that, any other as
// windows-1252. One page, one thread.
class CAPageCharset {
public:
    // Where a charset can be declared; what comes first here counts less.
    enum class Source : std::uint8_t { None, Meta, Header, ByteOrderMark };

    // Declares the charset that `label` means. Has no effect if the label is not known, or if the
    // same source, or one that counts more, has declared one before.
    void declare(Source source, std::string_view label);

    // Declares UTF-8 if the page begins with its byte order mark. Must see each block of the page
    // until hasSeenBegin(), in any sizes.
    void seeBegin(const char *data, const char *end);
    [[nodiscard]] bool hasSeenBegin() const;

    // Makes UTF-8 of the link, or of the links, in [at, end): moves both to the result, which one
    // may write into, as into the byte at `*end`. It is valid until the next call.
    void toUtf8(char **at, char **end);
    // The same for a link of ASCII characters, which stays as it is.
    void takeAscii();

    // The charset in which browsers encode the query of the link that was made UTF-8 last; null for
    // UTF-8. Stays ours, valid until the next call that is not const.
    [[nodiscard]] const CACharset *ofQuery() const { return ofQuery_; }

private:
    Source source_ = Source::None;
    std::size_t markLength_ = 0;  // bytes of the byte order mark seen so far
    std::unique_ptr<const CACharset> declared_;
    std::unique_ptr<const CACharset> windows1252_;  // null until it is needed
    const CACharset *ofQuery_ = nullptr;
    std::string text_;  // what toUtf8() made
};
