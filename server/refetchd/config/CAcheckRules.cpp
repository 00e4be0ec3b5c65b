#include "config/CAcheckRules.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "HTInet.h"
#include "HTString.h"
#include "config/CAcheckRead.h"
#include "config/CAdirectives.h"
#include "config/CAmistakes.h"

namespace {

// What is wrong with the hits file; empty: nothing.
std::string hitsFault()
{
    struct stat status = {};
    const std::string file = g_ca_hits_filename != nullptr ? g_ca_hits_filename : "";
    if (ac.caching != ALWAYS || file.empty()) {
        return ac.caching != ALWAYS ? "needs caching always" : "needs serverroot";
    }
    if (stat(file.c_str(), &status) != 0 || access(file.c_str(), R_OK) != 0) {
        return file + ": " + std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): no threads
    }
    return status.st_size == 0 ? file + " is empty" : "";
}

// When a service of the package has not made its first hits file yet: the file in which its logs
// are to be named. Otherwise empty.
std::string fileOfLogs()
{
    constexpr std::string_view kBegin = "/var/lib/refetchd";
    constexpr std::string_view kEnd = "/logs/hitsfile.txt";
    const std::string_view file = g_ca_hits_filename != nullptr ? g_ca_hits_filename : "";
    const bool isOfService = file.starts_with(kBegin) && file.ends_with(kEnd);
    if (!isOfService || ac.caching != ALWAYS || access(file.data(), F_OK) == 0 || errno != ENOENT) {
        return "";
    }
    const std::string instance(
        file.substr(kBegin.size(), file.size() - kBegin.size() - kEnd.size()));
    return instance.empty() ? "/etc/default/refetchd-hits" : "/etc/refetchd" + instance + ".hits";
}

// What is wrong with a line that sets request headers.
std::string headerFault(const CAFound &line)
{
    constexpr std::string_view kEncoding = "accept-encoding";
    const char *const text = line.text.c_str();
    const bool isCoded = line.row->takes == CAArgument::Header
                             ? strncasecmp(text, kEncoding.data(), kEncoding.size()) == 0
                             : strcasestr(text, kEncoding.data()) != nullptr;
    const bool delves = ac.delveDepth > 0 && !ac.parseOptions.modernLinks;
    return isCoded && delves ? "no links are found in compressed pages without modernlinks on" : "";
}

// A mistake that shows only in the settings together.
struct Rule {
    std::string_view name;
    bool (*breaks)(const CACheck &check);
    const char *fault;
};

bool hasBareAddress()
{
    return ac.updateProxy != nullptr && CAIsBareAddress(ac.updateProxy);
}

constexpr Rule kRules[] = {
    {"errorlog",
     [](const CACheck &c) { return ac.errorLogPath != nullptr && !c.sets("catracelog"); },
     "nothing is written there without catracelog: add a catracelog line"},
    {"updateproxy",
     [](const CACheck &) {
         return ac.updateProxy == nullptr || (*ac.updateProxy == ':' && !hasBareAddress());
     },
     "no proxy is known"},
    {"updateproxy", [](const CACheck &) { return hasBareAddress(); },
     "an IPv6 address must be in brackets, such as [::1]:3128"},
    {"numclients",
     [](const CACheck &c) { return ac.numClients < 1 && (ac.maxRuntime > 0 || c.seeds == 0); },
     "below 1 there are no worker threads: nothing will be requested"},
    {"numclients",
     [](const CACheck &c) { return ac.numClients < 1 && ac.maxRuntime == 0 && c.seeds > 0; },
     "below 1 there are no worker threads, and without maxruntime the agent does not start: the "
     "run would never end"},
    {"readtimeout", [](const CACheck &) { return ac.readTimeout < 1; },
     "below 1 second the agent does not wait for any answer"},
    {"answertimeout",
     [](const CACheck &) { return ac.answerTimeout > 0 && ac.answerTimeout < ac.readTimeout; },
     "is shorter than readtimeout, which then ends no answer"},
    {"refetchdrepeat", [](const CACheck &) { return ac.repeatCount != 1 && ac.maxRuntime == 0; },
     "needs maxruntime, or runs follow each other without a pause"},
    {"proxytlsca", [](const CACheck &) { return ac.proxyTlsCa != nullptr && ac.proxyTls == 0; },
     "needs proxytls on"},
    {"proxytlsverify", [](const CACheck &) { return ac.proxyTlsVerify == 0 && ac.proxyTls == 0; },
     "needs proxytls on"},
    {"proxytlsverify", [](const CACheck &) { return ac.proxyTlsVerify == 0 && ac.proxyTls != 0; },
     "certificates are not verified: anybody may pose as the proxy"},
    {"slf", [](const CACheck &) { return ac.saveFiles != 0 && ac.saveRoot == nullptr; },
     "needs slr"},
    {"connecttohost",
     [](const CACheck &) { return ac.connectToHost != 0 && ac.transparentProxy == 0; },
     "needs transparentproxy on"},
};

