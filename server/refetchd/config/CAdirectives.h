// The table of the agent's directives. Each row has the setter, the kind of the argument and the
// function that shows the value. The agent and refetchd-check share the table, so they agree.
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
    std::string_view name;                     // in lower case, without "-" and "_"
    CAArgument takes;                          // the kind of its arguments
    void (*set)(const CADirectiveCall &call);  // see CAsetters.h

    // Returns the current value for refetchd-check to show. If null, refetchd-check shows the
    // arguments of the line that set the value.
    std::string (*shown)(const CAConfig &config) = nullptr;
    // The text to show when `shown` is null and no line sets the value. Other defaults are the
    // initialisers of CAConfig, which `shown` reads.
    std::string_view unset = "none";

    // In rows that set one number or flag: the field.
    std::int32_t CAConfig::*number = nullptr;
    bool CAParseOptions::*option = nullptr;
    // The message that these rows trace: the texts before and after the value; null: no message.
    const char *before = nullptr;
    const char *after = nullptr;

    // For another name of a directive: the name under which refetchd-check shows the setting. Empty
    // for most rows.
    std::string_view meaning = {};
};

// All rows, in the order in which refetchd-check shows them. Any thread.
[[nodiscard]] std::span<const CADirective> CADirectives();

// The row of the directive `name`, spelt as CAConfigLines::directive() returns it; null when the
// agent has no such directive. Any thread.
[[nodiscard]] const CADirective *CAFindDirective(std::string_view name);
