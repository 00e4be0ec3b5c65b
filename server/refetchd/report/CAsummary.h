// The pages of the report: a run's summary, and what stands in its place until the first run has
// ended. Writes to streams of the caller's; knows nothing of their files.
#pragma once

#include <cstdint>
#include <cstdio>

// What a summary counts.
struct CASummaryCounts {
    std::int32_t adminUrls = 0;     // seeds of the administrator's list
    std::int32_t topUrls = 0;       // seeds of the hits file
    std::int32_t loaded = 0;        // answers with status 200
    std::int32_t notProcessed = 0;  // URLs that still wait
};

// Writes the summary page with the lines of the hits file at `hitsPath` (null: there is none), and
// flushes the stream. Bad lines of the hits file are reported in the trace, or on standard error
// while that is closed. A failed write shows in the stream.
void CAWriteSummary(FILE *page, const CASummaryCounts &counts, const char *hitsPath);

// Writes the page that says that there is no data yet.
void CAWritePlaceholder(FILE *page);
