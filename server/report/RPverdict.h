// The verdicts that the agent writes into its results log, in the order in which the report shows
// them: fresh pages first, failures last. Any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

enum class RPVerdict : std::uint8_t {
    Refreshed,
    Stored,
    Unchanged,
    NotCacheable,
    Unknown,
    FromCache,
    Failed,
    Dropped,  // not a request
};

inline constexpr std::size_t kRPVerdicts = 8;
// The verdicts on requests: all but the last.
inline constexpr std::size_t kRPRequestVerdicts = kRPVerdicts - 1;

// Counts by verdict.
using RPCounts = std::array<std::int64_t, kRPVerdicts>;

inline constexpr std::size_t RPIndex(RPVerdict verdict)
{
    return static_cast<std::size_t>(verdict);
}

// The name in the log, such as "served from cache", and a sentence on what it means.
[[nodiscard]] std::string_view RPVerdictName(RPVerdict verdict);
[[nodiscard]] std::string_view RPVerdictMeaning(RPVerdict verdict);
// The verdict of this name; none for any other text.
[[nodiscard]] std::optional<RPVerdict> RPVerdictOf(std::string_view name);

// The sum of the counts of requests; and of those whose pages are fresh in the cache now.
[[nodiscard]] std::int64_t RPRequests(const RPCounts &counts);
[[nodiscard]] std::int64_t RPFresh(const RPCounts &counts);

// The reason of requests that the end of a run cut off.
inline constexpr std::string_view kRPRunWasOver = "run was over";

// What a reason in the log, such as "no connection" or "maxurls", probably means and what to do
// about it; empty for a reason without an explanation.
[[nodiscard]] std::string_view RPReasonHint(std::string_view reason);
