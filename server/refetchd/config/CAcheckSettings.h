// The directives as refetchd-check sees them: what each one's argument has to be, and which value
// counts in the end.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "config/CAcfg.h"

// What the argument of a directive has to be.
enum class CAArgument : std::uint8_t {
    Text,
    Number,
    Pause,
    Flag,
    On,
    SaveOn,
    All,
    When,
    Time,
    File,        // to write
    Replaced,    // to write aside and rename
    ConfigFile,  // this and those below: of each line of its own
    Header,
    Queries,
    Pattern,
    HostLimit,
    Seed,
};

struct CASetting {
    std::string_view name;
    CAArgument argument;
    std::string (*value)(const CAConfig &config) = nullptr;  // null: as the line says
};

// In the order in which they are shown; each directive once, but for another name of one.
[[nodiscard]] std::span<const CASetting> CASettings();

// What is wrong with the arguments of a line (empty: nothing), and whether they set anything.
struct CAArgumentVerdict {
    std::string fault;
    bool sets = true;
};

// Judges the arguments of the current line by themselves, whatever stands above it. May change the
// text of line->rest(). Main thread, as all here.
[[nodiscard]] CAArgumentVerdict CAJudgeArgument(CAArgument argument, CAConfigLines *line);

// What is wrong with a file that the agent is to write; empty: nothing.
[[nodiscard]] std::string CAUnwritable(const std::string &name);

// The text in quotes.
[[nodiscard]] std::string CAQuoted(std::string_view text);
