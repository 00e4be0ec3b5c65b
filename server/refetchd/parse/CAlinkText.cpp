#include "parse/CAlinkText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

#include "base/CAtrace.h"

namespace {

struct NamedReference {
    std::string_view name;
    char character;
};

constexpr NamedReference kNamed[] = {
    {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''},
};

// A character reference: its length in the page, 0 when it stays as it stands, and its code.
struct Reference {
    std::size_t length = 0;
    std::uint32_t code = 0;
};

bool isPrintable(std::uint32_t code)
{
    const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool isSurrogate = code >= 0xD800 && code < 0xE000;
    return !isControl && !isSurrogate && code <= 0x10FFFF;
}

// `text` begins with "&".
Reference referenceAt(std::string_view text)
{
    for (const auto &[name, character] : kNamed) {
        if (text.starts_with(name)) {
            return {name.size(), static_cast<unsigned char>(character)};
        }
    }
    const bool isHex = text.starts_with("&#x") || text.starts_with("&#X");
    if (!isHex && !text.starts_with("&#")) {
        return {};
    }
    const char *const end = text.data() + text.size();
    std::uint32_t code = 0;  // stays that without a number, or with one that is too large
    const char *const stop =
        std::from_chars(text.data() + (isHex ? 3 : 2), end, code, isHex ? 16 : 10).ptr;
    const bool isWhole = stop != end && *stop == ';' && isPrintable(code);
    return {isWhole ? static_cast<std::size_t>(stop + 1 - text.data()) : 0, code};
}

// Writes the code as UTF-8, which is shorter than any reference to it. Returns the place behind.
char *writeUtf8(std::uint32_t code, char *out)
{
    constexpr std::array<std::uint32_t, 4> kFirstByte = {0, 0xC0, 0xE0, 0xF0};
    std::uint32_t more = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    *out++ = static_cast<char>(kFirstByte[more] | code >> 6 * more);
    while (more-- > 0) {
        *out++ = static_cast<char>(0x80U | (code >> 6 * more & 0x3FU));
    }
    return out;
}

}  // namespace

char *CADecodeReferences(char *at, char *end)
{
    char *out = at = std::find(at, end, '&');
    while (at != end) {
        const Reference reference =
            *at == '&' ? referenceAt({at, static_cast<std::size_t>(end - at)}) : Reference();
        if (reference.length == 0) {
            *out++ = *at++;
            continue;
        }
        out = writeUtf8(reference.code, out);
        at += reference.length;
    }
    return out;
}

std::string_view CACutLink(char *at, char *end, std::size_t longest)
{
    constexpr auto isBlank = [](char c) { return static_cast<unsigned char>(c) <= ' '; };
    at = std::find_if_not(at, end, isBlank);
    while (end != at && isBlank(end[-1])) {
        --end;
    }
    end = std::remove_if(at, end, [](char c) { return c == '\t' || c == '\n' || c == '\r'; });
    *end = '\0';
    const std::string_view url(at, static_cast<std::size_t>(end - at));
    if (url.size() <= longest && url.find('\0') == std::string_view::npos) {
        return url;
    }
    CATrace("HTML........ parser dropping a link of %u bytes.\n",
            static_cast<unsigned>(url.size()));
    return "";
}
