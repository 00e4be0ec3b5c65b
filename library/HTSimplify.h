// Brings the path of a URL, or a whole URL, into its shortest form. Any thread, on a buffer of its
// own.
#pragma once

#include <cstddef>

#include "HTMemory.h"

// Rewrites `path` in place: removes "." segments, "name/.." pairs, repeated separators and the
// default ports of "http", "https" and "gopher", and turns backslashes into slashes. Default ports
// are also removed from URLs nested in the path. The result is never longer than the input.
//
// A ".." with nothing to cancel stays, and a relative path keeps its last name ("a/.." stays). A
// path without "./", "//", ".." and ":" is left as it is. Takes linear time; `pool` is not used at
// present. Traces as module kTraceUri.
void HTSimplify(char *path, HTPool *pool);

// The same for a path of `length` bytes. Gives the new length.
std::size_t HTSimplify(char *path, std::size_t length, HTPool *pool);
