#include "RPtally.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "RPwords.h"

namespace {

constexpr std::size_t kMaxHosts = 10000;
constexpr std::size_t kMaxReasons = 40;  // by verdict and reason
constexpr std::size_t kExamples = 5;
constexpr std::size_t kSlowest = 10;
constexpr std::size_t kMaxText = 2048;  // bytes of a URL that are kept
constexpr std::size_t kMaxReason = 200;
constexpr std::int64_t kMaxStatus = 999;
constexpr std::string_view kOthers = "other reasons";

// A URL as it is kept: one that was cut, by the agent or here, ends with dots.
std::string keptUrl(const RPEntry &entry)
{
    std::string url(RPUpTo(entry.url, kMaxText));
    return entry.cut > 0 || url.size() < entry.url.size() ? url + "..." : url;
}

// The host in a URL, with its port.
std::string_view hostIn(std::string_view url)
{
    constexpr std::string_view kMark = "://";
    const std::size_t start = url.find(kMark);
    if (start == std::string_view::npos) {
        return "(no host)";
    }
    url.remove_prefix(start + kMark.size());
    url = url.substr(0, url.find_first_of("/?#"));
    const std::size_t user = url.rfind('@');
    return user == std::string_view::npos ? url : url.substr(user + 1);
}

bool slower(const RPSlow &a, const RPSlow &b)
{
    return a.milliseconds > b.milliseconds;
}

}  // namespace

std::int64_t RPNight::duration() const
{
    return milliseconds.empty() ? 0 : *std::max_element(milliseconds.begin(), milliseconds.end());
}

void RPHost::add(const RPHost &other)
{
    for (std::size_t i = 0; i < counts.size(); ++i) {
        counts[i] += other.counts[i];
    }
    bytes += other.bytes;
    milliseconds += other.milliseconds;
}

RPTally::RPTally(std::vector<std::string> machines, std::int32_t nights, std::int64_t now)
    : kept_(static_cast<std::size_t>(nights)), latestTime_((now + std::int64_t{2} * 86400) * 1000)
{
    open_.resize(machines.size());
    for (std::size_t i = 0; i < open_.size(); ++i) {
        open_[i].machine = i;
    }
    ended_.resize(machines.size());
    seenLastNight_.resize(machines.size());
    figures_.now = now;
    figures_.machines = std::move(machines);
}

// The day of the night to which a moment belongs. Local time differs from UTC by whole quarters of
// an hour, so the day of the last quarter is kept.
RPDay RPTally::dayOf(std::int64_t milliseconds)
{
    using namespace std::chrono;
    const std::time_t seconds = milliseconds / 1000;
    if (const std::int64_t key = seconds / 900; key != dayKey_) {
        std::tm local{};
        localtime_r(&seconds, &local);
        const year_month_day date(year(local.tm_year + 1900),
                                  month(static_cast<unsigned>(local.tm_mon + 1)),
                                  day(static_cast<unsigned>(local.tm_mday)));
        dayKey_ = key;
        day_ = static_cast<RPDay>(sys_days(date).time_since_epoch().count()) +
               (local.tm_hour >= 12 ? 1 : 0);
    }
    return day_;
}

// The night of this day; null if it is older than the report's.
RPNight *RPTally::nightOf(RPDay day)
{
    if (nights_.empty() || day > nights_.rbegin()->first) {
        beginNight(day);
    }
    if (nights_.rbegin()->first - day >= static_cast<RPDay>(kept_)) {
        return nullptr;
    }
    RPNight &night = nights_[day];
    night.day = day;
    night.milliseconds.resize(open_.size());
    return &night;
}

// A later night than all others has a line: it becomes the last one, and the oldest ones end.
void RPTally::beginNight(RPDay day)
{
    nights_[day].day = day;
    nights_.erase(nights_.begin(), nights_.upper_bound(day - static_cast<RPDay>(kept_)));
    figures_.details = RPDetails();
    hosts_.clear();
    groups_.clear();
    drops_.clear();
    statuses_.clear();
    seenLastNight_.assign(seenLastNight_.size(), false);
}

