#include <algorithm>

#include "RPpage.h"
#include "RPwords.h"

namespace {

constexpr std::size_t kColumns = 78;
constexpr std::size_t kRows = 10;  // of a list

// Numbers have commas in ASCII.
std::string withCommas(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const bool isSpace = text.starts_with(kRPThinSpace);
        result += isSpace ? ',' : text.front();
        text.remove_prefix(isSpace ? kRPThinSpace.size() : 1);
    }
    return result;
}

// Collects lines of at most kColumns printable characters.
class Lines {
public:
    // Adds a line; one that is too long is cut.
    void put(std::string line)
    {
        line = withCommas(line);
        for (char &c : line) {
            c = c >= ' ' && c <= '~' ? c : '?';
        }
        if (line.size() > kColumns) {
            line.replace(kColumns - 3, line.npos, "...");
        }
        line.resize(line.find_last_not_of(' ') + 1);
        text_ += line + "\n";
    }

    // Adds a text as lines that are broken at blanks and begin with `indent` blanks.
    void wrap(std::string_view text, std::size_t indent = 0)
    {
        const std::size_t room = kColumns - indent;
        while (text.size() > room) {
            const std::size_t blank = text.rfind(' ', room);
            const std::size_t length = blank == std::string_view::npos ? room : blank;
            put(std::string(indent, ' ').append(text.substr(0, length)));
            text.remove_prefix(std::min(text.size(), blank == length ? length + 1 : length));
        }
        put(std::string(indent, ' ').append(text));
    }

    void title(const std::string &title)
    {
        put("");
        put(title);
    }

    [[nodiscard]] const std::string &text() const { return text_; }

private:
    std::string text_;
};

std::string left(std::string_view text, std::size_t width)
{
    std::string cell(text);
    cell.resize(std::max(cell.size(), width), ' ');
    return cell + "  ";
}

std::string right(std::string text, std::size_t width)
{
    text = withCommas(text);
    return std::string(width - std::min(width, text.size()), ' ') + text + "  ";
}

std::string number(std::int64_t value, std::size_t width = 9)
{
    return right(RPNumber(value), width);
}

void putSummary(Lines *lines, const RPFigures &figures)
{
    const RPMorning morning = RPJudge(figures);
    if (figures.nights.empty()) {
        lines->put("refetchd report");
    } else {
        lines->put("refetchd report, the night to " + RPLongDay(figures.night().day));
    }
    lines->put("");
    lines->wrap(morning.headline);
    for (const std::string &note : morning.notes) {
        lines->wrap(note);
    }
}

void putVerdicts(Lines *lines, const RPFigures &figures)
{
    constexpr std::int64_t kBar = 34;
    const RPNight &night = figures.night();
    const std::int64_t all = RPRequests(night.counts);
    lines->title("Requests: " + RPNumber(all) + " in " + RPDuration(night.duration()) + ", " +
                 RPBytes(night.bytes) + " received");
    for (std::size_t i = 0; i < kRPRequestVerdicts; ++i) {
        const std::int64_t count = night.counts[i];
        if (count > 0) {
            lines->put("  " + left(RPVerdictName(static_cast<RPVerdict>(i)), 17) + number(count) +
                       right(RPShare(count, all), 9) +
                       std::string(static_cast<std::size_t>((count * kBar + all - 1) / all), '#'));
        }
    }
}

void putGroup(Lines *lines, const RPGroup &group, std::size_t examples)
{
    lines->put(number(group.count) + RPReason(group.verdict, group.why));
    if (const std::string_view hint = RPReasonHint(group.why); !hint.empty()) {
        lines->wrap(hint, 11);
    }
    for (std::size_t i = 0; i < std::min(examples, group.examples.size()); ++i) {
        lines->put("           " + group.examples[i]);
    }
}

