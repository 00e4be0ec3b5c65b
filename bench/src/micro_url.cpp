// Benchmarks of making a URL from a link, of simplifying a path, and of each URL filter with 1, 10
// and 100 patterns that do not match.
#include <benchmark/benchmark.h>

#include <functional>
#include <vector>

#include "HTSimplify.h"
#include "Micro.h"

namespace {

void makeUrl(benchmark::State &state, const char *link)
{
    startAgent();
    const CAURL page("http://www.example.com/news/2024/march/index.html");
    for (auto _ : state) {
        const CAURL url(link, &page);
        benchmark::DoNotOptimize(url.path());
    }
}
BENCHMARK_CAPTURE(makeUrl, relative, "story-about-bees.html");
BENCHMARK_CAPTURE(makeUrl, path, "/news/2023/may/story.html");
BENCHMARK_CAPTURE(makeUrl, full, "http://www.example.com/news/2023/may/story.html");
BENCHMARK_CAPTURE(makeUrl, dots, "../../2023/./may/story.html");

// The figures include the copy of the path.
void simplify(benchmark::State &state, const std::string &path)
{
    std::array<char, 128> text;
    for (auto _ : state) {
        text[path.copy(text.data(), text.size() - 1)] = '\0';
        HTSimplify(text.data(), &HTThread_context()->pool);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK_CAPTURE(simplify, clean, "/news/2024/march/story-about-bees.html?page=2");
BENCHMARK_CAPTURE(simplify, dots, "/news/2024/march/../../2023/./may/story.html?page=2");

// Patterns; "#" is replaced by the number of the pattern.
using Forms = std::vector<std::string>;
const Forms urlForms = {"*/private#/*", "http://*.example#.com/*", "*.zip#"};
const Forms hostForms = {"*.example#.com"};

template <typename Ask>
void filter(benchmark::State &state, const std::string &directive, const Forms &forms, Ask ask)
{
    std::string config;
    for (std::size_t i = 0; i < static_cast<std::size_t>(state.range(0)); ++i) {
        config += directive + " " + forms[i % forms.size()] + "\n";
        config.replace(config.rfind('#'), 1, std::to_string(i));
    }
    startAgent(config);
    const CAURL url("http://www.example.com/news/2024/march/story-about-bees.html");
    const CAURL matching("http://www.example0.com/private0/story-about-bees.html");
    if (std::invoke(ask, ac, &url) == std::invoke(ask, ac, &matching)) {
        state.SkipWithError("the patterns are not in place");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::invoke(ask, ac, &url));
    }
}

void counts(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Arg(1)->Arg(10)->Arg(100);
}
BENCHMARK_CAPTURE(filter, ignoreURL, "ignoreurl", urlForms, &CAConfig::ignoreURL)->Apply(counts);
BENCHMARK_CAPTURE(filter, onlyCheck, "onlyurl", urlForms, &CAConfig::onlyCheck)->Apply(counts);
BENCHMARK_CAPTURE(filter, cacheThisQuery, "cachequeries on", urlForms, &CAConfig::cacheThisQuery)
    ->Apply(counts);
BENCHMARK_CAPTURE(filter, getMaxHits, "maxhosturls 5", hostForms,
                  [](const CAConfig &config, const CAURL *url) {
                      return config.getMaxHits(url->host(), &HTThread_context()->pool);
                  })
    ->Apply(counts);

}  // namespace
