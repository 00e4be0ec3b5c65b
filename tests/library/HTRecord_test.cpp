#include "HTRecord.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kRecords = 6000;  // of a thread; more than two blocks

using Record = std::array<std::size_t, kHTRecordSize / sizeof(std::size_t)>;

std::vector<Record *> take(std::size_t mark)
{
    std::vector<Record *> records(kRecords);
    for (Record *&record : records) {
        record = static_cast<Record *>(HTRecord_new());
        record->fill(mark);
    }
    return records;
}

// Gives the records back, in the order in which they were taken; true when all were intact.
bool give(const std::vector<Record *> &records, std::size_t mark)
{
    return std::all_of(records.begin(), records.end(), [mark](Record *record) {
        const bool isIntact = std::all_of(record->begin(), record->end(),
                                          [mark](std::size_t word) { return word == mark; });
        HTRecord_delete(record);
        return isIntact;
    });
}

// Three threads take and give records at the same time; true when all were intact. What they keep
// goes to `*seen`, and is given back by this thread.
bool takeInThreads(std::set<const Record *> *seen)
{
    std::array<std::vector<Record *>, 3> taken;
    std::array<std::thread, 3> threads;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i] = std::thread([&taken, i] {
            EXPECT_TRUE(give(take(i), i));
            taken[i] = take(i);
        });
    }
    bool areIntact = true;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
        seen->insert(taken[i].begin(), taken[i].end());
        areIntact &= give(taken[i], i);
    }
    return areIntact;
}

TEST(HTRecord, RecordIsGivenToTwoOwnersOrLostWithItsThread)
{
    HTRecord_delete(nullptr);
    std::set<const Record *> seen;
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(takeInThreads(&seen)) << round;
    }
    // The main thread may keep some of each round, and each thread while it runs.
    EXPECT_TRUE(kHTRecordIsOfHeap || seen.size() < 3 * kRecords + 1000) << seen.size();
}

}  // namespace
