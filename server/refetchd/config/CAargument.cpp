#include "config/CAargument.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "HTString.h"
#include "base/CAoutput.h"
#include "base/CAwhen.h"
#include "config/CAcfgLines.h"
#include "config/CAsitemapSeeds.h"
#include "config/CAvariant.h"

namespace {

using A = CAArgument;

bool isNumber(std::string_view word)
{
    word.remove_prefix(word.starts_with('-') || word.starts_with('+') ? 1 : 0);
    return !word.empty() && std::all_of(word.begin(), word.end(), HTIsDigit);
}

CAArgumentVerdict judgeTime(CAConfigLines *line)
{
    long seconds = 0;
    const bool isTime = parse_time(std::string(line->rest()).data(), 1, &seconds) != 0;
    return {isTime ? "" : CAQuoted(line->word(1)) + " is not a time", isTime};
}

CAArgumentVerdict judgeErrorLog(const std::string &word)
{
    const std::string path = CAErrorLogPath(word);
    const std::string fault =
        path.empty() ? CAQuoted(word) + " names no directory" : CAUnwritable(path);
    return {fault, fault.empty()};
}

CAArgumentVerdict judgeReplaced(const std::string &word)
{
    const std::string target = CAOutputTarget(word);
    if (!CAIsReplaceable(target)) {
        return {word + ": not a regular file"};
    }
    return {CAUnwritable(target + ".tmp")};
}

CAArgumentVerdict judgeResultsLog(const std::string &path, std::string_view word)
{
    const bool isKnown =
        word.empty() || HTEqualsNoCase(word, kDropped) || HTEqualsNoCase(word, kNoDropped);
    return {isKnown ? CAUnwritable(path) : CAQuoted(word) + " is neither dropped nor nodropped"};
}

// The verdict on a line that is refused because of `fault`; null: it is not refused.
CAArgumentVerdict refusal(const CAConfigLines &line, const char *fault)
{
    const bool isRefused = fault != nullptr;
    return {isRefused ? CAQuoted(CAJoinWords(line, 1)) + " is refused: " + fault : "", !isRefused};
}

// Judges on/off words and the few words that some directives take besides.
CAArgumentVerdict judgeWord(CAArgument argument, const std::string &word)
{
    std::string text = word;
    const bool isOn = positive(text.data());  // also standardizes `text`
    const bool isOff = negative(text.data());
    text.resize(std::strlen(text.data()));
    const auto judged = [&word](bool good, const char *fault, bool sets = true) {
        return CAArgumentVerdict{good ? "" : CAQuoted(word) + fault, sets};
    };
    if (argument == A::Pause) {
        return judged(isOn || isOff || isNumber(word), " is not a number");
    }
    if (argument == A::Flag) {
        return judged(isOn || isOff, " counts as off");
    }
    if (argument == A::Off) {
        return judged(isOn || isOff, " counts as on");
    }
    if (argument == A::All) {
        return judged(text == "all" || isOff, " counts as off");
    }
    if (argument == A::When) {
        return judged(CAParseWhen(text.data()) != NEVER || isOff, " counts as never");
    }
    if (argument == A::Queries) {
        const bool takes = isOn || text == "public";
        return judged(takes || isOff, " changes nothing", takes);
    }
    const bool on = (argument == A::On ? word : text) == "on";
    return judged(on || isOff, " changes nothing, only \"on\" does", on);
}

}  // namespace

std::string CAQuoted(std::string_view text)
{
    std::string quoted = "\"";
    return quoted.append(text).append("\"");
}

std::string CAJoinWords(const CAConfigLines &line, int first)
{
    std::string text;
    for (int i = first; i < line.count(); ++i) {
        text += (i == first ? "" : " ");
        text += line.word(i);
    }
    return text;
}

CAArgumentVerdict CAJudgeArgument(CAArgument argument, CAConfigLines *line)
{
    const std::string word = line->word(1);  // a copy: the line must keep its text
    switch (argument) {
    case A::Number:
    case A::HostLimit: return {isNumber(word) ? "" : CAQuoted(word) + " is not a number"};
    case A::Decimal:
        return {CAReadDecimal(word) >= 0 ? "" : CAQuoted(word) + " is not a number",
                CAReadDecimal(word) >= 0};
    case A::Percent: {
        const bool isGood = CAReadPercent(word.c_str()) >= -1;
        return {isGood ? "" : CAQuoted(word) + " is not a percentage from 0 to 100", isGood};
    }
    case A::Pause:
    case A::Flag:
    case A::On:
    case A::Off:
    case A::SaveOn:
    case A::All:
    case A::When:
    case A::Queries: return judgeWord(argument, word);
    case A::Time: return judgeTime(line);
    case A::TraceLog: {
        const std::string fault = CAUnwritable(word);
        return {fault, fault.empty()};
    }
    case A::ErrorLog: return judgeErrorLog(word);
    case A::ResultsLog: return judgeResultsLog(word, line->word(2));
    case A::Replaced: return judgeReplaced(word);
    case A::UserAgent: return refusal(*line, CAUserAgentFault(line));
    case A::Header: return refusal(*line, CAHeaderFault(line));
    case A::Variant: {
        CAVariant variant;
        return refusal(*line, CAReadVariant(line, &variant));
    }
    case A::Sitemap: {
        const std::string fault = CAReadSitemapLine(*line).fault;
        return {fault.empty() ? "" : fault + ": all entries are taken"};
    }
    case A::Service: return {"", CAIsOwnService(*line)};
    case A::Pattern: return {word.empty() ? CAQuoted(word) + " matches nothing" : ""};
    case A::ConfigFile:
    case A::Text:
    case A::List:
    case A::Readable:  // these are judged when they are read
    case A::Seed: break;
    }
    return {};
}

