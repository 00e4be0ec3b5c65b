// Brings the path of a URL, or a whole URL, into its shortest form. Any thread, on a buffer of its
// own.
#pragma once

#include "HTMemory.h"

// Rewrites `path` in place: takes out "." segments, "name/.." pairs, repeated separators and the
// ports that "http", "https" and "gopher" have anyway, and turns backslashes into slashes. URLs
// nested in the path lose their ports too. The result is never longer than the input.
//
// A ".." with nothing to cancel stays, and a relative path keeps its last name ("a/.." stays). A
// path without "./", "//", ".." and ":" is left as it is. Takes linear time, and at present nothing
// from `pool`. Traces as module kTraceUri.
void HTSimplify(char *path, HTPool *pool);
