#include "RPread.h"

#include <algorithm>
#include <string_view>

#include "HTString.h"
#include "RPlog.h"
#include "RPtally.h"

namespace {

// Removes an end of this form, in which "0" stands for any digit. Something of the file's name must
// remain.
bool removeEnd(std::string_view form, std::string_view *path)
{
    const auto fits = [](char c, char f) { return f == '0' ? HTIsDigit(c) : c == f; };
    if (path->size() <= form.size() || (*path)[path->size() - form.size() - 1] == '/' ||
        !std::equal(form.rbegin(), form.rend(), path->rbegin(),
                    [fits](char f, char c) { return fits(c, f); })) {
        return false;
    }
    path->remove_suffix(form.size());
    return true;
}

// Removes a number such as ".2".
void removeNumber(std::string_view *path)
{
    std::string_view rest = *path;
    while (!rest.empty() && HTIsDigit(rest.back())) {
        rest.remove_suffix(1);
    }
    if (rest.size() < path->size() && removeEnd(".", &rest)) {
        *path = rest;
    }
}

// The name of a log without what rotation and compression add: ".gz" and the like, a number such as
// ".2", and a date such as "-20261122" or "-2026-11-22", which may stand before ".log". Other
// numbers tell machines apart.
std::string stemOf(std::string_view path)
{
    for (const char *const end : {".gz", ".xz", ".bz2", ".zst", ".zstd"}) {
        (void)removeEnd(end, &path);
    }
    removeNumber(&path);
    const bool isLog = removeEnd(".log", &path);
    if (!removeEnd("-00000000", &path)) {
        (void)removeEnd("-0000-00-00", &path);
    }
    if (isLog) {
        return std::string(path) + ".log";
    }
    return std::string(path);
}

// The parts of a path between its slashes.
std::vector<std::string_view> partsOf(std::string_view path)
{
    std::vector<std::string_view> parts;
    while (!path.empty()) {
        const std::size_t slash = std::min(path.find('/'), path.size());
        if (slash > 0) {
            parts.push_back(path.substr(0, slash));
        }
        path.remove_prefix(std::min(slash + 1, path.size()));
    }
    return parts;
}

std::string withoutLog(std::string_view name)
{
    return std::string(name.ends_with(".log") ? name.substr(0, name.size() - 4) : name);
}

using Paths = std::vector<std::vector<std::string_view>>;

// True if all paths have the part of the first one that is `at` parts from the start or the end.
bool allShare(const Paths &paths, std::size_t at, bool fromEnd)
{
    const auto part = [at, fromEnd](const std::vector<std::string_view> &path) {
        return fromEnd ? path[path.size() - 1 - at] : path[at];
    };
    return std::all_of(paths.begin(), paths.end(), [&](const std::vector<std::string_view> &path) {
        return at < path.size() && part(path) == part(paths.front());
    });
}

// Short names of machines: the parts of the stems in which they differ. With one machine, the last
// part.
std::vector<std::string> namesOf(const std::vector<std::string> &stems)
{
    Paths paths;
    for (const std::string &stem : stems) {
        paths.push_back(partsOf(stem));
    }
    std::size_t start = 0;
    std::size_t end = 0;
    while (stems.size() > 1 && allShare(paths, start, false)) {
        ++start;
    }
    while (stems.size() > 1 && allShare(paths, end, true)) {
        ++end;
    }
    std::vector<std::string> names;
    for (const std::vector<std::string_view> &path : paths) {
        std::string name;
        for (std::size_t i = start; stems.size() > 1 && i + end < path.size(); ++i) {
            name.append(name.empty() ? "" : "/").append(withoutLog(path[i]));
        }
        names.push_back(!name.empty() || path.empty() ? name : withoutLog(path.back()));
    }
    return names;
}

struct Source {
    std::string path;
    std::size_t machine = 0;
    std::int64_t start = -1;  // the time of the first line that is understood
};

// The time of the first line of a log that is understood, -1 without one. Standard input is not
// read, because that can be done only once.
std::int64_t startOf(const std::string &path, RPEntryReader *reader)
{
    constexpr int kTries = 100;
    RPLog log;
    std::string_view line;
    RPEntry entry;
    if (path == "-" || !log.open(path)) {
        return -1;
    }
    for (int i = 0; i < kTries && log.next(&line); ++i) {
        if (reader->read(line, &entry)) {
            return entry.time;
        }
    }
    return -1;
}

// The logs in the order of time, and the stems of their names.
std::vector<Source> sourcesOf(const std::vector<std::string> &logs, RPEntryReader *reader,
                              std::vector<std::string> *stems)
{
    std::vector<Source> sources;
    for (const std::string &path : logs) {
        const std::string stem = path == "-" ? "standard input" : stemOf(path);
        const auto found = std::find(stems->begin(), stems->end(), stem);
        const auto machine = static_cast<std::size_t>(found - stems->begin());
        if (found == stems->end()) {
            stems->push_back(stem);
        }
        sources.push_back({.path = path, .machine = machine, .start = startOf(path, reader)});
    }
    std::stable_sort(sources.begin(), sources.end(),
                     [](const Source &a, const Source &b) { return a.start < b.start; });
    return sources;
}

// What was seen while reading.
struct Reading {
    std::int64_t lines = 0;
    std::int64_t badLines = 0;
    std::string firstBad;
    std::vector<std::string> problems;
    bool isRead = false;
};

void readLog(const Source &source, RPEntryReader *reader, RPTally *tally, Reading *reading)
{
    RPLog log;
    std::string_view line;
    RPEntry entry;
    const bool isOpen = log.open(source.path);
    reading->isRead = reading->isRead || isOpen;
    std::int64_t number = 0;
    while (isOpen && log.next(&line)) {
        ++number;
        if (!reader->read(line, &entry) || !tally->add(source.machine, entry)) {
            ++reading->badLines;
            if (reading->firstBad.empty()) {
                reading->firstBad = source.path + ", line " + std::to_string(number);
            }
        }
    }
    reading->lines += number + log.longLines();
    reading->badLines += log.longLines();
    if (log.longLines() > 0 && reading->firstBad.empty()) {
        reading->firstBad = source.path + ", a line of more than 64 kB";
    }
    if (!log.error().empty()) {
        reading->problems.push_back(source.path + ": " + log.error());
    }
}

}  // namespace

RPFigures RPRead(const std::vector<std::string> &logs, std::int32_t nights, std::int64_t now,
                 bool *isRead)
{
    RPEntryReader reader;
    std::vector<std::string> stems;
    const std::vector<Source> sources = sourcesOf(logs, &reader, &stems);
    RPTally tally(namesOf(stems), nights, now);
    Reading reading;
    for (const Source &source : sources) {
        readLog(source, &reader, &tally, &reading);
    }
    RPFigures figures = tally.finish();
    figures.lines = reading.lines;
    figures.badLines = reading.badLines;
    figures.firstBad = reading.firstBad;
    figures.problems = reading.problems;
    *isRead = reading.isRead;
    return figures;
}
