// One catalogue of messages: an ICU resource bundle, the converter to the locale's code page, and a
// cache of the converted texts.
//
//     bundle --- key "1" --- array --- item 1, item 2, ...     (a single string is its own item 1)
//
// Texts that a bundle gives out are its own and live until ResBundle_Destroy(). All functions but
// that one may be called from many threads at once.
#pragma once

#include <unicode/umachine.h>

#include <cstddef>
#include <cstdint>

struct ResBundle;

// Room for a code page's name, its NUL included.
inline constexpr std::size_t kCodePageSize = 128;

// Opens the catalogue `name` of `directory` for `locale` (null: ICU's default). Null when there is
// no such catalogue, one of its files is damaged, its code page has no converter, or memory is out.
[[nodiscard]] ResBundle *ResBundle_LoadSpecific(const char *locale, const char *directory,
                                                const char *name);
[[nodiscard]] ResBundle *ResBundle_Load(const char *directory, const char *name);

// Converts all messages, on the first call; later look-ups take no lock and do not use ICU.
void ResBundle_Prime(ResBundle *bundle);

// The text of item `index` (from 1) of resource `key`: in the code page, and in UTF-16. Null, or
// `fallback` when it is missing or empty.
[[nodiscard]] const char *ResBundle_Extract(ResBundle *bundle, std::uint32_t key,
                                            std::uint32_t index);
[[nodiscard]] const char *ResBundle_ExtractWithDefault(ResBundle *bundle, std::uint32_t key,
                                                       std::uint32_t index, const char *fallback);
[[nodiscard]] const UChar *ResBundle_ExtractUnicode(ResBundle *bundle, std::uint32_t key,
                                                    std::uint32_t index);
[[nodiscard]] const UChar *ResBundle_ExtractUnicodeWithDefault(ResBundle *bundle, std::uint32_t key,
                                                               std::uint32_t index,
                                                               const UChar *fallback);

// Closes the catalogue; null does nothing. No other thread may use it any more.
void ResBundle_Destroy(ResBundle *bundle);

// Writes ICU's name of the code page of `locale` (null: ICU's default) into `codeset`, which has
// kCodePageSize bytes: the locale's row, else the system's character set.
void Locale_GetDefaultCodeset(const char *locale, char *codeset);
