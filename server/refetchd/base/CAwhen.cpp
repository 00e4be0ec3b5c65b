#include "base/CAwhen.h"

#include <array>
#include <climits>
#include <cstddef>
#include <string_view>

#include "HTString.h"
#include "base/CAtrace.h"

namespace {

struct WhenWord {
    std::string_view word;
    _when when;
};

constexpr std::array<WhenWord, 8> kWhenWords = {{
    {"never", NEVER},
    {"no", NEVER},
    {"off", NEVER},
    {"always", ALWAYS},
    {"yes", ALWAYS},
    {"on", ALWAYS},
    {"admin", ADMIN_ONLY},
    {"topn", TOPN_ONLY},
}};

struct TimeUnit {
    std::string_view word;  // a unit is any word that begins with this
    long seconds;
};

constexpr std::array<TimeUnit, 8> time_units = {{
    {"sec", 1},
    {"min", 60},
    {"hour", 3600},
    {"day", 86400},
    {"week", 604800},
    {"month", 2592000},
    {"year", 31536000},
    {"forever", 315360000},
}};

// Seconds of the colon fields, in their order in the text: hours, minutes, seconds.
constexpr std::array<long, 3> kColonFields = {3600, 60, 1};

long saturatingProduct(long a, long b)
{
    long result = 0;
    return __builtin_mul_overflow(a, b, &result) ? LONG_MAX : result;
}

void addSaturating(long *sum, long value)
{
    if (__builtin_add_overflow(*sum, value, sum)) {
        *sum = LONG_MAX;
    }
}

// Walks over a trimmed, lower-case duration.
class TimeScanner {
public:
    explicit TimeScanner(const char *text) : at_(text) {}

    [[nodiscard]] bool atEnd() const { return *at_ == '\0'; }

    void skipBlanks()
    {
        while (HTIsBlank(*at_)) {
            ++at_;
        }
    }

    // Reads digits; 0 when there are none.
    long number()
    {
        long value = 0;
        for (; HTIsDigit(*at_); ++at_) {
            value = saturatingProduct(value, 10);
            addSaturating(&value, *at_ - '0');
        }
        return value;
    }

    // Skips a unit word and returns its seconds; 0 when there is none.
    long unit()
    {
        for (const TimeUnit &unit : time_units) {
            if (std::string_view(at_).starts_with(unit.word)) {
                at_ += unit.word.size();
                while ((*at_ >= 'a' && *at_ <= 'z') || *at_ == ',') {
                    ++at_;
                }
                return unit.seconds;
            }
        }
        return 0;
    }

    // Skips the ':' that ends a colon field; false for any other character. The end of the text
    // ends a field, too.
    bool endOfField()
    {
        if (atEnd()) {
            return true;
        }
        return *at_++ == ':';
    }

private:
    const char *at_;
};

// Removes blanks at both ends and lower-cases, in place; returns the new start.
char *normalize(char *text)
{
    while (HTIsBlank(*text)) {
        ++text;
    }
    HTLowerCase(text);
    std::size_t length = std::string_view(text).size();
    while (length > 0 && HTIsBlank(text[length - 1])) {
        text[--length] = '\0';
    }
    return text;
}

}  // namespace

_when CAParseWhen(char *text)
{
    standardize(text);
    for (const WhenWord &row : kWhenWords) {
        if (row.word == text) {
            return row.when;
        }
    }
    return NEVER;
}

const char *CAWhenString(_when when)
{
    switch (when) {
    case NEVER: return "NEVER";
    case ALWAYS: return "ALWAYS";
    case ADMIN_ONLY: return "ADMIN_ONLY";
    case TOPN_ONLY: return "TOPN_ONLY";
    }
    return "NEVER";
}

std::string_view CASourceName(_source source)
{
    return source == SOURCE_HITS ? "topn" : "admin";
}

int CAMatchWhen(_when when, _source source)
{
    return when == ALWAYS || (when == ADMIN_ONLY && source == SOURCE_CONFIG) ||
                   (when == TOPN_ONLY && source == SOURCE_HITS)
               ? 1
               : 0;
}

int parse_time(char *text, int defaultUnit, long *seconds)
{
    *seconds = 0;
    if (text == nullptr) {
        return 0;
    }
    text = normalize(text);
    TimeScanner scanner(text);
    if (scanner.atEnd()) {
        return 0;
    }
    std::size_t field = 0;
    for (bool first = true; !scanner.atEnd(); first = false) {
        scanner.skipBlanks();
        const long number = scanner.number();
        scanner.skipBlanks();
        if (first && scanner.atEnd()) {
            *seconds = saturatingProduct(number, defaultUnit);
            return 1;
        }
        if (const long unit = scanner.unit(); unit != 0) {
            addSaturating(seconds, saturatingProduct(number, unit));
            continue;
        }
        if (!scanner.endOfField()) {
            CATrace("ERROR....... Invalid time specifier: %s\n", text);
            return 0;
        }
        if (field == kColonFields.size()) {
            CATrace("ERROR....... Too many colons in time specifier: %s\n", text);
            return 0;
        }
        addSaturating(seconds, saturatingProduct(number, kColonFields[field]));
        ++field;
    }
    return 1;
}
