// File names and files. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdio>

// `name` as an absolute path: unchanged when it begins with '/', otherwise appended to the working
// directory. A heap string that the caller frees; null when memory is out or there is no working
// directory.
[[nodiscard]] char *HTMakeAbsolutePath(const char *name);

// Opens a file for reading (the caller closes it). Null with errno set when it cannot be opened;
// EISDIR for a directory.
[[nodiscard]] FILE *HTOpenForReading(const char *name);

// Creates a directory, unless it exists. 0, or -1 with errno set.
int HTMkdir(const char *name, mode_t mode);
