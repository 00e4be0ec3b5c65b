// The parts of a URL must make it up; and what holds of a link that is resolved against its page.
//
// Input: a line with the page's URL, then the link.
#include <cstring>

#include "Fuzz.h"
#include "GuardedText.h"
#include "HTParse.h"
#include "HTSimplify.h"
#include "url/CAURL.h"

namespace {

// Up to a second "#", without what stands before the scheme.
void checkParts(const std::string &url)
{
    const GuardedText buffer(url);
    HTURIParts parts{};
    HTParse_scan(buffer.data(), &parts, url.size());
    const auto part = [](const char *before, const char *text, const char *behind = "") {
        return text == nullptr ? "" : before + std::string(text) + behind;
    };
    const std::string whole = part("", parts.access, ":") + part("//", parts.host) +
                              part("/", parts.absolute) + part("", parts.relative) +
                              part("#", parts.anchor);
    const std::size_t anchor = std::min(url.find('#'), url.size());
    const std::string text = url.substr(0, url.find('#', anchor + 1));
    require(text.ends_with(whole), "made up of its parts");
    for (std::size_t at = 0; at < text.size() - whole.size(); at += 4) {
        require(strncasecmp(&text[at], "URL:", 4) == 0, "nothing else left out");
    }
}

}  // namespace

void fuzz(std::string_view input)
{
    const std::string base = untilNul(takeLine(&input));
    const std::string name = untilNul(input);
    checkParts(name);
    for (const std::string &path : {name, "/" + name}) {
        const GuardedText copy(path);
        HTPool pool;
        HTSimplify(copy.data(), &pool);
        require(std::strlen(copy.data()) <= path.size(), "never longer");
    }

    const CAURL url(name.c_str(), base.c_str());
    const std::string form = url.stringitize();
    const std::string protocol(url.protocol());
    const std::string host(url.host());
    const std::size_t colon = std::min(host.find(':'), host.size());
    const std::string port = protocol + host.substr(colon);
    require(url.path()[0] == '/' && form.find('#') == form.npos, "a path, no fragment");
    require(host.find('/') == host.npos && host.substr(0, colon + 1).find(".:") == host.npos &&
                port != "http:80" && port != "gopher:70" &&
                (protocol != "file" || port == protocol),
            "a host without a usual port");
    const bool absolute = !protocol.empty() && !host.empty();
    require(form == (absolute ? protocol + "://" + host : "") + url.path(), "the whole form");
    // A scheme of one letter is one only after "URL:", which the form does not have.
    require((absolute && protocol.size() < 2) || CAURL(form.c_str()).stringitize() == form,
            "the same again");
}
