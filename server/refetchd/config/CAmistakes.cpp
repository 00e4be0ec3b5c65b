#include "config/CAmistakes.h"

#include <arpa/inet.h>

#include <algorithm>
#include <iterator>

#include "HTInet.h"
#include "HTString.h"
#include "config/CAargument.h"
#include "config/CAcfg.h"
#include "config/CAcfgLines.h"
#include "config/CAdirectives.h"

namespace {

using Line = CAConfigLines;
using Text = std::string_view;

bool isOneOf(Text word, std::initializer_list<Text> words)
{
    return std::any_of(words.begin(), words.end(),
                       [word](Text other) { return HTEqualsNoCase(word, other); });
}

bool contains(Text text, Text part)
{
    return text.find(part) != Text::npos;
}

// True for digits with a value from 1 to 65535.
bool isPort(Text text)
{
    constexpr std::size_t kDigits = 5;
    constexpr std::int32_t kMaxPort = 65535;
    return !text.empty() && text.size() <= kDigits &&
           std::all_of(text.begin(), text.end(), HTIsDigit) && HTInteger(text) > 0 &&
           HTInteger(text) <= kMaxPort;
}

bool hasWrongPort(Text proxy)
{
    const Text host = HTHostPart(proxy);
    if (host.empty() || host.size() == proxy.size() || CAIsBareAddress(proxy)) {
        return false;
    }
    const Text rest = proxy.substr(host.size());
    return rest[0] != ':' || !isPort(rest.substr(1));
}

// The schemes of URLs that the agent requests.
constexpr Text kSchemes[] = {"http://", "https://", "ftp://", "gopher://"};

bool hasKnownScheme(Text url)
{
    return std::any_of(std::begin(kSchemes), std::end(kSchemes), [url](Text scheme) {
        return HTEqualsNoCase(url.substr(0, scheme.size()), scheme);
    });
}

// True for "SCHEME://..." with another scheme, and for a text such as "mailto:me" or "http:/h/",
// which the agent would take as a host with a port. A user and a password may precede the host.
bool hasOtherScheme(Text url)
{
    const Text place = url.substr(0, url.find_first_of("/?#"));
    const Text host = place.substr(place.rfind('@') + 1);  // all of it without one
    const std::size_t colon = host.find(':');
    const bool namesPort =
        colon == Text::npos || host.starts_with('[') || isPort(host.substr(colon + 1));
    return !hasKnownScheme(url) && !namesPort;
}

bool hasNoHost(Text url)
{
    const bool hasScheme = url.find("://") < url.find_first_of("/?#");
    const Text rest = hasScheme ? url.substr(url.find("://") + 3) : url;
    return rest.empty() || contains("/?#:", rest.substr(0, 1));
}

// True when one of the words from number `first` on is a pattern like this.
bool hasPattern(const Line &line, int first, bool (*isLikeThis)(Text))
{
    bool found = false;
    for (int i = first; i < line.count(); ++i) {
        found = found || isLikeThis(line.word(i));
    }
    return found;
}

// A backslash is not looked for here: the line's words have a slash for it.
bool isExpression(Text pattern)
{
    return pattern.starts_with('^') || pattern.starts_with(".*") || pattern.starts_with(".+") ||
           pattern.ends_with('$') || (contains(pattern, "(") && contains(pattern, "|"));
}

bool isExpressionFrom(Line *line, int first)
{
    return hasPattern(*line, first, isExpression) || contains(line->rest(), "\\");
}

// True when no URL begins with the text in front of the first star, or the whole text of a pattern
// without a star is no URL, because it ends with the host.
bool matchesNoUrl(Text pattern)
{
    const Text head = pattern.substr(0, pattern.find('*'));
    const bool fits = std::any_of(std::begin(kSchemes), std::end(kSchemes), [head](Text scheme) {
        return scheme.starts_with(head) || head.starts_with(scheme);
    });
    const bool isWhole = head.size() == pattern.size();
    const std::size_t host = head.find("://");
    const bool endsEarly = host == Text::npos || !contains(head.substr(host + 3), "/");
    return !pattern.empty() && (!fits || (isWhole && endsEarly));
}

// True when minutes or seconds behind a colon are more than 59.
bool hasWideField(Text time)
{
    constexpr std::int32_t kMaxField = 59;
    for (std::size_t at = time.find(':'); at != Text::npos; at = time.find(':', at + 1)) {
        if (HTInteger(time.substr(at + 1)) > kMaxField) {
            return true;
        }
    }
    return false;
}

// True for a time such as "1 hour 30": behind a unit, a number without one counts as hours.
bool endsWithBareNumber(Text time)
{
    const Text whole = time.substr(0, time.find_last_not_of(" \t\r\n") + 1);
    const Text before = whole.substr(0, whole.find_last_not_of("0123456789") + 1);
    const std::size_t last = before.find_last_not_of(" \t");
    return before.size() < whole.size() && last != Text::npos && before[last] != ':' &&
           !HTIsDigit(before[last]);
}

struct Mistake {
    Text directive;  // empty: any
    bool (*made)(Line *line);
    const char *advice;
};

constexpr const char *kEqualsSign = "leave out the equals sign: a blank separates name and value";

// The first row that fits counts.
constexpr Mistake kMistakes[] = {
    {"", [](Line *l) { return *l->word(1) == '='; }, kEqualsSign},
    {"updateproxy", [](Line *l) { return contains(l->word(1), "://"); },
     "write host and port without a scheme, such as 127.0.0.1:3128 (for TLS, set proxytls on)"},
    {"updateproxy", [](Line *l) { return contains(l->word(1), "/"); },
     "write host and port without a path, such as 127.0.0.1:3128"},
    {"updateproxy", [](Line *l) { return l->count() > 2; },
     "write host and port as one word with a colon, such as 127.0.0.1:3128"},
    {"updateproxy", [](Line *l) { return hasWrongPort(l->word(1)); },
     "behind the colon, write a port from 1 to 65535, such as 127.0.0.1:3128"},
    {"port", [](Line *l) { return HTInteger(l->word(1)) > UINT16_MAX; },
     "write a port up to 65535"},
    {"loadurl", [](Line *l) { return hasOtherScheme(l->word(1)); },
     "begin the URL with http:// or https://"},
    {"loadurl", [](Line *l) { return hasNoHost(l->word(1)); },
     "name the host, such as http://www.example.com/"},
    {"loadsitemap", [](Line *l) { return hasOtherScheme(l->word(1)); },
     "begin the URL with http:// or https://"},
    {"loadsitemap", [](Line *l) { return hasNoHost(l->word(1)); },
     "name the host, such as http://www.example.com/sitemap.xml"},
    {"loadurl", [](Line *l) { return l->count() > 2; },
     "only the first word is used: write another loadurl line for each further URL, and %20 for a "
     "blank"},
    {"ignoreurl", [](Line *l) { return l->count() > 2; },
     "only the first pattern is used: write another ignoreurl line for each further one"},
    {"onlyurl", [](Line *l) { return l->count() > 2; },
     "only the first pattern is used: write another onlyurl line for each further one"},
    {"ignoreurl", [](Line *l) { return isExpressionFrom(l, 1); },
     "patterns are not regular expressions: write * for any text, such as *.pdf"},
    {"onlyurl", [](Line *l) { return isExpressionFrom(l, 1); },
     "patterns are not regular expressions: write * for any text, such as *.pdf"},
    {"cachequeries", [](Line *l) { return isExpressionFrom(l, 2); },
     "patterns are not regular expressions: write * for any text, such as */search*"},
    {"ignoreurl", [](Line *l) { return hasPattern(*l, 1, matchesNoUrl); },
     "matches no URL: begin it with http:// or *, and end a host with /*"},
    {"onlyurl", [](Line *l) { return hasPattern(*l, 1, matchesNoUrl); },
     "matches no URL: begin it with http:// or *, and end a host with /*"},
    {"cachequeries", [](Line *l) { return hasPattern(*l, 2, matchesNoUrl); },
     "a pattern matches no URL: begin it with http:// or *, and end a host with /*"},
    {"maxhosturls",
     [](Line *l) { return hasPattern(*l, 2, [](Text word) { return contains(word, "/"); }); },
     "patterns are compared with host names: write only the host, such as *.example.com"},
    {"numclients", [](Line *l) { return HTInteger(l->word(1)) > kMaxClients; },
     "write 100 or less: no more than 100 worker threads are started"},
    {"slr",
     [](Line *l) {
         return isOneOf(l->word(1), {"on", "yes", "true", "off", "no", "false"});
     },
     "name the directory of the copies, such as /var/lib/refetchd/copies, and switch them on with "
     "slf"},
    {"maxruntime", [](Line *l) { return contains(l->rest(), "#"); },
     "write the comment on a line of its own"},
    {"maxruntime", [](Line *l) { return hasWideField(l->rest()); },
     "write at most 59 behind a colon, or the units, such as 90 min"},
    {"maxruntime", [](Line *l) { return endsWithBareNumber(l->rest()); },
     "the last number counts as hours: write its unit, such as 1 hour 30 min"},
    {"useragent",
     [](Line *l) {
         return l->count() == 2 && isOneOf(l->word(1), {"none", "off", "no", "default"});
     },
     "this word would be sent: remove the line, and the built-in text is sent"},
};

}  // namespace

std::string CAMistakeIn(const CADirective &row, CAConfigLines *line)
{
    for (const Mistake &mistake : kMistakes) {
        const bool concerns = mistake.directive.empty() || mistake.directive == row.name;
        if (concerns && mistake.made(line)) {
            return CAQuoted(CAJoinWords(*line, 1)) + ": " + mistake.advice;
        }
    }
    return "";
}

std::string CAMistakeInName(std::string_view word)
{
    const CADirective *const row = CAFindDirective(word.substr(0, word.find('=')));
    return row == nullptr || !contains(word, "=")
               ? ""
               : std::string(row->name) + ": " + CAQuoted(word) + ": " + kEqualsSign;
}

bool CAIsBareAddress(std::string_view proxy)
{
    in6_addr ignored{};
    return inet_pton(AF_INET6, std::string(proxy).c_str(), &ignored) == 1 ||
           (proxy.starts_with('[') && !contains(proxy, "]"));
}
