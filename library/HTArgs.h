// Splits a line of a configuration file into words.
#pragma once

// The most words of a line; the rest of the line is dropped.
inline constexpr int kMaxArgs = 50;

// Splits `line` in place and returns the number of words. `words` has kMaxArgs slots; those that
// are not used point to an empty string. All of them point into `line` and live as long as it does.
//
// Words are separated by the bytes 1 to 32. A '#' that begins a word starts a comment. Double
// quotes, at the start of a word or inside it, keep their text together and are removed; an empty
// pair is an empty word. Outside quotes a backslash before a blank, a tab or a '#' makes that
// literal. A quote that is never closed is an ordinary character, and is traced (kTraceArguments);
// `*openQuote`, unless null, says whether there was one.
[[nodiscard]] int parse_args(char *line, char **words, bool *openQuote = nullptr);
