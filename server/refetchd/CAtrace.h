// The agent's trace log and error log. Any thread may write; one call is one line, and lines of
// different threads keep whole as the standard streams keep them.
#pragma once

#include "CAcfg.h"
#include "HTAttributes.h"

// True while the trace log is open. Ask first where a line costs something to put together.
inline bool CATraceOn()
{
    return ac.traceStream != nullptr;
}

// Writes one line to the trace log, as printf does; nothing while the log is closed.
void CATrace(const char *format, ...) HT_PRINTF(1, 2);

// Writes a message of the catalogue (`fallback` when it has none) to the agent's error log, with
// `argument` in place of its first "%s". Nothing unless both the error log and the trace are open.
void CAErrorLog(int message, const char *fallback, const char *argument = nullptr);

// Message `number` of the agent's catalogue, or `fallback`.
const char *CAMessage(int number, const char *fallback);
