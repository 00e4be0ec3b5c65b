// What `loadsitemap` needs besides the seeds themselves (CAcfgSeeds.cpp): its lines, and the
// messages about sitemaps to the administrator.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class CAConfigLines;
class CAURL;

// One `loadsitemap` line.
struct CASitemapLine {
    bool isAuto = false;     // the sitemaps that robots.txt names; otherwise the first argument
    std::int32_t since = 0;  // seconds; below 1: all entries count
    std::string fault = {};  // why the words behind the first do not count; empty: they do
};

// Reads the current line; leaves its text as it is. Any thread.
[[nodiscard]] CASitemapLine CAReadSitemapLine(const CAConfigLines &line);

// Tells the administrator what is wrong with the sitemap `url`: in the trace, and on standard
// error, where a run has at most kMostSitemapLines of these messages. Any thread.
inline constexpr int kMostSitemapLines = 20;
void CATellOfSitemap(const CAURL &url, const std::string &fault);

// Ends the messages of a run: those that were left out are counted in one line. Master thread.
void CAEndSitemapLines();
