// The kinds of arguments that directives take, and checks of the arguments in a line. The agent
// runs with any arguments, ignoring those that it cannot use; refetchd-check warns of them. Main
// thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class CAConfigLines;

enum class CAArgument : std::uint8_t {
    Text,
    Number,
    Decimal,     // a number from 0 on, perhaps with a fraction
    Percent,     // 0 to 100, or an off word; anything else changes nothing
    Pause,       // milliseconds, or an on/off word
    Flag,        // an on/off word
    On,          // exactly "on"; any other word changes nothing
    SaveOn,      // the same, in upper or lower case, "-" and "_" ignored
    Off,         // an on/off word; any other word counts as on
    All,         // "all", or an off word
    When,        // a "when" word (CAwhen.h)
    Time,        // a duration, all words of the line
    TraceLog,    // a file to write; one that cannot be written sets nothing
    ErrorLog,    // the same; only the directory in the name is used
    ResultsLog,  // a file to write, and perhaps one of the two words below
    Readable,    // a file to read
    Replaced,    // a file to replace: a new one is written beside it and renamed
    UserAgent,
    Service,
    // In the kinds below each line adds to those before (CAAddsUp()).
    ConfigFile,
    List,     // a file to read, or "-"
    Header,   // name and value
    Variant,  // headers, with ";" between them
    Sitemap,  // a URL or "auto", and perhaps an age (CAsitemapSeeds.h)
    Queries,  // an on word or "public", then patterns
    Pattern,
    HostLimit,  // a number, then patterns
    Seed,
};

// The words of `resultslog`, in upper or lower case.
inline constexpr std::string_view kDropped = "dropped";
inline constexpr std::string_view kNoDropped = "nodropped";

// True when every line of a directive counts, not only the last one.
constexpr bool CAAddsUp(CAArgument argument)
{
    return argument >= CAArgument::ConfigFile;
}

struct CAArgumentVerdict {
    std::string fault;  // what is wrong with the arguments; empty: nothing
    bool sets = true;   // the line changes the setting
};

// Judges the arguments of the current line, without regard to other lines. Leaves its text as it
// is. For files it checks the access rights of the calling process.
[[nodiscard]] CAArgumentVerdict CAJudgeArgument(CAArgument argument, CAConfigLines *line);

// True for a token of HTTP, such as "Accept-Encoding".
[[nodiscard]] bool CAIsHeaderName(std::string_view name);

// Why a header of this name cannot be set, as a static text: it is no valid name, or the agent
// sends that header itself. Null when it can be set.
[[nodiscard]] const char *CAHeaderNameFault(std::string_view name);

// Why a `useragent` or `requestheader` line is refused, as a static text; null when it is not.
[[nodiscard]] const char *CAUserAgentFault(CAConfigLines *line);
[[nodiscard]] const char *CAHeaderFault(CAConfigLines *line);

// The agent's error log beside the proxy's log `name`, its directory and "cacheAgent-errors"; empty
// when `name` has no directory.
[[nodiscard]] std::string CAErrorLogPath(std::string_view name);

// True when a `service` line names the agent's own service. Other services are the proxy's own.
[[nodiscard]] bool CAIsOwnService(const CAConfigLines &line);

// The value of a percentage from 0 to 100; -1 for an off word, -2 for any other text.
[[nodiscard]] std::int32_t CAReadPercent(const char *word);

// The value of a number such as "1.5", in thousandths: 1500, at most INT32_MAX; -1 for any other
// text. Digits behind the third of the fraction are cut.
[[nodiscard]] std::int32_t CAReadDecimal(std::string_view word);
// A number of thousandths, not below 0, as such a text, without zeros at its end.
[[nodiscard]] std::string CADecimalText(std::int32_t thousandths);

// Why the agent could not write the file `name`, as "NAME: REASON"; empty when it could. A file
// that does not exist needs a directory that can be written to.
[[nodiscard]] std::string CAUnwritable(const std::string &name);

// The text in quotes.
[[nodiscard]] std::string CAQuoted(std::string_view text);

// The words of a line from number `first` on, separated by single blanks.
[[nodiscard]] std::string CAJoinWords(const CAConfigLines &line, int first);
