// The agent's directives, one row of a table each: what sets the value, what the argument has to be
// and how the value is shown. The agent and refetchd-check both read this table, so that they
// agree.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "config/CAargument.h"
#include "config/CAcfg.h"

struct CADirective;

// What a setter works on: one line of a configuration file.
struct CADirectiveCall {
    CAConfig &config;
    CAQueue *queue;  // where seeds go
    CAConfigLines &line;
    const CADirective &row;

    // The first argument; the setter may change its text.
    [[nodiscard]] char *argument() const;
};

struct CADirective {
    std::string_view name;  // in lower case, without "-" and "_"
    CAArgument takes;
    void (*set)(const CADirectiveCall &call);  // see CAsetters.h

    // The value that counts, for an administrator; null: the arguments of the line that set it.
    std::string (*shown)(const CAConfig &config) = nullptr;
    // What holds without a line, where `shown` is null. The defaults of settings with a field are
    // the initialisers of CAConfig, which `shown` shows.
    std::string_view unset = "none";

    // Of rows that set one number or flag: its place.
    std::int32_t CAConfig::*number = nullptr;
    bool CAParseOptions::*option = nullptr;
    // Their message: the text before the value and behind it; null: none.
    const char *before = nullptr;
    const char *after = nullptr;

    // Another name for this directive's setting, which is shown under that name only.
    std::string_view meaning = {};
};

// All rows, in the order in which refetchd-check shows them. Any thread.
[[nodiscard]] std::span<const CADirective> CADirectives();

// The row of a name as CAConfigLines::directive() gives it; null when the agent has no such
// directive. Any thread.
[[nodiscard]] const CADirective *CAFindDirective(std::string_view name);
