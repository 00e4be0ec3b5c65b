// Benchmarks of what all worker threads use: the table of processed URLs, the queue, and trace
// lines while the trace is closed.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "HTSipHash.h"
#include "Micro.h"
#include "base/CAtrace.h"

namespace {

// Texts of 60 characters, numbered from `first` on.
std::vector<std::string> makeTexts(std::int64_t count, std::int64_t first)
{
    std::vector<std::string> texts;
    for (std::int64_t number = first; number < first + count; ++number) {
        texts.push_back("http://www.example.com/archive/section" +
                        std::to_string(1000 + number % 300) + "/story" +
                        std::to_string(1'000'000 + number) + ".html");
    }
    return texts;
}

HashTable *makeTable(std::vector<std::string> *texts)
{
    HashTable *const table = CANewProcessedUrls();
    for (std::string &text : *texts) {
        HashAdd(table, text.data());
    }
    return table;
}

void add(benchmark::State &state)
{
    std::vector<std::string> texts = makeTexts(state.range(0), 0);
    for (auto _ : state) {
        HashTable *const table = makeTable(&texts);
        state.PauseTiming();
        HashDestroy(table);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Texts that a site could choose to slow the table down: a long common base, and then for each text
// another sequence of two pairs of letters that have the same ELF hash.
std::vector<std::string> makeChosen(std::size_t count)
{
    std::vector<std::string> texts(count, "http://www.example.com/" + std::string(60, 'x') + "/");
    for (std::size_t number = 0; number < count; ++number) {
        for (std::size_t bit = 1; bit < count; bit *= 2) {
            texts[number] += (number & bit) != 0 ? "AQ" : "BA";
        }
    }
    return texts;
}

// Texts of the same lengths and with the same base.
std::vector<std::string> makeRandom(std::size_t count)
{
    std::vector<std::string> texts = makeChosen(count);
    std::minstd_rand random(1);
    for (std::string &text : texts) {
        std::generate(text.begin() + 84, text.end(), [&] { return 'a' + random() % 26; });
    }
    return texts;
}

// Adds each text and looks it up again.
void flood(benchmark::State &state, std::vector<std::string> (*make)(std::size_t count))
{
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<std::string> texts = make(count);
    for (auto _ : state) {
        HashTable *const table = makeTable(&texts);
        for (const std::string &text : texts) {
            if (HashLookup(table, text.data()) != text.data()) {
                state.SkipWithError("the table does not hold what it should");
            }
        }
        state.PauseTiming();
        HashDestroy(table);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(flood, random, makeRandom)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(flood, chosen, makeChosen)->Arg(100'000)->Unit(benchmark::kMillisecond);

void hash(benchmark::State &state, std::uint64_t (*of)(const std::string &text))
{
    const std::string text(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        benchmark::DoNotOptimize(of(text));
    }
}
BENCHMARK_CAPTURE(hash, elf,
                  [](const std::string &text) -> std::uint64_t { return ElfHash(0, text); })
    ->Arg(60)
    ->Arg(120);
BENCHMARK_CAPTURE(hash, keyed,
                  [](const std::string &text) -> std::uint64_t { return HTKeyedHash(text); })
    ->Arg(60)
    ->Arg(120);

void lookUp(benchmark::State &state, bool known)
{
    std::vector<std::string> texts = makeTexts(state.range(0), 0);
    HashTable *const table = makeTable(&texts);
    std::vector<std::string> asked = makeTexts(state.range(0), known ? 0 : state.range(0));
    std::shuffle(asked.begin(), asked.end(), std::minstd_rand(1));
    const std::vector<std::string> keys(asked);  // in order of use, so that reading them is cheap
    std::size_t at = 0;
    bool right = true;
    for (auto _ : state) {
        right = right && (HashLookup(table, keys[at].data()) != nullptr) == known;
        at = at + 1 == keys.size() ? 0 : at + 1;
    }
    if (!right) {
        state.SkipWithError("the table does not hold what it should");
    }
    HashDestroy(table);
    state.SetItemsProcessed(state.iterations());
}

void sizes(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Arg(10'000)->Arg(100'000)->Arg(1'000'000);
}
BENCHMARK(add)->Apply(sizes)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(lookUp, known, true)->Apply(sizes);
BENCHMARK_CAPTURE(lookUp, unknown, false)->Apply(sizes);

// A queue with more elements than there are threads, so that no thread finds it empty.
CAQueue *makeQueue()
{
    static std::array<int, 1000> elements;
    auto *const queue = new CAQueue(1);
    for (int &element : elements) {
        queue->enqueue(&element);
    }
    return queue;
}

// Takes an element out and puts it back, on 1, 16 and 100 threads at a time.
void handOver(benchmark::State &state)
{
    static CAQueue *const queue = makeQueue();
    HTThreadContext *const context = becomeWorker();
    for (auto _ : state) {
        queue->enqueue(queue->dequeue());
    }
    HTWorkThread_threadExit(1, context);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(handOver)->UseRealTime()->Threads(1)->Threads(16)->Threads(100);

void emptyLoop(benchmark::State &state)
{
    const char *link = "story.html";
    for (auto _ : state) {
        benchmark::DoNotOptimize(link);
    }
}
BENCHMARK(emptyLoop);

void closedTrace(benchmark::State &state)
{
    startAgent();
    const char *link = "story.html";
    for (auto _ : state) {
        benchmark::DoNotOptimize(link);
        CATrace("Found....... URL \"%s\" (%d).\n", link, 1);
    }
}
BENCHMARK(closedTrace);

}  // namespace
