// Prints the URLs that the agent makes of links, for bench/urls.mjs, which compares them with those
// that browsers ask for. Standard input holds records of two texts, each ending with a NUL:
//
//   page_urls pages   a file and the URL that it counts as; prints the URLs of its links, each on a
//                     line, and an empty line behind those of a page
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

// Resolves the links of one page and prints their URLs.
class Printer : public CALinkSink {
public:
    // A page whose URL is none has no URLs, either.
    Printer(std::string_view page, HTPool *pool)
        : pool_(pool), page_(CAResolveWeb(page, {}, pool).parts), base_(page_)
    {
    }

    void processFoundUrl(const char *link, bool /*raisesDepth*/) override
    {
        const HTPoolScope scope(pool_);
        const CAWebResult found = CAResolveWeb(link, base_, pool_);
        if (found.fault == CAWebFault::None) {
            print(found.parts);
        }
    }

    void processFoundBase(const char *href) override
    {
        const CAWebResult found = CAResolveWeb(href, page_, pool_);
        base_ = found.fault == CAWebFault::None ? found.parts : page_;
    }

private:
    HTPool *const pool_;
    const CAURLParts page_;
    CAURLParts base_;  // its text, too, lasts as long as the caller's scope
};

bool printPage(const std::string &file, std::string_view url, HTPool *pool)
{
    std::ifstream input(file, std::ios::binary);
    Printer printer(url, pool);
    const auto scanner = std::make_unique<CAScanModern>(&printer, true);
    std::array<char, 8192> block{};
    do {
        input.read(block.data(), block.size());
        scanner->scan(block.data(), block.data() + input.gcount());
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
