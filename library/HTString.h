// Heap strings and words. Owned strings are heap copies that are released with free(); every
// function may be called from any thread on strings of its own.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

struct HTFree {
    void operator()(void *memory) const { std::free(memory); }
};

// Holds a heap string inside a function until it is handed on with release().
using HeapString = std::unique_ptr<char, HTFree>;

// Replaces `*field`: frees the old value and stores a heap copy of `text`, or null for null.
// `text` may lie inside the old value. Returns the new value (null also when memory is out).
char *HTSACopy(char **field, const char *text);

// Appends `text` to the owned string `*field` (null counts as empty). Returns the new value; when
// memory is out, or `text` is null, the old value stays and is returned.
char *HTSACat(char **field, const char *text);

// Lower-cases `word` in place (ASCII letters) and removes every '-' and '_' from it.
void standardize(char *word);

// Both standardize `word` in place first. positive(): "yes", "on", "ok", or a word that begins with
// "enable", "pass" or "always". negative(): "no", "off", "none", or one that begins with "disable",
// "fail" or "never".
bool positive(char *word);
bool negative(char *word);

// Characters by their ASCII class. A blank is any code from 1 to 32.
constexpr bool HTIsBlank(char c)
{
    return c != '\0' && static_cast<unsigned char>(c) <= 32;
}
constexpr bool HTIsDigit(char c)
{
    return c >= '0' && c <= '9';
}
constexpr bool HTIsControl(char c)
{
    return static_cast<unsigned char>(c) < 32 || c == 127;
}
constexpr char HTLower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}
constexpr bool HTIsLetter(char c)
{
    return HTLower(c) >= 'a' && HTLower(c) <= 'z';
}

// Eight bytes of text as one word, to test them at once. The order of the bytes does not matter to
// the tests below.
[[nodiscard]] inline std::uint64_t HTLoadWord(const char *text)
{
    std::uint64_t word = 0;
    std::memcpy(&word, text, sizeof(word));
    return word;
}
constexpr std::uint64_t HTInEachByte(unsigned char byte)
{
    return 0x0101010101010101U * byte;
}
// True for eight bytes of ASCII that are neither control characters nor members of `others`, which
// are ASCII, too. Each sum sets the high bit of a byte that is beyond its limit. A carry or borrow
// may set that of other bytes as well, but only when there is such a byte already.
template <typename... Byte>
constexpr bool HTAreGraphic(std::uint64_t word, Byte... others)
{
    const std::uint64_t controls = (word - HTInEachByte(' ')) | (word + HTInEachByte(1));
    const std::uint64_t found =
        (controls | ... |
         ((word ^ HTInEachByte(static_cast<unsigned char>(others))) - HTInEachByte(1)));
    return ((word | found) & HTInEachByte(0x80)) == 0;
}

// True when the text contains a control character (HTIsControl).
[[nodiscard]] bool HTHasControl(std::string_view text);

// Writes "%" and two hexadecimal digits for the byte `c`, without a NUL. Returns the end of them.
constexpr char *HTPercentEncode(char c, char *out)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    *out++ = '%';
    *out++ = kDigits[byte >> 4U];
    *out++ = kDigits[byte & 0xFU];
    return out;
}

// A set of characters, looked up in a table. find() and friends of std::string_view search a text
// for each of its bytes, which is much slower.
class HTCharacterSet {
public:
    explicit consteval HTCharacterSet(std::string_view members)
    {
        for (const char c : members) {
            has_[static_cast<unsigned char>(c)] = true;
        }
    }
    // `members`, control characters, and all beyond ASCII.
    static consteval HTCharacterSet andUnprintable(std::string_view members)
    {
        HTCharacterSet set(members);
        for (std::size_t i = 0; i < set.has_.size(); ++i) {
            set.has_[i] = set.has_[i] || i < 0x20 || i > 0x7E;
        }
        return set;
    }
    [[nodiscard]] constexpr bool has(char c) const { return has_[static_cast<unsigned char>(c)]; }

    // Where the first member in `text` is; its length when there is none.
    [[nodiscard]] constexpr std::size_t in(std::string_view text) const
    {
        std::size_t at = 0;
        while (at < text.size() && !has(text[at])) {
            ++at;
        }
        return at;
    }

private:
    std::array<bool, 256> has_{};
};

// The function below for `length` bytes at `a` and at `b`.
[[nodiscard]] bool HTEqualNoCase(const char *a, const char *b, std::size_t length);

// True when the texts differ at most in the case of ASCII letters.
[[nodiscard]] inline bool HTEqualsNoCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && HTEqualNoCase(a.data(), b.data(), a.size());
}

// The text without the blanks (HTIsBlank) before it, behind it, or around it.
constexpr std::string_view HTWithoutBlanksBefore(std::string_view text)
{
    const auto *const begin = std::find_if_not(text.begin(), text.end(), HTIsBlank);
    return text.substr(static_cast<std::size_t>(begin - text.begin()));
}
constexpr std::string_view HTWithoutBlanksBehind(std::string_view text)
{
    while (!text.empty() && HTIsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}
constexpr std::string_view HTWithoutBlanks(std::string_view text)
{
    return HTWithoutBlanksBehind(HTWithoutBlanksBefore(text));
}

// The text without the spaces and tabs around it.
constexpr std::string_view HTTrimmed(std::string_view text)
{
    const auto isPadding = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && isPadding(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isPadding(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// Takes the first member, trimmed, off a list with commas.
constexpr std::string_view HTTakeMember(std::string_view *list)
{
    const std::string_view member = list->substr(0, list->find(','));
    list->remove_prefix(std::min(member.size() + 1, list->size()));
    return HTTrimmed(member);
}

// Lower-cases ASCII letters in place.
void HTLowerCase(char *text);

// Turns every backslash of `path` into a slash, in place.
void HTConvertToSlash(char *path);

// The base-10 number at the start of `text`, behind blanks and a sign; 0 when there is none. A
// value beyond 64 bits, or beyond 32, becomes the nearest limit.
std::int64_t HTDecimal(std::string_view text);
std::int32_t HTInteger(std::string_view text);
