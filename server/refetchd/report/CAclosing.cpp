#include "report/CAclosing.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr std::string_view kProxies = "/usr/share/doc/refetchd/docs/proxies.md";

// A reason for failures, and how many there were.
struct Reason {
    CAFailure failure;    // None: the status is the reason
    std::int32_t status;  // 0 with a failure
    std::int32_t count;
};

std::int64_t countOf(const CATally &tally, CAVerdict verdict)
{
    std::int64_t count = 0;
    for (const auto &verdicts : tally.urls) {
        count += verdicts[static_cast<std::size_t>(verdict)];
    }
    return count;
}

std::int64_t requestsOf(const CATally &tally)
{
    std::int64_t count = 0;
    for (std::size_t verdict = 0; verdict < kVerdicts; ++verdict) {
        count += countOf(tally, static_cast<CAVerdict>(verdict));
    }
    return count - countOf(tally, CAVerdict::Dropped);
}

// The reasons of failures, the most frequent one first.
std::vector<Reason> reasonsOf(const CATally &tally)
{
    std::vector<Reason> reasons;
    for (std::size_t failure = 0; failure < kFailures; ++failure) {
        if (const std::int32_t count = tally.failures[failure]; count > 0) {
            reasons.push_back({static_cast<CAFailure>(failure), 0, count});
        }
    }
    for (const auto &[status, count] : tally.statuses) {
        reasons.push_back({CAFailure::None, status, count});
    }
    std::stable_sort(reasons.begin(), reasons.end(),
                     [](const Reason &a, const Reason &b) { return a.count > b.count; });
    return reasons;
}

std::string textOf(const Reason &reason)
{
    return reason.failure == CAFailure::None ? "status " + std::to_string(reason.status)
                                             : std::string(CAFailureText(reason.failure));
}

// "2 no connection, 1 timed out"
std::string listReasons(const std::vector<Reason> &reasons)
{
    constexpr std::size_t kMostReasons = 5;
    std::string list;
    std::int64_t others = 0;
    for (std::size_t i = 0; i < reasons.size(); ++i) {
        if (i < kMostReasons) {
            list += list.empty() ? "" : ", ";
            list += std::to_string(reasons[i].count) + " " + textOf(reasons[i]);
        } else {
            others += reasons[i].count;
        }
    }
    return others == 0 ? list : list + ", " + std::to_string(others) + " for other reasons";
}

// What usually causes a failure, and what to do about it.
std::string causeOf(const Reason &reason, const CAAdviceContext &context)
{
    switch (reason.failure) {
    case CAFailure::Address:
    case CAFailure::Connect:
        return "the proxy " + context.proxy +
               " cannot be reached (is it running, and is updateproxy right?)";
    case CAFailure::Certificate:
    case CAFailure::Handshake:
        return "TLS with the proxy fails: look at proxytls, proxytlsca and the port, see "
               "tarnproxy.conf(5)";
    case CAFailure::TimedOut:
        return "no answer came within " + std::to_string(context.readTimeout) +
               " s: the sites or the proxy are too slow, or readtimeout is too short";
    case CAFailure::Send:
    case CAFailure::Closed:
    case CAFailure::Reset:
        return "connections break (was the proxy restarted, or is it overloaded?)";
    case CAFailure::BadResponse:
        return context.proxy + " does not answer with HTTP (is updateproxy the proxy's HTTP port?)";
    case CAFailure::TooLong: return "the answers are longer than maxanswer allows";
    case CAFailure::TooSlow:
        return "the answers take longer than answertimeout allows: the sites or the proxy are too "
               "slow, or it is too short";
    case CAFailure::Stopped: return "the run was over first: look at maxruntime";
    case CAFailure::Request: return "no request can be made of the URLs: look at the loadurl lines";
    case CAFailure::None: break;
    }
    switch (reason.status) {
    case 401:
    case 403:
    case 407:
        return "the proxy or the site denies the agent's requests: allow its address, see " +
               std::string(kProxies);
    case 404:
    case 410: return "the pages do not exist: look at the loadurl lines and the hits file";
    case 429: return "the site wants fewer requests: set retryafter and refetchdrequestpersecond";
    default:
        return "look at the first of them with a browser through the proxy, and at the proxy's log";
    }
}

bool isMoreThan(std::int64_t count, std::int64_t all, std::int64_t percent)
{
    return count * 100 > all * percent;
}

