// Prints the URLs that the agent makes of links, for bench/urls.mjs, which compares them with those
// that browsers ask for. Standard input holds records of two texts, each ending with a NUL:
//
//   page_urls pages   a page's file and its URL; prints the URLs of its links, one per line, and an
//                     empty line after the last
//   page_urls links   a base URL and a link; prints the link's URL, or "-" when it has none
#include <array>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>

#include "HTMemory.h"
#include "parse/CAscanModern.h"
#include "url/CAweb.h"

namespace {

void print(const CAURLParts &parts)
{
    std::cout << parts.protocol << "://" << parts.host << parts.path << '\n';
}

// Finds the links of one page, resolves them and prints their URLs.
class PageReader : public CALinkSink {
public:
    // `url` is resolved into `pool` and must stay there as long as this lives.
    PageReader(std::string_view url, HTPool *pool)
        : pool_(pool), page_(CAResolveWeb(url, {}, pool).parts), base_(page_)
    {
        scanner_.declareCharset("");
    }

    void read(std::string_view block) { scanner_.scan(block.data(), block.data() + block.size()); }

    void processFoundUrl(const char *link, bool /*raisesDepth*/) override
    {
        const HTPoolScope scope(pool_);
        const CAWebResult found = CAResolveWeb(link, base_, pool_, scanner_.charsetOfQuery());
        if (found.fault == CAWebFault::None) {
            print(found.parts);
        }
    }

    void processFoundBase(const char *href) override
    {
        const CAWebResult found = CAResolveWeb(href, page_, pool_, scanner_.charsetOfQuery());
        base_ = found.fault == CAWebFault::None ? found.parts : page_;
    }

private:
    HTPool *const pool_;
    CAScanModern scanner_{this, true};
    const CAURLParts page_;
    CAURLParts base_;
};

bool printPage(const std::string &file, std::string_view url, HTPool *pool)
{
    std::ifstream input(file, std::ios::binary);
    const auto page = std::make_unique<PageReader>(url, pool);
    std::array<char, 8192> block{};
    do {
        input.read(block.data(), block.size());
        page->read({block.data(), static_cast<std::size_t>(input.gcount())});
    } while (input);
    std::cout << '\n';
    if (!input.eof()) {
        std::cerr << "page_urls: cannot read " << file << '\n';
    }
    return input.eof();
}

bool printLink(std::string_view base, std::string_view link, HTPool *pool)
{
    const CAWebResult found = CAResolveWeb(link, CAResolveWeb(base, {}, pool).parts, pool);
    if (found.fault == CAWebFault::None) {
        print(found.parts);
    } else {
        std::cout << "-\n";
    }
    return true;
}

}  // namespace

int main(int argc, char **argv)
{
    const std::string_view mode = argc == 2 ? argv[1] : "";
    if (mode != "pages" && mode != "links") {
        std::cerr << "usage: page_urls pages|links\n";
        return 2;
    }
    std::ios::sync_with_stdio(false);
    HTPool pool;
    std::string first;
    std::string second;
    bool isGood = true;
    while (isGood && std::getline(std::cin, first, '\0') && std::getline(std::cin, second, '\0')) {
        const HTPoolScope scope(&pool);
        isGood =
            mode == "pages" ? printPage(first, second, &pool) : printLink(first, second, &pool);
    }
    return isGood ? 0 : 1;
}
