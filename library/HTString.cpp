#include "HTString.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "HTMemory.h"

namespace {

// One class of answers: whole words, and beginnings of words.
struct Answers {
    std::array<std::string_view, 3> words;
    std::array<std::string_view, 3> beginnings;
};

constexpr Answers kPositive = {{"yes", "on", "ok"}, {"enable", "pass", "always"}};
constexpr Answers kNegative = {{"no", "off", "none"}, {"disable", "fail", "never"}};

bool isAnswer(char *text, const Answers &answers)
{
    standardize(text);
    const std::string_view word(text);
    const auto same = [word](std::string_view other) { return word == other; };
    const auto begins = [word](std::string_view beginning) { return word.starts_with(beginning); };
    return std::any_of(answers.words.begin(), answers.words.end(), same) ||
           std::any_of(answers.beginnings.begin(), answers.beginnings.end(), begins);
}

}  // namespace

char *HTSACopy(char **field, const char *text)
{
    char *const copy = text == nullptr ? nullptr : strdup(text);
    if (copy == nullptr && text != nullptr) {
        HTOutOfMemory("library/HTString", "HTSACopy", __LINE__, std::strlen(text) + 1);
    }
    std::free(*field);
    *field = copy;
    return copy;
}

char *HTSACat(char **field, const char *text)
{
    if (text == nullptr) {
        return *field;
    }
    const std::size_t oldLength = *field == nullptr ? 0 : std::strlen(*field);
    const std::size_t added = std::strlen(text);
    char *const longer = static_cast<char *>(std::realloc(*field, oldLength + added + 1));
    if (longer == nullptr) {
        HTOutOfMemory("library/HTString", "HTSACat", __LINE__, oldLength + added + 1);
        return *field;
    }
    std::memcpy(longer + oldLength, text, added + 1);
    *field = longer;
    return longer;
}

void standardize(char *word)
{
    char *out = word;
    for (const char *in = word; *in != '\0'; ++in) {
        if (*in != '-' && *in != '_') {
            *out++ = HTLower(*in);
        }
    }
    *out = '\0';
}

bool positive(char *word)
{
    return isAnswer(word, kPositive);
}

bool negative(char *word)
{
    return isAnswer(word, kNegative);
}

bool HTHasControl(std::string_view text)
{
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    bool isGraphic = text.size() >= kWord;
    if (isGraphic) {
        isGraphic = HTAreGraphic(HTLoadWord(text.data() + text.size() - kWord));
    }
    for (std::size_t at = 0; isGraphic && at + kWord < text.size(); at += kWord) {
        isGraphic = HTAreGraphic(HTLoadWord(text.data() + at));
    }
    return !isGraphic && std::any_of(text.begin(), text.end(), HTIsControl);
}

namespace {

// Turns upper-case letters of ASCII into lower-case ones. Sums of seven bits and less carry nothing
// into the next byte.
std::uint64_t lowerWord(std::uint64_t word)
{
    const std::uint64_t ascii = word & HTInEachByte(0x7f);
    const std::uint64_t fromA = ascii + HTInEachByte(0x80 - 'A');
    const std::uint64_t beyondZ = ascii + HTInEachByte(0x80 - 'Z' - 1);
    const std::uint64_t isUpper = fromA & ~beyondZ & ~word & HTInEachByte(0x80);
    return word | (isUpper >> 2U);
}

bool areEqual(std::uint64_t a, std::uint64_t b)
{
    return a == b || lowerWord(a) == lowerWord(b);
}

// A text of four to eight bytes as one word, in which those of its middle may occur twice.
std::uint64_t loadShort(const char *text, std::size_t length)
{
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    std::memcpy(&first, text, sizeof(first));
    std::memcpy(&last, text + length - sizeof(last), sizeof(last));
    return std::uint64_t{last} << 32U | first;
}

}  // namespace

bool HTEqualNoCase(const char *a, const char *b, std::size_t length)
{
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    if (length < kWord / 2) {
        return std::equal(a, a + length, b,
                          [](char x, char y) { return HTLower(x) == HTLower(y); });
    }
    if (length < kWord) {
        return areEqual(loadShort(a, length), loadShort(b, length));
    }
    for (std::size_t at = 0; at + kWord < length; at += kWord) {
        if (!areEqual(HTLoadWord(a + at), HTLoadWord(b + at))) {
            return false;
        }
    }
    return areEqual(HTLoadWord(a + length - kWord), HTLoadWord(b + length - kWord));
}

void HTLowerCase(char *text)
{
    for (; *text != '\0'; ++text) {
        *text = HTLower(*text);
    }
}

void HTConvertToSlash(char *path)
{
    for (; *path != '\0'; ++path) {
        if (*path == '\\') {
            *path = '/';
        }
    }
}

std::int64_t HTDecimal(std::string_view text)
{
    while (!text.empty() && HTIsBlank(text.front())) {
        text.remove_prefix(1);
    }
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    std::int64_t value = 0;
    for (const char c : text) {
        if (!HTIsDigit(c)) {
            break;
        }
        if (__builtin_mul_overflow(value, 10, &value) ||
            __builtin_add_overflow(value, c - '0', &value)) {
            value = INT64_MAX;
            break;
        }
    }
    return negative ? -value : value;
}

std::int32_t HTInteger(std::string_view text)
{
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(HTDecimal(text), INT32_MIN, INT32_MAX));
}
