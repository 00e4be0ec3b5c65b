#include "config/CAsetters.h"

#include <algorithm>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "HTInet.h"
#include "HTString.h"
#include "base/CAoutput.h"
#include "base/CAtrace.h"
#include "config/CAargument.h"
#include "config/CAcfg.h"
#include "config/CAcfgLines.h"
#include "report/CAresults.h"

char *CADirectiveCall::argument() const
{
    return line.word(1);
}

void CASetTraceLog(const CADirectiveCall &call)
{
    if (call.config.observer != nullptr) {
        return;
    }
    FILE *const file = CAOpenOutput(call.argument());
    if (file == nullptr) {
        return;
    }
    // Line by line, so that the log of a run that hangs is complete.
    std::setvbuf(file, nullptr, _IOLBF, 0);
    if (call.config.traceStream != nullptr && call.config.traceStream != stderr) {
        std::fclose(call.config.traceStream);
    }
    call.config.traceStream = file;
    CATrace("Trace file.. opened.\n");
}

void CASetErrorLog(const CADirectiveCall &call)
{
    const std::string path = CAErrorLogPath(call.argument());
    if (path.empty()) {
        CATrace("Could not determine the directory for the error log.\n");
        return;
    }
    CAConfig &config = call.config;
    if (config.observer != nullptr && !CAUnwritable(path).empty()) {
        return;  // the log that was named before stays in use
    }
    HTSACopy(&config.errorLogPath, path.c_str());
    if (config.observer != nullptr) {
        return;
    }
    FILE *const file = CAOpenOutput(config.errorLogPath);
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

void CASetCaching(const CADirectiveCall &call)
{
    call.config.caching = CAParseWhen(call.argument());
    CATrace("Caching..... is %sspecified.\n", call.config.caching == NEVER ? "NOT " : "");
}

void CASetNumber(const CADirectiveCall &call)
{
    const std::int32_t value = HTInteger(call.argument());
    call.config.*call.row.number = value;
    CATrace("%s%d%s", call.row.before, value, call.row.after);
}

void CASetLimit(const CADirectiveCall &call)
{
    const std::int32_t value = HTInteger(call.argument());
    call.config.*call.row.number = value == 0 ? kUnlimited : value;
    CATrace("%s%d%s", call.row.before, call.config.*call.row.number, call.row.after);
}

void CASetThousandths(const CADirectiveCall &call)
{
    const std::int32_t value = CAReadDecimal(call.argument());
    if (value < 0) {
        CATrace("LoadConfig.. invalid %s: %s.\n", call.row.name.data(), call.argument());
        return;
    }
    call.config.*call.row.number = value;
    CATrace("%s%s%s", call.row.before, CADecimalText(value).c_str(), call.row.after);
}

// The flag is a setting or an option of the parsers.
void CASetFlag(const CADirectiveCall &call)
{
    const bool on = positive(call.argument());
    if (call.row.option != nullptr) {
        call.config.parseOptions.*call.row.option = on;
    } else {
        call.config.*call.row.number = on ? 1 : 0;
    }
    if (call.row.before != nullptr) {
        CATrace("%s%s%s", call.row.before, on ? "" : "NOT ", call.row.after);
    }
}

void CASetExactOn(const CADirectiveCall &call)
{
    if (std::strcmp(call.argument(), "on") == 0) {
        call.config.*call.row.number = 1;
    }
}

void CASetSaveFiles(const CADirectiveCall &call)
{
    standardize(call.argument());
    CASetExactOn(call);
}

namespace {

// Compiles a pattern and puts it at the head of `list`. An empty pattern ("") matches nothing, but
// is counted.
void addPattern(HTList *list, std::int32_t *count, const char *text)
{
    HTPattern *const pattern = HTPattern_new(text);
    if (pattern != nullptr) {
        HTList_addObject(list, pattern, nullptr);
    }
    ++*count;
}

}  // namespace

void CASetCacheQueries(const CADirectiveCall &call)
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

void CASetLoadUrl(const CADirectiveCall &call)
{
    if (call.config.seedAdminUrl(call.queue, call.argument())) {
        ++call.config.adminUrlCount;
    }
}

void CASetLoadSitemap(const CADirectiveCall &call)
{
    if (call.config.seedSitemap(call.queue, call.line)) {
        ++call.config.adminUrlCount;
    }
}

void CASetLoadList(const CADirectiveCall &call)
{
    call.config.adminUrlCount += call.config.seedList(call.queue, call.argument());
}

void CASetIgnoreUrl(const CADirectiveCall &call)
{
    addPattern(call.config.ignorePatterns, &call.config.ignoreCount, call.argument());
    CATrace("Ignoring.... URLs matching \"%s\".\n", call.argument());
}

void CASetOnlyUrl(const CADirectiveCall &call)
{
    addPattern(call.config.onlyPatterns, &call.config.onlyCount, call.argument());
    CATrace("Only........ requesting URLs matching \"%s\".\n", call.argument());
}

void CASetDelveInto(const CADirectiveCall &call)
{
    call.config.delveInto = CAParseWhen(call.argument());
    CATrace("Delving..... into linked documents %s.\n", CAWhenString(call.config.delveInto));
}

void CASetNumClients(const CADirectiveCall &call)
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

void CASetDelay(const CADirectiveCall &call)
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

void CASetUpdateProxy(const CADirectiveCall &call)
{
    HTSACopy(&call.config.updateProxy, call.argument());
    CATrace("Proxy....... being updated is \"%s\".\n", call.argument());
}

void CASetPort(const CADirectiveCall &call)
{
    CASetNumber(call);
    call.config.namesPort = true;
}

void CASetTlsCa(const CADirectiveCall &call)
{
    HTSACopy(&call.config.proxyTlsCa, call.argument());
    CATrace("TLS......... trusted certificates are in \"%s\".\n", call.argument());
}

// Only an off word switches verification off, not any word that is misspelt.
void CASetTlsVerify(const CADirectiveCall &call)
{
    call.config.proxyTlsVerify = negative(call.argument()) ? 0 : 1;
    CATrace("TLS......... certificates will %sbe verified.\n",
            call.config.proxyTlsVerify != 0 ? "" : "NOT ");
}

void CASetMaxRuntime(const CADirectiveCall &call)
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

namespace {

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

}  // namespace

void CASetMaxHostUrls(const CADirectiveCall &call)
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
        // An empty pattern ("") gives null, so the limit applies to all hosts.
        addHostLimit(&config, HTPattern_new(text), max);
        CATrace("LoadConfig.. we will make no more than %d requests to hosts matching \"%s\".\n",
                max, text);
    }
}

