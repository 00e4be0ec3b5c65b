// The configuration loader and its reloads, with an included file and a hits file.
//
// Input: the three files, divided by lines "%%". In the first two an "@" stands for the directory
// that holds them as conf/main and conf/more, the third as root/logs/hitsfile.txt, and log/.
#include <array>
#include <regex>
#include <set>

#include "AgentState.h"
#include "Fuzz.h"
#include "HTArgs.h"
#include "HTInet.h"
#include "HTString.h"
#include "TempDir.h"

namespace {

using Forms = std::multiset<std::string>;

// Takes off what stands before the next "%%", without lines that name a file elsewhere: no input
// leaves the directory, and none writes what is read again.
std::string takeFile(std::string_view *rest, const std::string &dir)
{
    static const std::regex elsewhere(R"((?:catracelog|errorlog) (?!@/log/\w+$)|)"
                                      R"(configfile (?!@/conf/\w+$)|serverroot (?!@/root$))");
    const std::string_view file = rest->substr(0, rest->find("\n%%\n"));
    rest->remove_prefix(std::min(file.size() + 4, rest->size()));
    std::string text;
    for (const char c : file) {
        text += c == '@' ? dir : std::string(1, c);
    }
    std::string result;
    for (std::string line; !text.empty(); text.erase(0, line.size())) {
        line = text.substr(0, std::min<std::size_t>(text.find('\n'), 1023) + 1);
        std::string copy = line;
        HTConvertToSlash(copy.data());
        std::array<char *, kMaxArgs> words{};
        static_cast<void>(parse_args(copy.data(), words.data()));
        standardize(words[0]);
        std::string call = words[0] + (" " + std::string(words[1]));
        if (const std::size_t at = call.find(dir + "/"); at != call.npos) {
            call.replace(at, dir.size(), "@");
        }
        constexpr auto kHere = std::regex_constants::match_continuous;
        result += std::regex_search(call, elsewhere, kHere) ? "" : line;
    }
    return result;
}

// The forms of the seeds in the queue, by their source.
std::array<Forms, 2> takeSeeds()
{
    std::array<Forms, 2> seeds;
    while (auto *const url = static_cast<CAURL *>(urlQueue->dequeue())) {
        require(url->path()[0] == '/' && url->depth() == 0, "a seed with a path");
        seeds.at(static_cast<std::size_t>(url->source())).insert(url->stringitize());
        delete url;
    }
    return seeds;
}

// What the hits file gives while the texts in `known` are processed.
Forms topOf(Forms known)
{
    Forms top;
    const bool wanted = g_ca_hits_filename != nullptr && ac.caching == ALWAYS;
    std::ostringstream file;
    file << std::ifstream(wanted ? g_ca_hits_filename : "").rdbuf();
    std::string text = file.str();
    std::int32_t left = ac.topCachedCount;
    for (std::string line; left > 0 && !text.empty(); text.erase(0, line.size())) {
        line = text.substr(0, std::min<std::size_t>(text.find('\n'), 1022) + 1);
        std::array<std::string, 3> words;
        std::istringstream in(line.c_str());
        in >> words[0] >> words[1] >> words[2];
        const bool numbers = words[0].size() <= 19 && words[1].size() <= 19;
        if (line[0] == '\n' || line[0] == '#' || words[2].empty() || !numbers) {
            continue;
        }
        --left;
        const CAURL url(words[2].c_str());
        const bool refused = ac.queryURL(&url) != 0 && ac.cacheThisQuery(&url) == 0;
        if (!refused && ac.ignoreURL(&url) == 0 && !known.contains(words[2])) {
            known.insert(url.stringitize());
            top.insert(url.stringitize());
        }
    }
    return top;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const TempDir dir;
    std::string_view rest = Input(data, size).rest();
    const std::string main = dir.write("conf/main", takeFile(&rest, dir.path()));
    dir.write("conf/more", takeFile(&rest, dir.path()));
    dir.write("root/logs/hitsfile.txt", std::string(rest));
    dir.write("root/pub/reports/refetchd.html", "");
    dir.write("log/trace", "");
    HTSetHostName("localhost");
    const AgentState state;
    const int result = ac.load(urlQueue, main.c_str());
    require(result == 0 || (result == 1 && ac.seedCount == urlQueue->getLength()), "an answer");
    require(result == 0 || ac.updateProxy != nullptr, "a proxy");
    require(ac.numClients <= 100 && ac.maxRuntime >= 0, "limits");
    require(ac.maxUrls != 0 && ac.maxQueueDepth != 0, "no limit is not 0");
    require(ac.saveRoot == nullptr || std::string_view(ac.saveRoot).ends_with('/'), "a directory");
    require(std::string_view(ac.httpVersion) == "HTTP/1.0", "the one version");
    const auto [admin, top] = takeSeeds();
    require(std::ssize(admin) == ac.adminUrlCount, "all counted");
    // The proxy of another host loses its hits file, but only behind the first load.
    const bool unlimited = result == 1 && ac.topCachedCount == 0;
    require(unlimited || top == (result == 0 ? Forms() : topOf(admin)), "the top");

    AgentState::forgetProcessed();
    ac.reloadURLs(urlQueue);
    auto [adminAgain, topAgain] = takeSeeds();
    // A later line may have allowed the query of an earlier URL.
    require(std::includes(adminAgain.begin(), adminAgain.end(), admin.begin(), admin.end()), "all");
    require(topAgain == topOf(adminAgain), "the top again");
    ac.reloadURLs(urlQueue);
    const auto [adminLast, topLast] = takeSeeds();
    topAgain.insert(adminAgain.begin(), adminAgain.end());
    require(adminLast == adminAgain && topLast == topOf(topAgain), "the same again");
    return 0;
}
