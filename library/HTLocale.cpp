#include "HTLocale.h"

#include <unicode/uloc.h>

#include <cstdio>

static_assert(kLocaleNameSize > ULOC_FULLNAME_CAPACITY);

const char *Locale_GetDefault()
{
    const char *const name = uloc_getDefault();
    return name == nullptr || *name == '\0' ? nullptr : name;
}

void Locale_ToString(const char *locale, char *text, std::size_t size)
{
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length =
        uloc_getName(locale, text, static_cast<std::int32_t>(size), &status);
    if (U_FAILURE(status) || static_cast<std::size_t>(length) >= size) {
        std::snprintf(text, size, "%s", locale);
    }
}
