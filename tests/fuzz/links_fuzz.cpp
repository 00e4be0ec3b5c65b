// The two link extractors. The one that reads pages as browsers do must find the same links
// however the page is cut into blocks.
//
// Input: a line of block sizes, then the page.
#include "Feed.h"
#include "Fuzz.h"
#include "HTString.h"
#include "parse/CAscanModern.h"

void fuzz(std::string_view input)
{
    const std::string_view sizes = takeLine(&input);
    const std::string_view page = input;
    const std::vector<std::string> links = linksOf<CAScanModern>(page, {});
    for (const Cuts &cuts : {Cuts{}, everyByte(page.size()), cutsOf(sizes, page.size())}) {
        require(links == linksOf<CAScanModern>(page, cuts), "the same in blocks");
        for (const std::string &link : linksOf<CAScanHTML>(page, cuts)) {
            require(page.find(link.substr(1)) != page.npos, "in the page");
        }
    }
    for (const std::string &link : links) {
        require(link.size() > 1 && link.size() <= 1 + CAScanModern::kLongestLink, "length");
        require(!HTIsBlank(link[1]) && !HTIsBlank(link.back()), "no blanks around it");
        require(link.find_first_of("\t\n\r") == link.npos, "a line");
    }
}
