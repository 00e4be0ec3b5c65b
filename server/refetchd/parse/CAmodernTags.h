// The tags and attributes of today's pages that hold links.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "HTString.h"

// What becomes of an attribute's value.
enum class CAModernUse : std::uint8_t {
    Link,        // on the page's own level
    DeeperLink,  // one level deeper than the page
    Image,
    ImageSet,  // "small.png 1x, large.png 2x"
    Base,      // what the page's links are relative to
    Refresh,   // "5; url=next.html"
    Word,      // the tag is of interest only when this is the tag's word
};

struct CAModernAttribute {
    std::string_view name;
    CAModernUse use = CAModernUse::Link;
};

struct CAModernTag {
    std::string_view name;
    // Of two values at most one is a set, or there is no room for both.
    std::array<CAModernAttribute, 2> attributes;
    std::string_view word = {};
    bool hasRawText = false;  // what follows up to its end tag holds no tags
};

// The tag of this name, in either case; null when it is of no interest. `name` is not empty.
[[nodiscard]] const CAModernTag *CAFindModernTag(std::string_view name);

// Is the text `word`, which is in small letters, in either case?
inline bool CAIsWord(std::string_view text, std::string_view word)
{
    return std::equal(text.begin(), text.end(), word.begin(), word.end(),
                      [](char a, char b) { return HTLower(a) == b; });
}
