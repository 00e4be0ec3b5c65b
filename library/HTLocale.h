// The process's locale, as ICU names it ("en_US").
#pragma once

#include <cstddef>

// Room for any locale name, its NUL included.
inline constexpr std::size_t kLocaleNameSize = 160;

// The name of the default locale, or null when ICU knows none. The text stays ICU's and lives until
// the process ends. Any thread.
const char *Locale_GetDefault();

// Writes the text form of `locale` into `text` (`size` bytes, always terminated; a name that does
// not fit is cut).
void Locale_ToString(const char *locale, char *text, std::size_t size);
