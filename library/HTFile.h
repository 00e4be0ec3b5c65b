// File names and files. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdio>

// `name` as an absolute path: itself when it begins with '/', otherwise behind the working
// directory. A heap string that the caller frees; null when memory or the directory is missing.
[[nodiscard]] char *HTMakeAbsolutePath(const char *name);

// Opens a file for reading (the caller closes it). Null with errno set when it cannot be opened; a
// directory cannot (EISDIR).
[[nodiscard]] FILE *HTOpenForReading(const char *name);

// Creates a directory; one that is there already counts as created. 0, or -1 with errno set.
int HTMkdir(const char *name, mode_t mode);
