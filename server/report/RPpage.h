// The forms of the report. Any thread.
#pragma once

#include <string>

#include "RPfigures.h"

// The page: HTML that needs no other file and no script.
[[nodiscard]] std::string RPPage(const RPFigures &figures);

// Plain text in ASCII, in lines of at most 78 characters, for mail and terminals.
[[nodiscard]] std::string RPText(const RPFigures &figures);
