#include "RPpage.h"

#include <algorithm>
#include <array>

#include "HTString.h"
#include "RPcharts.h"
#include "RPhtml.h"
#include "RPstyle.h"
#include "RPwords.h"

namespace {

constexpr std::size_t kHostRows = 12;
constexpr std::size_t kRunRows = 12;
constexpr std::size_t kShownUrl = 240;  // bytes of a URL that are shown

// Only such a URL becomes a link: a scheme that runs nothing, and it is complete.
bool isLink(std::string_view url)
{
    return (url.starts_with("http://") || url.starts_with("https://")) && !url.ends_with("...");
}

// What is shown of a URL.
std::string shown(const std::string &url)
{
    return url.size() <= kShownUrl ? url : std::string(RPUpTo(url, kShownUrl)) + "\u2026";
}

// The URL as the target of a link: what browsers could read in another way, such as a backslash as
// a slash, is percent-encoded.
std::string targetOf(std::string_view url)
{
    constexpr std::string_view kEncoded = " \"'<>\\^`{|}";
    std::string target;
    for (const char c : url) {
        if (c > ' ' && c <= '~' && kEncoded.find(c) == std::string_view::npos) {
            target += c;
        } else {
            std::array<char, 3> code{};
            target.append(code.data(), HTPercentEncode(c, code.data()));
        }
    }
    return target;
}

RPHtml linkTo(const std::string &url)
{
    RPHtml out;
    if (isLink(url)) {
        out << "<a class=\"url\" rel=\"noreferrer noopener\" href=\"" << targetOf(url) << "\">"
            << shown(url) << "</a>";
    } else {
        out << "<span class=\"url\">" << shown(url) << "</span>";
    }
    return out;
}

void putHead(RPHtml *page, const RPFigures &figures)
{
    *page << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
             "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
             "style-src 'unsafe-inline'\">\n"
             "<meta name=\"referrer\" content=\"no-referrer\">\n"
             "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
    if (figures.nights.empty()) {
        *page << "refetchd";
    } else {
        *page << "refetchd, " << RPShortDay(figures.night().day);
    }
    *page << "</title>\n<style>" << kRPStyle << "</style>\n</head>\n<body>\n" << RPChartPatterns();
}

// "22 Nov, 02:00:05, took 5 min 12 s", and the machine if there are several.
void putLastRun(RPHtml *page, const RPFigures &figures)
{
    const std::vector<RPRun> &runs = figures.details.runs;
    if (runs.empty()) {
        return;
    }
    const RPRun &run = runs.back();
    *page << "<p class=\"soft\">";
    if (figures.night().runs > 1) {
        *page << figures.night().runs << " runs. ";
    }
    *page << "Last run: " << RPMoment(run.start) << ", took " << RPDuration(run.end - run.start);
    if (figures.machines.size() > 1) {
        *page << ", on " << figures.machines[run.machine];
    }
    *page << "</p>";
}

void putTitle(RPHtml *page, const RPFigures &figures)
{
    constexpr std::array<std::string_view, 3> kMoods = {"fine", "look", "wrong"};
    const RPMorning morning = RPJudge(figures);
    *page << "<header><p class=\"brand\">refetchd report</p>\n<h1>";
    if (figures.nights.empty()) {
        *page << "No night yet";
    } else {
        *page << "The night to " << RPLongDay(figures.night().day);
    }
    *page << "</h1>";
    putLastRun(page, figures);
    *page << "</header>\n<main>\n<section class=\"mood "
          << kMoods[static_cast<std::size_t>(morning.mood)] << "\" aria-label=\"Summary\"><strong>"
          << morning.headline << "</strong>";
    for (const std::string &note : morning.notes) {
        *page << "<p>" << note << "</p>";
    }
    *page << "</section>\n";
}

void putFigure(RPHtml *page, std::string_view name, const RPHtml &figure, const std::string &more)
{
    *page << "<div><dt>" << name << "</dt><dd>" << figure;
    if (!more.empty()) {
        *page << " <small>" << more << "</small>";
    }
    *page << "</dd></div>";
}

void putFigures(RPHtml *page, const RPNight &night)
{
    const std::int64_t all = RPRequests(night.counts);
    const std::int64_t fresh = RPFresh(night.counts);
    const std::int64_t old = night.counts[RPIndex(RPVerdict::FromCache)];
    const std::int64_t failed = night.counts[RPIndex(RPVerdict::Failed)];
    *page << "<dl>";
    putFigure(page, "Requests", RPHtml() << all, "");
    putFigure(page, "Fresh", RPHtml() << fresh, RPShare(fresh, all));
    putFigure(page, "From the cache", RPHtml() << old, RPShare(old, all));
    putFigure(page, "Failed", RPHtml() << failed, RPShare(failed, all));
    putFigure(page, "Duration", RPHtml() << RPDuration(night.duration()), "");
    putFigure(page, "Received", RPHtml() << RPBytes(night.bytes), "");
    *page << "</dl>\n";
}

void putVerdicts(RPHtml *page, const RPNight &night)
{
    const std::int64_t all = RPRequests(night.counts);
    *page << "<section><h2>What became of the requests</h2>\n";
    putFigures(page, night);
    if (all > 0) {
        *page << RPVerdictBar(night.counts);
    }
    *page << "<table class=\"legend\"><thead><tr><th scope=\"col\">Outcome</th><th scope=\"col\">"
             "Requests</th><th scope=\"col\">Share</th></tr></thead>\n<tbody>";
    for (std::size_t i = 0; i < kRPRequestVerdicts; ++i) {
        const auto verdict = static_cast<RPVerdict>(i);
        if (night.counts[i] > 0) {
            *page << "<tr><th scope=\"row\">" << RPSwatch(verdict) << RPVerdictName(verdict)
                  << "<span class=\"meaning\">" << RPVerdictMeaning(verdict) << "</span></th><td>"
                  << night.counts[i] << "</td><td>" << RPShare(night.counts[i], all)
                  << "</td></tr>\n";
        }
    }
    *page << "</tbody></table></section>\n";
}

void putNightRow(RPHtml *page, const RPNight &night)
{
    const RPCounts &counts = night.counts;
    *page << "<tr><th scope=\"row\">" << RPShortDay(night.day) << "</th><td>" << RPRequests(counts)
          << "</td><td>" << RPFresh(counts) << "</td><td class=\"wide\">"
          << counts[RPIndex(RPVerdict::FromCache)] << "</td><td>"
          << counts[RPIndex(RPVerdict::Failed)] << "</td><td class=\"wide\">"
          << RPBytes(night.bytes) << "</td><td>";
    if (night.runs > 0) {
        *page << RPDuration(night.duration());
    } else {
        *page << "no run";
    }
    *page << "</td></tr>\n";
}

void putNights(RPHtml *page, const std::vector<RPNight> &nights)
{
    *page << "<section><h2>Night by night</h2>\n<div class=\"charts\">"
             "<div><h3>Requests by outcome</h3>"
          << RPRequestColumns(nights) << "</div>\n<div><h3>Duration</h3>"
          << RPDurationColumns(nights)
          << "</div></div>\n<details><summary>The figures as a table</summary><table><thead><tr>"
             "<th scope=\"col\">Night to</th><th scope=\"col\">Requests</th><th scope=\"col\">Fresh"
             "</th><th scope=\"col\" class=\"wide\">From cache</th><th scope=\"col\">Failed</th>"
             "<th scope=\"col\" class=\"wide\">Received</th><th scope=\"col\">Duration</th></tr>"
             "</thead>\n<tbody>";
    std::for_each(nights.rbegin(), nights.rend(),
                  [page](const RPNight &night) { putNightRow(page, night); });
    *page << "</tbody></table></details></section>\n";
}

void putGroup(RPHtml *page, const RPGroup &group)
{
    *page << "<div class=\"group\"><h3>" << RPSwatch(group.verdict)
          << RPReason(group.verdict, group.why) << "<b>" << group.count << "</b></h3>";
    if (const std::string_view hint = RPReasonHint(group.why); !hint.empty()) {
        *page << "<p class=\"soft\">" << hint << "</p>";
    }
    *page << "<ul>";
    for (const std::string &url : group.examples) {
        *page << "<li>" << linkTo(url) << "</li>";
    }
    *page << "</ul></div>\n";
}

// The groups of failures, or those of the other verdicts.
void putGroups(RPHtml *page, const RPFigures &figures, bool failures)
{
    RPHtml groups;
    for (const RPGroup &group : figures.details.groups) {
        if ((group.verdict == RPVerdict::Failed) == failures) {
            putGroup(&groups, group);
        }
    }
    if (groups.text().empty()) {
        return;
    }
    *page << "<section><h2>";
    if (failures) {
        *page << "Failures by reason";
    } else {
        *page << "Not fresh for other reasons";
    }
    *page << "</h2>\n<div class=\"groups\">" << groups << "</div></section>\n";
}

void putSlowest(RPHtml *page, const RPDetails &details)
{
    *page << "<section><h2>Slowest URLs</h2>\n<table><thead><tr><th scope=\"col\">URL</th>"
             "<th scope=\"col\" class=\"wide\">Outcome</th><th scope=\"col\">Time</th></tr>"
             "</thead>\n<tbody>";
    for (const RPSlow &slow : details.slowest) {
        *page << "<tr><td>" << linkTo(slow.url) << "</td><td class=\"wide\">"
              << RPVerdictName(slow.verdict) << "</td><td>" << RPDuration(slow.milliseconds)
              << "</td></tr>\n";
    }
    *page << "</tbody></table></section>\n";
}

void putHost(RPHtml *page, const RPHost &host)
{
    const std::int64_t all = RPRequests(host.counts);
    *page << "<tr><th scope=\"row\">" << host.name << "</th><td>" << all << "</td><td>"
          << RPFresh(host.counts) << "</td><td>" << host.counts[RPIndex(RPVerdict::Failed)]
          << "</td><td class=\"wide\">" << RPBytes(host.bytes) << "</td><td class=\"wide\">"
          << RPDuration(all > 0 ? host.milliseconds / all : 0) << "</td></tr>\n";
}

void putHosts(RPHtml *page, const RPDetails &details)
{
    *page << "<section><h2>Hosts</h2>\n<table><thead><tr><th scope=\"col\">Host</th>"
             "<th scope=\"col\">Requests</th><th scope=\"col\">Fresh</th><th scope=\"col\">Failed"
             "</th><th scope=\"col\" class=\"wide\">Received</th><th scope=\"col\" class=\"wide\">"
             "Mean time</th></tr></thead>\n<tbody>";
    RPHost others = details.otherHosts;
    for (std::size_t i = 0; i < details.hosts.size(); ++i) {
        if (i < kHostRows) {
            putHost(page, details.hosts[i]);
        } else {
            others.add(details.hosts[i]);
        }
    }
    others.name = "other hosts";
    if (RPRequests(others.counts) > 0) {
        putHost(page, others);
    }
    *page << "</tbody></table></section>\n";
}

void putDrops(RPHtml *page, const RPDetails &details)
{
    if (details.drops.empty()) {
        return;
    }
    *page << "<section><h2>Not requested</h2>\n<table><thead><tr><th scope=\"col\">Limit or filter"
             "</th><th scope=\"col\">URLs</th></tr></thead>\n<tbody>";
    for (const RPGroup &group : details.drops) {
        *page << "<tr><th scope=\"row\">" << group.why << "<span class=\"meaning\">"
              << RPReasonHint(group.why) << "</span>";
        if (!group.examples.empty()) {
            *page << "<span class=\"meaning url\">Such as " << shown(group.examples.front())
                  << "</span>";
        }
        *page << "</th><td>" << group.count << "</td></tr>\n";
    }
    *page << "</tbody></table></section>\n";
}

void putStatuses(RPHtml *page, const RPDetails &details)
{
    *page << "<section><h2>Responses by status</h2>\n<table><thead><tr><th scope=\"col\">Status"
             "</th><th scope=\"col\">Responses</th><th scope=\"col\">Received</th></tr></thead>\n"
             "<tbody>";
    for (const RPStatus &status : details.statuses) {
        *page << "<tr><th scope=\"row\">";
        if (status.status == 0) {
            *page << "no answer";
        } else {
            *page << status.status;
        }
        *page << "</th><td>" << status.count << "</td><td>" << RPBytes(status.bytes)
              << "</td></tr>\n";
    }
    *page << "</tbody></table></section>\n";
}

void putRun(RPHtml *page, const RPFigures &figures, const RPRun &run)
{
    *page << "<tr><th scope=\"row\">" << RPMoment(run.start);
    if (run.stopped) {
        *page << " (stopped)";
    }
    *page << "</th><td class=\"wide\">" << figures.machines[run.machine] << "</td><td>"
          << RPDuration(run.end - run.start) << "</td><td>" << RPRequests(run.counts) << "</td><td>"
          << run.counts[RPIndex(RPVerdict::Failed)] << "</td><td class=\"wide\">";
    if (run.left >= 0) {
        *page << run.left;
    } else {
        *page << "not logged";
    }
    *page << "</td></tr>\n";
}

void putRuns(RPHtml *page, const RPFigures &figures)
{
    const std::vector<RPRun> &runs = figures.details.runs;
    if (runs.empty()) {
        return;
    }
    *page << "<section><h2>Runs</h2>\n<table><thead><tr><th scope=\"col\">Start</th>"
             "<th scope=\"col\" class=\"wide\">Log</th><th scope=\"col\">Duration</th>"
             "<th scope=\"col\">Requests</th><th scope=\"col\">Failed</th>"
             "<th scope=\"col\" class=\"wide\">Left in the queue</th></tr></thead>\n<tbody>";
    const std::size_t rows = std::min(runs.size(), kRunRows);
    std::for_each(runs.rbegin(), runs.rbegin() + static_cast<std::ptrdiff_t>(rows),
                  [&](const RPRun &run) { putRun(page, figures, run); });
    *page << "</tbody></table></section>\n";
}

void putFooter(RPHtml *page, const RPFigures &figures)
{
    *page << "</main>\n<footer><p>Made by refetchd-report " REFETCHD_VERSION " on "
          << RPMoment(figures.now * 1000) << " from " << RPPlural(figures.lines, "line", "lines");
    if (figures.badLines > 0) {
        *page << ", of which " << figures.badLines
              << " were not understood (the first: " << figures.firstBad << ")";
    }
    *page << ". A night lasts from noon to noon.</p></footer>\n</body>\n</html>\n";
}

}  // namespace

std::string RPPage(const RPFigures &figures)
{
    RPHtml page;
    putHead(&page, figures);
    putTitle(&page, figures);
    if (!figures.nights.empty()) {
        putVerdicts(&page, figures.night());
        putNights(&page, figures.nights);
        putGroups(&page, figures, true);
        putGroups(&page, figures, false);
        putSlowest(&page, figures.details);
        putHosts(&page, figures.details);
        page << "<div class=\"pair\">";
        putDrops(&page, figures.details);
        putStatuses(&page, figures.details);
        page << "</div>\n";
        putRuns(&page, figures);
    }
    putFooter(&page, figures);
    return page.text();
}
