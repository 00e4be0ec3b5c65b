// The configuration loader and its reloads, with an included file, a list and a hits file.
//
// Input: the configuration, a line "%%", and the hits file, which is also read as a list.
#include <array>
#include <regex>
#include <set>

#include "AgentState.h"
#include "Fuzz.h"
#include "HTInet.h"
#include "HTString.h"
#include "TempDir.h"

namespace {

using Forms = std::multiset<std::string>;

// Without lines that may name a file: no input leaves the directory.
std::string harmless(std::string_view file)
{
    static const std::regex namesFile(
        "catracelog|errorlog|configfile|serverroot|resultslog|metricsfile|loadlist");
    std::istringstream lines{std::string(file)};
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        std::string letters = line;  // a name may have capitals, quotes and the like
        std::erase_if(letters, [](char c) { return HTLower(c) < 'a' || HTLower(c) > 'z'; });
        HTLowerCase(letters.data());
        result += std::regex_search(letters, namesFile) ? "" : line + "\n";
    }
    return result;
}

// The texts of the seeds in the queue, by source, with a limit for those of the hits file.
std::array<Forms, 2> takeSeeds(std::int32_t most)
{
    std::array<Forms, 2> seeds;
    while (const std::unique_ptr<CAURL> url{static_cast<CAURL *>(urlQueue->dequeue())}) {
        const bool top = url->source() == SOURCE_HITS;
        require(url->path()[0] == '/' && url->depth() == 0, "a seed with a path");
        require(!top || ac.ignoreURL(url.get()) == 0, "not to be ignored");
        require(!top || ac.queryURL(url.get()) == 0 || ac.cacheThisQuery(url.get()) != 0, "query");
        seeds.at(top ? 1 : 0).insert(url->stringitize());
    }
    require(std::ssize(seeds[1]) <= std::max(most, 0), "no more of the top");
    return seeds;
}

}  // namespace

void fuzz(std::string_view input)
{
    const TempDir dir;
    const std::size_t end = std::min(input.find("\n%%\n"), input.size());
    const std::string lines = dir.write("lines", harmless(input.substr(0, end)));
    const std::string main =
        dir.write("main", "serverroot " + dir.path() + "\nconfigfile " + lines + "\nloadlist " +
                              dir.path("logs/hitsfile.txt") + "\n");
    dir.write("logs/hitsfile.txt", std::string(input.substr(std::min(end + 4, input.size()))));
    dir.write("pub/reports/refetchd.html", "");
    HTSetHostName("localhost");
    const AgentState state;
    ac.traceStream = std::fopen("/dev/null", "we");
    const int result = ac.load(urlQueue, main.c_str());
    require(result == 0 || (result == 1 && ac.seedCount == urlQueue->getLength()), "an answer");
    require(result == 0 || ac.updateProxy != nullptr, "a proxy");
    require(ac.numClients <= 100 && ac.maxRuntime >= 0, "limits");
    require(ac.maxUrls != 0 && ac.maxQueueDepth != 0, "no limit is not 0");
    require(ac.saveRoot == nullptr || std::string_view(ac.saveRoot).ends_with('/'), "a directory");
    require(std::string_view(ac.httpVersion) == "HTTP/1.0", "the one version");
    // The proxy of another host loses its hits file, but only after the first load.
    const bool lost = result == 1 && ac.topCachedCount == 0;
    const auto [admin, top] = takeSeeds(lost ? INT32_MAX : ac.topCachedCount);
    require(std::ssize(admin) == ac.adminUrlCount, "all counted");

    CAForgetAllProcessed();
    ac.reloadURLs(urlQueue);
    const auto [adminAgain, topAgain] = takeSeeds(ac.topCachedCount);
    // A later line may have allowed the query of an earlier URL.
    require(std::ranges::includes(adminAgain, admin), "all again");
    require(result == 0 || std::ranges::includes(top, topAgain), "no others of the top");
}
