// Wildcard templates: text in which "*" stands for any run of characters, an empty one included.
//
// A backslash makes the next character literal; at the very end of a template it means a line feed.
// A match must use up the whole text. The text that follows a star is searched from left to right;
// when the rest of the pattern fails after an occurrence, the search continues behind that
// occurrence: "*aa" does not match "aaa".
//
// A compiled pattern is never changed, so any number of threads may match it at once, each with its
// own pool. The time of a match is at most proportional to the product of both lengths. Scratch
// memory is needed only for a text of a thousand characters and more, and for a replacement.
#pragma once

#include "HTMemory.h"

struct HTPattern;

// Compiles a template. Null for a null or empty one, and when memory is out (reported).
[[nodiscard]] HTPattern *HTPattern_new(const char *text);

// On a match returns a copy of `text` or, with a `replacement`, that template: its stars are filled
// in order with the texts that the stars of `pattern` stood for, and stars beyond those are left
// out. The result lives in `pool`. Null when `text` does not match (null never does) and when
// memory is out.
//
// A star does not match a user's directory: "/~" or "file:/~" where the star's text would begin, or
// "~" right after "scheme://host/". The pattern must spell it out.
[[nodiscard]] const char *HTPattern_match(const HTPattern *pattern, const HTPattern *replacement,
                                          const char *text, bool caseSensitive, HTPool *pool);

// The same for URLs, with these differences: a character of the pattern also matches its percent
// escape in the URL (so "%" matches "%25", and "%25" matches both "%25" and "%2525"), letters
// always match exactly, users' directories are not special, and when the rest of the pattern fails
// after an occurrence, the search continues one character behind its start.
[[nodiscard]] const char *HTPattern_url_match(const HTPattern *pattern,
                                              const HTPattern *replacement, const char *url,
                                              HTPool *pool);

// The template's text, without its backslashes; "" for null. The caller frees it; null when memory
// is out.
[[nodiscard]] char *HTPattern_stringitize(const HTPattern *pattern);

// The place in `text`, which must match, where the text of the first star begins; null without a
// star.
[[nodiscard]] const char *HTPattern_firstWild(const HTPattern *pattern, const char *text);

// Releases a pattern; null does nothing.
void HTPattern_free(HTPattern *pattern);