std::int32_t CAReadPercent(const char *word)
{
    std::string text = word;
    if (negative(text.data())) {
        return -1;
    }
    const std::int32_t percent = isNumber(word) ? HTInteger(word) : -2;
    return percent >= 0 && percent <= 100 ? percent : -2;
}

std::int32_t CAReadDecimal(std::string_view word)
{
    constexpr std::size_t kPlaces = 3;
    const std::size_t point = std::min(word.find('.'), word.size());
    const std::string whole(word.substr(0, point));
    const std::string fraction(word.substr(std::min(point + 1, word.size())));
    const std::string digits = whole + fraction;
    if (digits.empty() || !std::all_of(digits.begin(), digits.end(), HTIsDigit)) {
        return -1;
    }
    return HTInteger(whole + (fraction + "000").substr(0, kPlaces));
}

std::string CADecimalText(std::int32_t thousandths)
{
    constexpr std::int32_t kOne = 1000;
    std::string text = std::to_string(thousandths / kOne);
    if (thousandths % kOne != 0) {
        text.append(".").append(std::to_string(kOne + thousandths % kOne), 1);
        text.resize(text.find_last_not_of('0') + 1);
    }
    return text;
}

std::string CAErrorLogPath(std::string_view name)
{
    const std::size_t slash = name.rfind('/');
    return slash == name.npos ? "" : std::string(name.substr(0, slash + 1)) + "cacheAgent-errors";
}

bool CAIsOwnService(const CAConfigLines &line)
{
    return strcasecmp(line.word(2), "internal:cacheagentservice") == 0;
}

namespace {

// True when the arguments contain a control character. Tabs and the end of the line are white
// space.
bool hasControl(CAConfigLines *line)
{
    std::string_view text(line->rest());
    text = text.substr(0, text.find_last_not_of("\r\n") + 1);
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return HTIsControl(c) && c != '\t'; });
}

// Headers that the agent sends itself, and those that would announce a body.
constexpr std::string_view kOwnHeaders[] = {
    "Cache-Control", "Connection", "Content-Length", "Host", "Transfer-Encoding",
};
constexpr const char *kIsOwn = "the agent sends its own";

constexpr std::string_view kMarksOfNames = "!#$%&'*+-.^_`|~";

}  // namespace

bool CAIsHeaderName(std::string_view name)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               kMarksOfNames.find(c) != std::string_view::npos;
    });
}

const char *CAHeaderNameFault(std::string_view name)
{
    const bool isOwn =
        std::any_of(std::begin(kOwnHeaders), std::end(kOwnHeaders),
                    [name](std::string_view own) { return HTEqualsNoCase(name, own); });
    return !CAIsHeaderName(name) ? "not a valid header name" : isOwn ? kIsOwn : nullptr;
}

const char *CAUserAgentFault(CAConfigLines *line)
{
    return hasControl(line) ? "it contains a control character" : nullptr;
}

const char *CAHeaderFault(CAConfigLines *line)
{
    const std::string_view name = line->word(1);
    const char *const fault = CAHeaderNameFault(name);
    // These two have a directive of their own, or a variant sends them.
    const bool isOwn = HTEqualsNoCase(name, "Accept") || HTEqualsNoCase(name, "User-Agent");
    return fault != nullptr                ? fault
           : isOwn                         ? kIsOwn
           : CAJoinWords(*line, 2).empty() ? "it has no value"
                                           : CAUserAgentFault(line);
}

std::string CAUnwritable(const std::string &name)
{
    const std::string directory = "./" + name.substr(0, name.rfind('/') + 1);
    const bool there = access(name.c_str(), F_OK) == 0;
    const std::string checked = there ? name : name[0] == '/' ? directory.substr(2) : directory;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread
    return access(checked.c_str(), W_OK) == 0 ? "" : name + ": " + std::strerror(errno);
}
