// What an attribute's value means as the text of a link. Both functions work in place, and need a
// byte behind `end` that is theirs.
#pragma once

#include <cstddef>
#include <string_view>

// Decodes the character references of [at, end) in place, with the rules of HTML for values of
// attributes: numbers, and the names of "&", "<", ">", both quotes, tab and line feed. Returns the
// new end.
[[nodiscard]] char *CADecodeReferences(char *at, char *end);

// Cuts [at, end) down to a URL, with a NUL in place of what stood behind it: blanks and control
// characters around it are no part of it, tabs and line ends are none anywhere. Empty when it is
// longer than `longest` (which is traced, as a NUL in it is).
[[nodiscard]] std::string_view CACutLink(char *at, char *end, std::size_t longest);
