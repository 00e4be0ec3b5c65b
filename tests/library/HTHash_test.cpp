#include "HTHash.h"

#include <gmock/gmock.h>

#include <array>
#include <thread>
#include <vector>

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

}  // namespace
