// Reference-counted heap strings, for a text that many records share.
//
// Whoever creates or holds one releases it once; the last release frees it. The creator may change
// the text until there is a second holder; nobody changes it after that. Any thread may hold or
// release.
#pragma once

#include <cstddef>

// Room for `length` characters, and a NUL behind them, which is set; one holder. Null when memory
// is out.
[[nodiscard]] char *HTShared_new(std::size_t length);

// One more holder. Returns `text`, which comes from HTShared_new(); null gives null.
[[nodiscard]] const char *HTShared_hold(const char *text);

// One holder less. Null does nothing.
void HTShared_release(const char *text);
