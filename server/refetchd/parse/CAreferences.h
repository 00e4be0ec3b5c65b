// The characters that HTML has names for, such as "&eacute;".
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

struct CANamedCharacters {
    std::array<std::uint32_t, 2> codes{};  // code points; the second is 0 if there is only one
    bool mayEndOpen = false;               // the ";" after the name may be missing
};

// Looks up a name without its "&" and ";"; upper and lower case differ. Both codes are 0 if there
// is no such name. The characters in UTF-8 are never longer than "&", name and ";", except those of
// "nGt" and "nLt", which are left out for that: a value with references is decoded in place.
[[nodiscard]] CANamedCharacters CAFindReference(std::string_view name);

// The number of bytes of a code point in UTF-8.
constexpr std::size_t CAUtf8Length(std::uint32_t code)
{
    return code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
}