void CASetSaveRoot(const CADirectiveCall &call)
{
    CAConfig &config = call.config;
    HTSACopy(&config.saveRoot, call.argument());
    HTConvertToSlash(config.saveRoot);
    if (!std::string_view(config.saveRoot).ends_with('/')) {
        HTSACat(&config.saveRoot, "/");
    }
    CATrace("SLR......... \"%s\".\n", config.saveRoot);
}

void CASetConfigFile(const CADirectiveCall &call)
{
    call.config.addConfigFile(call.argument());
    CATrace("Added....... config file \"%s\".\n", call.argument());
}

void CASetHostname(const CADirectiveCall &call)
{
    HTSACopy(&call.config.hostname, call.argument());
    HTSetHostName(call.argument());
    CATrace("Hostname.... %s.\n", call.argument());
}

void CASetHttpVersion(const CADirectiveCall &call)
{
    if (std::strcmp(call.argument(), "1.0") != 0) {
        CATrace("httpVer..... HTTP/%s is not fully supported, using 1.0\n", call.argument());
    }
    HTSACopy(&call.config.httpVersion, "HTTP/1.0");
    CATrace("httpVer..... %s.\n", call.config.httpVersion);
}

void CASetServerRoot(const CADirectiveCall &call)
{
    call.config.setServerRoot(call.argument());
}

// Keeps the part before "*" of the path under which the proxy offers the agent's service.
void CASetService(const CADirectiveCall &call)
{
    if (!CAIsOwnService(call.line)) {
        return;
    }
    HTSACopy(&g_ca_service_prefix, call.argument());
    if (g_ca_service_prefix != nullptr) {
        g_ca_service_prefix[std::strcspn(g_ca_service_prefix, "*")] = '\0';
    }
}

// Selects the redirections to follow: "all", or with any other word only 302.
void CASetFollowRedirects(const CADirectiveCall &call)
{
    standardize(call.argument());
    const bool all = std::strcmp(call.argument(), "all") == 0;
    call.config.parseOptions.followAllRedirects = all;
    CATrace("Redirects... %s will be followed.\n", all ? "of all kinds" : "of 302 alone");
}

void CASetUserAgent(const CADirectiveCall &call)
{
    if (const char *const fault = CAUserAgentFault(&call.line); fault != nullptr) {
        CATrace("User-Agent.. refused: %s.\n", fault);
        return;
    }
    HTSACopy(&call.config.userAgent, CAJoinWords(call.line, 1).c_str());
    CATrace("User-Agent.. is \"%s\".\n", call.config.userAgent);
}

