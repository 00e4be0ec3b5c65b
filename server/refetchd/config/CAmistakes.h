// Mistakes that administrators commonly make in a line of the configuration. The agent takes such a
// line as it is, and it has another effect than the one that was wanted, or none. refetchd-check
// warns of them. Main thread.
#pragma once

#include <string>
#include <string_view>

class CAConfigLines;
struct CADirective;

// What is wrong with the current line, whose directive is `row`, with the words to write instead;
// empty: nothing that is known here. Other lines do not matter. Leaves the line's text as it is.
[[nodiscard]] std::string CAMistakeIn(const CADirective &row, CAConfigLines *line);

// The same for `word`, the standardized first word of a line, which is not a directive: the name of
// one with an equals sign behind it.
[[nodiscard]] std::string CAMistakeInName(std::string_view word);

// True when `proxy`, the argument of `updateproxy`, is an IPv6 address without brackets, or its
// bracket is not closed.
[[nodiscard]] bool CAIsBareAddress(std::string_view proxy);
