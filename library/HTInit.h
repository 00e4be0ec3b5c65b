// Start and end of the library, called by a program's main thread only.
#pragma once

#include "HTWorkThread.h"

// These do nothing. They mark where a program would set up heap checks and tables of upper and
// lower case, and renew a cached time: sanitizer builds check the heap, ASCII case folding needs no
// tables, and the time is read when it is needed.
void HeapDebug_init();
void initializeCaseTables();
void updatetimeRep(int kind);

// Sets up the library for the process: registers its own work-thread modules and readies ICU for
// use by several threads. Call once, before any other thread exists. The arguments are reserved.
void HTInitAll(int flags, int reserved);

// Set up and end the library's state of the calling (main) thread; other threads use the
// HTWorkThread brackets. Returns the thread's context.
HTThreadContext *HTInitThd(int kind);
void HTEndThd(int kind, HTThreadContext *context);