bool RPTally::add(std::size_t machine, const RPEntry &entry)
{
    if (entry.time > latestTime_) {
        return false;
    }
    if (!entry.isRun()) {
        addUrl(machine, entry);
        return true;
    }
    RPRun &run = open_[machine];
    run.start = entry.time;
    run.end = entry.time + entry.seconds * 1000;
    run.left = entry.left;
    run.stopped = entry.stopped;
    endRun(run);
    ended_[machine] = run.end;
    run = RPRun{.machine = machine};
    return true;
}

void RPTally::addUrl(std::size_t machine, const RPEntry &entry)
{
    addToRun(machine, entry);
    const RPDay day = dayOf(entry.time);
    RPNight *const night = nightOf(day);
    if (night == nullptr) {
        return;
    }
    const bool isRequest = entry.verdict != RPVerdict::Dropped;
    const std::int64_t count = !isRequest && entry.more > 0 ? entry.more : 1;
    night->counts[RPIndex(entry.verdict)] += count;
    night->bytes += entry.bytes;
    if (day != nights_.rbegin()->first) {
        return;
    }
    if (isRequest) {
        seenLastNight_[machine] = true;
        addRequest(entry);
    } else {
        addToGroup(&drops_, entry, count);
    }
}

// Adds a request of the last night to its details.
void RPTally::addRequest(const RPEntry &entry)
{
    RPDetails &details = figures_.details;
    details.first = details.first == 0 ? entry.time : std::min(details.first, entry.time);
    details.last = std::max(details.last, entry.time + entry.milliseconds);
    RPHost &host = hostOf(entry.url);
    ++host.counts[RPIndex(entry.verdict)];
    host.bytes += entry.bytes;
    host.milliseconds += entry.milliseconds;
    RPStatus &status = statuses_[std::min(entry.status, kMaxStatus)];
    ++status.count;
    status.bytes += entry.bytes;
    if (entry.verdict > RPVerdict::Unchanged) {
        addToGroup(&groups_, entry, 1);
    }
    addSlow(entry);
}

// Keeps the slowest requests, as a heap whose first element is the fastest of them. A URL that was
// requested several times is in it once.
void RPTally::addSlow(const RPEntry &entry)
{
    std::vector<RPSlow> &slowest = figures_.details.slowest;
    if (slowest.size() == kSlowest && entry.milliseconds <= slowest.front().milliseconds) {
        return;
    }
    std::string url = keptUrl(entry);
    const auto same = std::find_if(slowest.begin(), slowest.end(),
                                   [&url](const RPSlow &slow) { return slow.url == url; });
    if (same != slowest.end()) {
        if (same->milliseconds < entry.milliseconds) {
            same->milliseconds = entry.milliseconds;
            same->verdict = entry.verdict;
            std::make_heap(slowest.begin(), slowest.end(), slower);
        }
        return;
    }
    if (slowest.size() == kSlowest) {
        std::pop_heap(slowest.begin(), slowest.end(), slower);
        slowest.pop_back();
    }
    slowest.push_back({std::move(url), entry.milliseconds, entry.verdict});
    std::push_heap(slowest.begin(), slowest.end(), slower);
}

void RPTally::addToRun(std::size_t machine, const RPEntry &entry)
{
    RPRun &run = open_[machine];
    const bool isOpen = run.start != 0;
    if (!isOpen && isLate(machine, entry)) {
        addToEndedRun(machine, entry.verdict);
        return;
    }
    if (isOpen && entry.time - run.end > kPause) {
        endRun(run);
        run = RPRun{.machine = machine};
    }
    run.start = run.start == 0 ? entry.time : std::min(run.start, entry.time);
    run.end = std::max(run.end, entry.time + entry.milliseconds);
    ++run.counts[RPIndex(entry.verdict)];
}

// True for what is logged behind the line about a run that has just ended: requests that the end
// cut off, and the sums of its dropped links.
bool RPTally::isLate(std::size_t machine, const RPEntry &entry) const
{
    constexpr std::int64_t kLate = std::int64_t{60} * 1000;
    return ended_[machine] > 0 &&
           (entry.why == kRPRunWasOver || entry.verdict == RPVerdict::Dropped) &&
           entry.time - ended_[machine] <= kLate;
}

