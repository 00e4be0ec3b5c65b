// The check of a configuration: read as the agent reads it, shown as it counts, and held against
// what administrators get wrong. It sends nothing and writes nothing but its answer.
//
// The files are read twice: first for the settings, the patterns and the warnings, and then once
// more for the seeds, which are too many to be kept.
#pragma once

// The whole program: arguments "[-q] [file ...]". Returns the exit status: 0, or 1 when there are
// warnings, the agent could not run, or the command line is wrong.
int CACheckMain(int argc, char **argv);
