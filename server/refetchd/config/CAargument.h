// What the arguments of directives have to be, and what is wrong with those of a line. The agent
// takes any argument; refetchd-check warns of what it makes nothing of.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class CAConfigLines;

enum class CAArgument : std::uint8_t {
    Text,
    Number,
    Pause,
    Flag,
    On,      // exactly "on"; nothing else changes anything
    SaveOn,  // the same in any case, "-" and "_" left out
    All,
    When,
    Time,
    TraceLog,
    ErrorLog,  // a file whose directory counts
    File,      // to write
    Replaced,  // to write aside and rename
    UserAgent,
    Service,
    // Of these every line counts.
    ConfigFile,
    Header,
    Queries,
    Pattern,
    HostLimit,
    Seed,
};

// True when every line of a directive counts, and not just the last.
constexpr bool CAAddsUp(CAArgument argument)
{
    return argument >= CAArgument::ConfigFile;
}

// What is wrong with the arguments of a line (empty: nothing), and whether they set anything.
struct CAArgumentVerdict {
    std::string fault;
    bool sets = true;
};

// Judges the arguments of the current line by themselves, whatever the lines above it say. May
// change the text of line->rest(). Main thread.
[[nodiscard]] CAArgumentVerdict CAJudgeArgument(CAArgument argument, CAConfigLines *line);

// Why a `useragent` or `requestheader` line is refused; null when it is not.
[[nodiscard]] const char *CAUserAgentFault(CAConfigLines *line);
[[nodiscard]] const char *CAHeaderFault(CAConfigLines *line);

// True when a `service` line names the agent's own service; others are the proxy's business.
[[nodiscard]] bool CAIsOwnService(const CAConfigLines &line);

// What is wrong with a file that the agent is to write; empty: nothing.
[[nodiscard]] std::string CAUnwritable(const std::string &name);

// The text in quotes.
[[nodiscard]] std::string CAQuoted(std::string_view text);

// The words of a line from number `first` on, with a blank between two.
[[nodiscard]] std::string CAJoinWords(const CAConfigLines &line, int first);
