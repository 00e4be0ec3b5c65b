// One response through the whole parser chain, in blocks of any size: what comes of it does not
// depend on them, and nothing is written but below the save directory.
//
// Input: a line of block sizes, a line of settings (letters, see fetch()), with "u" among them a
// line of URLs divided by blanks, then the response.
#include <cstring>
#include <memory>

#include "AgentState.h"
#include "CAparseHTTP.h"
#include "Feed.h"
#include "Fuzz.h"
#include "TempDir.h"

namespace {

constexpr auto kNone = std::string_view::npos;
constexpr std::size_t kRoom = 4096;  // of the input buffer, before it grows
const TempDir directory;
const std::string saveRoot = directory.path("a/b/c/save/");  // deep, to catch some ".." more

struct Outcome {
    std::size_t taken = 0;  // bytes of the blocks up to the one that completed the response
    std::int32_t status = 0;
    std::int32_t done = 0;
    std::int32_t close = 0;
    std::string redirect = {};
    std::string file = {};
    bool isSaved = false;

    bool operator==(const Outcome &) const = default;
};

Outcome fetch(const std::string &link, std::string_view settings, std::string_view response,
              const Cuts &cuts)
{
    const AgentState state;
    const auto has = [&](char letter) { return settings.find(letter) != kNone; };
    ac.delveDepth = has('0') ? 0 : has('1') ? 1 : 2;
    ac.delveAcrossHosts = has('x') ? 1 : 0;
    ac.maxQueueDepth = has('q') ? 0 : has('Q') ? 1 : kUnlimited;
    ac.maxUrls = has('m') ? 0 : has('M') ? 1 : kUnlimited;
    ac.saveFiles = has('s') ? 1 : 0;
    ac.saveRoot = strdup(saveRoot.c_str());
    ac.traceStream = has('t') ? std::fopen("/dev/null", "we") : nullptr;
    CAURL url(link.c_str());
    url.setDepth(1);
    auto parser = std::make_unique<CAParseHTTP>(&url);
    Flags flags;
    Outcome out;
    inPieces(response, cuts, [&](char *block, std::int32_t length) {
        const std::int32_t taken = parser->consume(block, length, &flags.done, &flags.close);
        require(taken == length || response.size() > kRoom, "all taken");
        out.taken += static_cast<std::size_t>(length);
        return flags.done == 0;
    });
    out.status = parser->getHTTPRequestRC();
    out.done = flags.done;
    out.close = flags.close;
    parser.reset();  // closes the file
    const bool waits = out.status == 302 && (has('q') || has('m')) &&
                       response.substr(response.find('\n')).starts_with("\nLocation: ");
    require(!waits || out.done == 0, "a redirect waits for room");
    require(out.status == 200 || out.done == 0 || out.close == 1, "closed when abandoned");
    while (const std::unique_ptr<CAURL> found{static_cast<CAURL *>(urlQueue->dequeue())}) {
        require(*found->path() == '/' && found->depth() <= ac.delveDepth, "a URL that is wanted");
        require(out.status == 200 || (out.status == 302 && out.redirect.empty()), "one redirect");
        out.redirect = out.status == 302 ? found->stringitize() : "";  // links depend on the blocks
    }
    if (has('s')) {
        const std::string file = saveRoot + "h//d/page";
        out.file = directory.read(file.substr(directory.path("").size()));
        out.isSaved = std::filesystem::remove(file);
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Input input(data, size);
    const std::string_view sizes = input.line();
    const std::string_view settings = input.line();
    std::string_view links = settings.find('u') != kNone ? input.line() : "";
    const std::string_view response = input.rest();

    // Byte by byte, a response ends where it is done. Bytes behind that in the same block count as
    // part of it (a body beyond its length is never done), so only up to there all blocks are one;
    // and only while there is room for them: of a block that does not fit a part may come twice.
    const std::string page = "http://h/d/page";
    std::string_view whole = response.substr(0, kRoom);
    const Outcome expected = fetch(page, settings, whole, everyByte(whole.size()));
    whole = whole.substr(0, expected.taken);
    // A NUL for a status code loses what came with it.
    if (whole.substr(0, whole.find('\n')).find('\0') == kNone) {
        for (const Cuts &cuts : {Cuts{}, cutsOf(sizes, whole.size())}) {
            require(fetch(page, settings, whole, cuts) == expected, "the same outcome");
        }
    }
    fetch(page, settings, response, cutsOf(sizes, response.size()));

    // The file of one may stand where the next needs a directory.
    for (int i = 0; i < 4 && !links.empty(); ++i) {
        const std::string link(links.substr(0, links.find(' ')));
        fetch(link, settings, response, {});
        links.remove_prefix(std::min(link.size() + 1, links.size()));
    }
    if (settings.find('s') != kNone) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(directory.path())) {
            const std::string path = entry.path().string() + "/";
            require(path.starts_with(saveRoot) || saveRoot.starts_with(path), "saved inside");
        }
        std::filesystem::remove_all(saveRoot);
    }
    return 0;
}
