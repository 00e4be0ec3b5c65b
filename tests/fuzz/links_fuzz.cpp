// The two link extractors. The one that reads pages as browsers do must find the same links
// however the page is cut into blocks.
//
// Input: a line of block sizes, then the page.
#include "Feed.h"
#include "Fuzz.h"
#include "HTString.h"
#include "parse/CAscanModern.h"

namespace {

std::vector<std::string> scan(bool modern, std::string_view page, const Cuts &cuts)
{
    LinkList links;
    CAScanHTML scanner(&links, true);
    CAScanModern modernScanner(&links, true);
    inPieces(page, cuts, [&](const char *block, std::int32_t length) {
        // What is read behind the block is seen; only the plain scanner needs its NUL.
        std::vector<char> exact(block, block + length + (modern ? 0 : 1));
        char *const end = exact.data() + length;
        modern ? modernScanner.scan(exact.data(), end) : scanner.scan(exact.data(), end);
        return true;
    });
    return links.all;
}

}  // namespace

void fuzz(std::string_view input)
{
    const std::string_view sizes = takeLine(&input);
    const std::string_view page = input;
    const std::vector<std::string> links = scan(true, page, {});
    for (const Cuts &cuts : {Cuts{}, everyByte(page.size()), cutsOf(sizes, page.size())}) {
        require(links == scan(true, page, cuts), "the same in blocks");
        for (const std::string &link : scan(false, page, cuts)) {
            require(page.find(link.substr(1)) != page.npos, "in the page");
        }
    }
    for (const std::string &link : links) {
        require(link.size() > 1 && link.size() <= 1 + CAScanModern::kLongestLink, "length");
        require(!HTIsBlank(link[1]) && !HTIsBlank(link.back()), "no blanks around it");
        require(link.find_first_of("\t\n\r") == link.npos, "a line");
    }
}
