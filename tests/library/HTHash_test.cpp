#include "HTHash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "htthread.h"

namespace {

struct Item {
    std::uint32_t key;
    int taken = 0;
};

std::uint32_t keyOf(const void *item)
{
    return static_cast<const Item *>(item)->key;
}

HashTable *newTable(std::uint32_t size, std::uint32_t lockCount)
{
    return HashCreate(
        size, [](const void *item, const void *key) { return keyOf(item) == keyOf(key) ? 0 : 1; },
        [](std::uint32_t buckets, const void *key) { return keyOf(key) % buckets; }, lockCount);
}

void take(void *item, void * /*context*/)
{
    ++static_cast<Item *>(item)->taken;
}

bool takenOnce(const Item &item)
{
    return item.taken == 1;
}

// A table, and the items of one thread that uses it.
struct Job {
    HashTable *table = nullptr;
    std::array<Item, 300> items{};
};

void *addAndRemove(void *arg)
{
    auto *const job = static_cast<Job *>(arg);
    for (Item &item : job->items) {
        HashAdd(job->table, &item);
        if (item.key % 2 == 0 && HashRemove(job->table, &item) != nullptr) {
            take(&item, nullptr);
        }
    }
    return nullptr;
}

TEST(HTHash, RemovalTakesTheOlderItemOrTheRestOfTheChain)
{
    for (const std::uint32_t mode : {0U, 1U, 3U}) {  // locks, and length of the free list
        std::array<Item, 24> items{};
        HashTable *const table = newTable(mode + 1, mode);
        HashSetFreelistLength(table, mode);
        EXPECT_EQ(HashPreallocate(table), 0);
        for (std::uint32_t i = 0; i < items.size(); ++i) {
            items[i].key = i / 2;  // each key twice
            EXPECT_EQ(HashAdd(table, &items[i]), 0);
        }
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
        EXPECT_TRUE(std::all_of(items.begin(), items.end(), takenOnce));
        HashWipe(table);
        EXPECT_EQ(HashLookup(table, &items[4]), nullptr);
        EXPECT_EQ(HashAdd(table, &items[3]), 0);
        HashDestroy(table);
    }
}

TEST(HTHash, ThreadsLoseItemsOrGetOneTwice)
{
    for (const std::uint32_t locks : {1U, 3U}) {
        HashTable *const table = newTable(7, locks);
        HashSetFreelistLength(table, 12);
        std::array<Job, 3> jobs;
        std::array<HTThreadHandle, 3> threads{};
        for (std::size_t i = 0; i < jobs.size(); ++i) {
            jobs[i].table = table;
            for (std::uint32_t n = 0; n < jobs[i].items.size(); ++n) {
                jobs[i].items[n].key = n * 3 + static_cast<std::uint32_t>(i);
            }
            threads[i] = StartThread(addAndRemove, &jobs[i]);
        }
        for (int i = 0; i < 20; ++i) {
            HashDrain(table, take, nullptr);
        }
        for (const HTThreadHandle thread : threads) {
            EXPECT_EQ(JoinThread(thread), 0);
        }
        HashDrain(table, take, nullptr);
        HashDestroy(table);
        for (const Job &job : jobs) {
            EXPECT_TRUE(std::all_of(job.items.begin(), job.items.end(), takenOnce));
        }
    }
}

TEST(HTHash, EnumerationLocksTooLittleOrTooMuch)
{
    for (const std::uint32_t locks : {1U, 2U}) {
        Item first = {0};
        Job job = {.table = newTable(4, locks)};
        job.items.fill({1});
        HashAdd(job.table, &first);
        HashEnumeration *const enumeration = HashStartEnumeration(job.table);
        EXPECT_EQ(HashEnumerateNext(job.table, enumeration), &first);
        const HTThreadHandle thread = StartThread(addAndRemove, &job);
        // With two locks bucket 1 is free, and the thread gets through. With one it waits; the
        // sleep only gives the fault a chance.
        EXPECT_EQ(locks == 1 ? millisleep(20) : JoinThread(thread), 0);
        EXPECT_EQ(HashEnumerateNext(job.table, enumeration) == nullptr, locks == 1);
        HashEndEnumeration(job.table, enumeration);
        EXPECT_EQ(locks == 1 ? JoinThread(thread) : 0, 0);
        HashDestroy(job.table);
    }
}

TEST(ElfHash, TakesBytesAsUnsigned)
{
    EXPECT_EQ(ElfHash(1009, ""), 0U);
    EXPECT_EQ(ElfHash(0, "\351"), 268435225U);
    EXPECT_EQ(ElfHash(1009, "caf\351.example.com"), 463U);
    EXPECT_EQ(ElfHash(0, "http://www.example.com/index.html"), 144326188U);
}

}  // namespace
