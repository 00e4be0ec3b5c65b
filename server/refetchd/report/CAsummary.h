// The pages of the report: the summary of a run, and a placeholder until the first run has ended.
// They are written to streams of the caller.
#pragma once

#include <cstdint>
#include <cstdio>

// The counts in a summary. Only notProcessed is about the run that ended.
struct CASummaryCounts {
    std::int32_t adminUrls = 0;     // seeds of the administrator's list, at start-up
    std::int32_t topUrls = 0;       // seeds of the hits file, at start-up
    std::int32_t loaded = 0;        // responses with status 200, in all runs so far
    std::int32_t notProcessed = 0;  // URLs that still wait
};

// Writes the summary page with the lines of the hits file at `hitsPath` (null: there is none), and
// flushes the stream. Bad lines of the hits file are reported in the trace, or on standard error
// while that is closed. A failed write sets the stream's error flag. Master thread.
void CAWriteSummary(FILE *page, const CASummaryCounts &counts, const char *hitsPath);

// Writes the placeholder page, which says that there is no data yet. Main thread.
void CAWritePlaceholder(FILE *page);
