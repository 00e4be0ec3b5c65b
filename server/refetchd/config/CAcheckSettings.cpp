#include "config/CAcheckSettings.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "HTString.h"
#include "config/CAcfgLines.h"

namespace {

inline constexpr std::int32_t kFlag = -1;

// How a value is shown. Numbers below `Least` are no limit; of kFlag, they are flags.
template <auto Field, std::int32_t Least = INT32_MIN>
std::string value(const CAConfig &config)
{
    constexpr std::array<const char *, 4> kWhenWords = {"never", "always", "admin", "topn"};
    using Member = decltype(Field);
    if constexpr (std::is_same_v<Member, bool CAParseOptions::*>) {
        return config.parseOptions.*Field ? "on" : "off";
    } else if constexpr (std::is_same_v<Member, char * CAConfig::*>) {
        return config.*Field == nullptr ? "none" : config.*Field;
    } else if constexpr (std::is_same_v<Member, _when CAConfig::*>) {
        return kWhenWords[static_cast<std::size_t>(config.*Field)];
    } else if (Least == kFlag) {
        return config.*Field != 0 ? "on" : "off";
    } else {
        const bool limited = config.*Field >= Least && config.*Field != kUnlimited;
        return limited ? std::to_string(config.*Field) : "no limit";
    }
}

using A = CAArgument;
using C = CAConfig;
using P = CAParseOptions;

constexpr CASetting kSettings[] = {
    {"catracelog", A::File},
    {"errorlog", A::Text, value<&C::errorLogPath>},
    {"resultslog", A::File},
    {"metricsfile", A::Replaced},
    {"progress", A::Number},
    {"updateproxy", A::Text, value<&C::updateProxy>},
    {"hostname", A::Text, value<&C::hostname>},
    {"port", A::Number, value<&C::port>},
    {"serverroot", A::Text},
    {"caching", A::When, value<&C::caching>},
    {"loadtopcached", A::Number},
    {"delveinto", A::When, value<&C::delveInto>},
    {"delvedepth", A::Number, value<&C::delveDepth>},
    {"delveacrosshosts", A::Flag, value<&C::delveAcrossHosts, kFlag>},
    {"loadinlineimages", A::Flag, value<&C::loadInlineImages, kFlag>},
    {"maxurls", A::Number, value<&C::maxUrls>},
    {"maxqueuedepth", A::Number, value<&C::maxQueueDepth>},
    {"numclients", A::Number, value<&C::numClients>},
    {"delay", A::Pause, value<&C::delayMs>},
    {"refetchdrequestpersecond", A::Number, value<&C::requestsPerSecond, 1>},
    {"refetchdmaxconnection", A::Number, value<&C::maxConnections, 1>},
    {"maxruntime", A::Time, value<&C::maxRuntime, 1>},
    {"refetchdrepeat", A::Number, value<&C::repeatCount, 1>},
    {"readtimeout", A::Number, value<&C::readTimeout>},
    {"persisttimeout", A::Number, value<&C::persistTimeout>},
    {"transparentproxy", A::On, value<&C::transparentProxy, kFlag>},
    {"connecttohost", A::On, value<&C::connectToHost, kFlag>},
    {"service", A::Text},
    {"stressmode", A::Flag, value<&C::stressMode, kFlag>},
    {"refetchdhttpversion", A::Text, value<&C::httpVersion>},
    {"slf", A::SaveOn, value<&C::saveFiles, kFlag>},
    {"slr", A::Text, value<&C::saveRoot>},
    {"closedelimitedbodies", A::Flag, value<&P::closeDelimitedBodies>},
    {"modernlinks", A::Flag, value<&P::modernLinks>},
    {"followredirects", A::All, value<&P::followAllRedirects>},
    {"retries", A::Number, value<&C::retries>},
    {"retryafter", A::Flag, value<&C::retryAfter, kFlag>},
    {"breadthfirst", A::Flag, value<&C::breadthFirst, kFlag>},
    {"useragent", A::Text, value<&C::userAgent>},
    {"configfile", A::ConfigFile},
    {"requestheader", A::Header},
    {"cachequeries", A::Queries},
    {"ignoreurl", A::Pattern},
    {"onlyurl", A::Pattern},
    {"maxhosturls", A::HostLimit},
    {"loadurl", A::Seed},
};

bool isNumber(std::string_view word)
{
    word.remove_prefix(word.starts_with('-') || word.starts_with('+') ? 1 : 0);
    return !word.empty() && std::all_of(word.begin(), word.end(), HTIsDigit);
}

}  // namespace

std::span<const CASetting> CASettings()
{
    return kSettings;
}

std::string CAQuoted(std::string_view text)
{
    std::string quoted = "\"";
    return quoted.append(text).append("\"");
}

CAArgumentVerdict CAJudgeArgument(CAArgument argument, CAConfigLines *line)
{
    // Copies, for what follows changes its text.
    const std::string word = line->word(1);
    std::string text = word;
    const bool isOn = positive(text.data());  // which standardizes, too
    const bool isOff = negative(text.data());
    text.resize(std::strlen(text.data()));
    const auto judged = [&word](bool good, const char *fault, bool sets = true) {
        return CAArgumentVerdict{good ? "" : CAQuoted(word) + fault, sets};
    };
    switch (argument) {
    case A::Number:
    case A::HostLimit: return judged(isNumber(word), " is no number");
    case A::Pause: return judged(isOn || isOff || isNumber(word), " is no number");
    case A::Flag: return judged(isOn || isOff, " counts as off");
    case A::On:
    case A::SaveOn: {
        const bool on = (argument == A::On ? word : text) == "on";
        return judged(on || isOff, " changes nothing, only \"on\" does", on);
    }
    case A::All: return judged(text == "all" || isOff, " counts as off");
    case A::When: return judged(CAParseWhen(text.data()) != NEVER || isOff, " counts as never");
    case A::Time: {
        long seconds = 0;
        text = line->rest();
        const bool good = parse_time(text.data(), 1, &seconds) != 0;
        return judged(good, " is no time", good);
    }
    case A::Queries: {
        const bool takes = isOn || text == "public";
        return judged(takes || isOff, " changes nothing", takes);
    }
    case A::File: return {CAUnwritable(word)};
    case A::Replaced: return {CAUnwritable(word + ".tmp")};
    case A::Pattern: return judged(!word.empty(), " matches nothing");
    case A::ConfigFile:
    case A::Text:
    case A::Header:
    case A::Seed: break;
    }
    return {};
}

std::string CAUnwritable(const std::string &name)
{
    const std::string directory = "./" + name.substr(0, name.rfind('/') + 1);
    const bool there = access(name.c_str(), F_OK) == 0;
    const std::string checked = there ? name : name[0] == '/' ? directory.substr(2) : directory;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread
    return access(checked.c_str(), W_OK) == 0 ? "" : name + ": " + std::strerror(errno);
}
