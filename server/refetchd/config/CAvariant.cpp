#include "config/CAvariant.h"

#include <algorithm>

#include "HTString.h"
#include "config/CAargument.h"
#include "config/CAcfgLines.h"

namespace {

// True when a word behind a ";" begins the next header. Only a name with its colon does, or a whole
// header in quotes: what else follows a ";" belongs to the value, such as " Win64" and " rv:109.0"
// in the names of browsers.
bool beginsHeader(std::string_view word)
{
    return (word.size() > 1 && word.ends_with(':')) || word.find(": ") != std::string_view::npos;
}

// The header that a word begins; without a colon it has no name.
CAHeader headerOf(std::string_view word)
{
    const std::size_t colon = word.find(':');
    if (colon == std::string_view::npos) {
        return {.name = "", .value = std::string(word)};
    }
    std::string_view value = word.substr(colon + 1);
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    return {.name = std::string(word.substr(0, colon)), .value = std::string(value)};
}

// Removes a ";" that ends the value, and the blanks before it.
void cutSeparator(std::string *value)
{
    if (value->ends_with(';')) {
        value->erase(value->find_last_not_of("; ") + 1);
    }
}

//     line   := header { ';' header }
//     header := name ':' value
std::vector<CAHeader> headersIn(const CAConfigLines &line)
{
    std::vector<CAHeader> headers;
    for (int i = 1; i < line.count(); ++i) {
        const std::string_view word = line.word(i);
        const bool isSeparated = !headers.empty() && headers.back().value.ends_with(';');
        if (headers.empty() || (isSeparated && beginsHeader(word))) {
            if (isSeparated) {
                cutSeparator(&headers.back().value);
            }
            headers.push_back(headerOf(word));
        } else {
            std::string &value = headers.back().value;
            value.append(value.empty() ? "" : " ").append(word);
        }
    }
    if (!headers.empty()) {
        cutSeparator(&headers.back().value);
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
