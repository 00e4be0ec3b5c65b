#include "RPhtml.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "RPwords.h"

namespace {

struct EscapeRow {
    char character;
    std::string_view escape;
};
constexpr std::array<EscapeRow, 5> kEscapes = {{
    {'&', "&amp;"},
    {'<', "&lt;"},
    {'>', "&gt;"},
    {'"', "&quot;"},
    {'\'', "&#39;"},
}};

// The invisible characters of UTF-8 that could make a URL look like another one: their bytes
// without the last one, and its range.
struct HiddenRow {
    std::string_view start;
    unsigned char from;
    unsigned char to;
};
constexpr std::array<HiddenRow, 9> kHidden = {{
    {"\xc2", 0x80, 0x9f},          // control characters
    {"\xc2", 0xad, 0xad},          // soft hyphen
    {"\xd8", 0x9c, 0x9c},          // mark of direction
    {"\xe2\x80", 0x8b, 0x8f},      // zero-width characters, marks of direction
    {"\xe2\x80", 0xa8, 0xae},      // separators of lines, embeddings, overrides
    {"\xe2\x81", 0xa0, 0xaf},      // joiners, isolates
    {"\xef\xbb", 0xbf, 0xbf},      // byte order mark
    {"\xf3\xa0\x80", 0x80, 0xbf},  // tags
    {"\xf3\xa0\x81", 0x80, 0xbf},
}};

// The length of the character at the start of `text` if it must not be written: a control character
// or one of those above; otherwise 0.
std::size_t hiddenLength(std::string_view text)
{
    const auto at = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (at(0) < ' ' || at(0) == 0x7f) {
        return 1;
    }
    const auto *const found =
        std::find_if(kHidden.begin(), kHidden.end(), [text, at](const HiddenRow &row) {
            const std::size_t last = row.start.size();
            return text.size() > last && text.starts_with(row.start) && at(last) >= row.from &&
                   at(last) <= row.to;
        });
    return found == kHidden.end() ? 0 : found->start.size() + 1;
}

void putCodes(std::string_view bytes, std::string *text)
{
    for (const char c : bytes) {
        std::array<char, 8> code{};
        std::snprintf(code.data(), code.size(), "\\x%02x",
                      static_cast<unsigned>(static_cast<unsigned char>(c)));
        *text += code.data();
    }
}

}  // namespace

RPHtml &RPHtml::operator<<(std::string_view text)
{
    while (!text.empty()) {
        const std::size_t hidden = hiddenLength(text);
        const auto *const row =
            std::find_if(kEscapes.begin(), kEscapes.end(),
                         [text](const EscapeRow &r) { return r.character == text.front(); });
        if (hidden > 0) {
            putCodes(text.substr(0, hidden), &text_);
        } else if (row != kEscapes.end()) {
            text_ += row->escape;
        } else {
            text_ += text.front();
        }
        text.remove_prefix(std::max<std::size_t>(hidden, 1));
    }
    return *this;
}

RPHtml &RPHtml::operator<<(std::int64_t number)
{
    text_ += RPNumber(number);
    return *this;
}
