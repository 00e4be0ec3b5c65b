// Start-up: from the command line to the running threads, and the wait for the end of the last run.
// All functions are for the main thread, before any other thread exists.
#pragma once

// The whole program: initialises the library, reads the command line and the configuration, starts
// the worker threads and the master thread, and waits until all runs are over. Returns the exit
// status: that of the runs (CARunStatus), or 1 when the configuration cannot be loaded or no worker
// thread can be started. A wrong command line ends the process in Usage().
int CAMain(int argc, char **argv);

// Sets up only what reading a configuration needs, for refetchd-check.
void CAPrepareToRead();

// Prints the usage text to standard error and ends the process with status 1.
[[noreturn]] void Usage();

// Sets the locale search path ("LOCPATH", from the environment's KELP_LOCALES) and
// `refetchd_LocaleString`.
void initNLS();

// Creates the library's configuration record and registers the module that stores it in the context
// of each work thread (HTWorkThread.h).
void ConfigManager_init();
