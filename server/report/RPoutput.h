// Writes the report to its place. One thread.
#pragma once

#include <string>

// Replaces the file `path` with `text` in one step, so that no reader finds a part of it; its mode
// is 0644 without the bits of the umask. A symbolic link is followed, and something that is not a
// regular file is left as it is. An empty path means standard output. Returns an empty text, or why
// it failed.
[[nodiscard]] std::string RPWrite(const std::string &path, const std::string &text);
