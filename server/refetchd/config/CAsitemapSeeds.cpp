#include "config/CAsitemapSeeds.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>

#include "HTString.h"
#include "base/CAtrace.h"
#include "base/CAwhen.h"
#include "config/CAargument.h"
#include "config/CAcfg.h"
#include "config/CAcfgLines.h"
#include "url/CAURL.h"

CASitemapLine CAReadSitemapLine(const CAConfigLines &line)
{
    CASitemapLine read{.isAuto = HTEqualsNoCase(line.word(1), "auto")};
    if (line.count() == 2) {
        return read;
    }
    const std::string age = CAJoinWords(line, 3);
    long seconds = 0;
    if (!HTEqualsNoCase(line.word(2), "since")) {
        read.fault = CAQuoted(line.word(2)) + " is not \"since\"";
    } else if (parse_time(std::string(age).data(), 1, &seconds) == 0 || seconds < 1) {
        read.fault = CAQuoted(age) + " is not a time";
    } else {
        read.since = static_cast<std::int32_t>(std::min<long>(seconds, INT32_MAX));
    }
    return read;
}

namespace {

// Messages of the current run, those that were left out included.
std::atomic<int> told = 0;

// A site has chosen the text: nothing in it may control the terminal.
std::string printable(std::string_view text)
{
    std::string shown;
    for (const char c : text) {
        std::array<char, 5> code{};
        std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned char>(c));
        shown += c >= ' ' && c <= '~' ? std::string(1, c) : code.data();
    }
    return shown;
}

}  // namespace

void CATellOfSitemap(const CAURL &url, const std::string &fault)
{
    CATrace("Sitemap..... \"%s\": %s.\n", url.stringitize(), printable(fault).c_str());
    if (++told <= kMostSitemapLines) {
        ac.tell(printable(url.stringitize()) + ": " + printable(fault));
    }
}

void CAEndSitemapLines()
{
    const int more = told.exchange(0) - kMostSitemapLines;
    if (more > 0) {
        ac.tell(std::to_string(more) + " more messages about sitemaps");
    }
}
