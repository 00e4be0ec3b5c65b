// Which directive is meant by a name that is not one. Main thread.
#pragma once

#include <string_view>

// The directive whose name differs from `name` (standardized) by a letter or two; empty: none.
[[nodiscard]] std::string_view CANearName(std::string_view name);

// The same, or else the directive that is most probably meant: one that is known to be called so
// elsewhere, or whose name contains, or is contained in, this one; empty: none.
[[nodiscard]] std::string_view CANearestName(std::string_view name);
