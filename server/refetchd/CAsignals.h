// The signals that steer the agent:
//
//   SIGTERM, SIGINT   end the run in good order; a second one ends the process at once
//   SIGUSR1           writes a line of progress
//   SIGHUP            opens the results log again; if there is none, it ends the process as usual
//
// While the configuration is read, SIGTERM and SIGINT end the process at once. Before the worker
// threads start, all of them are blocked; from then on the master thread takes them, one by one. A
// signal that is ignored when the agent starts, as nohup does with SIGHUP, stays ignored.
#pragma once

#include <cstdint>

enum class CASignal : std::uint8_t {
    None,
    End,
    Progress,
    Reopen,
};

// Until CABlockSignals(), SIGTERM and SIGINT end the process with status 0, after the previous
// report was put back. SIGUSR1 is blocked. Main thread, before other threads exist.
void CAEndOnSignals();

// Blocks the signals in this thread and in those that it starts; SIGHUP only if `reopens`. Main
// thread, before other threads exist.
void CABlockSignals(bool reopens);

// Waits at most `milliseconds` for a signal, and returns what it asks for; None when none came.
// After the first End the signals are not blocked any more: from then on SIGTERM and SIGINT end the
// process at once, as signals do, after the previous report was put back. Master thread.
[[nodiscard]] CASignal CANextSignal(std::int64_t milliseconds);