void CASetRequestHeader(const CADirectiveCall &call)
{
    if (const char *const fault = CAHeaderFault(&call.line); fault != nullptr) {
        CATrace("Header...... refused: %s.\n", fault);
        return;
    }
    const char *const name = call.argument();
    const std::string value = CAJoinWords(call.line, 2);
    HTSACat(&call.config.requestHeaders, (std::string(name) + ": " + value + "\r\n").c_str());
    CATrace("Header...... \"%s: %s\" will be sent.\n", name, value.c_str());
}

void CASetVariant(const CADirectiveCall &call)
{
    std::vector<CAVariant> &variants = call.config.variants;
    CAVariant variant;
    const char *const fault = CAReadVariant(&call.line, &variant);
    if (fault != nullptr || variants.size() >= kMaxVariants) {
        CATrace("Variant..... refused: %s.\n", fault != nullptr ? fault : "there are too many");
        return;
    }
    variants.push_back(variant);
    CATrace("Variant..... %d is \"%s\".\n", static_cast<int>(variants.size()),
            CATextOf(variant).c_str());
}

// A number with a unit, such as "100M", must not become a limit of 100 bytes.
namespace {

// True when the argument is digits. 0 switches such a limit off, so a word, which would count as
// 0, is traced and changes nothing.
bool isDigits(const CADirectiveCall &call, const char *directive)
{
    const std::string_view text = call.argument();
    const bool is = std::all_of(text.begin(), text.end(), HTIsDigit);
    if (!is) {
        CATrace("LoadConfig.. invalid %s: %s.\n", directive, call.argument());
    }
    return is;
}

}  // namespace

void CASetMaxAnswer(const CADirectiveCall &call)
{
    if (!isDigits(call, "maxanswer")) {
        return;
    }
    call.config.maxAnswer = HTDecimal(call.argument());
    CATrace("Max answer.. is %" PRId64 " bytes.\n", call.config.maxAnswer);
}

void CASetRetries(const CADirectiveCall &call)
{
    constexpr std::int32_t kMaxRetries = 100;
    call.config.retries = std::min(HTInteger(call.argument()), kMaxRetries);
    CATrace("Retries..... %d.\n", call.config.retries);
}

void CASetBreadthWait(const CADirectiveCall &call)
{
    if (!isDigits(call, "breadthwait")) {
        return;
    }
    call.config.breadthWait = HTInteger(call.argument());
    if (call.config.breadthWait == 0) {
        CATrace("Order....... a level waits for answers without a limit.\n");
    } else {
        CATrace("Order....... a level waits for answers for %d s.\n", call.config.breadthWait);
    }
}

void CASetRetryAfter(const CADirectiveCall &call)
{
    CASetFlag(call);
    call.config.parseOptions.keepMoreHeaders |= call.config.retryAfter != 0;
}

namespace {

void collectResults(CAConfig *config)
{
    results.collect();
    config->parseOptions.keepMoreHeaders = true;
}

}  // namespace

void CASetSummaryLine(const CADirectiveCall &call)
{
    CASetFlag(call);
    results.logRuns(call.config.summaryLine != 0);
    if (call.config.summaryLine != 0) {
        collectResults(&call.config);
    }
}

void CASetFailWhen(const CADirectiveCall &call)
{
    const std::int32_t percent = CAReadPercent(call.argument());
    if (percent < -1) {
        CATrace("Failures.... refused: not a percentage from 0 to 100.\n");
        return;
    }
    call.config.failWhen = percent;
    if (percent < 0) {
        CATrace("Failures.... do not change the exit status.\n");
    } else {
        collectResults(&call.config);
        CATrace("Failures.... change the exit status above %d %%.\n", percent);
    }
}

void CASetResultsLog(const CADirectiveCall &call)
{
    const bool logsDrops = !HTEqualsNoCase(call.line.word(2), kNoDropped);
    results.setLog(call.argument(), logsDrops);
    call.config.parseOptions.keepMoreHeaders = true;
    CATrace("Results..... will be logged to \"%s\"%s.\n", call.argument(),
            logsDrops ? "" : ", without dropped URLs");
}

void CASetMetricsFile(const CADirectiveCall &call)
{
    results.setMetricsFile(call.argument());
    call.config.parseOptions.keepMoreHeaders = true;
    CATrace("Metrics..... will be written to \"%s\".\n", call.argument());
}
