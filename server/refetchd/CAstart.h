// Start-up: from the command line to a running master thread, and the wait for its end.
#pragma once

// The whole program: initialises the library, reads the command line and the configuration, starts
// the workers and the master thread, and waits until all runs are over. Returns the exit status: 0,
// or 1 when the configuration cannot be loaded. A wrong command line ends the process in Usage().
int CAMain(int argc, char **argv);

// Sets up what reading a configuration needs, for a program that does no more than that.
void CAPrepareToRead();

// Prints the usage text to standard error and ends the process with status 1.
[[noreturn]] void Usage();

// Sets the locale search path ("LOCPATH", from KELP_LOCALES) and `refetchd_LocaleString`.
void initNLS();

// Creates the library's configuration record and registers the module that hands it to each work
// thread.
void ConfigManager_init();
