// The agent's trace log and error log. Any thread may write. Each call makes one write to the
// stream, under the stream's own lock, so the lines of different threads do not mix.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdio>
#include <string_view>

#include "HTAttributes.h"

// The streams of the two logs; null while a log is closed. The configuration opens and closes them
// under the names `ac.traceStream` and `ac.errorLogStream`.
extern FILE *g_ca_trace;
extern FILE *g_ca_errorlog;

// True while the trace log is open. Check it before work that only prepares a line of the trace.
inline bool CATraceOn()
{
    return g_ca_trace != nullptr;
}

// The stream for a line that is always written: the trace log, or standard error while that is
// closed.
inline FILE *CATraceOrStderr()
{
    return CATraceOn() ? g_ca_trace : stderr;
}

// CATrace(format, ...) writes one line to the trace log, as printf does. It is a macro so that the
// arguments are not evaluated while the log is closed.
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage)
#define CATrace(...) (CATraceOn() ? CATraceLine(__VA_ARGS__) : static_cast<void>(0))

// The function behind CATrace(); the log must be open.
void CATraceLine(const char *format, ...) HT_PRINTF(1, 2);

// The length to pass with a text for "%.*s"; INT_MAX at most.
inline int CALength(std::string_view text)
{
    return static_cast<int>(std::min<std::size_t>(text.size(), INT_MAX));
}

// Writes message `message` of the catalogue (`fallback` when it has none) to the error log, with
// `argument` in place of its first "%s" unless null. Writes nothing unless both the error log and
// the trace log are open.
void CAErrorLog(int message, const char *fallback, const char *argument = nullptr);

// Message `number` of the agent's catalogue, or `fallback` when it has none. Not to be freed.
const char *CAMessage(int number, const char *fallback);
