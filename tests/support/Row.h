// What the rows of a test table begin with; CTest shows the name.
#pragma once

#include <ostream>
#include <string>

struct Row {
    const char *name;

    friend std::ostream &operator<<(std::ostream &out, const Row &row) { return out << row.name; }
};
inline constexpr auto rowName = [](const auto &row) -> std::string { return row.param.name; };
