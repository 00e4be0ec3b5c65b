#include "HTParse.h"

#include "HTString.h"

namespace {

constexpr std::size_t kFirstSchemeColon = 2;

// Gives what is behind the scheme, the whole text without one.
std::string_view cutScheme(std::string_view text, std::string_view *access)
{
    if (text.find(':') == std::string_view::npos) {
        return text;
    }
    std::size_t begin = 0;
    for (std::size_t at = 0; at < text.size() && text[at] != '/'; ++at) {
        if (text[at] != ':' || at < kFirstSchemeColon) {
            continue;
        }
        const std::string_view scheme = text.substr(begin, at - begin);
        begin = at + 1;
        if (!HTEqualsNoCase(scheme, "URL")) {
            *access = scheme;
            break;
        }
    }
    return text.substr(begin);
}

// `text` begins behind "//": the host, and the path behind it.
void cutHost(std::string_view text, HTURIViews *parts)
{
    const std::size_t slash = text.find('/');
    parts->host = text.substr(0, slash);
    if (slash != std::string_view::npos) {
        parts->absolute = text.substr(slash + 1);
    }
}

// Gives what is in front of the first '#'.
std::string_view cutAnchor(std::string_view text, std::string_view *anchor)
{
    const std::size_t mark = text.find('#');
    if (mark == std::string_view::npos) {
        return text;
    }
    *anchor = text.substr(mark + 1);
    *anchor = anchor->substr(0, anchor->find('#'));
    return text.substr(0, mark);
}

// Ends `part` with a NUL in the buffer in which it lies. Null for one that is missing.
char *terminated(char *buffer, std::string_view part)
{
    if (part.data() == nullptr) {
        return nullptr;
    }
    char *const begin = buffer + (part.data() - buffer);
    begin[part.size()] = '\0';
    return begin;
}

}  // namespace

HTURIViews HTParse_split(std::string_view text)
{
    HTURIViews parts;
    const std::string_view rest = cutScheme(cutAnchor(text, &parts.anchor), &parts.access);
    if (rest.starts_with("//") && parts.access.data() != nullptr) {
        cutHost(rest.substr(2), &parts);
    } else if (rest.starts_with('/')) {
        parts.absolute = rest.substr(1);
    } else if (!rest.empty()) {
        parts.relative = rest;
    }
    return parts;
}

void HTParse_scan(char *buffer, HTURIParts *parts, std::size_t length)
{
    const HTURIViews views = HTParse_split({buffer, length});
    const auto take = [buffer](std::string_view part) { return terminated(buffer, part); };
    parts->access = take(views.access);
    parts->host = take(views.host);
    parts->absolute = take(views.absolute);
    parts->relative = take(views.relative);
    parts->anchor = take(views.anchor);
}
