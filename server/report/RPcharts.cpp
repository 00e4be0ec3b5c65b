#include "RPcharts.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

#include "RPwords.h"

namespace {

constexpr double kSliver = 0.8;       // percent: the least width of a part of the bar
constexpr double kGutter = 13;        // percent: the room for the scale
constexpr double kTop = 16;           // pixels: the room above the columns
constexpr double kHeight = 150;       // pixels: of the columns
constexpr double kLeastHeight = 2.5;  // pixels: of a part of a column
constexpr std::size_t kSlots = 7;     // at least; with fewer nights columns would be bricks
constexpr std::size_t kLabels = 14;   // at most

std::string decimal(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f", value);
    return text.data();
}

std::string percent(double value)
{
    return decimal(value) + "%";
}

// What a mouse over a part, or a reader of the screen, is told.
std::string textOf(const RPCounts &counts)
{
    std::string text;
    for (std::size_t i = 0; i < kRPRequestVerdicts; ++i) {
        if (counts[i] > 0) {
            text += (text.empty() ? "" : ", ") + RPNumber(counts[i]) + " " +
                    std::string(RPVerdictName(static_cast<RPVerdict>(i)));
        }
    }
    return text;
}

// The ends of scales; half of each is a round number, too. Those of counts are repeated in each
// power of ten.
constexpr std::array<std::int64_t, 24> kDurations = {
    2,   4,    6,    10,   20,   30,   40,    60,    120,   240,   360,   480,
    600, 1200, 1800, 2400, 3600, 7200, 14400, 21600, 28800, 43200, 86400, 172800,
};
constexpr std::array<std::int64_t, 10> kCounts = {10, 12, 16, 20, 24, 30, 40, 50, 60, 80};

std::int64_t endOfDurations(std::int64_t seconds)
{
    const auto *const end = std::lower_bound(kDurations.begin(), kDurations.end(), seconds);
    const std::int64_t longest = kDurations.back();
    return end != kDurations.end() ? *end : (seconds + longest - 1) / longest * longest;
}

std::int64_t endOfCounts(std::int64_t count)
{
    for (std::int64_t unit = 1;; unit *= 10) {
        for (const std::int64_t end : kCounts) {
            if (end * unit >= count) {
                return end * unit;
            }
        }
    }
}

std::string durationMark(std::int64_t seconds)
{
    if (seconds < 60) {
        return std::to_string(seconds) + " s";
    }
    return seconds < 3600 ? std::to_string(seconds / 60) + " min" : RPNumber(seconds / 3600) + " h";
}

// A column chart: nights along the line, values up.
class Columns {
public:
    Columns(const std::vector<RPNight> &nights, const std::string &label, std::int64_t end)
        : nights_(nights), end_(static_cast<double>(end))
    {
        out_ << "<svg class=\"columns\" role=\"img\" aria-label=\"" << label << "\">";
    }

    // A line of the scale at `value`, and its mark.
    void scale(std::int64_t value, const std::string &mark)
    {
        const std::string y = decimal(yOf(static_cast<double>(value)));
        out_ << "<line class=\"rule\" x1=\"" << percent(kGutter) << "\" x2=\"100%\" y1=\"" << y
             << "\" y2=\"" << y << "\"/><text class=\"mark\" x=\"" << percent(kGutter - 1.5)
             << "\" y=\"" << decimal(yOf(static_cast<double>(value)) + 4) << "\">" << mark
             << "</text>";
    }

    // Begins the column of a night; parts are stacked from below.
    void begin(std::size_t night, const std::string &title)
    {
        night_ = night;
        y_ = yOf(0);
        out_ << "<g><title>" << RPLongDay(nights_[night].day) << ": " << title << "</title>";
    }
    void part(std::int64_t value, const std::string &colour)
    {
        if (value == 0) {
            return;
        }
        const double height = std::max(static_cast<double>(value) / end_ * kHeight, kLeastHeight);
        y_ -= height;
        out_ << "<rect class=\"" << colour << "\" x=\"" << percent(xOf() + slot() * 0.14)
             << "\" width=\"" << percent(slot() * 0.72) << "\" y=\"" << decimal(y_)
             << "\" height=\"" << decimal(height) << "\"/>";
    }
    // Ends the column with its date below it; one without a part gets a mark that nothing ran.
    void end()
    {
        if (y_ >= yOf(0)) {
            text("none", yOf(0) - 5, "\u00d7");
        }
        const std::size_t step = (nights_.size() + kLabels - 1) / kLabels;
        const bool isLast = night_ + 1 == nights_.size();
        if ((nights_.size() - 1 - night_) % step == 0) {
            const std::string date = RPShortDay(nights_[night_].day);
            const std::size_t blank = date.find(' ');
            text(isLast ? "date last" : "date", yOf(0) + 16, date.substr(0, blank));
            if (month_ != date.substr(blank)) {
                month_ = date.substr(blank);
                text("date", yOf(0) + 31, month_.substr(1));
            }
        }
        out_ << "</g>";
    }

