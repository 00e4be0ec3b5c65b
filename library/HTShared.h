// Heap strings with several holders, for a text that many records name and that none outlives.
//
// Whoever makes or holds one releases it once; the last release frees it. The text itself belongs
// to its maker until a second holder has it, and is not changed from then on. Any thread may hold
// or release.
#pragma once

#include <cstddef>

// Room for `length` characters and a NUL, which is there already; one holder. Null when memory is
// out.
[[nodiscard]] char *HTShared_new(std::size_t length);

// One more holder. Returns `text`, which HTShared_new() has made; null gives null.
[[nodiscard]] const char *HTShared_hold(const char *text);

// One holder less. Null does nothing.
void HTShared_release(const char *text);
