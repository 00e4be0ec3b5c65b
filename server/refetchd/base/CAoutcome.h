// What became of one URL, as the parts of the agent tell it to each other. The names of the values
// are in CAoutcome.cpp; they stand in the results log and in the metrics file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

// Why a URL is not asked for: the limit or filter that stands against it.
enum class CADrop : std::uint8_t {
    None,
    DelveDepth,        // deeper than `delvedepth`
    IgnoreUrl,         // matches an `ignoreurl` pattern
    OnlyUrl,           // matches no `onlyurl` pattern
    CacheQueries,      // a query that `cachequeries` does not allow
    DelveAcrossHosts,  // on another host than the page
    Processed,         // was taken before in this run
    MaxHostUrls,       // its host was charged with as many requests as it may be
    MaxQueueDepth,     // too many URLs wait
    MaxUrls,           // enough URLs were queued
};

// Why an exchange brought no status line.
enum class CAFailure : std::uint8_t {
    None,
    Address,      // the peer's name is unknown
    Connect,      // refused, unreachable, no descriptor
    Request,      // the URL makes no request: too long, or a control character in it
    Send,         // the connection broke while the request was sent
    Closed,       // the peer closed it before an answer
    Reset,        // or reset it
    TimedOut,     // nothing came for `readtimeout`
    BadResponse,  // what came is no HTTP response
    Stopped,      // the run was over
};

// What the answer's own headers say of the cache.
enum class CAVerdict : std::uint8_t {
    Refreshed,     // fetched anew from the origin, or found unchanged there
    Stored,        // likewise, and the cache had no copy before
    FromCache,     // the cache answered with its copy
    NotCacheable,  // fetched, but may not be kept
    Unknown,       // an answer that does not tell
    Failed,        // no answer, or one that is an error
    Dropped,       // not asked for
};

inline constexpr std::size_t kVerdicts = 7;
inline constexpr std::size_t kDrops = 10;

// Such as "maxurls", "timed out", "served from cache"; they live for ever.
[[nodiscard]] std::string_view CADropName(CADrop drop);
[[nodiscard]] std::string_view CAFailureText(CAFailure failure);
[[nodiscard]] std::string_view CAVerdictName(CAVerdict verdict);
