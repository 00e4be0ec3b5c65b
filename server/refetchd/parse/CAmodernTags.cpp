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

// Sets of rows, one bit for each: by the length of the name, and for each of the first bytes of a
// tag, in either case. What ends a name counts as its last byte. Few other tags of a page are in
// all sets, so few names must be compared.
struct TagIndex {
    std::array<std::uint32_t, 13> byLength{};
    std::array<std::array<std::uint32_t, 256>, 3> byByte{};
};

constexpr HTCharacterSet kEnds(" \t\n\f\r/>");

consteval bool fits(std::string_view name, std::size_t place, char c)
{
    return place < name.size() ? name[place] == HTLower(c) : place > name.size() || kEnds.has(c);
}

consteval TagIndex indexTags()
{
    TagIndex index;
    for (std::size_t i = 0; i < kTags.size(); ++i) {
        const std::string_view name = kTags[i].name;
        index.byLength[name.size()] |= 1U << i;
        for (std::size_t at = 0; at < index.byByte.size() * 256; ++at) {
            const bool isSet = fits(name, at / 256, static_cast<char>(at % 256));
            index.byByte[at / 256][at % 256] |= isSet ? 1U << i : 0U;
        }
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
    std::uint32_t set = kTagIndex.byByte[0][static_cast<unsigned char>(name.front())] &
                        kTagIndex.byLength[name.size()];
    for (; set != 0; set &= set - 1) {
        const CAModernTag &tag = kTags[static_cast<std::size_t>(std::countr_zero(set))];
        if (CAIsWord(name, tag.name)) {
            return &tag;
        }
    }
    return nullptr;
}

const CAModernAttribute *CAModernAttributes::take(std::string_view name)
{
    if (tag_ == nullptr) {
        return nullptr;
    }
    for (std::size_t i = 0; i < tag_->attributes.size(); ++i) {
        const CAModernAttribute &attribute = tag_->attributes[i];
        if (CAIsWord(name, attribute.name)) {
            const bool isFirst = (found_ & 1U << i) == 0;
            found_ |= 1U << i;
            return isFirst ? &attribute : nullptr;
        }
    }
    return nullptr;
}

bool CAMayBeModernTag(const char *text)
{
    std::uint32_t set = ~0U;
    for (const auto &byByte : kTagIndex.byByte) {
        const char c = *text++;
        set &= byByte[static_cast<unsigned char>(c)];
        if (set == 0 || c == '>') {
            break;
        }
    }
    return set != 0;
}
