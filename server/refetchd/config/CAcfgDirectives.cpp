// The agent's directives. Each is a row of kDirectives; the rows stand in the order in which a name
// is compared with them.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "HTInet.h"
#include "HTString.h"
#include "base/CAtrace.h"
#include "config/CAcfg.h"
#include "config/CAcfgLines.h"
#include "report/CAresults.h"

namespace {

struct Directive;

// What a directive works on.
struct DirectiveCall {
    CAConfig &config;
    CAQueue *queue;
    CAConfigLines &line;
    const Directive &row;

    [[nodiscard]] char *argument() const { return line.word(1); }
};

struct Directive {
    std::string_view name;
    void (*apply)(const DirectiveCall &call);
    std::int32_t CAConfig::*field = nullptr;  // of the directives that set one number or flag
    const char *before = nullptr;             // their message: text before the value and behind it
    const char *after = nullptr;
    bool CAParseOptions::*option = nullptr;  // of those that change how answers are read
};

void applyTraceLog(const DirectiveCall &call)
{
    if (call.config.observer != nullptr) {
        return;
    }
    FILE *const file = std::fopen(call.argument(), "we");
    if (file == nullptr) {
        return;
    }
    // Whoever follows the log of a run that hangs must see its last line.
    std::setvbuf(file, nullptr, _IOLBF, 0);
    if (call.config.traceStream != nullptr && call.config.traceStream != stderr) {
        std::fclose(call.config.traceStream);
    }
    call.config.traceStream = file;
    CATrace("Trace file.. opened.\n");
}

void applyErrorLog(const DirectiveCall &call)
{
    char *const slash = std::strrchr(call.argument(), '/');
    if (slash == nullptr) {
        CATrace("Could not determine the directory for the error log.\n");
        return;
    }
    slash[1] = '\0';
    CAConfig &config = call.config;
    HTSACopy(&config.errorLogPath, call.argument());
    HTSACat(&config.errorLogPath, "cacheAgent-errors");
    if (config.observer != nullptr) {
        return;
    }
    FILE *const file = std::fopen(config.errorLogPath, "we");
    if (file == nullptr) {
        CATrace("CacheErrorLog.... \"%s\" could not be opened.\n", config.errorLogPath);
        return;
    }
    if (config.errorLogStream != nullptr) {
        std::fclose(config.errorLogStream);
    }
    config.errorLogStream = file;
    CATrace("CacheErrorLog... \"%s\" opened.\n", config.errorLogPath);
}

void applyCaching(const DirectiveCall &call)
{
    call.config.caching = CAParseWhen(call.argument());
    CATrace("Caching..... is %sspecified.\n", call.config.caching == NEVER ? "NOT " : "");
}

// A number that is kept as it is.
void applyNumber(const DirectiveCall &call)
{
    const std::int32_t value = HTInteger(call.argument());
    call.config.*call.row.field = value;
    CATrace("%s%d%s", call.row.before, value, call.row.after);
}

// A number of which 0 means "no limit".
void applyLimit(const DirectiveCall &call)
{
    const std::int32_t value = HTInteger(call.argument());
    call.config.*call.row.field = value == 0 ? kUnlimited : value;
    CATrace("%s%d%s", call.row.before, call.config.*call.row.field, call.row.after);
}

// An on/off word for a setting or an option of the parsers, with a message when the row has one.
void applyFlag(const DirectiveCall &call)
{
    const bool on = positive(call.argument());
    if (call.row.option != nullptr) {
        call.config.parseOptions.*call.row.option = on;
    } else {
        call.config.*call.row.field = on ? 1 : 0;
    }
    if (call.row.before != nullptr) {
        CATrace("%s%s%s", call.row.before, on ? "" : "NOT ", call.row.after);
    }
}

// Set by exactly "on"; any other word changes nothing.
void applyExactOn(const DirectiveCall &call)
{
    if (std::strcmp(call.argument(), "on") == 0) {
        call.config.*call.row.field = 1;
    }
}

void applySaveFiles(const DirectiveCall &call)
{
    standardize(call.argument());
    applyExactOn(call);
}

// Compiles a pattern and puts it at the head of `list`. An empty one (a quoted nothing) matches
// nothing, but counts.
void addPattern(HTList *list, std::int32_t *count, const char *text)
{
    HTPattern *const pattern = HTPattern_new(text);
    if (pattern != nullptr) {
        HTList_addObject(list, pattern, nullptr);
    }
    ++*count;
}

void applyCacheQueries(const DirectiveCall &call)
{
    CAConfig &config = call.config;
    if (config.cacheAllQueries != 0) {
        return;
    }
    char *const word = call.argument();
    if (!positive(word) && std::strcmp(word, "public") != 0) {
        CATrace("Cache Agent ignoring CacheQueries directive with %s.\n", word);
        return;
    }
    for (int i = 2; i < call.line.count(); ++i) {
        const char *const text = call.line.word(i);
        if (std::strcmp(text, "*") == 0) {
            config.cacheAllQueries = 1;
            CATrace("Will cache all queries.\n");
        } else {
            addPattern(config.queryPatterns, &config.queryPatternCount, text);
            CATrace("Will cache queries for URLs matching \"%s\".\n", text);
        }
    }
    if (call.line.count() == 2) {
        config.cacheAllQueries = 1;
        CATrace("Will cache all queries.\n");
    }
}

void applyLoadUrl(const DirectiveCall &call)
{
    if (call.config.seedAdminUrl(call.queue, call.argument())) {
        ++call.config.adminUrlCount;
    }
}

void applyIgnoreUrl(const DirectiveCall &call)
{
    addPattern(call.config.ignorePatterns, &call.config.ignoreCount, call.argument());
    CATrace("Ignoring.... URLs matching \"%s\".\n", call.argument());
}

void applyOnlyUrl(const DirectiveCall &call)
{
    addPattern(call.config.onlyPatterns, &call.config.onlyCount, call.argument());
    CATrace("Only........ requesting URLs matching \"%s\".\n", call.argument());
}

void applyDelveInto(const DirectiveCall &call)
{
    call.config.delveInto = CAParseWhen(call.argument());
    CATrace("Delving..... into linked documents %s.\n", CAWhenString(call.config.delveInto));
}

void applyNumClients(const DirectiveCall &call)
{
    std::int32_t value = HTInteger(call.argument());
    if (value > kMaxClients) {
        CATrace("Clients..... got %d, downgrading to 100.\n", value);
        CAErrorLog(0x3a4,
                   "NumClients too large.  Downgraded number of cache refresh clients to 100.\n");
        value = kMaxClients;
    }
    call.config.numClients = value;
    CATrace("Clients..... %d.\n", value);
}

void applyDelay(const DirectiveCall &call)
{
    constexpr std::int32_t kDefaultDelay = 10000;
    char *const word = call.argument();
    std::int32_t value = 0;
    if (positive(word)) {
        value = kDefaultDelay;
    } else if (!negative(word)) {
        value = HTInteger(word);
    }
    call.config.delayMs = value;
    CATrace("Delay....... %dms between requests.\n", value);
}

void applyUpdateProxy(const DirectiveCall &call)
{
    HTSACopy(&call.config.updateProxy, call.argument());
    CATrace("Proxy....... being updated is \"%s\".\n", call.argument());
}

void applyMaxRuntime(const DirectiveCall &call)
{
    char *const text = call.line.rest();
    long seconds = 0;
    if (parse_time(text, 1, &seconds) == 0) {
        CATrace("LoadConfig.. invalid maxruntime: %s.\n", text);
        return;
    }
    const auto value = static_cast<std::int32_t>(std::min<long>(seconds, INT32_MAX));
    call.config.maxRuntime = value;
    CATrace("LoadConfig.. got maxruntime of %d\n", value);
    if (value == 0) {
        CATrace("LoadConfig.. got maxruntime of zero, we'll run as long as it takes\n");
    }
}

void addHostLimit(CAConfig *config, HTPattern *pattern, std::int32_t max)
{
    auto *const limit = static_cast<HostLimit *>(std::malloc(sizeof(HostLimit)));
    if (limit == nullptr) {
        HTOutOfMemory("server/refetchd/CAcfg", "loadConfig", __LINE__, sizeof(HostLimit));
        HTPattern_free(pattern);
        return;
    }
    *limit = {.pattern = pattern, .max = max};
    HTList_appendObject(config->hostLimits, limit, nullptr);
}

void applyMaxHostUrls(const DirectiveCall &call)
{
    CAConfig &config = call.config;
    const std::int32_t max = HTInteger(call.argument());
    if (config.hostLimits == nullptr) {
        config.hostLimits = HTList_new(nullptr);
    }
    if (call.line.count() == 2) {
        addHostLimit(&config, nullptr, max);
        CATrace("LoadConfig.. we will make no more than %d requests to all other hosts.\n", max);
    }
    for (int i = 2; i < call.line.count(); ++i) {
        const char *const text = call.line.word(i);
        // Of an empty pattern (a quoted nothing) there is none: the limit is for all hosts.
        addHostLimit(&config, HTPattern_new(text), max);
        CATrace("LoadConfig.. we will make no more than %d requests to hosts matching \"%s\".\n",
                max, text);
    }
}

void applySaveRoot(const DirectiveCall &call)
{
    CAConfig &config = call.config;
    HTSACopy(&config.saveRoot, call.argument());
    HTConvertToSlash(config.saveRoot);
    if (!std::string_view(config.saveRoot).ends_with('/')) {
        HTSACat(&config.saveRoot, "/");
    }
    CATrace("SLR......... \"%s\".\n", config.saveRoot);
}

void applyConfigFile(const DirectiveCall &call)
{
    call.config.addConfigFile(call.argument());
    CATrace("Added....... config file \"%s\".\n", call.argument());
}

void applyHostname(const DirectiveCall &call)
{
    HTSACopy(&call.config.hostname, call.argument());
    HTSetHostName(call.argument());
    CATrace("Hostname.... %s.\n", call.argument());
}

void applyHttpVersion(const DirectiveCall &call)
{
    if (std::strcmp(call.argument(), "1.0") != 0) {
        CATrace("httpVer..... HTTP/%s is not fully supported, using 1.0\n", call.argument());
    }
    HTSACopy(&call.config.httpVersion, "HTTP/1.0");
    CATrace("httpVer..... %s.\n", call.config.httpVersion);
}

void applyServerRoot(const DirectiveCall &call)
{
    call.config.setServerRoot(call.argument());
}

// The name under which the proxy passes requests to the agent's own service.
void applyService(const DirectiveCall &call)
{
    if (strcasecmp(call.line.word(2), "internal:cacheagentservice") != 0) {
        return;
    }
    HTSACopy(&g_ca_service_prefix, call.argument());
    if (g_ca_service_prefix != nullptr) {
        g_ca_service_prefix[std::strcspn(g_ca_service_prefix, "*")] = '\0';
    }
}

// Which answers lead on: "all" redirections, or 302 alone.
void applyFollowRedirects(const DirectiveCall &call)
{
    standardize(call.argument());
    const bool all = std::strcmp(call.argument(), "all") == 0;
    call.config.parseOptions.followAllRedirects = all;
    CATrace("Redirects... %s will be followed.\n", all ? "of all kinds" : "of 302 alone");
}

// The words of a line from `first` on, a blank between two.
std::string joinWords(const CAConfigLines &line, int first)
{
    std::string text;
    for (int i = first; i < line.count(); ++i) {
        text += (i == first ? "" : " ");
        text += line.word(i);
    }
    return text;
}

// Tabs, and what ends the line, are white space.
bool hasControl(const DirectiveCall &call)
{
    std::string_view text(call.line.rest());
    text = text.substr(0, text.find_last_not_of("\r\n") + 1);
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return HTIsControl(c) && c != '\t'; });
}

