#include <algorithm>

#include "RPwords.h"

namespace {

constexpr std::int64_t kHour = 3600;  // in seconds
constexpr std::int64_t kDay = 24 * kHour;

// The largest group of the verdict; null if there is none.
const RPGroup *largest(const RPFigures &figures, RPVerdict verdict)
{
    const std::vector<RPGroup> &groups = figures.details.groups;
    const auto found = std::find_if(groups.begin(), groups.end(), [verdict](const RPGroup &group) {
        return group.verdict == verdict;
    });
    return found == groups.end() ? nullptr : &*found;
}

// Notes how many requests failed, and mostly why.
void addWhy(const RPFigures &figures, std::vector<std::string> *notes)
{
    const RPGroup *const group = largest(figures, RPVerdict::Failed);
    const std::int64_t failed = figures.night().counts[RPIndex(RPVerdict::Failed)];
    if (group == nullptr) {
        return;
    }
    std::string note = RPPlural(failed, "request", "requests") + " failed, ";
    if (group->count < failed) {
        note += "most often (" + RPNumber(group->count) + ") ";
    } else if (failed > 1) {
        note += "all ";
    }
    note += group->why.empty() ? "without a reason in the log."
                               : "with the reason \"" + group->why + "\".";
    if (const std::string_view hint = RPReasonHint(group->why); !hint.empty()) {
        note.append(" ").append(hint);
    }
    notes->push_back(note);
}

// The requests that failed because a run was stopped, which shows nothing about the proxy.
std::int64_t countStopped(const RPFigures &figures)
{
    const RPDetails &details = figures.details;
    std::int64_t count = 0;
    for (const RPGroup &group : details.groups) {
        count += group.why == kRPRunWasOver ? group.count : 0;
    }
    const bool isStopped = std::any_of(details.runs.begin(), details.runs.end(),
                                       [](const RPRun &run) { return run.stopped; });
    return isStopped ? count : 0;
}

std::string outOf(std::int64_t part, std::int64_t whole)
{
    return part == whole ? RPNumber(part) : RPNumber(part) + " of " + RPNumber(whole);
}

// "1 page is", "7 of 9 pages are".
std::string freshPages(std::int64_t fresh, std::int64_t all)
{
    return outOf(fresh, all) + (all == 1 ? " page" : " pages") + (fresh == 1 ? " is" : " are");
}

// Judges the verdicts of the last night; `all` is not 0.
RPMorning judgeCounts(const RPFigures &figures, std::int64_t all)
{
    const RPCounts &counts = figures.night().counts;
    const std::int64_t failed = counts[RPIndex(RPVerdict::Failed)];
    const std::int64_t old = counts[RPIndex(RPVerdict::FromCache)];
    const std::int64_t unknown = counts[RPIndex(RPVerdict::Unknown)];
    const std::int64_t stopped = countStopped(figures);
    const std::int64_t unkept = counts[RPIndex(RPVerdict::NotCacheable)];
    RPMorning morning{.mood = RPMood::Wrong};
    if ((failed - stopped) * 2 > all - stopped) {
        morning.headline = "Most requests failed: " + outOf(failed, all) + ".";
        addWhy(figures, &morning.notes);
    } else if ((old + unknown) * 2 > all && old >= unknown) {
        morning.headline = "Most pages came from the cache: " + outOf(old, all) + ".";
        morning.notes.emplace_back(
            "The proxy probably ignores max-age=0 in the agent's requests. docs/proxies.md and the "
            "recipes say how to configure it.");
    } else if ((old + unknown) * 2 > all) {
        morning.headline =
            "Most answers do not show whether the pages are fresh: " + outOf(unknown, all) + ".";
        morning.notes.emplace_back(
            "The proxy sends none of the headers Age, Via, X-Cache and Cache-Status. "
            "docs/proxies.md and the recipes say how to add one.");
    } else if (unkept * 2 > all) {
        morning.headline = "Most pages cannot be kept in the cache: " + outOf(unkept, all) + ".";
        morning.notes.emplace_back(
            "The site forbids it with Cache-Control or Set-Cookie, or the proxy is configured not "
            "to store them; see docs/proxies.md.");
    } else {
        const std::string fresh = freshPages(RPFresh(counts), all);
        const bool few = failed * 20 <= all && (old + unknown) * 5 <= all;
        morning.mood = few ? RPMood::Fine : RPMood::Look;
        morning.headline =
            few ? "All is well: " + fresh + " fresh." : "Some pages are not fresh: " + fresh + ".";
        addWhy(figures, &morning.notes);
    }
    return morning;
}

void look(RPMorning *morning, std::string note)
{
    morning->mood = std::max(morning->mood, RPMood::Look);
    morning->notes.push_back(std::move(note));
}

void judgeQueue(const RPFigures &figures, RPMorning *morning)
{
    std::vector<std::int64_t> left(figures.machines.size());  // by the last run of each machine
    bool stopped = false;
    for (const RPRun &run : figures.details.runs) {
        left[run.machine] = std::max<std::int64_t>(run.left, 0);
        stopped = stopped || run.stopped;
    }
    std::int64_t sum = 0;
    for (const std::int64_t count : left) {
        sum += count;
    }
    if (stopped) {
        look(morning, "A run was stopped before its end.");
    }
    if (sum > 0) {
        look(morning, RPPlural(sum, "URL was", "URLs were") +
                          " left in the queue when the time was over; see maxruntime, numclients "
                          "and the limits of the rate.");
    }
}

// Compares with the median of the nights before that had requests.
void judgeTrend(const RPFigures &figures, std::int64_t all, RPMorning *morning)
{
    std::vector<std::int64_t> before;
    for (const RPNight &night : figures.nights) {
        if (&night != &figures.night() && RPRequests(night.counts) > 0) {
            before.push_back(RPRequests(night.counts));
        }
    }
    if (before.size() < 3) {
        return;
    }
    std::sort(before.begin(), before.end());
    const std::int64_t usual = before[before.size() / 2];
    if (all * 2 < usual) {
        look(morning, "There were fewer than half as many requests as usual: " + RPNumber(all) +
                          " instead of about " + RPNumber(usual) + ".");
    }
}

// Sees whether runs are missing.
void judgeAbsence(const RPFigures &figures, RPMorning *morning)
{
    for (const std::size_t machine : figures.details.silent) {
        look(morning, "No requests of " + figures.machines[machine] + " were logged.");
    }
    std::int64_t last = figures.details.last / 1000;
    for (const RPRun &run : figures.details.runs) {
        last = std::max(last, run.end / 1000);
    }
    const std::int64_t days = (figures.now - last) / kDay;
    if (last > 0 && figures.now - last > 30 * kHour) {
        morning->mood = RPMood::Wrong;
        morning->notes.push_back(morning->headline);
        std::rotate(morning->notes.begin(), morning->notes.end() - 1, morning->notes.end());
        morning->headline = "There was no run last night: the last one ended " +
                            RPPlural(days, "day", "days") + " ago.";
    }
}

}  // namespace

RPMorning RPJudge(const RPFigures &figures)
{
    const std::int64_t all = figures.nights.empty() ? 0 : RPRequests(figures.night().counts);
    RPMorning morning{.mood = RPMood::Wrong, .headline = "No requests were logged."};
    if (all > 0) {
        morning = judgeCounts(figures, all);
    }
    judgeQueue(figures, &morning);
    judgeTrend(figures, all, &morning);
    judgeAbsence(figures, &morning);
    for (const std::string &problem : figures.problems) {
        look(&morning, problem + ".");
    }
    return morning;
}
