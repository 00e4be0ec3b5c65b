#include "parse/CAmodernTags.h"

#include <bit>

namespace {

using Use = CAModernUse;

constexpr std::array<CAModernTag, 22> kTags = {{
    {"a", {{{"href", Use::DeeperLink}}}},
    {"area", {{{"href", Use::Link}}}},
    {"audio", {{{"src", Use::Link}}}},
    {"base", {{{"href", Use::Base}}}},
    {"body", {{{"background", Use::Link}}}},
    {"embed", {{{"src", Use::Link}}}},
    {"frame", {{{"src", Use::Link}}}},
    {"iframe", {{{"src", Use::DeeperLink}}}},
    {"ilayer", {{{"src", Use::Link}}}},
    {"img", {{{"src", Use::Image}, {"srcset", Use::ImageSet}}}},
    {"input", {{{"src", Use::Image}, {"type", Use::Word}}}, "image"},
    {"layer", {{{"src", Use::Link}}}},
    {"link", {{{"href", Use::DeeperLink}, {"imagesrcset", Use::ImageSet}, {"rel", Use::Relation}}}},
    {"meta",
     {{{"content", Use::Refresh}, {"http-equiv", Use::Word}, {"charset", Use::Charset}}},
     "refresh"},
    {"object", {{{"data", Use::Link}}}},
    {"script", {{{"src", Use::Link}}}, "", true},
    {"source", {{{"src", Use::Link}, {"srcset", Use::ImageSet}}}},
    {"style", {}, "", true},
    {"textarea", {}, "", true},
    {"title", {}, "", true},
    {"track", {{{"src", Use::Link}}}},
    {"video", {{{"src", Use::Link}, {"poster", Use::Image}}}},
}};

// Sets of rows, one bit for each: by the first byte of the name, in either case, and by its length.
// Few other tags of a page are in both sets, so few names must be compared.
struct TagIndex {
    std::array<std::uint32_t, 256> byLetter{};
    std::array<std::uint32_t, 13> byLength{};
};

consteval TagIndex indexTags()
{
    TagIndex index;
    for (std::size_t i = 0; i < kTags.size(); ++i) {
        const std::string_view name = kTags[i].name;
        const auto letter = static_cast<unsigned char>(name.front());
        index.byLetter[letter] |= 1U << i;
        index.byLetter[letter - 'a' + 'A'] |= 1U << i;
        index.byLength[name.size()] |= 1U << i;
    }
    return index;
}

constexpr TagIndex kTagIndex = indexTags();

}  // namespace

const CAModernTag *CAFindModernTag(std::string_view name)
{
    if (name.size() >= kTagIndex.byLength.size()) {
        return nullptr;
    }
    std::uint32_t set = kTagIndex.byLetter[static_cast<unsigned char>(name.front())] &
                        kTagIndex.byLength[name.size()];
    for (; set != 0; set &= set - 1) {
        const CAModernTag &tag = kTags[static_cast<std::size_t>(std::countr_zero(set))];
        if (CAIsWord(name, tag.name)) {
            return &tag;
        }
    }
    return nullptr;
}