void applyUserAgent(const DirectiveCall &call)
{
    const std::string text = joinWords(call.line, 1);
    if (hasControl(call)) {
        CATrace("User-Agent.. refused: a control character in it.\n");
        return;
    }
    HTSACopy(&call.config.userAgent, text.c_str());
    CATrace("User-Agent.. is \"%s\".\n", call.config.userAgent);
}

// What every request has already, or what would give it a body.
constexpr std::string_view kOwnHeaders[] = {
    "Accept", "Cache-Control",     "Connection", "Content-Length",
    "Host",   "Transfer-Encoding", "User-Agent",
};

bool isOwnHeader(const char *name)
{
    return std::any_of(std::begin(kOwnHeaders), std::end(kOwnHeaders),
                       [name](std::string_view own) { return strcasecmp(name, own.data()) == 0; });
}

constexpr std::string_view kMarksOfNames = "!#$%&'*+-.^_`|~";

bool isHeaderName(std::string_view name)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               kMarksOfNames.find(c) != std::string_view::npos;
    });
}

void applyRequestHeader(const DirectiveCall &call)
{
    const char *const name = call.argument();
    const std::string value = joinWords(call.line, 2);
    const char *const fault = !isHeaderName(name) ? "not a header's name"
                              : isOwnHeader(name) ? "the agent sends its own"
                              : value.empty()     ? "no value"
                              : hasControl(call)  ? "a control character in it"
                                                  : nullptr;
    if (fault != nullptr) {
        CATrace("Header...... refused: %s.\n", fault);
        return;
    }
    HTSACat(&call.config.requestHeaders, (std::string(name) + ": " + value + "\r\n").c_str());
    CATrace("Header...... \"%s: %s\" will be sent.\n", name, value.c_str());
}

