#include "HTHash.h"

#include <gmock/gmock.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

#include "HTSipHash.h"

namespace {

struct Item {
    std::uint32_t key;
    int taken = 0;
};

std::uint32_t keyOf(const void *item)
{
    return static_cast<const Item *>(item)->key;
}

HashTable *newTable(std::uint32_t size, std::uint32_t lockCount, std::uint32_t freeListLength)
{
    HashTable *const table = HashCreate(
        size, [](const void *item, const void *key) { return keyOf(item) == keyOf(key) ? 0 : 1; },
        [](std::uint32_t buckets, const void *key) { return keyOf(key) % buckets; }, lockCount);
    HashSetFreelistLength(table, freeListLength);
    return table;
}

void take(void *item, void * /*context*/)
{
    ++static_cast<Item *>(item)->taken;
}

TEST(HTHash, RemovalTakesTheOlderItemOrTheRestOfTheChain)
{
    for (const std::uint32_t mode : {0U, 1U, 3U}) {  // locks, and length of the free list
        std::array<Item, 24> items{};
        HashTable *const table = newTable(mode + 1, mode, mode);
        for (std::uint32_t i = 0; i < items.size(); ++i) {
            items[i].key = i / 2;  // each key twice
            EXPECT_EQ(i % 2 == 0 ? HashAddUnique(table, &items[i]) : HashAdd(table, &items[i]), 0);
        }
        EXPECT_EQ(HashAddUnique(table, &items[0]), 1);
        HashSetFreelistLength(table, 1 - mode % 2);  // refused: there are entries of the other kind
        for (const std::uint32_t i : {22U, 0U, 12U}) {
            EXPECT_EQ(HashRemove(table, &items[i]), &items[i + 1]);
            EXPECT_EQ(HashLookup(table, &items[i]), &items[i]);
            take(&items[i + 1], nullptr);
        }
        HashEnumeration *const enumeration = HashStartEnumeration(table);
        while (void *const item = HashEnumerateNext(table, enumeration)) {
            take(item, nullptr);
        }
        HashEndEnumeration(table, enumeration);
        EXPECT_THAT(items, testing::Each(testing::Field(&Item::taken, 1)));
        HashDestroy(table);
    }
}

TEST(HTHash, ThreadsLoseItemsOrGetOneTwice)
{
    for (const std::uint32_t locks : {1U, 3U}) {
        HashTable *const table = newTable(7, locks, 12);
        std::array<Item, 30'000> items{};
        std::vector<std::jthread> threads;
        for (std::uint32_t first = 0; first < 3; ++first) {
            threads.emplace_back([&items, table, first] {
                for (std::uint32_t i = first; i < items.size(); i += 3) {
                    items[i].key = i;
                    HashAdd(table, &items[i]);
                    if (void *const item = i % 2 == 0 ? HashRemove(table, &items[i]) : nullptr) {
                        take(item, nullptr);
                    }
                }
            });
        }
        for (int i = 0; i < 20; ++i) {
            HashDrain(table, take, nullptr);
        }
        threads.clear();
        HashDrain(table, take, nullptr);
        HashDestroy(table);
        EXPECT_THAT(items, testing::Each(testing::Field(&Item::taken, 1)));
    }
}

TEST(ElfHash, TakesBytesAsUnsigned)
{
    EXPECT_EQ(ElfHash(1009, "caf\351.example.com"), 463U);
}

int comparisons = 0;

// A site names links whose fixed hashes are all equal: each added one was compared with all others.
TEST(HTHash, ChosenTextsMakeAListOfTheTable)
{
    constexpr std::size_t kTexts = 4096;
    const auto text = [](const void *key) -> std::string_view {
        return *static_cast<const std::string *>(key);
    };
    const auto elf = [](std::uint32_t size, const void *key) {
        return ElfHash(size, *static_cast<const std::string *>(key));
    };
    const auto compare = [](const void *a, const void *b) {
        ++comparisons;
        return static_cast<const std::string *>(a)->compare(*static_cast<const std::string *>(b));
    };
    EXPECT_EQ(HashCreateKeyed(7, compare, elf, text, 2), nullptr);
    for (const std::uint32_t locks : {0U, 1U}) {
        std::vector<std::string> texts(kTexts, "http://www.example.com/a/long/common/base/");
        HashTable *const table = HashCreateKeyed(1009, compare, elf, text, locks);
        comparisons = 0;
        for (std::size_t number = 0; number < kTexts; ++number) {
            for (std::size_t bit = 1; bit < kTexts; bit *= 2) {
                texts[number] += (number & bit) != 0 ? "AQ" : "BA";
            }
            EXPECT_EQ(ElfHash(0, texts[number]), ElfHash(0, texts[0]));
            EXPECT_EQ(HashAddUnique(table, &texts[number]), 0);
            EXPECT_EQ(HashLookup(table, &texts[number / 2]), &texts[number / 2]);
        }
        EXPECT_LT(comparisons, kTexts + 10);  // each found one, and hashes that are equal by chance
        EXPECT_EQ(HashRemove(table, &texts[9]), &texts[9]);
        EXPECT_EQ(HashLookup(table, &texts[9]), nullptr);
        HashDestroy(table);
    }
}

TEST(HTSipHash, DiffersFromTheReferenceOrIgnoresTheKey)
{
    const std::pair<std::size_t, std::uint64_t> rows[] = {
        {0, 0xabac0158050fc4dc}, {1, 0xc9f49bf37d57ca93},  {7, 0xd3927d989bb11140},
        {8, 0x369095118d299a8e}, {15, 0xd320d86d2a519956}, {63, 0x9d199062b7bbb3a8}};
    std::string bytes;
    for (const auto &[length, hash] : rows) {
        while (bytes.size() < length) {
            bytes.push_back(static_cast<char>(bytes.size()));
        }
        EXPECT_EQ(HTSipHash({0x0706050403020100, 0x0f0e0d0c0b0a0908}, bytes), hash) << length;
        EXPECT_NE(HTKeyedHash(bytes), hash);
    }
}

}  // namespace
