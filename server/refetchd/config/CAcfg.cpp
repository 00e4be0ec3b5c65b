#include "config/CAcfg.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "HTInet.h"
#include "HTString.h"
#include "HTTLS.h"
#include "base/CAoutput.h"
#include "base/CAtrace.h"
#include "config/CAcfgLines.h"
#include "config/CAdirectives.h"
#include "config/CAsitemapSeeds.h"
#include "report/CAresults.h"
#include "url/CAqueue.h"

CAConfig ac;

char *g_catrace_filename = nullptr;
char *g_ca_service_prefix = nullptr;
char *g_ca_hits_filename = nullptr;
char refetchd_LocaleString[kLocaleNameSize] = "";

namespace {

constexpr std::int32_t kTlsPort = 443;
constexpr const char *kConfigDirectory = "/etc";
constexpr const char *kConfigName = "tarnproxy.conf";

struct DebugModule {
    std::string_view name;
    CADebugModule number;
};

constexpr std::array<DebugModule, 2> ModuleList = {{
    {"geturl", kDebugGetUrl},
    {"parseurl", kDebugParseUrl},
}};

// The default configuration file, a heap string; null when memory is out.
char *defaultConfigFile()
{
    char *name = strdup(kConfigDirectory);
    if (name == nullptr) {
        return nullptr;
    }
    if (name[std::strlen(name) - 1] != '/') {
        HTSACat(&name, "/");
    }
    return HTSACat(&name, kConfigName);
}

bool holds(const HTList *list, const char *text)
{
    for (const HTList *entry = list->next; entry != nullptr; entry = entry->next) {
        if (std::strcmp(static_cast<const char *>(entry->object), text) == 0) {
            return true;
        }
    }
    return false;
}

void freePatterns(HTList *patterns)
{
    for (const HTList *entry = patterns->next; entry != nullptr; entry = entry->next) {
        HTPattern_free(static_cast<HTPattern *>(entry->object));
    }
    HTList_delete(patterns, nullptr);
}

}  // namespace

CAConfig::CAConfig()
    : httpVersion(strdup("HTTP/1.0")),
      ignorePatterns(HTList_new(nullptr)),
      onlyPatterns(HTList_new(nullptr)),
      queryPatterns(HTList_new(nullptr)),
      configFiles(HTList_new(nullptr))
{
    if (*HTHostName() != '\0') {
        HTSACopy(&hostname, HTHostName());
    }
}

CAConfig::~CAConfig()
{
    finishReport();
    CAEndSitemapLines();
    if (workersLeft) {
        // The threads may be about to write a line or to match a pattern. The end of the process
        // frees everything.
        std::fflush(nullptr);
        CATellUnwritten();
        return;
    }
    if (errorLogStream != nullptr) {
        std::fclose(errorLogStream);
        errorLogStream = nullptr;
    }
    if (traceStream != nullptr && traceStream != stderr) {
        std::fclose(traceStream);
    }
    traceStream = nullptr;
    CATellUnwritten();  // only now is all of the logs written, or not
    // The remaining fields (`onlyPatterns`, `hostLimits`, `httpVersion`, `updateProxy`, `hostname`)
    // live until the process ends.
    std::free(saveRoot);
    std::free(userAgent);
    std::free(requestHeaders);
    std::free(proxyTlsCa);
    delete &variants;
    std::free(errorLogPath);
    freePatterns(ignorePatterns);
    freePatterns(queryPatterns);
    HTList_deleteAndFreeContents(configFiles, nullptr);
}

void CAConfig::DetermineFilename(const char *name)
{
    const HeapString file(name != nullptr ? strdup(name) : defaultConfigFile());
    if (file == nullptr) {
        CATrace("DetermineFilename: strdup(\"/etc\") failed...\n");
        CATrace("Unable to determine configuration file names.\n");
        std::exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread exists yet
    }
    addConfigFile(file.get());
}

void CAConfig::addConfigFile(const char *name)
{
    char *const copy = holds(configFiles, name) ? nullptr : strdup(name);
    if (copy != nullptr) {
        HTList_appendObject(configFiles, copy, nullptr);
    }
}

void CAConfig::debugModule(const char *module)
{
    for (const DebugModule &row : ModuleList) {
        if (row.name == module) {
            debugFlags[row.number] = 1;
        }
    }
}

int CAConfig::load(CAQueue *queue, const char *name)
{
    DetermineFilename(name);
    // `configfile` directives append to the list while it is walked.
    for (const HTList *entry = configFiles->next; entry != nullptr; entry = entry->next) {
        if (loadAgentConfig(queue, static_cast<const char *>(entry->object)) == 0) {
            return 0;
        }
    }
    CACompleteVariants(&variants, requestHeaders);
    std::vector<std::string> sent = CASentNames(variants, requestHeaders);
    if (userAgent != nullptr) {
        sent.emplace_back("User-Agent");
    }
    results.setSentHeaders(std::move(sent));
    adminUrlCount += seedRobots(queue);
    loadURLsInHitsFile(queue, nullptr);
    seedCount = queue->getTotalEnqueued();
    if (proxyTls != 0 && !namesPort) {
        port = kTlsPort;
    }
    if (determineProxy() == 0 || !prepareTls() || !canEnd(*queue)) {
        return 0;
    }
    // Kept after the hits file was read, on purpose: with a proxy on another host the first run
    // still uses the hits file, and only later runs do not.
    checkProxyHost();
    return 1;
}

void CAConfig::tell(const std::string &text) const
{
    if (observer == nullptr && traceStream != stderr) {
        std::fprintf(stderr, "refetchd: %s\n", text.c_str());
    }
}

