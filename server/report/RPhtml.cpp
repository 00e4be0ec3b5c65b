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

// The invisible characters of UTF-8 that could make a URL look like another one: the first two
// bytes, and the range of the third.
struct HiddenRow {
    std::string_view start;
    unsigned char from;
    unsigned char to;
};
constexpr std::array<HiddenRow, 4> kHidden = {{
    {"\xe2\x80", 0x8b, 0x8f},  // zero-width characters, marks of direction
    {"\xe2\x80", 0xa8, 0xae},  // separators of lines, embeddings, overrides
    {"\xe2\x81", 0xa0, 0xaf},  // joiners, isolates
    {"\xef\xbb", 0xbf, 0xbf},  // byte order mark
}};

// The length of the character at the start of `text` if it must not be written: a control character
// or one of those above; otherwise 0.
std::size_t hiddenLength(std::string_view text)
{
    const auto at = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (at(0) < ' ' || at(0) == 0x7f) {
        return 1;
    }
    if (text.size() > 1 && at(0) == 0xc2 && at(1) < 0xa0) {
        return 2;
    }
    const bool hides =
        text.size() > 2 &&
        std::any_of(kHidden.begin(), kHidden.end(), [text, at](const HiddenRow &row) {
            return text.starts_with(row.start) && at(2) >= row.from && at(2) <= row.to;
        });
    return hides ? 3 : 0;
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
