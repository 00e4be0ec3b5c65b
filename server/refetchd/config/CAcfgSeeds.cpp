// The seeds of the queue: `loadurl` and `loadsitemap` lines of the configuration files, URLs of
// lists, and the top of the hits file.
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <string>

#include "HTFile.h"
#include "HTMemory.h"
#include "HTString.h"
#include "HTWorkThread.h"
#include "base/CAhits.h"
#include "base/CAtrace.h"
#include "config/CAargument.h"
#include "config/CAcfg.h"
#include "config/CAcfgLines.h"
#include "config/CAsitemapSeeds.h"
#include "report/CAresults.h"
#include "url/CAURL.h"
#include "url/CAhost.h"
#include "url/CAprocessed.h"
#include "url/CAqueue.h"

namespace {

// Makes the URL of a `loadurl` or `loadsitemap` argument; one without a scheme or a leading slash
// begins with an HTTP host. Null when memory is out.
CAURL *adminUrl(const char *argument)
{
    if (std::strstr(argument, "://") != nullptr || *argument == '/') {
        return new CAURL(argument);
    }
    const HTPoolScope scope(&HTThread_context()->pool);
    const std::size_t size = sizeof("http://") + std::strlen(argument);
    char *const text = static_cast<char *>(HTThread_context()->pool.alloc(size));
    if (text == nullptr) {
        return nullptr;
    }
    std::snprintf(text, size, "http://%s", argument);
    return new CAURL(text);
}

// Reports a seed that is filtered out, and deletes it.
void dropSeed(const CAConfig &config, CAURL *url, CADrop why)
{
    if (config.observer != nullptr) {
        config.observer->seed(*url, why);
    } else if (results.observes()) {
        results.dropped(url->stringitize(), url->source(), 0, why);
    }
    delete url;
}

// Gives a seed to the queue; with an observer, shows it to that and deletes it.
void enqueueSeed(const CAConfig &config, CAQueue *queue, CAURL *url)
{
    if (config.observer != nullptr) {
        config.observer->seed(*url, CADrop::None);
        delete url;
        return;
    }
    queue->enqueue(url);
}

// Enqueues a seed that the administrator names, even if it is known already.
void seedNamed(const CAConfig &config, CAQueue *queue, CAURL *url)
{
    url->setSource(SOURCE_CONFIG);
    ht.addHit(url->host());
    CARecordProcessed(url);
    enqueueSeed(config, queue, url);  // from here on it belongs to the queue
}

// Most characters that are read as one line. Kept one below kMaxHitsLine, with which the summary
// reads the same file.
constexpr std::size_t kLoadedLine = 1023;

// Records the URL of a good line of the hits file. False when it is recorded already exactly as it
// is spelt in the line, which is seldom another spelling than its own: then one look-up does both.
bool recordTopUrl(const CAHitsLine &words, const CAURL *url)
{
    if (words.url == url->stringitize()) {
        return CARecordProcessed(url);
    }
    if (CAIsProcessed(words.url.data())) {
        return false;
    }
    CARecordProcessed(url);
    return true;
}

// Enqueues the URL of a good line of the hits file, unless it is filtered out, or recorded already
// exactly as it is spelt in the line.
void seedTopUrl(const CAConfig &config, const CAHitsLine &words)
{
    CATrace("Number of Hits %s for URL \"%s\".\n", words.hits.data(), words.url.data());
    CAURL *const url = new CAURL(words.url.data());
    url->setSource(SOURCE_HITS);
    url->setHits(HTInteger(words.hits));
    if (config.queryURL(url) != 0 && config.cacheThisQuery(url) == 0) {
        CATrace("Not loading... URL with ? \"%s\".\n", words.url.data());
        dropSeed(config, url, CADrop::CacheQueries);
        return;
    }
    if (config.ignoreURL(url) != 0) {
        dropSeed(config, url, CADrop::IgnoreUrl);
        return;
    }
    if (!recordTopUrl(words, url)) {
        // A late worker of the last run may have queued it as a link: as a seed it has depth 0.
        urlQueue->sink(words.url.data(), 0);
        dropSeed(config, url, CADrop::Processed);
        return;
    }
    ht.addHits(url->host(), url->hits());
    enqueueSeed(config, urlQueue, url);
}

void readHits(const CAConfig &config)
{
    std::array<char, kLoadedLine + 1> line{};
    CAHitsLine words{};
    std::int32_t count = 0;
    while (count < config.topCachedCount &&
           std::fgets(line.data(), static_cast<int>(line.size()), config.hitsStream) != nullptr) {
        if (CAIsBlankHitsLine(line.data())) {
            continue;
        }
        if (!CASplitHitsLine(line.data(), &words)) {
            CATrace("HITSFILE.... Ignoring bad line. . .\n");
            if (config.observer != nullptr) {
                config.observer->skipped(CASkip::BadHits, g_ca_hits_filename, 0, "");
            }
            continue;
        }
        // Every good line counts, even if its URL is then filtered out.
        ++count;
        seedTopUrl(config, words);
    }
}

// Makes the URL as adminUrl() does; null also when it has a query that may not be loaded, which is
// reported.
CAURL *wantedAdminUrl(const CAConfig &config, const char *argument)
{
    CAURL *const url = adminUrl(argument);
    if (url == nullptr || config.queryURL(url) == 0 || config.cacheThisQuery(url) != 0) {
        return url;
    }
    CATrace("Not loading... URL with ? \"%s\".\n", argument);
    dropSeed(config, url, CADrop::CacheQueries);
    return nullptr;
}

}  // namespace

