// What the rows of a test table begin with; CTest shows the name. And whether a sanitizer is at
// work.
#pragma once

#include <ostream>
#include <string>

struct Row {
    const char *name;

    friend std::ostream &operator<<(std::ostream &out, const Row &row) { return out << row.name; }
};
inline constexpr auto rowName = [](const auto &row) -> std::string { return row.param.name; };

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;  // takes memory and addresses of its own
#else
inline constexpr bool kSanitized = false;
#endif