void judgeHits(CACheck *check, bool forService)
{
    const CAFound top = check->lineOf("loadtopcached");
    if (HTInteger(top.text) <= 0) {
        return;
    }
    const std::string logs = forService ? fileOfLogs() : "";
    if (!logs.empty()) {
        check->notes.push_back(
            {top.at, "loadtopcached: there is no hits file yet: name the proxy's logs in " + logs});
    } else {
        check->warn(top.at, "loadtopcached", hitsFault());
    }
    if (check->badHits > 0) {
        check->warn(top.at, "loadtopcached",
                    std::to_string(check->badHits) + " bad lines in " + g_ca_hits_filename);
    }
    // load() clears the number when the names differ.
    const CAFound host = check->lineOf("hostname");
    if (ac.topCachedCount == 0 && (host.at.file != nullptr || ac.repeatCount != 1)) {
        check->warn(host.at, "hostname",
                    "differs from the host in updateproxy, so only the first run reads the hits "
                    "file: write hostname " +
                        std::string(HTHostPart(ac.updateProxy)));
    }
}

void judgeHeaders(CACheck *check)
{
    for (const CAFound &line : check->several) {
        const CAArgument takes = line.row->takes;
        const bool isHeader = takes == CAArgument::Header || takes == CAArgument::Variant;
        check->warn(line.at, line.row->name, isHeader ? headerFault(line) : "");
    }
}

}  // namespace

void CAJudgeSettings(CACheck *check, bool forService)
{
    for (const Rule &rule : kRules) {
        check->warn(check->lineOf(rule.name).at, rule.name, rule.breaks(*check) ? rule.fault : "");
    }
    judgeHeaders(check);
    if (ac.proxyTls != 0) {
        check->warn(check->lineOf("proxytlsca").at, "proxytlsca", ac.setUpTls());
    }
    judgeHits(check, forService);
    const char *const report = g_catrace_filename;
    check->warn(check->lineOf("serverroot").at, "serverroot",
                report != nullptr ? CAUnwritable(report) : "");
    if (check->httpsSeed.row != nullptr && ac.transparentProxy == 0) {
        check->warn(check->httpsSeed.at, check->httpsSeed.row->name,
                    "browsers do not get pages with https:// from the cache of a forward proxy, "
                    "unless it decrypts them: leave these lines out, or for a reverse proxy set "
                    "transparentproxy on");
    }
    if (check->robotsLine.row != nullptr && check->robots == 0) {
        check->warn(check->robotsLine.at, "loadsitemap",
                    "auto needs loadurl lines: robots.txt is requested from their hosts");
    }
    const bool seedsFromInput = check->input.file != nullptr;
    check->warn(check->input, "loadlist",
                seedsFromInput && ac.repeatCount != 1
                    ? "only the first run can read standard input: name a file"
                    : "");
    check->warn({}, "loadurl",
                check->seeds == 0 && !seedsFromInput ? "no seeds: nothing will be requested" : "");
}