void putGroups(Lines *lines, const std::string &title, const std::vector<RPGroup> &groups,
               std::size_t examples)
{
    if (groups.empty()) {
        return;
    }
    lines->title(title);
    for (std::size_t i = 0; i < std::min(kRows, groups.size()); ++i) {
        putGroup(lines, groups[i], examples);
    }
}

void putSlowest(Lines *lines, const RPDetails &details)
{
    lines->title("Slowest URLs");
    for (std::size_t i = 0; i < std::min(kRows, details.slowest.size()); ++i) {
        lines->put(right(RPDuration(details.slowest[i].milliseconds), 12) + details.slowest[i].url);
    }
}

void putHosts(Lines *lines, const RPDetails &details)
{
    lines->title(" Requests      Fresh     Failed  Host");
    RPHost others = details.otherHosts;
    const auto put = [lines](const RPHost &host) {
        lines->put(number(RPRequests(host.counts)) + number(RPFresh(host.counts)) +
                   number(host.counts[RPIndex(RPVerdict::Failed)]) + host.name);
    };
    for (std::size_t i = 0; i < details.hosts.size(); ++i) {
        if (i < kRows) {
            put(details.hosts[i]);
        } else {
            others.add(details.hosts[i]);
        }
    }
    others.name = "other hosts";
    if (RPRequests(others.counts) > 0) {
        put(others);
    }
}

void putStatuses(Lines *lines, const RPDetails &details)
{
    lines->title("Responses   Received  Status");
    for (const RPStatus &status : details.statuses) {
        lines->put(number(status.count) + right(RPBytes(status.bytes), 9) +
                   (status.status > 0 ? std::to_string(status.status) : "no answer"));
    }
}

void putRuns(Lines *lines, const RPFigures &figures)
{
    lines->title(" Requests     Failed  Run");
    const std::vector<RPRun> &runs = figures.details.runs;
    const auto rows = static_cast<std::ptrdiff_t>(std::min(runs.size(), kRows));
    std::for_each(runs.rbegin(), runs.rbegin() + rows, [&](const RPRun &run) {
        lines->put(number(RPRequests(run.counts)) + number(run.counts[RPIndex(RPVerdict::Failed)]) +
                   RPMoment(run.start) + ", " + RPDuration(run.end - run.start) + ", " +
                   figures.machines[run.machine] +
                   (run.left > 0 ? ", " + RPNumber(run.left) + " left" : "") +
                   (run.stopped ? ", stopped" : ""));
    });
}

void putNights(Lines *lines, const std::vector<RPNight> &nights)
{
    lines->title(" Requests      Fresh     Failed      Duration  Night to");
    std::for_each(nights.rbegin(), nights.rend(), [lines](const RPNight &night) {
        lines->put(number(RPRequests(night.counts)) + number(RPFresh(night.counts)) +
                   number(night.counts[RPIndex(RPVerdict::Failed)]) +
                   right(night.runs > 0 ? RPDuration(night.duration()) : "no run", 12) +
                   RPShortDay(night.day));
    });
}

void putEnd(Lines *lines, const RPFigures &figures)
{
    lines->put("");
    std::string end = RPPlural(figures.lines, "line was", "lines were") + " read";
    if (figures.badLines > 0) {
        end += ", of which " + RPNumber(figures.badLines) +
               " were not understood (the first: " + figures.firstBad + ")";
    }
    lines->wrap(end + ". A night lasts from noon to noon.");
}

}  // namespace

std::string RPText(const RPFigures &figures)
{
    Lines lines;
    putSummary(&lines, figures);
    if (!figures.nights.empty()) {
        const RPDetails &details = figures.details;
        putVerdicts(&lines, figures);
        putGroups(&lines, "Not fresh", details.groups, 3);
        putSlowest(&lines, details);
        putHosts(&lines, details);
        putGroups(&lines, "Not requested", details.drops, 0);
        putStatuses(&lines, details);
        putRuns(&lines, figures);
        putNights(&lines, figures.nights);
    }
    putEnd(&lines, figures);
    return lines.text();
}