    [[nodiscard]] RPHtml finish()
    {
        out_ << "</svg>";
        return out_;
    }

private:
    [[nodiscard]] double yOf(double value) const { return kTop + kHeight * (1 - value / end_); }
    [[nodiscard]] std::size_t slots() const { return std::max(nights_.size(), kSlots); }
    [[nodiscard]] double slot() const { return (100 - kGutter) / static_cast<double>(slots()); }
    // The last night is at the right.
    [[nodiscard]] double xOf() const
    {
        return kGutter + slot() * static_cast<double>(slots() - nights_.size() + night_);
    }
    void text(std::string_view style, double y, const std::string &text)
    {
        out_ << "<text class=\"" << style << "\" x=\"" << percent(xOf() + slot() / 2) << "\" y=\""
             << decimal(y) << "\">" << text << "</text>";
    }

    const std::vector<RPNight> &nights_;
    const double end_;
    RPHtml out_;
    std::size_t night_ = 0;
    double y_ = 0;
    std::string month_;
};

}  // namespace

std::string RPVerdictClass(RPVerdict verdict)
{
    return std::string("v").append(std::to_string(RPIndex(verdict)));
}

RPHtml RPSwatch(RPVerdict verdict)
{
    RPHtml out;
    out << "<svg class=\"swatch\" aria-hidden=\"true\"><rect class=\"" << RPVerdictClass(verdict)
        << "\" width=\"100%\" height=\"100%\" rx=\"2\"/></svg>";
    return out;
}

RPHtml RPChartPatterns()
{
    RPHtml out;
    out << "<svg class=\"patterns\" aria-hidden=\"true\"><pattern id=\"hatch\" width=\"6\" "
           "height=\"6\" patternUnits=\"userSpaceOnUse\" patternTransform=\"rotate(45)\">"
           "<rect class=\"hatched\" width=\"6\" height=\"6\"/>"
           "<rect class=\"stripe\" width=\"1.6\" height=\"6\"/></pattern>"
           "<pattern id=\"gaps\" width=\"4\" height=\"4\" patternUnits=\"userSpaceOnUse\">"
           "<rect class=\"gapped\" width=\"4\" height=\"4\"/>"
           "<rect class=\"stripe\" width=\"1.4\" height=\"4\"/></pattern></svg>\n";
    return out;
}

RPHtml RPVerdictBar(const RPCounts &counts)
{
    const auto all = static_cast<double>(RPRequests(counts));
    std::array<double, kRPRequestVerdicts> widths{};
    double sum = 0;
    for (std::size_t i = 0; i < widths.size(); ++i) {
        const double share = static_cast<double>(counts[i]) * 100 / all;
        widths[i] = counts[i] > 0 ? std::max(share, kSliver) : 0;
        sum += widths[i];
    }
    RPHtml out;
    out << "<svg class=\"bar\" role=\"img\" aria-label=\"" << textOf(counts) << "\">";
    double x = 0;
    for (std::size_t i = 0; i < widths.size(); ++i) {
        if (widths[i] > 0) {
            const auto verdict = static_cast<RPVerdict>(i);
            out << "<rect class=\"" << RPVerdictClass(verdict) << "\" x=\"" << percent(x)
                << "\" width=\"" << percent(widths[i] * 100 / sum) << "\" height=\"100%\"><title>"
                << RPNumber(counts[i]) << " " << RPVerdictName(verdict) << "</title></rect>";
            x += widths[i] * 100 / sum;
        }
    }
    out << "</svg>";
    return out;
}

RPHtml RPRequestColumns(const std::vector<RPNight> &nights)
{
    std::int64_t most = 0;
    for (const RPNight &night : nights) {
        most = std::max(most, RPRequests(night.counts));
    }
    const std::int64_t end = endOfCounts(most);
    Columns chart(nights,
                  "Requests of each night by outcome. Last night: " + textOf(nights.back().counts) +
                      ". The table below has all figures.",
                  end);
    for (const std::int64_t value : {std::int64_t{0}, end / 2, end}) {
        chart.scale(value, RPNumber(value));
    }
    for (std::size_t i = 0; i < nights.size(); ++i) {
        const RPCounts &counts = nights[i].counts;
        chart.begin(i, RPRequests(counts) > 0 ? textOf(counts) : "no requests");
        for (std::size_t verdict = 0; verdict < kRPRequestVerdicts; ++verdict) {
            chart.part(counts[verdict], RPVerdictClass(static_cast<RPVerdict>(verdict)));
        }
        chart.end();
    }
    return chart.finish();
}

RPHtml RPDurationColumns(const std::vector<RPNight> &nights)
{
    std::int64_t longest = 0;
    for (const RPNight &night : nights) {
        longest = std::max(longest, night.duration());
    }
    const std::int64_t end = endOfDurations((longest + 999) / 1000);
    Columns chart(nights,
                  "Duration of the runs of each night. Last night: " +
                      RPDuration(nights.back().duration()) + ". The table below has all figures.",
                  end * 1000);
    for (const std::int64_t value : {std::int64_t{0}, end / 2, end}) {
        chart.scale(value * 1000, durationMark(value));
    }
    for (std::size_t i = 0; i < nights.size(); ++i) {
        chart.begin(i, nights[i].runs > 0 ? RPDuration(nights[i].duration()) : "no run");
        chart.part(nights[i].duration(), "time");
        chart.end();
    }
    return chart.finish();
}
