// The outcome of one URL: why it was dropped, why its request failed, and the verdict on its
// response. The results log and the metrics file print the names of these values.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

// Why a URL is not requested: the limit or filter that excludes it.
enum class CADrop : std::uint8_t {
    None,
    DelveDepth,        // deeper than `delvedepth`
    IgnoreUrl,         // matches an `ignoreurl` pattern
    OnlyUrl,           // matches no `onlyurl` pattern
    CacheQueries,      // has a query, and `cachequeries` does not allow it
    DelveAcrossHosts,  // on another host than the page
    Processed,         // was queued before in this run
    MaxHostUrls,       // its host has reached its `maxhosturls`
    MaxQueueDepth,     // the queue holds `maxqueuedepth` URLs
    MaxUrls,           // `maxurls` URLs were queued
};

// Why an exchange brought no response, or only part of one.
enum class CAFailure : std::uint8_t {
    None,
    Address,      // the peer's name does not resolve, or the port is invalid
    Connect,      // refused, unreachable, no descriptor
    Certificate,  // TLS: the peer's certificate was not accepted
    Handshake,    // TLS: the handshake failed in another way
    Request,      // no request can be made of the URL: too long, or a control character in it
    Send,         // the connection broke while the request was sent
    Closed,       // the peer closed the connection before the end of the response
    Reset,        // reading failed before the end of the response, mostly by a reset
    TimedOut,     // no data came for `readtimeout` seconds
    BadResponse,  // the data received is not an HTTP response
    TooLong,      // the response is longer than `maxanswer`
    TooSlow,      // it takes longer than `answertimeout`
    Stopped,      // the run ended first
};

// Why links were not looked for in a page.
enum class CAUnsearched : std::uint8_t {
    None,
    Unframed,  // its body has no length and no chunks, and was thrown away
    Coded,     // its body is compressed
};

// What happened to the cache's copy, judged by the headers of the response.
enum class CAVerdict : std::uint8_t {
    Refreshed,     // fetched from the origin; or revalidated there, if the headers do not show it
    Stored,        // fetched, and the cache had no copy before
    Unchanged,     // revalidated: the origin said that the cache's copy is still good
    FromCache,     // the cache served its copy
    NotCacheable,  // fetched, but may not be stored
    Unknown,       // the headers do not show it
    Failed,        // no complete response, or an error status
    Dropped,       // not requested
};

inline constexpr std::size_t kVerdicts = 8;
inline constexpr std::size_t kFailures = 14;
inline constexpr std::size_t kDrops = 10;

// Names such as "maxurls", "timed out" and "served from cache". Static texts; any thread.
[[nodiscard]] std::string_view CADropName(CADrop drop);
[[nodiscard]] std::string_view CAFailureText(CAFailure failure);
[[nodiscard]] std::string_view CAVerdictName(CAVerdict verdict);
