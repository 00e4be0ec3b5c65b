// Worker threads: the library's state of a thread (its context), and the modules that are notified
// when a worker thread begins and ends.
//
// Every thread has a context from its first call here to its end; only that thread uses it. A
// module registers once, before threads start, and gets a slot of its own in every context.
#pragma once

#include <array>
#include <ctime>

#include "HTMemory.h"

inline constexpr int kThreadSlots = 8;

// Settings of the library that a program may change before threads start.
struct HTLibraryConfig {
    bool keepSocketOptions = false;  // socket records keep copies of the options set on them
};

// A new record with the defaults, which the caller owns; null when memory is out.
[[nodiscard]] HTLibraryConfig *HTLibraryConfig_new();

struct HTThreadContext {
    HTPool pool;                               // scratch memory, see HTPoolScope
    std::array<void *, kThreadSlots> slots{};  // one for each registered module
    const HTLibraryConfig *config = nullptr;   // none: the defaults
    std::time_t lastActivity = 0;              // last bytes received
    std::time_t lastConnect = 0;               // last connection attempt
    std::time_t lastLookup = 0;                // last name resolved
};

using HTThreadHook = void (*)(HTThreadContext *context, int slot);

// The calling thread's context; never null, and never to be freed.
HTThreadContext *HTThread_context();

// Registers a module: `begin` runs on each worker thread as it begins, `end` as it ends (either may
// be null). Returns the module's slot, or -1 when all slots are taken. Call before threads start.
int HTWorkThread_register(const char *name, HTThreadHook begin, HTThreadHook end);

// Called at the start and the end of a worker thread, and of each piece of its work. `kind` is only
// a label.
HTThreadContext *HTWorkThread_threadCreate(int kind);
void HTWorkThread_svcThreadStartWork(int kind, HTThreadContext *context);
void HTWorkThread_svcThreadEndWork(int kind, HTThreadContext *context);
void HTWorkThread_threadExit(int kind, HTThreadContext *context);
