// refetchd-check: reads a configuration as the agent does, shows the settings that result, and
// warns of probable mistakes. It sends no requests, and writes only to its standard streams.
//
// The files are read twice: first for the settings, the patterns and the warnings, then for the
// seeds, of which there may be too many to keep in memory.
//
// CAcheckUser.*    as whom it judges
// CAcheckRead.*    what is read: settings, seeds, and mistakes in single lines
// CAmistakes.*     the table of these mistakes
// CAnearest.*      what is meant by an unknown name
// CAcheckRules.*   the mistakes that show only in the whole configuration
// CAcheckShow.*    what is printed
#pragma once

// The whole program; call CAPrepareToRead() first. The arguments are those of refetchd-check(8):
// its own options, the options of the agent, and files. `version` is printed for "--version".
// Returns the exit status: 0, or 1 when there are warnings, the agent could not run, the output
// could not be written, or the command line is wrong.
int CACheckMain(int argc, char **argv, const char *version);
