// Wildcard templates: text in which "*" stands for any run of characters, none included.
//
// A backslash makes the next character literal; at the very end of a template it stands for a line
// feed. A match must use up the whole text. The text of a star is searched from left to right, and
// where the rest of the pattern fails behind a find the search goes on behind that find: "*aa" does
// not match "aaa".
//
// A compiled pattern is never changed, so any number of threads may match it at once, each with its
// own pool. A match takes time proportional to the lengths of pattern and text multiplied, at most,
// and scratch memory only for a text of a thousand characters and more or for a replacement.
#pragma once

#include "HTMemory.h"

struct HTPattern;

// Compiles a template. Null for a null or empty one, and when memory is out (reported).
[[nodiscard]] HTPattern *HTPattern_new(const char *text);

// Null when `text` does not match (null never does), or when memory is out. On a match a copy of
// `text`, or `replacement` with its stars filled by what the stars of `pattern` stood for, in
// order; stars too many are left out. The result lives in `pool`.
//
// A user's directory, "/~" or "file:/~" at the place where a star begins to match or "~" where one
// begins behind "scheme://host/", is never matched by that star: the pattern has to spell it out.
[[nodiscard]] const char *HTPattern_match(const HTPattern *pattern, const HTPattern *replacement,
                                          const char *text, bool caseSensitive, HTPool *pool);

// The same, except that a character of the pattern also matches its percent escape in the URL, that
// letters always match exactly, and that users' directories are nothing special. Where the rest of
// the pattern fails behind a find, the search goes on one character behind the find's begin.
[[nodiscard]] const char *HTPattern_url_match(const HTPattern *pattern,
                                              const HTPattern *replacement, const char *url,
                                              HTPool *pool);

// The template's text, without its backslashes; "" for null. The caller frees it; null when memory
// is out.
[[nodiscard]] char *HTPattern_stringitize(const HTPattern *pattern);

// Where in `text`, which the pattern matches, the first star's part begins; null without a star.
[[nodiscard]] const char *HTPattern_firstWild(const HTPattern *pattern, const char *text);

// Releases a pattern; null does nothing.
void HTPattern_free(HTPattern *pattern);
