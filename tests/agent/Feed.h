// Feeds bytes to a parser in pieces, as the connection does; sinks that keep what they get.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "parse/CAparse.h"
#include "parse/CAscanHTML.h"

using Cuts = std::vector<std::size_t>;  // ascending ends of pieces; the last ends with the text

inline Cuts everyByte(std::size_t size)
{
    Cuts cuts;
    for (std::size_t at = 1; at < size; ++at) {
        cuts.push_back(at);
    }
    return cuts;
}

inline constexpr std::int32_t kUntouched = -7;

struct Flags {
    std::int32_t done = 0;
    std::int32_t close = kUntouched;
};

// Calls `take(block, length)` for each piece until it returns false. One NUL follows each block.
template <typename Take>
void inPieces(std::string_view bytes, const Cuts &cuts, Take take)
{
    std::size_t begin = 0;
    for (std::size_t i = 0; i <= cuts.size(); ++i) {
        const std::size_t end = i < cuts.size() ? cuts[i] : bytes.size();
        std::vector<char> block(bytes.begin() + begin, bytes.begin() + end);
        block.push_back('\0');
        if (!take(block.data(), static_cast<std::int32_t>(end - begin))) {
            return;
        }
        begin = end;
    }
}

// Feeds the pieces until the parser is done.
inline Flags feed(CAParser *parser, std::string_view bytes, const Cuts &cuts)
{
    Flags flags;
    inPieces(bytes, cuts, [&](char *block, std::int32_t length) {
        parser->consume(block, length, &flags.done, &flags.close);
        return flags.done == 0;
    });
    return flags;
}

// Keeps each link behind "+" when it leads one level deeper, otherwise behind "-"; the page's base
// behind "=".
struct LinkList : CALinkSink {
    void processFoundUrl(const char *link, bool raisesDepth) override
    {
        all.push_back((raisesDepth ? "+" : "-") + std::string(link));
    }
    void processFoundBase(const char *href) override { all.push_back("=" + std::string(href)); }

    std::vector<std::string> all;
};

// The links that a scanner finds. Nothing can be read behind a block, unless the scanner needs the
// NUL there.
template <typename Scanner>
std::vector<std::string> linksOf(std::string_view page, const Cuts &cuts, bool images = true)
{
    LinkList links;
    Scanner scanner(&links, images);
    inPieces(page, cuts, [&](const char *block, std::int32_t length) {
        constexpr bool kNeedsNul = std::is_same_v<Scanner, CAScanHTML>;
        std::vector<char> exact(block, block + length + (kNeedsNul ? 1 : 0));
        scanner.scan(exact.data(), exact.data() + length);
        return true;
    });
    return links.all;
}

class Recorder : public CAParser {
public:
    Recorder(CAURL *url, std::string *body) : CAParser(url), body_(body) {}
    std::int32_t consume(char *data, std::int32_t length, std::int32_t * /*finished*/,
                         std::int32_t * /*close*/) override
    {
        body_->append(data, static_cast<std::size_t>(length));
        return length;
    }

private:
    std::string *const body_;
};
