// One response through the whole parser chain, in blocks of any size: what comes of it does not
// depend on them, and nothing is written but below the save directory.
//
// Input: a line of block sizes, a line of settings (letters, see fetch()), with "u" among them a
// line of URLs divided by blanks, then the response.
#include <cstring>
#include <memory>

#include "AgentState.h"
#include "Feed.h"
#include "Fuzz.h"
#include "TempDir.h"
#include "parse/CAparseHTTP11.h"

namespace {

constexpr auto kNone = std::string_view::npos;
constexpr std::size_t kRoom = 4096;  // of the input buffer, before it grows
const TempDir directory;
const std::string saveRoot = directory.path("a/b/c/save/");  // deep, to catch some ".." more

struct Outcome {
    std::size_t taken = 0;  // bytes of the blocks up to the one that completed the response
    std::int32_t status = 0;
    std::int32_t done = 0;
    std::int32_t close = kUntouched;
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
    ac.saveFiles = 1;
    ac.saveRoot = strdup(saveRoot.c_str());
    ac.parseOptions = {.followAllRedirects = has('a'),
                       .modernLinks = has('l'),
                       .keepMoreHeaders = has('k'),
                       .http11 = has('e'),
                       .takesNothing = has('n')};
    ac.traceStream = std::fopen("/dev/null", "we");
    CAURL url(link.c_str());
    url.setDepth(1);
    auto parser = CANewResponseParser(&url, HTThread_context(), ac.parseOptions);
    Outcome out;
    inPieces(response, cuts, [&](char *block, std::int32_t length) {
        const std::int32_t taken = parser->consume(block, length, &out.done, &out.close);
        require(taken == length || response.size() > kRoom, "all taken");
        out.taken += static_cast<std::size_t>(length);
        return out.done == 0;
    });
    out.status = parser->getHTTPRequestRC();
    parser.reset();  // closes the file
    require(out.status == 200 || out.done == 0 || out.close == 1 || has('e'),
            "closed when abandoned");
    while (const std::unique_ptr<CAURL> found{static_cast<CAURL *>(urlQueue->dequeue())}) {
        require(*found->path() == '/' && found->depth() <= ac.delveDepth, "a URL that is wanted");
        const bool isRedirect = out.status / 100 == 3;
        require(out.status == 200 || (isRedirect && out.redirect.empty()), "one redirect");
        out.redirect = isRedirect ? found->stringitize() : "";  // links depend on the blocks
    }
    out.file = directory.read("a/b/c/save/h//d/page");
    out.isSaved = std::filesystem::remove(saveRoot + "h//d/page");
    return out;
}

}  // namespace

void fuzz(std::string_view input)
{
    const std::string_view sizes = takeLine(&input);
    const std::string_view settings = takeLine(&input);
    std::istringstream links(settings.find('u') != kNone ? std::string(takeLine(&input)) : "");
    const std::string_view response = input;

    // Byte by byte, a response ends where it is done. Bytes after that in the same block count as
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
    std::string link;
    for (int i = 0; i < 4 && links >> link; ++i) {
        fetch(link, settings, response, {});
    }
    for (const auto &entry : std::filesystem::recursive_directory_iterator(directory.path())) {
        const std::string path = entry.path().string() + "/";
        require(path.starts_with(saveRoot) || saveRoot.starts_with(path), "saved inside");
    }
    std::filesystem::remove_all(saveRoot);
}
