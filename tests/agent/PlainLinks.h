// The rules of CAScanHTML, read in the plainest way, to compare its links with.
#pragma once

#include "Feed.h"
#include "HTString.h"

// Adds the link of a tag, from its "<" on, as LinkList keeps it.
inline void addPlainLink(std::string tag, bool images, std::vector<std::string> *links)
{
    static const struct {
        std::string tag, attribute, depth;
    } kRows[] = {{"a ", "href", "+"},    {"img ", "src", "-"},         {"link ", "href", "+"},
                 {"frame ", "src", "-"}, {"iframe ", "src", "+"},      {"object ", "data", "-"},
                 {"layer ", "src", "-"}, {"ilayer ", "src", "-"},      {"script ", "src", "-"},
                 {"area ", "href", "-"}, {"body ", "background", "-"}, {"meta ", "url", "-"}};
    static const std::string kSpace = " \t\n\v\f\r";
    tag = tag.c_str();
    std::string lower = tag;
    std::transform(tag.begin(), tag.end(), lower.begin(), HTLower);
    const std::size_t name = std::min(lower.find_first_not_of(kSpace, 1), lower.size());
    const auto *const row = std::find_if(
        std::begin(kRows), std::end(kRows),
        [&](const auto &known) { return lower.compare(name, known.tag.size(), known.tag) == 0; });
    if (row == std::end(kRows) || (row->tag == "img " && !images)) {
        return;
    }
    std::size_t at = lower.find(row->attribute, name + row->tag.size());
    at = at == tag.npos ? at : tag.find_first_not_of(kSpace, at + row->attribute.size());
    at = at == tag.npos || tag[at] != '=' ? tag.npos : tag.find_first_not_of(kSpace, at + 1);
    if (at == tag.npos) {
        return;
    }
    const bool isQuoted = tag[at] == '"' || tag[at] == '\'';
    const std::string ends = isQuoted ? tag.substr(at, 1) : " \t\r\n>";
    at = isQuoted ? tag.find_first_not_of(kSpace, at + 1) : at;
    const std::size_t end = tag.find_first_of(ends, at);
    if (end != tag.npos) {
        const std::string value = tag.substr(at, end - at);
        links->push_back(row->depth + value.substr(0, value.find_last_not_of(kSpace) + 1));
    }
}

inline std::vector<std::string> plainLinksOf(std::string_view page, const Cuts &cuts, bool images)
{
    constexpr std::size_t kRoom = 511;
    std::vector<std::string> links;
    std::string pending;
    inPieces(page, cuts, [&](const char *data, std::int32_t length) {
        const std::string block(data, static_cast<std::size_t>(length));
        std::size_t at = 0;
        if (!pending.empty()) {
            const std::size_t close = block.find('>');
            at = block.find('<') < close ? block.find('<') : 0;
            pending += block.substr(0, close == block.npos ? close : close + 1);
            if (close != block.npos && at == 0 && block[0] != '<' && pending.size() <= kRoom) {
                addPlainLink(pending, images, &links);
            }
            const bool isKept = close == block.npos && pending.size() < kRoom;
            pending = isKept ? pending : "";
            at = close == block.npos ? 0 : at;
        }
        while ((at = block.find('<', at)) != block.npos) {
            const std::size_t close = block.find('>', at);
            if (close == block.npos) {
                pending = block.size() - at < kRoom ? block.substr(at) : pending;
                break;
            }
            addPlainLink(block.substr(at, close - at), images, &links);
            at = close;
        }
        return true;
    });
    return links;
}
