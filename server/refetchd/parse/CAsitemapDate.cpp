#include "parse/CAsitemapDate.h"

#include <algorithm>
#include <chrono>

#include "HTString.h"

namespace {

using std::chrono::days;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::months;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::sys_seconds;
using std::chrono::year_month_day;
using std::chrono::years;

constexpr int kNone = -1;

// Takes the parts of a date off the front of a text.
class DateScanner {
public:
    explicit DateScanner(std::string_view text) : rest_(text) { blanks(); }

    [[nodiscard]] bool atEnd() const { return rest_.empty(); }
    bool take(std::string_view any)
    {
        const bool is = !rest_.empty() && any.find(rest_.front()) != any.npos;
        rest_.remove_prefix(is ? 1 : 0);
        return is;
    }
    bool blanks()
    {
        const std::size_t before = rest_.size();
        while (!rest_.empty() && HTIsBlank(rest_.front())) {
            rest_.remove_prefix(1);
        }
        return rest_.size() != before;
    }
    // A number of `least` to `most` digits; kNone when there is no such number.
    int number(std::size_t least, std::size_t most)
    {
        std::size_t length = 0;
        while (length < std::min(most, rest_.size()) && HTIsDigit(rest_[length])) {
            ++length;
        }
        return length < least ? kNone : HTInteger(cut(length));
    }
    void digits()
    {
        while (!rest_.empty() && HTIsDigit(rest_.front())) {
            rest_.remove_prefix(1);
        }
    }
    std::string_view letters()
    {
        const auto *const end = std::find_if_not(rest_.begin(), rest_.end(), HTIsLetter);
        return cut(static_cast<std::size_t>(end - rest_.begin()));
    }

private:
    std::string_view cut(std::size_t length)
    {
        const std::string_view part = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return part;
    }

    std::string_view rest_;
};

// The first second of what a date names, and the first one behind that.
struct Span {
    sys_seconds begin;
    sys_seconds end;
};
using MaybeSpan = std::optional<Span>;

// The span of a year, a month or a day; month and day may be kNone.
MaybeSpan spanOf(int year, int month, int day)
{
    const year_month_day date(std::chrono::year(year),
                              std::chrono::month(static_cast<unsigned>(std::max(month, 1))),
                              std::chrono::day(static_cast<unsigned>(std::max(day, 1))));
    if (year == kNone || month == 0 || day == 0 || !date.ok()) {
        return std::nullopt;
    }
    const sys_days begin(date);
    const sys_days end = day != kNone     ? begin + days(1)
                         : month != kNone ? sys_days(date + months(1))
                                          : sys_days(date + years(1));
    return Span{begin, end};
}

// zone := "Z" | ( "+" | "-" ) hours [ ":" ] minutes | name
struct ZoneName {
    std::string_view name;
    int hour;
};
constexpr ZoneName kZones[] = {
    {"", 0},     {"Z", 0},    {"UT", 0},   {"UTC", 0},  {"GMT", 0},  {"EST", -5}, {"EDT", -4},
    {"CST", -6}, {"CDT", -5}, {"MST", -7}, {"MDT", -6}, {"PST", -8}, {"PDT", -7},
};

// How far the zone is ahead of UTC; nothing when it is not understood.
std::optional<seconds> readZone(DateScanner *scanner)
{
    scanner->blanks();
    const bool isBehind = scanner->take("-");
    if (isBehind || scanner->take("+")) {
        const int hour = scanner->number(2, 2);
        scanner->take(":");
        const int minute = scanner->number(2, 2);
        if (hour == kNone || minute == kNone) {
            return std::nullopt;
        }
        const seconds ahead = hours(hour) + minutes(minute);
        return isBehind ? -ahead : ahead;
    }
    const std::string_view name = scanner->letters();
    for (const ZoneName &zone : kZones) {
        if (HTEqualsNoCase(zone.name, name)) {
            return hours(zone.hour);
        }
    }
    return std::nullopt;
}

// clock := hours ":" minutes [ ":" seconds [ "." digits ] ] [ zone ]
MaybeSpan readClock(DateScanner *scanner, const Span &day)
{
    constexpr int kLastHour = 23;
    constexpr int kLastMinute = 59;
    constexpr int kLeapSecond = 60;
    const int hour = scanner->number(1, 2);
    const int minute = scanner->take(":") ? scanner->number(2, 2) : kNone;
    const bool hasSecond = scanner->take(":");
    const int second = hasSecond ? scanner->number(2, 2) : 0;
    if (scanner->take(".,")) {
        scanner->digits();
    }
    const std::optional<seconds> ahead = readZone(scanner);
    if (hour == kNone || hour > kLastHour || minute == kNone || minute > kLastMinute ||
        second == kNone || second > kLeapSecond || !ahead) {
        return std::nullopt;
    }
    const sys_seconds begin = day.begin + hours(hour) + minutes(minute) + seconds(second) - *ahead;
    return Span{begin, begin + seconds(hasSecond ? 1 : kLeapSecond)};
}

// date := year [ "-" month [ "-" day [ ( "T" | blank ) clock ] ] ]
MaybeSpan readNumbers(DateScanner *scanner)
{
    const int year = scanner->number(4, 4);
    const bool hasMonth = scanner->take("-");
    const int month = hasMonth ? std::max(scanner->number(2, 2), 0) : kNone;
    const bool hasDay = hasMonth && scanner->take("-");
    const int day = hasDay ? std::max(scanner->number(2, 2), 0) : kNone;
    const MaybeSpan span = spanOf(year, month, day);
    const bool hasClock =
        span && hasDay && (scanner->take("Tt") || (scanner->blanks() && !scanner->atEnd()));
    return hasClock ? readClock(scanner, *span) : span;
}

// The number of a month from its name in English, of which three letters count; 0: it is none.
int monthOf(std::string_view name)
{
    constexpr std::string_view kMonths = "janfebmaraprmayjunjulaugsepoctnovdec";
    constexpr std::size_t kLetters = 3;
    for (std::size_t at = 0; at < kMonths.size(); at += kLetters) {
        if (HTEqualsNoCase(kMonths.substr(at, kLetters), name.substr(0, kLetters))) {
            return static_cast<int>(at / kLetters) + 1;
        }
    }
    return 0;
}

// date := [ weekday [ "," ] ] day month year [ clock ], with blanks or "-" between them
MaybeSpan readWords(DateScanner *scanner)
{
    constexpr int kThisCentury = 50;  // years of two digits below this are of the 21st century
    scanner->letters();
    scanner->take(",");
    scanner->blanks();
    const int day = std::max(scanner->number(1, 2), 0);
    static_cast<void>(scanner->take("-") || scanner->blanks());
    const int month = monthOf(scanner->letters());
    static_cast<void>(scanner->take("-") || scanner->blanks());
    int year = scanner->number(2, 4);
    if (year >= 0 && year < 100) {
        year += year < kThisCentury ? 2000 : 1900;
    }
    const MaybeSpan span = spanOf(year, month, day);
    const bool hasClock = scanner->blanks() && !scanner->atEnd();
    return span && hasClock ? readClock(scanner, *span) : span;
}

}  // namespace

std::optional<std::int64_t> CAReadDate(std::string_view text)
{
    DateScanner scanner(text);
    DateScanner first = scanner;
    const bool isNumbers = first.number(4, 4) != kNone;
    const MaybeSpan span = isNumbers ? readNumbers(&scanner) : readWords(&scanner);
    scanner.blanks();
    if (!span || !scanner.atEnd()) {
        return std::nullopt;
    }
    return (span->end - seconds(1)).time_since_epoch().count();
}
