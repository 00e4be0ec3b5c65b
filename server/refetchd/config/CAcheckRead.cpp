#include "config/CAcheckRead.h"

#include <cstring>
#include <utility>

#include "HTString.h"
#include "config/CAcfgLines.h"
#include "config/CAcheckShow.h"
#include "config/CAdirectives.h"
#include "config/CAmistakes.h"
#include "config/CAnearest.h"
#include "config/CAsitemapSeeds.h"
#include "url/CAURL.h"

namespace {

// The byte order mark of UTF-8, which some editors put in front of the first line.
constexpr std::string_view kMark = "\xef\xbb\xbf";

// True when a `maxhosturls` line applies to all hosts: it has no pattern, or an empty one.
bool isForAllHosts(const CAConfigLines &line)
{
    bool forAll = line.count() == 2;
    for (int i = 2; i < line.count(); ++i) {
        forAll = forAll || *line.word(i) == '\0';
    }
    return forAll;
}

}  // namespace

std::string CATextOf(const CAPlace &at)
{
    return at.line == 0 ? at.file : std::string(at.file) + ":" + std::to_string(at.line);
}

bool CACheck::sets(std::string_view name) const
{
    return found.contains(name);
}

CAFound CACheck::lineOf(std::string_view name) const
{
    const auto line = found.find(name);
    return line != found.end() ? line->second : CAFound{};
}

void CACheck::warn(const CAPlace &place, std::string_view name, const std::string &fault)
{
    if (!fault.empty()) {
        warnings.push_back({place, std::string(name) + (name.empty() ? "" : ": ") + fault});
    }
}

// Judges a line by its arguments and by the lines above it.
CAArgumentVerdict CACheck::judge(CAArgument argument, CAConfigLines *line)
{
    if (argument == CAArgument::ConfigFile) {
        refused |= !CAIsReadable(line->word(1), " (configfile, " + CATextOf(at) + ")");
    } else if (argument == CAArgument::List && std::strcmp(line->word(1), "-") == 0) {
        if (input.file != nullptr) {
            return {"no effect: " + CATextOf(input) + " reads standard input", false};
        }
        input = at;
    } else if (argument == CAArgument::Queries && ac.cacheAllQueries != 0) {
        return {"no effect: a line above allows all queries", false};
    } else if (argument == CAArgument::HostLimit && allHosts.file != nullptr) {
        return {"no effect: " + CATextOf(allHosts) + " applies to all hosts", false};
    } else if (argument == CAArgument::Variant && ac.variants.size() >= kMaxVariants) {
        return {"no effect: there are " + std::to_string(kMaxVariants) + " variants above", false};
    } else if (argument == CAArgument::HostLimit && isForAllHosts(*line)) {
        allHosts = at;
    }
    return CAJudgeArgument(argument, line);
}

// Keeps a line that sets something. When another file has set it to something else, only this line
// counts, which is easily overlooked.
void CACheck::keep(const CADirective &row, const CAConfigLines &line)
{
    const CAFound setting{at, CAJoinWords(line, 1), &row};
    if (CAAddsUp(row.takes)) {
        several.push_back(setting);
        return;
    }
    CAFound &kept = found[row.meaning.empty() ? row.name : row.meaning];
    const bool isElsewhere = kept.at.line != 0 && std::strcmp(kept.at.file, at.file) != 0;
    if (isElsewhere && kept.text != setting.text) {
        warn(at, row.name,
             "only this line counts, but " + CATextOf(kept.at) + " says " + CAQuoted(kept.text) +
                 ": remove one of them");
    }
    kept = setting;
}

void CACheck::directive(const char *file, CAConfigLines *line, const CADirective *row)
{
    at = {file, line->number()};
    if (row != nullptr && row->takes == CAArgument::Sitemap && CAReadSitemapLine(*line).isAuto) {
        robotsLine = {at, "", row};
    }
    rowOfLine = row;
    if (showsSeeds) {
        return;
    }
    if (row == nullptr) {
        return judgeName(line->directive());
    }
    const CAArgumentVerdict verdict = judge(row->takes, line);
    if (line->hasOpenQuote()) {
        warn(at, row->name, "a quote is not closed and counts as an ordinary character");
    }
    const std::string mistake = CAMistakeIn(*row, line);
    warn(at, row->name, mistake.empty() ? verdict.fault : mistake);
    if (verdict.sets && row->takes != CAArgument::Seed) {
        keep(*row, *line);
    }
}

void CACheck::skipped(CASkip why, const char *file, int number, const char *word)
{
    if (showsSeeds) {
        return;
    }
    at = {file, number};
    switch (why) {
    case CASkip::Alone: judgeAlone(word); break;
    case CASkip::Unclosed:
        warn(at, "", "this block has no closing \"}\": all lines below are ignored");
        break;
    case CASkip::BadHits: ++badHits; break;
    }
}

// True for the first word of a file that begins with the mark.
bool CACheck::hasMark(std::string_view name) const
{
    return at.line == 1 && name.starts_with(kMark);
}

// Warns of a directive without an argument. Other words that stand alone may be the proxy's.
void CACheck::judgeAlone(std::string name)
{
    standardize(name.data());
    name.resize(std::strlen(name.data()));
    if (CAFindDirective(name) != nullptr) {
        warn(at, name, "no argument");
    } else if (isStrict || hasMark(name) || name.find('=') != name.npos) {
        judgeName(name);
    }
}

// Warns of a name that is almost that of a directive. Other unknown names may be the proxy's,
// unless the file is the agent's alone.
void CACheck::judgeName(std::string_view name)
{
    if (hasMark(name)) {
        return warn(at, "",
                    "a byte order mark hides this line from the agent: save the file without it, "
                    "as plain UTF-8");
    }
    if (const std::string fault = CAMistakeInName(name); !fault.empty()) {
        return warn(at, "", fault);
    }
    const std::string_view meant = isStrict ? CANearestName(name) : CANearName(name);
    const std::string question = meant.empty() ? "" : ": is " + std::string(meant) + " meant?";
    warn(at, "",
         isStrict || !meant.empty() ? CAQuoted(name) + " is not a directive" + question : "");
}

void CACheck::seed(const CAURL &url, CADrop why)
{
    const bool configured = url.source() == SOURCE_CONFIG;
    const bool isRobots = url.role() == CARole::Robots;
    const CAFound line = isRobots ? robotsLine : CAFound{at, "", rowOfLine};
    if (showsSeeds) {
        CAShowSeed(url, why,
                   configured ? std::string(line.row->name) + ", " + CATextOf(line.at) : "");
    } else if (why == CADrop::None) {
        ++seeds;
        robots += isRobots ? 1 : 0;
        if (configured && httpsSeed.row == nullptr && url.protocol() == "https") {
            httpsSeed = line;
        }
    } else if (configured && rowOfLine->takes == CAArgument::List) {
        listQueries += why == CADrop::CacheQueries ? 1 : 0;
    } else if (configured) {
        warn(at, "loadurl", "no cachequeries line above allows " + CAQuoted(url.stringitize()));
    }
}

void CACheck::listed(const std::string &fault)
{
    const std::int64_t queries = std::exchange(listQueries, 0);
    if (showsSeeds) {
        return;
    }
    warn(at, "loadlist", fault);
    if (queries > 0) {
        warn(at, "loadlist",
             "no cachequeries line above allows " + std::to_string(queries) + " of its URLs");
    }
}
