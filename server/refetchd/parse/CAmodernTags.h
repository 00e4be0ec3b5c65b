// The tags and attributes of today's pages that hold links.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "HTString.h"

// How the value of an attribute is used.
enum class CAModernUse : std::uint8_t {
    Link,        // a link at the depth of the page
    DeeperLink,  // a link one level deeper than the page
    Image,
    ImageSet,  // "small.png 1x, large.png 2x"
    Base,      // the URL that the links of the page are relative to
    Refresh,   // "5; url=next.html"
    Word,      // compared with CAModernTag::word
    Charset,   // of the page
    Relation,  // words; the links of the tag do not count if all of them are mere hints
};

struct CAModernAttribute {
    std::string_view name;
    CAModernUse use = CAModernUse::Link;
};

struct CAModernTag {
    std::string_view name;
    // CAScanModern has room for two links, of which one may be an ImageSet.
    std::array<CAModernAttribute, 3> attributes;
    std::string_view word = {};  // if not empty, links count only in a tag with this Word attribute
    bool hasRawText = false;     // everything up to its end tag is text, without tags
};

// The row of the tag `name`, ignoring case; null when it is not in the table. `name` must not be
// empty.
[[nodiscard]] const CAModernTag *CAFindModernTag(std::string_view name);

// The attributes of one tag, each to be found once.
class CAModernAttributes {
public:
    CAModernAttributes() = default;
    explicit CAModernAttributes(const CAModernTag &tag) : tag_(&tag) {}

    // The attribute `name`, ignoring case; null when it is not in the tag's row, or was found
    // before.
    [[nodiscard]] const CAModernAttribute *take(std::string_view name);

private:
    const CAModernTag *tag_ = nullptr;  // null: no tag of the table
    unsigned found_ = 0;                // a bit for each attribute in the row
};

// False if its first bytes, in any case, show that no tag of the table begins at `text`, which
// holds a ">".
[[nodiscard]] bool CAMayBeModernTag(const char *text);

// True when `text` equals `word`, ignoring case. `word` must be in lower case.
inline bool CAIsWord(std::string_view text, std::string_view word)
{
    return std::equal(text.begin(), text.end(), word.begin(), word.end(),
                      [](char a, char b) { return HTLower(a) == b; });
}