std::string CAConfig::setUpTls() const
{
    return HTTLS_init(proxyTlsCa, proxyTlsVerify != 0);
}

// Warns of TLS settings that leave connections open to attack or have no effect. False (reported)
// when TLS is wanted and cannot be used.
bool CAConfig::prepareTls()
{
    if (proxyTls == 0) {
        if (proxyTlsCa != nullptr || proxyTlsVerify == 0) {
            CATrace("TLS......... is off: proxytlsca and proxytlsverify have no effect.\n");
        }
        return true;
    }
    if (proxyTlsVerify == 0) {
        CATrace("TLS......... certificates are NOT verified: anybody may pose as the proxy.\n");
    }
    const std::string fault = setUpTls();
    if (fault.empty()) {
        return true;
    }
    CATrace("TLS......... cannot be used: %s.\n", fault.c_str());
    CAErrorLog(961, "Cannot run cache agent because TLS cannot be used: %s.\n", fault.c_str());
    tell("TLS cannot be used: " + fault + ".");
    return false;
}

// False (reported) when the first run would never end: without workers its URLs stay in the queue,
// and there is no time limit.
bool CAConfig::canEnd(const CAQueue &queue) const
{
    if (numClients > 0 || maxRuntime > 0 || queue.empty() != 0) {
        return true;
    }
    const std::string number = std::to_string(numClients);
    CATrace("Clients..... %d, and no maxruntime: the run would never end.\n", numClients);
    CAErrorLog(970,
               "Cannot run cache agent because numclients is %s and maxruntime is not set: the run "
               "would never end.\n",
               number.c_str());
    tell("numclients is " + number + " and maxruntime is not set: the run would never end.");
    return false;
}

int CAConfig::loadAgentConfig(CAQueue *queue, const char *file)
{
    CAConfigLines line(file, observer);
    if (!line.isOpen()) {
        const int error = errno;
        CATrace("Config...... file \"%s\" could not be opened.\n", file);
        // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread exists yet
        tell(std::string(file) + ": " + std::strerror(error) + ".");
        CAErrorLog(0x3a5, "Could not open the cache agent configuration file \"%s\".\n", file);
        return 0;
    }
    CATrace("Loading..... config file \"%s\".\n", file);
    while (line.next()) {
        const CADirective *const row = CAFindDirective(line.directive());
        if (observer != nullptr) {
            observer->directive(file, &line, row);
        }
        if (row != nullptr) {
            row->set({.config = *this, .queue = queue, .line = line, .row = *row});
        }
    }
    return 1;
}

int CAConfig::determineProxy()
{
    if (updateProxy != nullptr) {
        return 1;
    }
    if (hostname == nullptr) {
        CATrace("Proxy....... not specified and not determined from daemon config.\n");
        CAErrorLog(0x3a3, "Cannot run cache agent because proxy server is not specified.\n");
        tell("no proxy is known: set updateproxy.");
        return 0;
    }
    // An IPv6 address needs brackets, which `hostname` may lack.
    in6_addr ignored{};
    const bool bare = inet_pton(AF_INET6, hostname, &ignored) == 1;
    const std::size_t size = std::strlen(hostname) + 16;
    updateProxy = static_cast<char *>(std::malloc(size));
    if (updateProxy == nullptr) {
        std::fprintf(stderr, "CAConfig::load: proxyName malloc() failed...\n");
        std::exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread exists yet
    }
    std::snprintf(updateProxy, size, bare ? "[%s]:%d" : "%s:%d", hostname, port);
    CATrace("Proxy....... %s determined from daemon config file.\n", updateProxy);
    return 1;
}

namespace {

enum class HostMatch : std::uint8_t {
    Match,
    ShortMismatch,  // one of the names has no dots, and the other does not begin with it
    FullMismatch,   // both have dots and differ
};

struct HostComparison {
    HostMatch match;
    std::size_t length;  // characters compared in a short mismatch
};

std::string_view withoutBrackets(std::string_view host)
{
    const bool wrapped = host.size() > 2 && host.front() == '[' && host.back() == ']';
    return wrapped ? host.substr(1, host.size() - 2) : host;
}

HostComparison compareHosts(std::string_view local, std::string_view proxy)
{
    if (proxy == local || withoutBrackets(proxy) == local) {
        return {HostMatch::Match, 0};
    }
    for (const std::string_view name : {proxy, local}) {
        if (name.find('.') == std::string_view::npos) {
            const bool same = proxy.substr(0, name.size()) == local.substr(0, name.size());
            return {same ? HostMatch::Match : HostMatch::ShortMismatch, name.size()};
        }
    }
    return {HostMatch::FullMismatch, 0};
}

}  // namespace

// The hits file ("top N") is that of the proxy on this host. With a proxy on another host the
// reloads must not read it; the first load has read it already (see load()).
void CAConfig::checkProxyHost()
{
    const char *const local = HTHostName();
    const char *const proxy = updateProxy;
    const std::string_view host = HTHostPart(proxy);  // the port is not compared
    const int length = CALength(host);
    const HostComparison result = compareHosts(local, host);
    switch (result.match) {
    case HostMatch::Match:
        CATrace("Hosts....... match (%s, %.*s) --> use top N.\n", local, length, proxy);
        return;
    case HostMatch::ShortMismatch:
        CATrace(
            "Mismatch.... on hostname vs proxyname (%s, %.*s, %u chars) --> nothing from the top "
            "N.\n",
            local, length, proxy, static_cast<unsigned>(result.length));
        break;
    case HostMatch::FullMismatch:
        CATrace("Mismatch.... on hostname vs proxyname (%s, %.*s) --> nothing from the top N.\n",
                local, length, proxy);
        break;
    }
    topCachedCount = 0;
}
