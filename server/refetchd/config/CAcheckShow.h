// What refetchd-check prints. All but printable ASCII is escaped, because configurations and hits
// files may contain control sequences for terminals. Main thread.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "base/CAoutcome.h"

class CAURL;
struct CACheck;
struct CAFound;

// Prints a line.
void CAShowLine(const std::string &line, FILE *stream = stdout);

// Prints each setting with its value and the line that set it.
void CAShowSettings(const CACheck &check);
// Prints the lines with patterns.
void CAShowPatterns(const CACheck &check);
// Prints a seed; `from` is its place, empty for one of the hits file.
void CAShowSeed(const CAURL &url, CADrop why, const std::string &from);
// Prints warnings or notes.
void CAShowFound(const std::vector<CAFound> &all);

// True when the file is readable and a regular file, because it is read twice. Otherwise prints why
// not, followed by `from`.
[[nodiscard]] bool CAIsReadable(const std::string &name, const std::string &from);
