// The URLs that were queued in this run; links to one of them are not queued again.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "HTHash.h"

class CAURL;

// The texts of the URLs, shared with their records (HTShared.h). The table has its own lock.
// Created by the main thread before any other thread exists. Freed and set to null by the master
// thread after the last run, unless a worker thread is still running.
extern HashTable *processedUrls;

// Makes an empty table of this kind.
[[nodiscard]] HashTable *CANewProcessedUrls();

// The text of a URL with its hash, which is computed at the first use and serves both to look the
// URL up and to record it. For the owner of the URL, which must stay.
class CAUrlKey {
public:
    explicit CAUrlKey(const CAURL &url) : url_(url) {}

    // True when the URL is recorded.
    [[nodiscard]] bool isProcessed();
    // Records it. False when it is recorded already; true also when memory is out and it could not
    // be recorded.
    bool record();

private:
    [[nodiscard]] const HashProbe &probe();

    const CAURL &url_;
    std::optional<const HashProbe> probe_;
};

// CAUrlKey::record() and isProcessed() for one use. Any thread that owns `url`; `text` has the form
// that CAURL::stringitize() gives.
bool CARecordProcessed(const CAURL *url);
[[nodiscard]] bool CAIsProcessed(const char *text);

// Removes one URL, if it is recorded. Any thread.
void CAForgetProcessed(const char *text);

// Record a URL that is requested as a sitemap, and look it up, in a table of their own: one that is
// known as a page must still be read. Recording is false when it was recorded before. Any thread.
bool CARecordSitemap(std::string_view text);
[[nodiscard]] bool CAIsSitemapRead(std::string_view text);

// Removes all URLs, of sitemaps as well. A text that another thread records meanwhile may be
// removed or stay.
void CAForgetAllProcessed();

// Callbacks of the table; its items and keys are C strings.
std::uint32_t UrlHasher(std::uint32_t size, const void *key);
int UrlComparator(const void *a, const void *b);
