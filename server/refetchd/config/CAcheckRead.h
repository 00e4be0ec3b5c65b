// What refetchd-check reads: the settings with the lines that set them, the seeds, and warnings
// about single lines. Main thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "config/CAargument.h"
#include "config/CAcfg.h"

// Where a setting comes from: a line of a configuration file, or an option of the command line
// (its text in `file`, and no line). Nowhere when `file` is null.
struct CAPlace {
    const char *file = nullptr;
    int line = 0;
};

// The place as "FILE:LINE", or as the option.
[[nodiscard]] std::string CATextOf(const CAPlace &at);

// A setting or a warning.
struct CAFound {
    CAPlace at;
    std::string text;
    const CADirective *row = nullptr;
};

// Collects, in the first reading of the files, the settings and the warnings. In the second reading
// it only prints the seeds.
struct CACheck : CAConfigObserver {
    void directive(const char *file, CAConfigLines *line, const CADirective *row) override;
    void skipped(CASkip why, const char *file, int number, const char *word) override;
    void seed(const CAURL &url, CADrop why) override;
    void listed(const std::string &fault) override;

    // Adds a warning about `place`, unless `fault` is empty; without a name, about the line itself.
    void warn(const CAPlace &place, std::string_view name, const std::string &fault);
    // True when a line sets this directive.
    [[nodiscard]] bool sets(std::string_view name) const;
    // The line of a directive that does not add up, or no line.
    [[nodiscard]] CAFound lineOf(std::string_view name) const;

    CAPlace at;                                 // the current line
    const CADirective *rowOfLine = nullptr;     // its directive, if the agent has it
    std::map<std::string_view, CAFound> found;  // by directive, the last line that set it
    std::vector<CAFound> several;               // lines of directives that add up, all of them
    std::vector<CAFound> warnings;
    std::vector<CAFound> notes;  // what is to do, but no mistake
    CAPlace allHosts;            // the first limit for all hosts
    CAFound httpsSeed;           // the line of the first seed with https
    CAFound robotsLine;          // the last line `loadsitemap auto`
    CAPlace input;               // the line that reads standard input
    std::int64_t seeds = 0;
    std::int64_t robots = 0;       // seeds that are a robots.txt
    std::int64_t badHits = 0;      // malformed lines of the hits file
    std::int64_t listQueries = 0;  // of the current list: URLs that are left out for their query
    bool refused = false;          // a file cannot be read
    bool isStrict = false;         // every unknown name is a mistake
    bool showsSeeds = false;       // this is the second reading

private:
    [[nodiscard]] CAArgumentVerdict judge(CAArgument argument, CAConfigLines *line);
    void keep(const CADirective &row, const CAConfigLines &line);
    void judgeName(std::string_view name);
    void judgeAlone(std::string name);
    [[nodiscard]] bool hasMark(std::string_view name) const;
};
