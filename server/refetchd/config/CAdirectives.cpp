#include "config/CAdirectives.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>

#include "config/CAsetters.h"

namespace {

using A = CAArgument;
using C = CAConfig;
using P = CAParseOptions;

// The value of a field as text. A number below `Least`, or kUnlimited, is "no limit".
template <auto Field, std::int32_t Least = INT32_MIN>
std::string shown(const CAConfig &config)
{
    constexpr std::array<const char *, 4> kWhenWords = {"never", "always", "admin", "topn"};
    using Member = decltype(Field);
    if constexpr (std::is_same_v<Member, char * CAConfig::*>) {
        return config.*Field == nullptr ? "none" : config.*Field;
    } else if constexpr (std::is_same_v<Member, _when CAConfig::*>) {
        return kWhenWords[static_cast<std::size_t>(config.*Field)];
    } else {
        const bool limited = config.*Field >= Least && config.*Field != kUnlimited;
        return limited ? std::to_string(config.*Field) : "no limit";
    }
}

template <auto Field>
std::string shownFlag(const CAConfig &config)
{
    if constexpr (std::is_same_v<decltype(Field), bool CAParseOptions::*>) {
        return config.parseOptions.*Field ? "on" : "off";
    } else {
        return config.*Field != 0 ? "on" : "off";
    }
}

std::string shownRedirects(const CAConfig &config)
{
    return config.parseOptions.followAllRedirects ? "all" : "302 alone";
}

std::string shownProgress(const CAConfig &config)
{
    return config.progressSeconds < 1 ? "off" : std::to_string(config.progressSeconds);
}

std::string shownFailWhen(const CAConfig &config)
{
    return config.failWhen < 0 ? "off" : std::to_string(config.failWhen);
}

template <std::int32_t CAConfig::*Field>
std::string shownDecimal(const CAConfig &config)
{
    return config.*Field < 1 ? "off" : CADecimalText(config.*Field);
}

std::string shownMaxAnswer(const CAConfig &config)
{
    return config.maxAnswer < 1 ? "no limit" : std::to_string(config.maxAnswer);
}

std::string shownHttpVersion(const CAConfig &config)
{
    return config.httpVersion + std::strlen("HTTP/");
}

std::string shownUserAgent(const CAConfig &config)
{
    return config.userAgent != nullptr ? config.userAgent : kDefaultUserAgent;
}

// Make rows that set one number or flag, and trace a message.
template <std::int32_t CAConfig::*Field, std::int32_t Least = INT32_MIN>
consteval CADirective number(std::string_view name, const char *before, const char *after,
                             void (*set)(const CADirectiveCall &) = CASetNumber)
{
    return {.name = name,
            .takes = A::Number,
            .set = set,
            .shown = shown<Field, Least>,
            .number = Field,
            .before = before,
            .after = after};
}

template <std::int32_t CAConfig::*Field>
consteval CADirective decimal(std::string_view name, const char *before, const char *after)
{
    return {.name = name,
            .takes = A::Decimal,
            .set = CASetThousandths,
            .shown = shownDecimal<Field>,
            .number = Field,
            .before = before,
            .after = after};
}

template <std::int32_t CAConfig::*Field>
consteval CADirective flag(std::string_view name, const char *before = nullptr,
                           const char *after = nullptr, A takes = A::Flag,
                           void (*set)(const CADirectiveCall &) = CASetFlag)
{
    return {.name = name,
            .takes = takes,
            .set = set,
            .shown = shownFlag<Field>,
            .number = Field,
            .before = before,
            .after = after};
}

template <bool CAParseOptions::*Field>
consteval CADirective option(std::string_view name, const char *before, const char *after)
{
    return {.name = name,
            .takes = A::Flag,
            .set = CASetFlag,
            .shown = shownFlag<Field>,
            .option = Field,
            .before = before,
            .after = after};
}

// In the order in which refetchd-check shows them.
constexpr std::array kDirectives = {
    CADirective{"catracelog", A::TraceLog, CASetTraceLog},
    CADirective{"errorlog", A::ErrorLog, CASetErrorLog, shown<&C::errorLogPath>},
    CADirective{"resultslog", A::ResultsLog, CASetResultsLog},
    CADirective{"metricsfile", A::Replaced, CASetMetricsFile},
    flag<&C::summaryLine>("summaryline", "Summary..... of each run will ",
                          "be written to standard error.\n", A::Flag, CASetSummaryLine),
    CADirective{"failwhen", A::Percent, CASetFailWhen, shownFailWhen},
    CADirective{.name = "progress",
                .takes = A::Number,
                .set = CASetNumber,
                .shown = shownProgress,
                .number = &C::progressSeconds,
                .before = "Progress.... will be written every ",
                .after = " s.\n"},
    CADirective{"updateproxy", A::Text, CASetUpdateProxy, shown<&C::updateProxy>},
    CADirective{"hostname", A::Text, CASetHostname, shown<&C::hostname>},
    number<&C::port>("port", "Host port... ", ".\n", CASetPort),
    flag<&C::proxyTls>("proxytls", "TLS......... will ", "be used.\n"),
    CADirective{"proxytlsca", A::Readable, CASetTlsCa, nullptr, "the system's"},
    CADirective{"proxytlsverify", A::Off, CASetTlsVerify, shownFlag<&C::proxyTlsVerify>},
    CADirective{"serverroot", A::Text, CASetServerRoot},
    CADirective{"caching", A::When, CASetCaching, shown<&C::caching>},
    // Shows the line, not the field, which is set to 0 when the proxy is on another host.
    CADirective{.name = "loadtopcached",
                .takes = A::Number,
                .set = CASetNumber,
                .unset = "0",
                .number = &C::topCachedCount,
                .before = "Will load top ",
                .after = " cached URLs.\n"},
    CADirective{"delveinto", A::When, CASetDelveInto, shown<&C::delveInto>},
    number<&C::delveDepth>("delvedepth", "Delving..... max depth is ", ".\n"),
    flag<&C::delveAcrossHosts>("delveacrosshosts", "Delving..... will ", "cross hosts.\n"),
    flag<&C::loadInlineImages>("loadinlineimages", "Inline...... images will ", "be loaded.\n"),
    number<&C::maxUrls>("maxurls", "Max URLs.... ", ".\n", CASetLimit),
    number<&C::maxQueueDepth>("maxqueuedepth", "Queue....... max depth is ", ".\n", CASetLimit),
    CADirective{"numclients", A::Number, CASetNumClients, shown<&C::numClients>},
    CADirective{"delay", A::Pause, CASetDelay, shown<&C::delayMs>},
    CADirective{.name = "delayperiod", .takes = A::Pause, .set = CASetDelay, .meaning = "delay"},
    number<&C::requestsPerSecond, 1>("refetchdrequestpersecond", "RPS......... ", ".\n"),
    number<&C::maxConnections, 1>("refetchdmaxconnection", "maxConn..... ", ".\n"),
    CADirective{"maxruntime", A::Time, CASetMaxRuntime, shown<&C::maxRuntime, 1>},
    number<&C::repeatCount, 1>("refetchdrepeat", "repeat...... ", ".\n"),
    number<&C::readTimeout>("readtimeout", "ReadTimeout... is ", ".\n"),
    number<&C::persistTimeout>("persisttimeout", "PersistTimeout... is ", ".\n"),
    number<&C::connectTimeout, 1>("connecttimeout", "ConnectTimeout... is ", ".\n"),
    number<&C::answerTimeout, 1>("answertimeout", "AnswerTimeout... is ", ".\n"),
    CADirective{"maxanswer", A::Number, CASetMaxAnswer, shownMaxAnswer},
    decimal<&C::maxLoad>("maxload", "Max load.... is ", " for each processor.\n"),
    decimal<&C::delayFactor>("delayfactor", "Delay....... is ", " times the time of an answer.\n"),
    number<&C::slowStart>("slowstart", "Slow start.. takes ", " s.\n"),
    number<&C::latencyLimit, 1>("latencylimit", "Latency..... limit is ", " ms.\n"),
    number<&C::hostConnections, 1>("hostconnections", "Host........ gets at most ",
                                   " requests at a time.\n"),
    flag<&C::wakeClients>("wakeclients", "Clients..... will ", "be woken.\n"),
    flag<&C::limitsPerRun>("limitsperrun", "Limits...... will ", "count for each run anew.\n"),
    flag<&C::transparentProxy>("transparentproxy", nullptr, nullptr, A::On, CASetExactOn),
    flag<&C::connectToHost>("connecttohost", nullptr, nullptr, A::On, CASetExactOn),
    CADirective{"service", A::Service, CASetService},
    flag<&C::stressMode>("stressmode"),
    CADirective{"refetchdhttpversion", A::Text, CASetHttpVersion, shownHttpVersion},
    flag<&C::saveFiles>("slf", nullptr, nullptr, A::SaveOn, CASetSaveFiles),
    CADirective{"slr", A::Text, CASetSaveRoot, shown<&C::saveRoot>},
    option<&P::http11>("http11", "HTTP/1.1.... will ", "be spoken.\n"),
    option<&P::closeDelimitedBodies>(
        "closedelimitedbodies", "Bodies...... that end with the connection will ", "be read.\n"),
    option<&P::modernLinks>("modernlinks", "Links....... will ",
                            "be found as browsers find them.\n"),
    CADirective{"followredirects", A::All, CASetFollowRedirects, shownRedirects},
    CADirective{"retries", A::Number, CASetRetries, shown<&C::retries>},
    flag<&C::retryAfter>("retryafter", "RetryAfter.. will ", "be respected.\n", A::Flag,
                         CASetRetryAfter),
    flag<&C::breadthFirst>("breadthfirst", "Order....... will ", "be by depth.\n"),
    CADirective{"breadthwait", A::Number, CASetBreadthWait, shown<&C::breadthWait, 1>},
    CADirective{"useragent", A::UserAgent, CASetUserAgent, shownUserAgent},
    CADirective{"configfile", A::ConfigFile, CASetConfigFile},
    CADirective{"requestheader", A::Header, CASetRequestHeader},
    CADirective{"variant", A::Variant, CASetVariant},
    CADirective{"loadsitemap", A::Sitemap, CASetLoadSitemap},
    CADirective{"cachequeries", A::Queries, CASetCacheQueries},
    CADirective{"ignoreurl", A::Pattern, CASetIgnoreUrl},
    CADirective{"onlyurl", A::Pattern, CASetOnlyUrl},
    CADirective{"maxhosturls", A::HostLimit, CASetMaxHostUrls},
    CADirective{"loadurl", A::Seed, CASetLoadUrl},
    CADirective{"loadlist", A::List, CASetLoadList},
};

}  // namespace

std::span<const CADirective> CADirectives()
{
    return kDirectives;
}

const CADirective *CAFindDirective(std::string_view name)
{
    const auto *const row = std::find_if(kDirectives.begin(), kDirectives.end(),
                                         [name](const CADirective &r) { return r.name == name; });
    return row == kDirectives.end() ? nullptr : row;
}
