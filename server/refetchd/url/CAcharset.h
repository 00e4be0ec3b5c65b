// The charsets of pages, as browsers know them by the Encoding Standard of the WHATWG. Without
// ISO-2022-JP and ISO-8859-16: pages in them count as if they declared no charset. Pages in UTF-16
// are not read at all, because each second byte of their tags is a NUL.
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct UConverter;

// One charset, for one thread at a time.
class CACharset {
public:
    // The charset that browsers take for `label`, in any case and with blanks around it:
    // windows-1252 for "iso-8859-1", for example. Null if the label is not known, or when ICU
    // cannot provide the charset.
    [[nodiscard]] static std::unique_ptr<CACharset> find(std::string_view label);
    ~CACharset();
    CACharset(const CACharset &) = delete;
    CACharset &operator=(const CACharset &) = delete;

    // True when texts in this charset need no conversion.
    [[nodiscard]] bool isUtf8() const;

    // The text in UTF-8. What is not of this charset becomes U+FFFD.
    [[nodiscard]] std::string toUtf8(std::string_view text) const;

    // The query of a URL, given in UTF-8, in ASCII: a character beyond that is percent-encoded in
    // this charset. If the charset lacks it, it becomes its character reference, percent-encoded:
    // "%26%23NUMBER%3B". ASCII characters stay as they are, even those that a query may not hold.
    [[nodiscard]] std::string encodeQuery(std::string_view query) const;

private:
    explicit CACharset(UConverter *converter) : converter_(converter) {}

    UConverter *const converter_;  // owned
};

// The label behind "charset=" in the value of a Content-Type header, or of a <meta> that stands for
// one; "" if there is none.
[[nodiscard]] std::string_view CACharsetLabel(std::string_view contentType);

// True when the text is valid UTF-8.
[[nodiscard]] bool CAIsUtf8(std::string_view text);

// True when all bytes of the text are ASCII.
[[nodiscard]] bool CAIsAscii(std::string_view text);
