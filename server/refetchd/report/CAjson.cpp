#include "report/CAjson.h"

#include <array>
#include <chrono>

#include "HTString.h"

namespace {

constexpr std::ptrdiff_t kEscape = 6;  // length of the longest escape, such as \u00ff

// Valid characters of UTF-8: the range of the first byte, the range of the second, and the length.
// Overlong forms and surrogates are not valid.
struct Utf8Row {
    unsigned char first;
    unsigned char lastFirst;
    unsigned char second;
    unsigned char lastSecond;
    std::size_t length;
};
constexpr std::array<Utf8Row, 9> kUtf8 = {{
    {0x00, 0x7f, 0, 0, 1},
    {0xc2, 0xdf, 0x80, 0xbf, 2},
    {0xe0, 0xe0, 0xa0, 0xbf, 3},
    {0xe1, 0xec, 0x80, 0xbf, 3},
    {0xed, 0xed, 0x80, 0x9f, 3},
    {0xee, 0xef, 0x80, 0xbf, 3},
    {0xf0, 0xf0, 0x90, 0xbf, 4},
    {0xf1, 0xf3, 0x80, 0xbf, 4},
    {0xf4, 0xf4, 0x80, 0x8f, 4},
}};

// The length of the character at the start of `text`, which is not empty; 0 when it is not valid.
std::size_t utf8Length(std::string_view text)
{
    const auto isIn = [text](std::size_t at, unsigned char from, unsigned char to) {
        const auto byte = static_cast<unsigned char>(text[at]);
        return byte >= from && byte <= to;
    };
    for (const Utf8Row &row : kUtf8) {
        if (isIn(0, row.first, row.lastFirst)) {
            bool good = row.length <= text.size();
            for (std::size_t i = 1; good && i < row.length; ++i) {
                good = i == 1 ? isIn(i, row.second, row.lastSecond) : isIn(i, 0x80, 0xbf);
            }
            return good ? row.length : 0;
        }
    }
    return 0;
}

// The bytes that a quoted text contains unescaped.
constexpr auto kPlain = [] {
    std::array<bool, 256> plain{};
    for (unsigned char c = ' '; c <= '~'; ++c) {
        plain[c] = c != '"' && c != '\\';
    }
    return plain;
}();

// The number of such bytes at the start of `text`, which in a URL is mostly all of it.
std::size_t plainLength(std::string_view text)
{
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    std::size_t length = 0;
    while (length + kWord <= text.size() &&
           HTAreGraphic(HTLoadWord(text.data() + length), '"', '\\')) {
        length += kWord;
    }
    while (length < text.size() && kPlain[static_cast<unsigned char>(text[length])]) {
        ++length;
    }
    return length;
}

bool isEscapedByBackslash(char c)
{
    return c == '"' || c == '\\';
}

bool isEscapedByNumber(std::string_view text)
{
    const auto c = static_cast<unsigned char>(text.front());
    return c < ' ' || c == 0x7f || utf8Length(text) == 0;
}

// How far `text` can be quoted in `most` bytes.
struct Fit {
    std::size_t length = 0;  // of whole characters
    std::size_t quoted = 0;
};

Fit fitIn(std::string_view text, std::size_t most)
{
    Fit result;
    while (result.length < text.size()) {
        const std::string_view rest = text.substr(result.length);
        const std::size_t plain = plainLength(rest.substr(0, most - result.quoted));
        const bool isNumber = plain == 0 && isEscapedByNumber(rest);
        const std::size_t length = plain > 0 ? plain : isNumber ? 1 : utf8Length(rest);
        const std::size_t quoted = isNumber                             ? std::size_t{kEscape}
                                   : isEscapedByBackslash(rest.front()) ? 2
                                                                        : length;
        if (quoted > most - result.quoted) {
            break;
        }
        result.length += length;
        result.quoted += quoted;
    }
    return result;
}

}  // namespace

std::size_t CAQuotedLength(std::string_view text)
{
    return fitIn(text, SIZE_MAX).quoted;
}

std::string_view CACut(std::string_view text, std::size_t most)
{
    if (text.size() <= most / kEscape) {
        return text;  // it fits, whatever it contains
    }
    std::size_t end = fitIn(text, most).length;
    if (end < text.size()) {
        const std::size_t percent = text.substr(0, end).rfind('%');
        end = percent != text.npos && end - percent < 3 ? percent : end;
    }
    return text.substr(0, end);
}

void CAJsonWriter::quote(std::string_view text)
{
    *this << "\"";
    while (!text.empty() && end_ - at_ >= kEscape) {
        const auto room = static_cast<std::size_t>(end_ - at_);
        const std::string_view plain = text.substr(0, std::min(plainLength(text), room));
        *this << plain;
        text.remove_prefix(plain.empty() ? putCharacter(text) : plain.size());
    }
    *this << "\"";
}

// Writes the first character of `text`, escaped if necessary, and returns its length in `text`. A
// byte that is not valid UTF-8 is taken for a character of ISO 8859-1.
std::size_t CAJsonWriter::putCharacter(std::string_view text)
{
    const char c = text.front();
    const std::size_t length = utf8Length(text);
    if (isEscapedByBackslash(c)) {
        *this << (c == '"' ? "\\\"" : "\\\\");
    } else if (isEscapedByNumber(text)) {
        constexpr std::string_view kHex = "0123456789abcdef";
        *this << "\\u00";
        *at_++ = kHex[static_cast<unsigned char>(c) >> 4U];
        *at_++ = kHex[static_cast<unsigned char>(c) & 15U];
        return 1;
    } else {
        *this << text.substr(0, length);
    }
    return length;
}

namespace {

// Writes the number in `count` digits, and a character behind them. Returns the end.
char *putDigits(char *at, int count, std::int64_t number, char behind)
{
    for (int i = count - 1; i >= 0; --i) {
        at[i] = static_cast<char>('0' + number % 10);
        number /= 10;
    }
    at[count] = behind;
    return at + count + 1;
}

}  // namespace

void CATimeText::setSecond(std::int64_t second)
{
    using namespace std::chrono;
    const sys_seconds moment{seconds(second)};
    const auto day = floor<days>(moment);
    const year_month_day date(day);
    const hh_mm_ss clock(moment - day);
    char *at = putDigits(text_.data(), 4, static_cast<int>(date.year()), '-');
    at = putDigits(at, 2, static_cast<unsigned>(date.month()), '-');
    at = putDigits(at, 2, static_cast<unsigned>(date.day()), 'T');
    at = putDigits(at, 2, clock.hours().count(), ':');
    at = putDigits(at, 2, clock.minutes().count(), ':');
    putDigits(at, 2, clock.seconds().count(), '.');
    second_ = second;
}

std::string_view CATimeText::of(std::int64_t milliseconds)
{
    constexpr std::int64_t kSecond = 1000;
    const std::int64_t millis = (milliseconds % kSecond + kSecond) % kSecond;
    const std::int64_t second = (milliseconds - millis) / kSecond;
    if (second != second_) {
        setSecond(second);
    }
    putDigits(text_.data() + kMillis, 3, millis, 'Z');
    return {text_.data(), text_.size()};
}
