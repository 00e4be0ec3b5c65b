// The reader of sitemaps, feeds and robots.txt, and the one of dates: the same entries however the
// file is cut into blocks, within the bounds of the reader.
//
// Input: a line of block sizes, then the file. It is read as a robots.txt, too.
#include "Feed.h"
#include "Fuzz.h"
#include "HTString.h"
#include "parse/CAparseSitemap.h"
#include "parse/CAsitemapDate.h"

namespace {

using Body = CASitemapReader::Body;

// Keeps the entries as one text, and checks each.
struct Listing : CASitemapSink {
    void entry(const CASitemapEntry &entry) override
    {
        constexpr std::size_t kLongest = CASitemapReader::kLongestValue;
        std::vector<std::string> fields = entry.links;
        require(fields.size() <= CASitemapReader::kMostLinks, "number of links");
        require(!entry.url.empty() || !fields.empty(), "not empty");
        fields.insert(fields.end(), {entry.url, entry.date, entry.priority, entry.changefreq});
        for (const std::string &field : fields) {
            require(field.size() <= kLongest, "length");
            require(field.empty() || (!HTIsBlank(field.front()) && !HTIsBlank(field.back())),
                    "no blanks around it");
            text += field + '\n';
        }
        require(CASitemapRank(entry.priority, entry.changefreq) < 20, "rank");
        const std::int64_t second = CAReadDate(entry.date).value_or(0);
        require(second > -100000000000 && second < 1000000000000, "a year of four digits");
    }
    std::string text;
};

std::string listing(std::string_view file, const Cuts &cuts, Body body)
{
    Listing list;
    CASitemapReader reader(&list, body, true);
    inPieces(file, cuts, [&](const char *block, std::int32_t length) {
        const std::vector<char> exact(block, block + length);
        reader.read({exact.data(), exact.size()});
        return true;
    });
    reader.end(file.size() % 2 == 0);
    require(reader.isDone(), "done at the end");
    return list.text + reader.fault() + std::to_string(reader.tooLong() + reader.badUrls());
}

}  // namespace

void fuzz(std::string_view input)
{
    const std::string_view sizes = takeLine(&input);
    const Cuts cuts = cutsOf(sizes, input.size());
    for (const Body body : {Body::Sitemap, Body::Robots}) {
        require(listing(input, {}, body) == listing(input, cuts, body), "the same in blocks");
    }
    static_cast<void>(CAReadDate(input.substr(0, 64)));
}