void applyRetries(const DirectiveCall &call)
{
    constexpr std::int32_t kMaxRetries = 100;
    call.config.retries = std::min(HTInteger(call.argument()), kMaxRetries);
    CATrace("Retries..... %d.\n", call.config.retries);
}

void applyRetryAfter(const DirectiveCall &call)
{
    applyFlag(call);
    call.config.parseOptions.keepMoreHeaders |= call.config.retryAfter != 0;
}

void applyResultsLog(const DirectiveCall &call)
{
    results.setLog(call.argument());
    call.config.parseOptions.keepMoreHeaders = true;
    CATrace("Results..... will be logged to \"%s\".\n", call.argument());
}

void applyMetricsFile(const DirectiveCall &call)
{
    results.setMetricsFile(call.argument());
    call.config.parseOptions.keepMoreHeaders = true;
    CATrace("Metrics..... will be written to \"%s\".\n", call.argument());
}

constexpr std::array<Directive, 47> kDirectives = {{
    {"catracelog", applyTraceLog},
    {"errorlog", applyErrorLog},
    {"caching", applyCaching},
    {"loadtopcached", applyNumber, &CAConfig::topCachedCount, "Will load top ", " cached URLs.\n"},
    {"cachequeries", applyCacheQueries},
    {"loadurl", applyLoadUrl},
    {"ignoreurl", applyIgnoreUrl},
    {"onlyurl", applyOnlyUrl},
    {"loadinlineimages", applyFlag, &CAConfig::loadInlineImages, "Inline...... images will ",
     "be loaded.\n"},
    {"delveinto", applyDelveInto},
    {"delvedepth", applyNumber, &CAConfig::delveDepth, "Delving..... max depth is ", ".\n"},
    {"persisttimeout", applyNumber, &CAConfig::persistTimeout, "PersistTimeout... is ", ".\n"},
    {"readtimeout", applyNumber, &CAConfig::readTimeout, "ReadTimeout... is ", ".\n"},
    {"delveacrosshosts", applyFlag, &CAConfig::delveAcrossHosts, "Delving..... will ",
     "cross hosts.\n"},
    {"numclients", applyNumClients},
    {"delay", applyDelay},
    {"delayperiod", applyDelay},
    {"updateproxy", applyUpdateProxy},
    {"maxqueuedepth", applyLimit, &CAConfig::maxQueueDepth, "Queue....... max depth is ", ".\n"},
    {"maxurls", applyLimit, &CAConfig::maxUrls, "Max URLs.... ", ".\n"},
    {"maxruntime", applyMaxRuntime},
    {"maxhosturls", applyMaxHostUrls},
    {"slr", applySaveRoot},
    {"slf", applySaveFiles, &CAConfig::saveFiles},
    {"stressmode", applyFlag, &CAConfig::stressMode},
    {"transparentproxy", applyExactOn, &CAConfig::transparentProxy},
    {"connecttohost", applyExactOn, &CAConfig::connectToHost},
    {"configfile", applyConfigFile},
    {"hostname", applyHostname},
    {"port", applyNumber, &CAConfig::port, "Host port... ", ".\n"},
    {"refetchdrepeat", applyNumber, &CAConfig::repeatCount, "repeat...... ", ".\n"},
    {"refetchdrequestpersecond", applyNumber, &CAConfig::requestsPerSecond, "RPS......... ", ".\n"},
    {"refetchdmaxconnection", applyNumber, &CAConfig::maxConnections, "maxConn..... ", ".\n"},
    {"refetchdhttpversion", applyHttpVersion},
    {"serverroot", applyServerRoot},
    {"service", applyService},
    {"closedelimitedbodies", applyFlag, nullptr, "Bodies...... that end with the connection will ",
     "be read.\n", &CAParseOptions::closeDelimitedBodies},
    {"modernlinks", applyFlag, nullptr, "Links....... will ", "be found as browsers find them.\n",
     &CAParseOptions::modernLinks},
    {"followredirects", applyFollowRedirects},
    {"retries", applyRetries},
    {"retryafter", applyRetryAfter, &CAConfig::retryAfter, "RetryAfter.. will ", "be respected.\n"},
    {"breadthfirst", applyFlag, &CAConfig::breadthFirst, "Order....... will ", "be by depth.\n"},
    {"requestheader", applyRequestHeader},
    {"useragent", applyUserAgent},
    {"resultslog", applyResultsLog},
    {"metricsfile", applyMetricsFile},
    {"progress", applyNumber, &CAConfig::progressSeconds, "Progress.... will be told every ",
     " s.\n"},
}};

constexpr auto kDirectiveNames = [] {
    std::array<std::string_view, kDirectives.size()> names;
    std::transform(kDirectives.begin(), kDirectives.end(), names.begin(),
                   [](const Directive &directive) { return directive.name; });
    return names;
}();

}  // namespace

std::span<const std::string_view> CADirectiveNames()
{
    return kDirectiveNames;
}

int CAConfig::loadAgentConfig(CAQueue *queue, const char *file)
{
    CAConfigLines line(file, observer);
    if (!line.isOpen()) {
        CATrace("Config...... file \"%s\" could not be opened.\n", file);
        CAErrorLog(0x3a5, "Could not open the cache agent configuration file \"%s\".\n", file);
        return 0;
    }
    CATrace("Loading..... config file \"%s\".\n", file);
    while (line.next()) {
        const std::string_view name = line.directive();
        const auto *const row =
            std::find_if(kDirectives.begin(), kDirectives.end(),
                         [name](const Directive &directive) { return directive.name == name; });
        if (observer != nullptr) {
            observer->directive(file, &line, row != kDirectives.end());
        }
        if (row != kDirectives.end()) {
            row->apply({.config = *this, .queue = queue, .line = line, .row = *row});
        }
    }
    return 1;
}
