// Turns the value of an attribute into the text of a link, in place.
#pragma once

#include <cstddef>
#include <string_view>

// True if nothing below, nor another charset, changes the text of a link: it is ASCII without
// blanks, control characters and "&". May be false for other such texts.
[[nodiscard]] bool CAIsOrdinaryLink(std::string_view text);

// Decodes the character references in [at, end) by the rules of HTML for values of attributes:
// numbers and names (see parse/CAreferences.h). Returns the new end.
[[nodiscard]] char *CADecodeReferences(char *at, char *end);

// Removes from [at, end) what does not belong to a URL: spaces and control characters around it,
// and tabs, carriage returns and line feeds anywhere. Returns the rest, which stays in its place
// and gets a NUL after it: `*end` must be writable. Returns "" if the URL is longer than `longest`
// bytes or holds a NUL (both traced).
[[nodiscard]] std::string_view CACutLink(char *at, char *end, std::size_t longest);
