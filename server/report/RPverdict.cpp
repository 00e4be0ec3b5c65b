#include "RPverdict.h"

#include <algorithm>
#include <numeric>

namespace {

struct VerdictRow {
    std::string_view name;
    std::string_view meaning;
};

// In the order of the values.
constexpr std::array<VerdictRow, kRPVerdicts> kVerdictRows = {{
    {"refreshed", "The proxy fetched the page again."},
    {"stored", "The proxy had no copy, and the answer may be stored."},
    {"unchanged", "The site confirmed the proxy's copy."},
    {"not cacheable", "The answer must not be stored, or the proxy did not store it."},
    {"unknown", "The answer does not show what the proxy did."},
    {"served from cache", "The proxy sent its old copy."},
    {"failed", "There was no complete answer, or one with an error status."},
    {"dropped", "The URL was not requested."},
}};
static_assert(kVerdictRows[RPIndex(RPVerdict::Dropped)].name == "dropped");

// The beginning of a reason. The first row that fits counts.
struct HintRow {
    std::string_view start;
    std::string_view hint;
};
constexpr std::array<HintRow, 31> kHints = {{
    {"no connection", "Is the proxy running, and does updateproxy name its host and port?"},
    {"unknown host name", "The host in updateproxy cannot be resolved."},
    {"certificate", "The proxy's certificate is not accepted; see proxytlsca."},
    {"TLS handshake failed", "Does the port in updateproxy speak TLS? See proxytls."},
    {"timed out", "The proxy or the site took longer than readtimeout."},
    {"connection broke within", "The answer was incomplete; see the log of the proxy."},
    {"connection ", "The proxy closed the connection early; see its log."},
    {"no HTTP response", "Whatever listens at the port in updateproxy is not an HTTP proxy."},
    {"no valid request", "The URL is too long or contains control characters."},
    {"longer than", "The answer is longer than maxanswer allows."},
    {"slower than", "The answer takes longer than answertimeout allows."},
    {kRPRunWasOver, "The run ended before the answer came; see maxruntime."},
    {"origin failed", "The site did not answer, so the proxy sent its old copy."},
    {"status 401", "The site asks for a password."},
    {"status 403", "The proxy or the site refuses the agent; check the proxy's access rules."},
    {"status 404", "These pages do not exist; check loadurl, and the links of your pages."},
    {"status 407", "The proxy asks for a password; let this host in without one."},
    {"status 410", "These pages were removed; check loadurl, and the links of your pages."},
    {"status 429", "The site asks for a slower pace; see retryafter and the limits of the rate."},
    {"status 503", "The site or the proxy is overloaded, or the site is down."},
    {"status 4", "The proxy or the site does not accept these requests."},
    {"status 5", "The site, or the proxy on its behalf, reports an error; see their logs."},
    {"delvedepth", "Further from the first page than delvedepth allows."},
    {"ignoreurl", "Matches a pattern of ignoreurl."},
    {"onlyurl", "Matches no pattern of onlyurl."},
    {"cachequeries", "Has a query, and cachequeries does not allow it."},
    {"delveacrosshosts", "On another host than the page that links to it."},
    {"maxhosturls", "Its host had as many requests as maxhosturls allows."},
    {"maxqueuedepth", "The queue held as many URLs as maxqueuedepth allows."},
    {"maxurls", "As many URLs were queued as maxurls allows."},
    {"links of this page", "Further links of pages with very many of them."},
}};

}  // namespace

std::string_view RPVerdictName(RPVerdict verdict)
{
    return kVerdictRows[RPIndex(verdict)].name;
}

std::string_view RPVerdictMeaning(RPVerdict verdict)
{
    return kVerdictRows[RPIndex(verdict)].meaning;
}

std::optional<RPVerdict> RPVerdictOf(std::string_view name)
{
    const auto *const row = std::find_if(kVerdictRows.begin(), kVerdictRows.end(),
                                         [name](const VerdictRow &r) { return r.name == name; });
    if (row == kVerdictRows.end()) {
        return std::nullopt;
    }
    return static_cast<RPVerdict>(row - kVerdictRows.begin());
}

std::int64_t RPRequests(const RPCounts &counts)
{
    return std::accumulate(counts.begin(), counts.begin() + kRPRequestVerdicts, std::int64_t{0});
}

std::int64_t RPFresh(const RPCounts &counts)
{
    return counts[RPIndex(RPVerdict::Refreshed)] + counts[RPIndex(RPVerdict::Stored)] +
           counts[RPIndex(RPVerdict::Unchanged)];
}

std::string_view RPReasonHint(std::string_view reason)
{
    const auto *const row = std::find_if(kHints.begin(), kHints.end(), [reason](const HintRow &r) {
        return reason.starts_with(r.start);
    });
    return row == kHints.end() ? std::string_view() : row->hint;
}
