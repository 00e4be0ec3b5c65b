#include "parse/CAlinkText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <numeric>

#include "HTString.h"
#include "base/CAtrace.h"
#include "parse/CAreferences.h"

namespace {

struct Reference {
    std::size_t length = 0;                // in the page; 0: not a reference, stays as it is
    std::array<std::uint32_t, 2> codes{};  // its characters; the second is 0 if there is only one
};

bool isInName(char c)
{
    return HTIsDigit(c) || HTIsLetter(c);
}

// HTML looks for the longest name that fits, but a name without ";" is no reference if "=", a
// letter or a digit follows: "?a=1&lt=2" is a query. So all letters and digits are the name.
Reference namedReferenceAt(std::string_view text)
{
    const auto *const stop = std::find_if_not(text.begin() + 1, text.end(), isInName);
    const bool isClosed = stop != text.end() && *stop == ';';
    if (!isClosed && stop != text.end() && *stop == '=') {
        return {};
    }
    const auto length = static_cast<std::size_t>(stop - text.begin());
    const CANamedCharacters found = CAFindReference(text.substr(1, length - 1));
    if (found.codes[0] == 0 || (!isClosed && !found.mayEndOpen)) {
        return {};
    }
    return {length + (isClosed ? 1 : 0), found.codes};
}

// HTML reads the numbers 0x80 to 0x9F as windows-1252, because pages with them mean that.
constexpr std::array<std::uint16_t, 32> kWindows1252 = {
    0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x8D,   0x017D, 0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

constexpr std::uint32_t kReplacement = 0xFFFD;

std::uint32_t characterOf(std::uint32_t number)
{
    const bool isSurrogate = number >= 0xD800 && number < 0xE000;
    if (number == 0 || isSurrogate || number > 0x10FFFF) {
        return kReplacement;
    }
    return number >= 0x80 && number < 0xA0 ? kWindows1252[number - 0x80] : number;
}

// number := "&#" digits [";"] | "&#x" hexadecimal digits [";"]
Reference numberAt(std::string_view text)
{
    const bool isHex = text.starts_with("&#x") || text.starts_with("&#X");
    const char *const digits = text.data() + (isHex ? 3 : 2);
    const char *const end = text.data() + text.size();
    std::uint32_t number = 0;  // stays 0 if the number is too large; both mean kReplacement
    const char *const stop = std::from_chars(digits, end, number, isHex ? 16 : 10).ptr;
    if (stop == digits) {
        return {};
    }
    const std::size_t length = static_cast<std::size_t>(stop - text.data());
    return {length + (stop != end && *stop == ';' ? 1 : 0), {characterOf(number)}};
}

// `text` begins with "&".
Reference referenceAt(std::string_view text)
{
    return text.starts_with("&#") ? numberAt(text) : namedReferenceAt(text);
}

// Writes the code as UTF-8. Returns the end of it.
char *writeUtf8(std::uint32_t code, char *out)
{
    constexpr std::array<std::uint32_t, 4> kFirstByte = {0, 0xC0, 0xE0, 0xF0};
    std::size_t more = CAUtf8Length(code) - 1;
    *out++ = static_cast<char>(kFirstByte[more] | code >> 6 * more);
    while (more-- > 0) {
        *out++ = static_cast<char>(0x80U | (code >> 6 * more & 0x3FU));
    }
    return out;
}

using Word = std::uint64_t;

Word wordAt(const char *at)
{
    Word word = 0;
    std::memcpy(&word, at, sizeof(word));
    return word;
}

// Sets the highest bit of a byte that is beyond ASCII, up to " ", or "&". May set the bits of other
// bytes, too, but only if there is such a byte.
Word unusualIn(Word word)
{
    constexpr Word kOnes = 0x0101010101010101;  // 1 in each byte
    return word | (word - kOnes * (' ' + 1)) | ((word ^ kOnes * '&') - kOnes);
}

}  // namespace

// Looks at eight bytes at once, some of them twice.
bool CAIsOrdinaryLink(std::string_view text)
{
    constexpr Word kHighest = 0x8080808080808080;
    std::array<char, sizeof(Word)> few{'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    if (text.size() < few.size()) {
        text.copy(few.data(), few.size());
        return (unusualIn(wordAt(few.data())) & kHighest) == 0;
    }
    const char *const last = text.data() + text.size() - sizeof(Word);
    Word unusual = unusualIn(wordAt(last));
    for (const char *at = text.data(); at < last; at += sizeof(Word)) {
        unusual |= unusualIn(wordAt(at));
    }
    return (unusual & kHighest) == 0;
}

char *CADecodeReferences(char *at, char *end)
{
    void *const first = std::memchr(at, '&', static_cast<std::size_t>(end - at));
    char *out = at = first == nullptr ? end : static_cast<char *>(first);
    while (at != end) {
        const Reference reference =
            *at == '&' ? referenceAt({at, static_cast<std::size_t>(end - at)}) : Reference();
        if (reference.length == 0) {
            *out++ = *at++;
            continue;
        }
        // The text is never longer than the reference.
        out = writeUtf8(reference.codes[0], out);
        out = reference.codes[1] == 0 ? out : writeUtf8(reference.codes[1], out);
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
    // Few links hold such a byte. To look at all bytes, without an end at the first one, lets the
    // compiler compare many at once.
    const auto isControl = [](bool any, char c) {
        return any | (static_cast<unsigned char>(c) < ' ');
    };
    if (std::accumulate(at, end, false, isControl)) {
        end = std::remove_if(at, end, [](char c) { return c == '\t' || c == '\n' || c == '\r'; });
    }
    *end = '\0';
    const std::string_view url(at, static_cast<std::size_t>(end - at));
    if (url.size() <= longest && url.find('\0') == std::string_view::npos) {
        return url;
    }
    CATrace("HTML........ parser dropping a link of %u bytes.\n",
            static_cast<unsigned>(url.size()));
    return "";
}
