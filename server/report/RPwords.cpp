#include "RPwords.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace {

constexpr std::array<std::string_view, 12> kMonths = {
    "January", "February", "March",     "April",   "May",      "June",
    "July",    "August",   "September", "October", "November", "December",
};
constexpr std::array<std::string_view, 7> kWeekdays = {
    "Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday",
};

struct Unit {
    double size;
    std::string_view name;
};
constexpr std::array<Unit, 4> kUnits = {{
    {1e12, " TB"},
    {1e9, " GB"},
    {1e6, " MB"},
    {1e3, " kB"},
}};

std::string withTenths(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), value < 9.95 ? "%.1f" : "%.0f", value);
    return text.data();
}

// The smaller part of a duration; nothing if it is 0.
std::string behind(std::int64_t number, const char *unit)
{
    return number == 0 ? "" : std::string(" ").append(std::to_string(number)).append(unit);
}

std::string twoDigits(int number)
{
    return std::string(number < 10 ? "0" : "").append(std::to_string(number));
}

// The day's number in the month, and the first `letters` letters of the month.
std::string dayAndMonth(unsigned day, unsigned month, std::size_t letters)
{
    return std::to_string(day) + " " + std::string(kMonths[month - 1].substr(0, letters));
}

std::chrono::sys_days daysOf(RPDay day)
{
    return std::chrono::sys_days(std::chrono::days(day));
}

}  // namespace

std::string RPNumber(std::int64_t number)
{
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3;) {
        at -= 3;
        text.insert(at, kRPThinSpace);
    }
    return text;
}

std::string RPDuration(std::int64_t milliseconds)
{
    const std::int64_t seconds = milliseconds / 1000;
    if (seconds < 1) {
        return std::to_string(milliseconds) + " ms";
    }
    if (seconds < 60) {
        return withTenths(static_cast<double>(milliseconds) / 1000) + " s";
    }
    if (seconds < 3600) {
        return std::to_string(seconds / 60) + " min" + behind(seconds % 60, " s");
    }
    return RPNumber(seconds / 3600) + " h" + behind(seconds / 60 % 60, " min");
}

std::string RPBytes(std::int64_t bytes)
{
    for (const Unit &unit : kUnits) {
        if (static_cast<double>(bytes) >= unit.size) {
            return withTenths(static_cast<double>(bytes) / unit.size) + std::string(unit.name);
        }
    }
    return std::to_string(bytes) + " B";
}

std::string RPShare(std::int64_t part, std::int64_t whole)
{
    const std::int64_t percent = whole > 0 ? part * 100 / whole : 0;
    return (percent == 0 && part > 0 ? "under 1" : std::to_string(percent)) + " %";
}

std::string_view RPUpTo(std::string_view text, std::size_t limit)
{
    if (text.size() <= limit) {
        return text;
    }
    while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xc0U) == 0x80) {
        --limit;
    }
    return text.substr(0, limit);
}

std::string RPPlural(std::int64_t count, std::string_view one, std::string_view many)
{
    return RPNumber(count) + " " + std::string(count == 1 ? one : many);
}

std::string RPReason(RPVerdict verdict, const std::string &why)
{
    const std::string name(RPVerdictName(verdict));
    const bool isClear = verdict == RPVerdict::Failed || verdict == RPVerdict::Dropped;
    if (why.empty()) {
        return isClear ? "no reason logged" : name;
    }
    return isClear ? why : name + ": " + why;
}

std::string RPLongDay(RPDay day)
{
    const std::chrono::year_month_day date(daysOf(day));
    const std::chrono::weekday weekday(daysOf(day));
    return std::string(kWeekdays[weekday.c_encoding()]) + ", " +
           dayAndMonth(static_cast<unsigned>(date.day()), static_cast<unsigned>(date.month()), 9) +
           " " + std::to_string(static_cast<int>(date.year()));
}

std::string RPShortDay(RPDay day)
{
    const std::chrono::year_month_day date(daysOf(day));
    return dayAndMonth(static_cast<unsigned>(date.day()), static_cast<unsigned>(date.month()), 3);
}

std::string RPMoment(std::int64_t milliseconds)
{
    const std::time_t seconds = milliseconds / 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    return dayAndMonth(static_cast<unsigned>(local.tm_mday),
                       static_cast<unsigned>(local.tm_mon + 1), 3) +
           ", " + twoDigits(local.tm_hour) + ":" + twoDigits(local.tm_min) + ":" +
           twoDigits(local.tm_sec);
}