bool CAConfig::seedAdminUrl(CAQueue *queue, const char *argument)
{
    CAURL *const url = wantedAdminUrl(*this, argument);
    if (url == nullptr) {
        return false;
    }
    seedNamed(*this, queue, url);
    CATrace("Will load... URL \"%s\".\n", argument);
    return true;
}

bool CAConfig::seedSitemap(CAQueue *queue, const CAConfigLines &line)
{
    const CASitemapLine words = CAReadSitemapLine(line);
    if (!words.fault.empty()) {
        CATrace("LoadConfig.. invalid loadsitemap: %s.\n", CAJoinWords(line, 2).c_str());
    }
    CAURL *const url = words.isAuto ? nullptr : adminUrl(line.word(1));
    if (words.isAuto) {
        robotsSince = words.since;
        CATrace("Will load... sitemaps that robots.txt names.\n");
    }
    if (url == nullptr) {
        return false;
    }
    url->setRole(CARole::Sitemap, 1, words.since);
    CARecordSitemap(url->stringitize());
    seedNamed(*this, queue, url);
    CATrace("Will load... sitemap \"%s\".\n", line.word(1));
    return true;
}

namespace {

// Adds where the hosts of the `loadurl` lines of one file have their robots.txt.
void addRobots(const char *file, std::set<std::string> *robots)
{
    CAConfigLines line(file);
    while (line.isOpen() && line.next()) {
        if (std::strcmp(line.directive(), "loadurl") != 0) {
            continue;
        }
        const std::unique_ptr<CAURL> url(adminUrl(line.word(1)));
        const bool isOfWeb =
            url != nullptr && (url->protocol() == "http" || url->protocol() == "https");
        if (isOfWeb && !url->host().empty()) {
            robots->insert(std::string(url->protocol()) + "://" + std::string(url->host()) +
                           "/robots.txt");
        }
    }
}

}  // namespace

std::int32_t CAConfig::seedRobots(CAQueue *queue)
{
    std::set<std::string> robots;
    const HTList *entry = robotsSince < 0 ? nullptr : configFiles->next;
    for (; entry != nullptr; entry = entry->next) {
        addRobots(static_cast<const char *>(entry->object), &robots);
    }
    for (const std::string &text : robots) {
        auto *const url = new CAURL(text.c_str());
        url->setRole(CARole::Robots, 0, robotsSince);
        CARecordSitemap(text);
        seedNamed(*this, queue, url);
        CATrace("Will load... sitemaps of \"%s\".\n", text.c_str());
    }
    return static_cast<std::int32_t>(robots.size());
}

bool CAConfig::seedListUrl(CAQueue *queue, const char *text)
{
    CAURL *const url = wantedAdminUrl(*this, text);
    if (url == nullptr) {
        return false;
    }
    if (!CARecordProcessed(url)) {
        // A late worker of the last run may have queued it as a link: as a seed it has depth 0.
        queue->sink(url->stringitize(), 0);
        dropSeed(*this, url, CADrop::Processed);
        return false;
    }
    ht.addHit(url->host());
    enqueueSeed(*this, queue, url);
    CATrace("Will load... URL \"%s\".\n", text);
    return true;
}

int CAConfig::loadURLsInConfigFile(CAQueue *queue, const char *file)
{
    CAConfigLines line(file);
    if (!line.isOpen()) {
        return 0;
    }
    CATrace("Loading..... URLs in config file \"%s\".\n", file);
    while (line.next()) {
        if (std::strcmp(line.directive(), "loadurl") == 0) {
            seedAdminUrl(queue, line.word(1));
        } else if (std::strcmp(line.directive(), "loadsitemap") == 0) {
            seedSitemap(queue, line);
        } else if (std::strcmp(line.directive(), "loadlist") == 0) {
            seedList(queue, line.word(1));
        }
    }
    return 1;
}

int CAConfig::loadURLsInHitsFile(CAQueue * /*queue*/, const char * /*file*/)
{
    if (g_ca_hits_filename == nullptr || caching != ALWAYS) {
        if (topCachedCount > 0) {
            CATrace("Not......... loading files specified in hits file.\n");
            CAErrorLog(0x3a6,
                       "Not able to load files specified in hits file, check proxy server "
                       "configuration.\n");
        }
        return 0;
    }
    if (topCachedCount <= 0) {
        return 0;
    }
    hitsStream = HTOpenForReading(g_ca_hits_filename);
    if (hitsStream == nullptr) {
        const int error = errno;
        CATrace("ldAgtConfig. hits file \"%s\" not opened; errno was %d.\n", g_ca_hits_filename,
                error);
        return 0;
    }
    CATrace("ldAgtConfig. hits file \"%s\" was opened.\n", g_ca_hits_filename);
    readHits(*this);
    std::fclose(hitsStream);
    hitsStream = nullptr;
    return 1;
}

void CAConfig::reloadURLs(CAQueue *queue)
{
    CAEndSitemapLines();
    robotsSince = -1;  // set again by the line
    for (const HTList *entry = configFiles->next; entry != nullptr; entry = entry->next) {
        loadURLsInConfigFile(queue, static_cast<const char *>(entry->object));
    }
    seedRobots(queue);
    loadURLsInHitsFile(queue, nullptr);
}
