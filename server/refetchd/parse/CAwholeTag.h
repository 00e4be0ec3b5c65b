// Reads tags that a block of a page holds whole.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "parse/CAmodernTags.h"

// A tag's attributes that are in its row and have a value, even an empty one, in the page's order.
struct CAWholeTag {
    struct Value {
        const CAModernAttribute *attribute;
        std::string_view text;  // in the page
    };

    const char *end = nullptr;  // where the ">" is that ends the tag; null: not in the block
    bool isClosed = false;      // "/>" ends the tag
    std::size_t count = 0;
    std::array<Value, std::tuple_size_v<decltype(CAModernTag::attributes)>> values{};
};

// Reads the attributes of a tag of the row `tag` from `at`, the end of its name, on. The block ends
// at `end`.
[[nodiscard]] CAWholeTag CAReadWholeTag(const CAModernTag &tag, const char *at, const char *end);
