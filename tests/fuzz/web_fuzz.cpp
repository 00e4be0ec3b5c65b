// What holds of a link that is resolved as browsers do.
//
// Input: a line with the page's URL, then the link.
#include "Fuzz.h"
#include "HTMemory.h"
#include "url/CAweb.h"

namespace {

std::string textOf(const CAURLParts &parts)
{
    const std::string authority =
        parts.host.empty() ? "" : std::string(parts.protocol) + "://" + std::string(parts.host);
    return authority + std::string(parts.path);
}

bool isPlain(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 127; });
}

}  // namespace

void fuzz(std::string_view input)
{
    HTPool pool;
    const CAWebResult base = CAResolveWeb(takeLine(&input), {}, &pool);
    const CAWebResult found = CAResolveWeb(input, base.parts, &pool);
    const std::string text = textOf(found.parts);
    if (found.fault != CAWebFault::None) {
        require(text.empty(), "nothing of a link that is none");
        return;
    }
    const auto &[protocol, host, path] = found.parts;
    const std::string name = std::string(path.substr(0, path.find('?'))) + "/";
    require(isPlain(text) && path.front() == '/', "a path, all printable");
    require(path.find_first_of("\"#<>") == path.npos, "no quotes and fragments");
    require(host.find_first_of("/?#@%") == host.npos, "a host without user name");
    require(name.find_first_of("\\^`{}") == name.npos && name.find("/../") == name.npos,
            "no backslashes and dots");
    const CAWebResult again = CAResolveWeb(text, {}, &pool);
    require(again.fault == CAWebFault::None && textOf(again.parts) == text,
            "the same when it is resolved again");
}
