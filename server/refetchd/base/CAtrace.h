// The agent's trace log and error log. Any thread may write; one call is one line, and lines of
// different threads keep whole as the standard streams keep them.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdio>
#include <string_view>

#include "HTAttributes.h"

// The streams of the two logs; null while a log is closed. The configuration opens and closes them
// and calls them `ac.traceStream` and `ac.errorLogStream`.
extern FILE *g_ca_trace;
extern FILE *g_ca_errorlog;

// True while the trace log is open. Ask first where a line needs more than its arguments.
inline bool CATraceOn()
{
    return g_ca_trace != nullptr;
}

// Where a line goes that is written whether or not the trace log is open: to it, or else to
// standard error.
inline FILE *CATraceOrStderr()
{
    return CATraceOn() ? g_ca_trace : stderr;
}

// CATrace(format, ...) writes one line to the trace log, as printf does. While the log is closed it
// is a test and a branch, and the arguments are not evaluated, which no function could do.
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage)
#define CATrace(...) (CATraceOn() ? CATraceLine(__VA_ARGS__) : static_cast<void>(0))

// What CATrace() calls; the log must be open.
void CATraceLine(const char *format, ...) HT_PRINTF(1, 2);

// The length of a text that is written with "%.*s".
inline int CALength(std::string_view text)
{
    return static_cast<int>(std::min<std::size_t>(text.size(), INT_MAX));
}

// Writes a message of the catalogue (`fallback` when it has none) to the agent's error log, with
// `argument` in place of its first "%s". Nothing unless both the error log and the trace are open.
void CAErrorLog(int message, const char *fallback, const char *argument = nullptr);

// Message `number` of the agent's catalogue, or `fallback`.
const char *CAMessage(int number, const char *fallback);
