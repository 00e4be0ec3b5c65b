// The dates of sitemaps and feeds. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

// Seconds since the epoch of a date as sitemaps and Atom write it ("2024-05-01T12:30:00+02:00", or
// only its beginning, down to the year), or as RSS does ("Wed, 01 May 2024 12:30 EST"); nothing for
// any other text. A date that names only a year, a month, a day or a minute counts as the last
// second of that. Without a zone it is in UTC.
[[nodiscard]] std::optional<std::int64_t> CAReadDate(std::string_view text);
