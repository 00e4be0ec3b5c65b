// The parts of a URL and the short form of a path against regular expressions of their grammars,
// and what holds of a link that is resolved against its page.
//
// Input: a line with the page's URL, then the link.
#include <regex>

#include "CAURL.h"
#include "Fuzz.h"
#include "GuardedText.h"
#include "HTParse.h"
#include "HTSimplify.h"

namespace {

constexpr auto kHere = std::regex_constants::match_continuous;
constexpr auto kAnyCase = std::regex::ECMAScript | std::regex::icase;

void checkParts(const std::string &url, const HTURIParts &parts)
{
    static const std::regex grammar(
        R"((?:(?:url:)+(?:([^/#:]*):)?|([^/#]{2}[^/#:]*):)?([^#]*)(?:#([^#]*)(?:#[\s\S]*)?)?)",
        kAnyCase);
    static const std::regex host(R"(//([^/]*)(?:/([\s\S]*))?)");
    const auto same = [](const char *part, bool exists, const std::string &text) {
        require(exists ? part != nullptr && part == text : part == nullptr, "the same part");
    };
    std::smatch match;
    std::regex_match(url, match, grammar);
    const bool scheme = match[1].matched || match[2].matched;
    same(parts.access, scheme, match.str(1) + match.str(2));
    same(parts.anchor, match[4].matched, match.str(4));
    const std::string rest = match.str(3);
    const bool slash = rest.starts_with('/');
    const bool hosted = std::regex_match(rest, match, host) && scheme;
    same(parts.host, hosted, match.str(1));
    same(parts.absolute, hosted ? match[2].matched : slash,
         hosted ? match.str(2) : rest.substr(slash ? 1 : 0));
    same(parts.relative, !slash && !rest.empty(), rest);
}

// Takes schemes and hosts off the start of `text`. Ports that say nothing are left out.
std::string takeHosts(std::string *text)
{
    static const std::regex scheme("[^/]*:/+");
    static const std::regex host(R"(([^:/\\]*)(:\d+)?([^/\\]*))");
    static const std::regex usual("http://+:0*80|https://+:0*443|gopher://+:0*70", kAnyCase);
    static const std::regex file("file://+", kAnyCase);
    std::string hosts;
    for (std::smatch match; std::regex_search(*text, match, scheme, kHere);) {
        const std::string access = match.str();
        hosts += access;
        *text = match.suffix().str();
        if (!std::regex_match(access, file)) {
            const std::string rest = *text;
            std::regex_search(rest, match, host, kHere);
            const bool drop = std::regex_match(access + match.str(2), usual);
            hosts += match.str(1) + (drop ? "" : match.str(2)) + match.str(3);
            *text = match.suffix().str();
        }
        const bool separated = text->starts_with('/') || text->starts_with('\\');
        hosts += text->substr(0, separated ? 1 : 0);
        text->erase(0, separated ? 1 : 0);
    }
    return hosts;
}

std::string simplified(std::string text)
{
    static const std::regex marks(R"(\./|//|\.\.|:)");
    static const std::regex segment(R"([^/\\]+)");
    if (!std::regex_search(text, marks)) {
        return text;
    }
    const bool closed = text.back() == '/' || text.back() == '\\';
    const bool dot = text.starts_with("./") || text.starts_with(".\\");
    std::string result = dot ? text.substr(0, 2) : text[0] == '/' ? "/" : takeHosts(&text);
    text.erase(0, dot ? 2 : 0);
    const auto isName = [](const std::string &name) {
        return !name.empty() && name != "." && name != "..";
    };
    std::vector<std::string> all(std::sregex_token_iterator(text.begin(), text.end(), segment), {});
    const bool anchored = !result.empty() || std::find(all.begin(), all.end(), "..") <
                                                 std::find_if(all.begin(), all.end(), isName);
    auto names = std::count_if(all.begin(), all.end(), isName);
    for (auto at = all.rbegin(); at != all.rend(); ++at) {
        const auto name = std::find_if(at, all.rend(), isName);
        if (*at == ".." && name != all.rend() && (names >= 2 || anchored)) {
            *at = *name = "";
            --names;
        }
    }
    std::erase_if(all, [](const std::string &name) { return name.empty() || name == "."; });
    for (const std::string &name : all) {
        result += name + "/";
    }
    if (!closed && !all.empty()) {
        result.pop_back();
    }
    return result + (closed && !text.empty() && !result.ends_with('/') ? "/" : "");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Input input(data, size);
    const auto text = [](std::string_view bytes) {
        return std::string(bytes.substr(0, bytes.find('\0')));
    };
    const std::string base = text(input.line());
    const std::string name = text(input.rest());
    const bool small = size <= 1024;  // the expressions take time and stack
    const GuardedText buffer(name);
    HTURIParts parts{};
    HTParse_scan(buffer.data(), &parts, name.size());
    if (small) {
        checkParts(name, parts);
    }
    for (const std::string &path : {name, "/" + name}) {
        const GuardedText copy(path);
        HTPool pool;
        HTSimplify(copy.data(), &pool);
        require(!small || copy.data() == simplified(path), "the same short form");
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
    // A scheme of one letter is one only behind "URL:", which the form does not have.
    require((absolute && protocol.size() < 2) || CAURL(form.c_str()).stringitize() == form,
            "the same again");
    return 0;
}
