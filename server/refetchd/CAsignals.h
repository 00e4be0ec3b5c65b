// The signals that steer the agent:
//
//   SIGTERM, SIGINT   end the run in good order; a second one, unless it follows within 0.3 s,
//                     ends the process at once
//   SIGUSR1           writes a line of progress
//   SIGHUP            opens the results log again; if there is none, it ends the process at once
//
// With `wakeclients` the agent itself sends SIGRTMIN (CAwake.h), which has no other effect.
//
// Whenever a signal ends the process at once, the previous report is put back first.
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
    Wake,  // something that the master thread waits for may have happened
};

// Until CABlockSignals(), SIGTERM and SIGINT end the process with status 0. SIGUSR1 is blocked.
// Main thread, before other threads exist.
void CAEndOnSignals();

// Blocks the signals in this thread and in those that it starts; SIGHUP only if `reopens`. Main
// thread, before other threads exist.
void CABlockSignals(bool reopens);

// Waits at most `milliseconds` for a signal, and returns what it asks for; None when none came.
// After the first End, SIGTERM and SIGINT are not blocked in this thread any more, so that a second
// one is obeyed at any time. Master thread.
[[nodiscard]] CASignal CANextSignal(std::int64_t milliseconds);