std::string shareOf(std::int64_t count, std::int64_t all)
{
    return " (" + std::to_string(count) + " of " + std::to_string(all) + ")";
}

}  // namespace

std::string CAClosingLine(const CATally &tally, const CAClosing &closing)
{
    const std::string all = closing.runs > 0 ? " of " + std::to_string(closing.runs) : "";
    std::string line = "run " + std::to_string(closing.run) + all + " in " +
                       std::to_string(closing.seconds) + " s" +
                       (closing.stopped ? ", ended by a signal: " : ": ") +
                       std::to_string(requestsOf(tally)) + " requested";
    const char *before = ": ";
    for (std::size_t i = 0; i < kVerdicts; ++i) {
        const auto verdict = static_cast<CAVerdict>(i);
        const std::int64_t count = countOf(tally, verdict);
        if (count == 0) {
            continue;
        }
        line += std::exchange(before, ", ") + std::to_string(count) + " ";
        line += CAVerdictName(verdict);
        line += verdict == CAVerdict::Failed ? " (" + listReasons(reasonsOf(tally)) + ")" : "";
    }
    if (tally.moreDrops > 0) {
        line += " and " + std::to_string(tally.moreDrops) + " more links";
    }
    return line + "; " + std::to_string(closing.queueLeft) + " left in the queue";
}

std::string CAAdvice(const CATally &tally, const CAAdviceContext &context)
{
    const std::int64_t all = requestsOf(tally);
    const std::int64_t failed = countOf(tally, CAVerdict::Failed);
    const std::int64_t cached = context.isStress ? 0 : countOf(tally, CAVerdict::FromCache);
    const std::int64_t unknown = countOf(tally, CAVerdict::Unknown);
    const std::vector<Reason> reasons = reasonsOf(tally);
    if (all == 0) {
        return "nothing was requested: look at the loadurl lines, the filters and the hits file";
    }
    if (isMoreThan(failed, all, 50) && !reasons.empty()) {
        return "most requests failed" + shareOf(failed, all) + ", most often with \"" +
               textOf(reasons.front()) + "\": " + causeOf(reasons.front(), context) +
               "; see refetchd(8), DIAGNOSTICS";
    }
    if (!isMoreThan(cached + unknown, all, 50)) {
        return "";
    }
    if (cached >= unknown && tally.oldCopies > cached / 2) {
        return "most pages are as old as before" + shareOf(tally.oldCopies, all) +
               ": the sites failed, and the proxy sent its old copies";
    }
    if (cached >= unknown) {
        return "most pages were served from the proxy's cache" + shareOf(cached, all) +
               " and are as old as before: the proxy needs its recipe, see " +
               std::string(kProxies);
    }
    return "most answers do not show whether the page was refreshed" + shareOf(unknown, all) +
           ": let the proxy say so in a header, as its recipe does, see " + std::string(kProxies);
}

std::string CAUnsearchedText(std::int32_t pages, const std::string &reason)
{
    return std::to_string(pages) + (pages == 1 ? " page was" : " pages were") +
           " not searched for links: " + reason + ".";
}

namespace {

// So many milliseconds in whole seconds, rounded up.
std::string secondsText(std::int64_t milliseconds)
{
    return std::to_string((milliseconds + 999) / 1000) + " s";
}

}  // namespace

std::string CAAwayText(const CAClosing &closing, const std::string &proxy)
{
    if (closing.proxyWait < 1) {
        return "";
    }
    return "the proxy " + proxy + " could not be reached for " + secondsText(closing.proxyWait) +
           (closing.isProxyAway ? " up to the end of the run." : " and was waited for.");
}

std::string CAPausedText(const CAClosing &closing)
{
    return closing.loadPauses < 1
               ? ""
               : "maxload: no request was started for " + secondsText(closing.loadWait) + ".";
}

int CAExitStatus(const CATally &tally, std::int32_t percent)
{
    constexpr int kFailed = 3;
    constexpr int kNotRefreshed = 4;
    const std::int64_t all = requestsOf(tally);
    if (percent < 0) {
        return 0;
    }
    if (isMoreThan(countOf(tally, CAVerdict::Failed), all, percent)) {
        return kFailed;
    }
    const std::int64_t old =
        countOf(tally, CAVerdict::FromCache) + countOf(tally, CAVerdict::Unknown);
    return isMoreThan(old, all, percent) ? kNotRefreshed : 0;
}
