#include "config/CAvariant.h"

#include <algorithm>

#include "HTString.h"
#include "config/CAargument.h"
#include "config/CAcfgLines.h"

namespace {

// In place of a ";" in quotes, which ends no value. A line with a control character is refused.
constexpr char kQuotedMark = '\x01';

// The arguments, separated by single blanks. A word that contains a blank was in quotes.
std::string textOf(const CAConfigLines &line)
{
    std::string text;
    for (int i = 1; i < line.count(); ++i) {
        std::string word = line.word(i);
        if (word.find(' ') != std::string::npos) {
            std::replace(word.begin(), word.end() - 1, ';', kQuotedMark);
        }
        text.append(i == 1 ? "" : " ").append(word);
    }
    return text;
}

// True when the text begins with a header's name and its colon. A URL does not.
bool beginsWithName(std::string_view text)
{
    const std::size_t colon = text.find(':');
    return colon != std::string_view::npos && CAIsHeaderName(text.substr(0, colon)) &&
           text.substr(colon, 3) != "://";
}

// The length of the header at the start of the text. A ";" ends it where a name follows, unless a
// bracket is open, as in the names of browsers.
std::size_t headerLength(std::string_view text)
{
    int open = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        open += text[at] == '(' ? 1 : text[at] == ')' ? -1 : 0;
        if (text[at] == ';' && open <= 0 && beginsWithName(HTTrimmed(text.substr(at + 1)))) {
            return at;
        }
    }
    return text.size();
}

CAHeader headerOf(std::string_view text)
{
    const std::size_t colon = std::min(text.find(':'), text.size());
    const std::string_view value = HTTrimmed(text.substr(std::min(colon + 1, text.size())));
    CAHeader header{.name = std::string(text.substr(0, colon)), .value = std::string(value)};
    std::replace(header.value.begin(), header.value.end(), kQuotedMark, ';');
    return header;
}

//     line   := header { ';' header } [ ';' ]
//     header := name ':' value
std::vector<CAHeader> headersIn(const CAConfigLines &line)
{
    const std::string text = textOf(line);
    std::vector<CAHeader> headers;
    for (std::string_view rest = HTTrimmed(text); !rest.empty();) {
        const std::size_t length = headerLength(rest);
        std::string_view header = rest.substr(0, length);
        rest = HTTrimmed(rest.substr(std::min(length + 1, rest.size())));
        while (rest.empty() && header.ends_with(';')) {
            header = HTTrimmed(header.substr(0, header.size() - 1));
        }
        headers.push_back(headerOf(header));
    }
    return headers;
}

const char *faultOf(const CAVariant &variant, const CAHeader &header)
{
    const auto times = std::count_if(
        variant.headers.begin(), variant.headers.end(),
        [&header](const CAHeader &other) { return HTEqualsNoCase(other.name, header.name); });
    const char *const fault = CAHeaderNameFault(header.name);
    return fault != nullptr       ? fault
           : header.value.empty() ? "a header has no value"
           : times > 1            ? "it names a header twice"
                                  : nullptr;
}

// Calls `take` for the name of each line, and the line with its CR LF.
template <typename Take>
void forEachLine(const char *common, Take take)
{
    std::string_view rest(common != nullptr ? common : "");
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n') + 1);
        take(line.substr(0, line.find(':')), line);
        rest.remove_prefix(line.size());
    }
}

}  // namespace

bool CAVariant::has(std::string_view name) const
{
    return std::any_of(headers.begin(), headers.end(), [name](const CAHeader &header) {
        return HTEqualsNoCase(header.name, name);
    });
}

const char *CAReadVariant(CAConfigLines *line, CAVariant *variant)
{
    variant->headers = headersIn(*line);
    for (const CAHeader &header : variant->headers) {
        if (const char *const fault = faultOf(*variant, header); fault != nullptr) {
            return fault;
        }
    }
    return CAUserAgentFault(line);
}

std::string CATextOf(const CAVariant &variant)
{
    std::string text;
    for (const auto &[name, value] : variant.headers) {
        text.append(text.empty() ? "" : "; ").append(name).append(": ").append(value);
    }
    return text;
}

void CACompleteVariants(std::vector<CAVariant> *variants, const char *common)
{
    for (CAVariant &variant : *variants) {
        forEachLine(common, [&variant](std::string_view name, std::string_view line) {
            variant.lines.append(variant.has(name) ? "" : line);
        });
        for (const auto &[name, value] : variant.headers) {
            if (HTEqualsNoCase(name, "Accept")) {
                variant.accept = value;
            } else if (HTEqualsNoCase(name, "User-Agent")) {
                variant.userAgent = value;
            } else {
                variant.lines.append(name).append(": ").append(value).append("\r\n");
            }
        }
    }
}

std::vector<std::string> CASentNames(const std::vector<CAVariant> &variants, const char *common)
{
    std::vector<std::string> names;
    forEachLine(common, [&names](std::string_view name, std::string_view /*line*/) {
        names.emplace_back(name);
    });
    for (const CAVariant &variant : variants) {
        for (const CAHeader &header : variant.headers) {
            names.push_back(header.name);
        }
    }
    return names;
}
