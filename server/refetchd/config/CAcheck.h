// refetchd-check: reads a configuration as the agent does, shows the settings that result, and
// warns of probable mistakes. It sends no requests, and writes only to its standard streams.
//
// The files are read twice: first for the settings, the patterns and the warnings, then for the
// seeds, of which there may be too many to keep in memory.
#pragma once

// The whole program, with the arguments "[-q] [file ...]"; call CAPrepareToRead() first. Returns
// the exit status: 0, or 1 when there are warnings, the agent could not run, the output could not
// be written, or the command line is wrong.
int CACheckMain(int argc, char **argv);