// Counts for the last run of the machine that has ended, if it is one of the last night.
void RPTally::addToEndedRun(std::size_t machine, RPVerdict verdict)
{
    std::vector<RPRun> &runs = figures_.details.runs;
    const auto found = std::find_if(runs.rbegin(), runs.rend(), [&](const RPRun &run) {
        return run.machine == machine && run.end == ended_[machine];
    });
    if (found != runs.rend()) {
        ++found->counts[RPIndex(verdict)];
    }
}

void RPTally::addToGroup(Groups *groups, const RPEntry &entry, std::int64_t count)
{
    std::pair<RPVerdict, std::string> key(entry.verdict, RPUpTo(entry.why, kMaxReason));
    auto found = groups->find(key);
    if (found == groups->end()) {
        key.second = groups->size() < kMaxReasons ? key.second : kOthers;
        found = groups->try_emplace(key).first;
        found->second.verdict = key.first;
        found->second.why = key.second;
    }
    RPGroup &group = found->second;
    group.count += count;
    if (group.examples.size() < kExamples && !entry.url.empty()) {
        std::string url = keptUrl(entry);
        if (std::find(group.examples.begin(), group.examples.end(), url) == group.examples.end()) {
            group.examples.push_back(std::move(url));
        }
    }
}

void RPTally::endRun(RPRun run)
{
    const RPDay day = dayOf(run.start);
    RPNight *const night = nightOf(day);
    if (night == nullptr) {
        return;
    }
    ++night->runs;
    night->milliseconds[run.machine] += run.end - run.start;
    if (day == nights_.rbegin()->first) {
        std::vector<RPRun> &runs = figures_.details.runs;
        if (runs.size() == RPDetails::kRuns) {
            runs.erase(runs.begin());
        }
        runs.push_back(run);
    }
}

RPHost &RPTally::hostOf(std::string_view url)
{
    const std::string_view name = RPUpTo(hostIn(url), kMaxReason);
    const auto found = hosts_.find(name);
    if (found != hosts_.end()) {
        return found->second;
    }
    if (hosts_.size() >= kMaxHosts) {
        return figures_.details.otherHosts;
    }
    RPHost &host = hosts_[std::string(name)];
    host.name = name;
    return host;
}

namespace {

template <typename Map>
auto valuesOf(Map *map)
{
    std::vector<typename Map::mapped_type> values;
    for (auto &[key, value] : *map) {
        values.push_back(std::move(value));
    }
    return values;
}

// Sorts failures to the front, and then by size.
void sortGroups(std::vector<RPGroup> *groups)
{
    std::stable_sort(groups->begin(), groups->end(), [](const RPGroup &a, const RPGroup &b) {
        return std::make_pair(a.verdict != RPVerdict::Failed, -a.count) <
               std::make_pair(b.verdict != RPVerdict::Failed, -b.count);
    });
}

}  // namespace

void RPTally::finishDetails()
{
    RPDetails &details = figures_.details;
    details.groups = valuesOf(&groups_);
    details.drops = valuesOf(&drops_);
    details.statuses = valuesOf(&statuses_);
    details.hosts = valuesOf(&hosts_);
    sortGroups(&details.groups);
    sortGroups(&details.drops);
    std::sort(details.slowest.begin(), details.slowest.end(), slower);
    std::sort(details.hosts.begin(), details.hosts.end(), [](const RPHost &a, const RPHost &b) {
        return std::make_pair(-RPRequests(a.counts), std::string_view(a.name)) <
               std::make_pair(-RPRequests(b.counts), std::string_view(b.name));
    });
    std::stable_sort(details.runs.begin(), details.runs.end(),
                     [](const RPRun &a, const RPRun &b) { return a.start < b.start; });
    for (std::size_t i = 0; i < seenLastNight_.size(); ++i) {
        if (!seenLastNight_[i] && seenLastNight_.size() > 1) {
            details.silent.push_back(i);
        }
    }
}

RPFigures RPTally::finish()
{
    for (const RPRun &run : open_) {
        if (run.start != 0) {
            endRun(run);
        }
    }
    for (auto &[code, status] : statuses_) {
        status.status = code;
    }
    finishDetails();
    for (auto &[day, night] : nights_) {
        // A day without a line is a night without a run.
        while (!figures_.nights.empty() && figures_.nights.back().day + 1 < day) {
            figures_.nights.push_back({.day = figures_.nights.back().day + 1});
        }
        figures_.nights.push_back(std::move(night));
    }
    return std::move(figures_);
}
