// The link extractor against one that reads each tag as a text of its own. Both get the same
// blocks, for a tag that a block cuts off follows rules of its own.
//
// Input: a line of block sizes, a line of settings (letters, see check()), then the page.
#include <set>

#include "AgentState.h"
#include "CAparseHTML.h"
#include "Feed.h"
#include "Fuzz.h"

namespace {

constexpr auto kNone = std::string_view::npos;
constexpr std::string_view kSpace = " \t\n\v\f\r";

struct Tag {
    std::string_view name;
    std::string_view attribute;
    int deeper = 0;
};

constexpr Tag kTags[] = {{"a ", "href", 1}, {"img ", "src"},         {"link ", "href", 1},
                         {"frame ", "src"}, {"iframe ", "src", 1},   {"object ", "data"},
                         {"layer ", "src"}, {"ilayer ", "src"},      {"script ", "src"},
                         {"area ", "href"}, {"body ", "background"}, {"meta ", "url"}};

// What follows the first `length` bytes and white space behind them.
std::string_view behind(std::string_view text, std::size_t length)
{
    return text.substr(std::min(text.find_first_not_of(kSpace, length), text.size()));
}

// What must come of a page. Nothing leaves the queue, so that its two limits are one.
struct Expected {
    const CAURL *page;
    std::size_t limit;
    std::multiset<std::string> enqueued = {};
    std::string pending = {};

    void block(std::string_view data)
    {
        const std::size_t close = data.find('>');
        if (!pending.empty()) {
            pending += data.substr(0, close == kNone ? close : close + 1);
            if (close != kNone && data.find('<') > close && pending.size() < 512) {
                tag(pending);
            }
            if (close != kNone || pending.size() >= 511) {
                pending.clear();
            }
        }
        std::size_t at = data.find('<');
        for (std::size_t end = 0; (end = data.find('>', at)) != kNone; at = data.find('<', end)) {
            tag(data.substr(at, end - at));
        }
        if (at != kNone) {
            pending = data.size() - at < 511 ? data.substr(at) : "";
        }
    }

    // `text` ends before the ">" of the tag, or with it when the tag was put together again.
    void tag(std::string_view text)
    {
        text = behind(text.substr(0, text.find('\0')), 1);
        std::string lower(text);
        std::transform(lower.begin(), lower.end(), lower.begin(), tolower);
        for (const auto &[name, attribute, deeper] : kTags) {
            const std::size_t at = lower.find(attribute, name.size());
            const std::size_t after = std::min(at, text.size()) + attribute.size();
            if (lower.starts_with(name) && behind(text, after).starts_with('=')) {
                std::string_view value = behind(behind(text, after), 1);
                const bool quoted = value.starts_with('"') || value.starts_with('\'');
                const std::string_view ends = quoted ? value.substr(0, 1) : " \t\r\n>";
                value = quoted ? behind(value, 1) : value;
                const std::size_t end = value.find_first_of(ends);
                if (end == kNone || (name == "img " && ac.loadInlineImages == 0)) {
                    return;
                }
                value = value.substr(0, end);
                value = value.substr(0, value.find_last_not_of(kSpace) + 1);
                CAURL url(std::string(value).c_str(), page);
                url.setDepth(page->depth() + deeper);
                if (enqueued.size() < limit && url.interesting(page) != 0) {
                    CARecordProcessed(&url);
                    enqueued.insert(std::to_string(url.depth()) + " " + url.stringitize());
                }
            }
        }
    }
};

void check(std::string_view page, std::string_view settings, const Cuts &cuts)
{
    const AgentState state;
    const auto has = [&](char letter) { return settings.find(letter) != kNone; };
    ac.cacheAllQueries = 1;
    ac.delveDepth = has('d') ? 1 : 2;
    ac.delveInto = has('n') ? NEVER : has('t') ? TOPN_ONLY : has('a') ? ADMIN_ONLY : ALWAYS;
    ac.loadInlineImages = has('i') ? 0 : 1;
    ac.maxQueueDepth = has('q') ? 2 : kUnlimited;
    ac.maxUrls = has('u') ? 2 : kUnlimited;
    CAURL url("http://h/d/page");
    url.setDepth(1);
    Expected expected{&url, has('n') || has('t') ? 0 : has('q') || has('u') ? 2 : SIZE_MAX};
    inPieces(page, cuts, [&](const char *block, std::int32_t length) {
        expected.block({block, static_cast<std::size_t>(length)});
        return true;
    });
    AgentState::forgetProcessed();

    CAParseHTML parser(&url);
    const Flags flags = feed(&parser, page, cuts);
    require(flags.done == 0 && flags.close == kUntouched, "no view on the connection");
    std::vector<std::string> urls = AgentState::drain();  // mixed by the queue's lanes
    require(std::multiset(urls.begin(), urls.end()) == expected.enqueued, "the same links");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Input input(data, size);
    const std::string_view sizes = input.line();
    const std::string_view settings = input.line();
    const std::string_view page = input.rest();
    // Cut before its last ">", a page meets the limits of reassembly with few bytes.
    const Cuts lastTag = page.find('>') == kNone ? Cuts{} : Cuts{page.rfind('>')};
    for (const Cuts &cuts : {Cuts{}, everyByte(page.size()), cutsOf(sizes, page.size()), lastTag}) {
        check(page, settings, cuts);
    }
    return 0;
}
