// Benchmarks of finding the links of a page, alone and with the work for links that are already
// known. For comparison: a mere search for the ends of the tags, which no scanner can beat, and
// libxml2's push parser. Also the ratios of the scanners' speed to that of memchr(), beside their
// bounds. The figures include a copy of the page, block by block.
#include <benchmark/benchmark.h>
#include <libxml/HTMLparser.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <string_view>

#include "Micro.h"
#include "parse/CAparseHTML.h"

namespace {

// A part of a page. "@" is replaced by a line of text, "$" by two words, "#" by a new number.
constexpr std::string_view kSection =
    R"(<div class="entry wide"><h2 class="title"><span class="mark">$</span></h2>
<p class="text">@<b>$</b>@<br>@<a class="more" href="story-#.html">$</a>@</p>
<ul class="list"><li class="item">@<a href="/news/2024/story-#.html" title="$">$</a></li>
<li class="item">@<a href='http://www.example.com/archive/story-#.html'>$</a></li></ul>
<p><img class="photo" src="../images/photo-#.jpg" width="320" height="200" alt="$">@@</p>
<table class="data"><tr><td class="left">$</td>
<td class="right">@<a href=../2023/story-#.html class=plain>$</a></td></tr></table>
<script type="text/javascript">if (width < 640 && items > #) { show("$"); }</script></div>
)";

constexpr std::array<std::string_view, 8> kWords = {
    "the ", "harbour ", "yesterday ", "of ", "council ", "a ", "weather ", "against "};

std::string makePage(std::size_t size)
{
    std::minstd_rand random(1);
    std::string page = "<html><head><title>News</title></head><body class=\"front\">\n";
    int number = 0;
    while (page.size() < size) {
        for (const char c : kSection) {
            const int words = c == '@' ? 20 : c == '$' ? 2 : 0;
            for (int i = 0; i < words; ++i) {
                page += kWords[random() % kWords.size()];
            }
            if (words == 0) {
                page += c == '#' ? std::to_string(++number) : std::string(1, c);
            }
        }
    }
    return page + "</body></html>\n";
}

const std::string page = makePage(30'000);

// Calls `pass`, which reads the page and returns how many links it found, once per iteration.
template <typename Pass>
void measure(benchmark::State *state, Pass pass)
{
    std::size_t links = 0;
    for (auto _ : *state) {
        links = pass();
        benchmark::DoNotOptimize(links);
    }
    state->SetBytesProcessed(state->iterations() * static_cast<std::int64_t>(page.size()));
    state->counters["links"] = static_cast<double>(links);
}

void searchTags(benchmark::State &state)
{
    measure(&state, [] {
        inBlocks(page, [](char *block, std::size_t length) {
            const void *at = block;
            for (char wanted = '<'; at != nullptr; wanted = wanted == '<' ? '>' : '<') {
                const auto left = block + length - static_cast<const char *>(at);
                at = std::memchr(at, wanted, static_cast<std::size_t>(left));
                benchmark::DoNotOptimize(at);
            }
        });
        return 0U;
    });
}
BENCHMARK(searchTags);

class LinkCounter : public CALinkSink {
public:
    void processFoundUrl(const char * /*link*/, bool /*raisesDepth*/) override { ++links; }

    std::size_t links = 0;
};

template <typename Scanner>
void findLinks(benchmark::State &state)
{
    measure(&state, [] {
        LinkCounter counter;
        Scanner scanner(&counter, true);
        inBlocks(page, [&scanner](char *block, std::size_t length) {
            scanner.scan(block, block + length);
        });
        return counter.links;
    });
}
BENCHMARK_TEMPLATE(findLinks, CAScanHTML);
BENCHMARK_TEMPLATE(findLinks, CAScanModern);

// A page with a "<" every 22 bytes, a few of them of links.
std::string makeDensePage(std::size_t size)
{
    std::string dense;
    for (int i = 0; dense.size() < size; ++i) {
        dense += i % 12 == 0  ? "<a href=\"/n/" + std::to_string(10'000 + i) + ".html\">"
                 : i % 2 == 0 ? "<li>some words here ab"
                              : "</li>and words more ab";
    }
    return dense;
}

const std::string densePage = makeDensePage(30'000);

// The seconds of the fastest of many passes. Other programs make single ones slow.
struct Fastest {
    template <typename Pass>
    void time(Pass pass)
    {
        const auto begin = std::chrono::steady_clock::now();
        pass();
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
        seconds = std::min(seconds, passed.count());
    }

    double seconds = 1;
};

// Compares the speed of a scanner with that of memchr() for each "<", in turns. "ratio" should be
// at least "bound", which is the argument in percent.
template <typename Scanner>
void compareWithMemchr(benchmark::State &state, const std::string &text)
{
    Fastest search;
    Fastest scan;
    LinkCounter counter;
    for (auto _ : state) {
        search.time([&text] {
            inBlocks(text, [](const char *block, std::size_t length) {
                const char *const end = block + length;
                const char *at = block;
                while (const void *const found =
                           std::memchr(at, '<', static_cast<std::size_t>(end - at))) {
                    at = static_cast<const char *>(found) + 1;
                    benchmark::DoNotOptimize(at);
                }
            });
        });
        scan.time([&text, &counter] {
            Scanner scanner(&counter, true);
            inBlocks(text, [&scanner](char *block, std::size_t length) {
                scanner.scan(block, block + length);
            });
        });
    }
    benchmark::DoNotOptimize(counter.links);
    state.counters["ratio"] = search.seconds / scan.seconds;
    state.counters["bound"] = static_cast<double>(state.range(0)) / 100;
}

void plainScanOfDense(benchmark::State &state)
{
    compareWithMemchr<CAScanHTML>(state, densePage);
}
BENCHMARK(plainScanOfDense)->Arg(60);

void plainScan(benchmark::State &state)
{
    compareWithMemchr<CAScanHTML>(state, page);
}
BENCHMARK(plainScan)->Arg(60);

void modernScanOfDense(benchmark::State &state)
{
    compareWithMemchr<CAScanModern>(state, densePage);
}
BENCHMARK(modernScanOfDense)->Arg(35);

void modernScan(benchmark::State &state)
{
    compareWithMemchr<CAScanModern>(state, page);
}
BENCHMARK(modernScan)->Arg(35);

void feedPage(CAParseHTML *parser)
{
    std::int32_t finished = 0;
    std::int32_t close = 0;
    inBlocks(page, [&](char *block, std::size_t length) {
        parser->consume(block, static_cast<std::int32_t>(length), &finished, &close);
    });
}

// Every link has been processed before, as it is with most links of a site. The argument is the
// number of patterns with which each link is compared first.
void handleKnownLinks(benchmark::State &state)
{
    std::string config = "delvedepth 1\n";
    for (int i = 0; i < state.range(0); ++i) {
        config += "ignoreurl */private" + std::to_string(i) + "/*\n";
    }
    startAgent(config);
    CAURL url("http://www.example.com/news/2024/index.html");
    const auto handle = [&url] {
        CAParseHTML parser(&url);
        feedPage(&parser);
        return static_cast<std::size_t>(urlQueue->getTotalEnqueued());
    };
    const std::size_t links = handle();
    measure(&state, handle);
    if (links == 0 || handle() != links) {
        state.SkipWithError("a link is not known");
    }
}
BENCHMARK(handleKnownLinks)->Arg(0)->Arg(10);

// The tags that CAScanHTML looks for, each followed by its attribute.
constexpr std::array<std::string_view, 24> kTargets = {
    "a",      "href", "img",    "src",  "link",  "href",       "frame",  "src",
    "iframe", "src",  "object", "data", "layer", "src",        "ilayer", "src",
    "script", "src",  "area",   "href", "body",  "background", "meta",   "url"};

std::string_view textOf(const xmlChar *text)
{
    return reinterpret_cast<const char *>(text);
}

void countLink(void *links, const xmlChar *name, const xmlChar **attributes)
{
    std::size_t target = 0;
    while (target < kTargets.size() && kTargets[target] != textOf(name)) {
        target += 2;
    }
    for (; target < kTargets.size() && attributes != nullptr && *attributes != nullptr;
         attributes += 2) {
        if (textOf(*attributes) == kTargets[target + 1]) {
            ++*static_cast<std::size_t *>(links);
        }
    }
}

void parseWithLibxml2(benchmark::State &state)
{
    htmlSAXHandler handler{};
    handler.startElement = countLink;
    measure(&state, [&handler] {
        std::size_t links = 0;
        htmlParserCtxt *const parser =
            htmlCreatePushParserCtxt(&handler, &links, nullptr, 0, nullptr, XML_CHAR_ENCODING_UTF8);
        htmlCtxtUseOptions(parser, HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING);
        inBlocks(page, [parser](const char *block, std::size_t length) {
            htmlParseChunk(parser, block, static_cast<int>(length), 0);
        });
        htmlParseChunk(parser, nullptr, 0, 1);
        htmlFreeParserCtxt(parser);
        return links;
    });
}
BENCHMARK(parseWithLibxml2);

}  // namespace
