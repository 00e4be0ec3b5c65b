#include "HTString.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <string_view>

namespace {

// One class of answers: words that stand alone, and beginnings.
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
    if (longer != nullptr) {
        std::memcpy(longer + oldLength, text, added + 1);
        *field = longer;
    }
    return *field;
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

std::int32_t HTInteger(const char *text)
{
    const long value = std::strtol(text, nullptr, 10);
    return static_cast<std::int32_t>(std::clamp<long>(value, INT32_MIN, INT32_MAX));
}
