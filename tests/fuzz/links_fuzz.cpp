// The two link extractors. The one that reads pages as browsers do must find the same links
// however the page is cut into blocks; the other those of a plain reading of its rules.
//
// Input: a line of block sizes, then the page.
#include "Feed.h"
#include "Fuzz.h"
#include "HTString.h"
#include "PlainLinks.h"
#include "parse/CAscanModern.h"

void fuzz(std::string_view input)
{
    const std::string_view sizes = takeLine(&input);
    const std::string_view page = input;
    const std::vector<std::string> links = linksOf<CAScanModern>(page, {});
    for (const Cuts &cuts : {Cuts{}, everyByte(page.size()), cutsOf(sizes, page.size())}) {
        require(links == linksOf<CAScanModern>(page, cuts), "the same in blocks");
        require(linksOf<CAScanHTML>(page, cuts) == plainLinksOf(page, cuts, true), "plain reading");
    }
    for (const std::string &link : links) {
        require(link.size() > 1 && link.size() <= 1 + CAScanModern::kLongestLink, "length");
        require(!HTIsBlank(link[1]) && !HTIsBlank(link.back()), "no blanks around it");
        require(link.find_first_of("\t\n\r") == link.npos, "a line");
    }
}
