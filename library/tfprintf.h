// The library's own trace: switches per module, one level for all, and a log that wraps.
//
// All switches are off at start and stay off in a program that does not set them; a library
// function then pays one relaxed load for its trace line. Switches are single words that any thread
// may read while another sets them (relaxed atomics: a line too many or too few does no harm). The
// log stream and its limit are set before threads start.
#pragma once

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "HTAttributes.h"

inline constexpr int kTraceModules = 93;

// Numbers of the modules that trace; KnownModules has a row for each.
enum HTTraceModule : int {
    kTraceArguments = 7,  // configuration-line splitter
    kTraceHash = 21,
    kTraceList = 22,
    kTraceSocket = 40,
    kTraceThread = 74,
    kTraceUri = 80,
};

struct HTKnownModule {
    const char *name;
    HTTraceModule number;
    int level;               // prints when the global level is at least this
    std::uint32_t hookBits;  // handed to a hook that a program may install; no hook is built in
};

inline constexpr std::array<HTKnownModule, 6> KnownModules = {{
    {.name = "args", .number = kTraceArguments, .level = 1, .hookBits = 0},
    {.name = "hash", .number = kTraceHash, .level = 1, .hookBits = 0},
    {.name = "list", .number = kTraceList, .level = 1, .hookBits = 0},
    {.name = "socket", .number = kTraceSocket, .level = 1, .hookBits = 0},
    {.name = "thread", .number = kTraceThread, .level = 1, .hookBits = 0},
    {.name = "uri", .number = kTraceUri, .level = 1, .hookBits = 0},
}};

// The switches: a flag for each module (0 is off), and behind them the level for all modules (0
// is off).
extern std::array<std::atomic<int>, kTraceModules + 1> HTTraceState;

// The trace log; none at start (lines then go to standard error). The caller opens and closes it.
extern FILE *trace_log;
// Size in megabytes beyond which a log file is written again from its start; 0 at start.
extern unsigned trace_log_limit;

// True when the module's flag is set and the global level is at least `level`.
bool HTTrace_level(int module, int level);
// HTTrace_level() with the module's own level; false for a module without a row in KnownModules.
bool HTTrace_module(int module);

// What a library function checks before it writes a line: the level is set, and the module is on.
inline bool HTTrace_on(int module)
{
    return HTTraceState[kTraceModules].load(std::memory_order_relaxed) != 0 &&
           HTTrace_module(module);
}

// Write one line "[thread/seconds]: text" to the trace log, or to standard error when there is
// none. `stream` is not used. Both return the number of bytes written, or -1.
int tfprintf(FILE *stream, const char *format, ...) HT_PRINTF(2, 3);
int tvfprintf(FILE *stream, const char *format, va_list args) HT_PRINTF(2, 0);

// An estimate of the length of the formatted line, for allocating a buffer: the format's length
// plus 20 for each number, 5 for each "%c", 10 for each "%p" and the length of each string (6 for a
// null one, the precision when it is given as a star argument). Consumes `args`.
std::size_t va_list_length(const char *format, va_list args) HT_PRINTF(1, 0);
