// The link extractor that reads pages as browsers do: what it finds must not depend on the blocks,
// and must stand in the page, one link behind the other.
//
// Input: a line of block sizes, then the page.
#include "CAscanModern.h"
#include "Feed.h"
#include "Fuzz.h"

namespace {

class Links : public CALinkSink {
public:
    void processFoundUrl(const char *link, bool raisesDepth) override
    {
        add(raisesDepth ? "+" : "-", link);
    }
    void processFoundBase(const char *href) override { add("=", href); }

    std::vector<std::string> all;

private:
    void add(const char *kind, std::string_view link)
    {
        const auto isBlank = [](char c) { return static_cast<unsigned char>(c) <= ' '; };
        require(!link.empty() && link.size() <= CAScanModern::kLongestLink, "length");
        require(!isBlank(link.front()) && !isBlank(link.back()), "no blanks around it");
        require(link.find_first_of("\t\n\r") == std::string_view::npos, "a line");
        all.push_back(kind + std::string(link));
    }
};

std::vector<std::string> scan(std::string_view page, const Cuts &cuts)
{
    Links links;
    CAScanModern scanner(&links, true);
    inPieces(page, cuts, [&](const char *block, std::int32_t length) {
        const std::vector<char> exact(block, block + length);  // what is read behind it is seen
        scanner.scan(exact.data(), exact.data() + length);
        return true;
    });
    return links.all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Input input(data, size);
    const std::string_view sizes = input.line();
    const std::string_view page = input.rest();
    const std::vector<std::string> links = scan(page, {});
    require(links == scan(page, everyByte(page.size())), "the same byte by byte");
    require(links == scan(page, cutsOf(sizes, page.size())), "the same in blocks");
    if (page.find('&') != std::string_view::npos) {
        return 0;
    }
    std::string text(page);
    std::erase_if(text, [](char c) { return c == '\t' || c == '\n' || c == '\r'; });
    std::size_t at = 0;
    for (const std::string &link : links) {
        at = text.find(link.substr(1), at);
        require(at != std::string::npos, "in the page");
        at += link.size() - 1;
    }
    return 0;
}
