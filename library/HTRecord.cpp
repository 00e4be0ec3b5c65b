#include "HTRecord.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "htthread.h"

namespace {

constexpr std::size_t kBlockRecords = 2730;  // with the block's header just below 64 KiB
constexpr std::uint32_t kBatch = 16;         // records that a thread takes or gives at once

// A free record. In the common store the first one of each chain also knows the chain's length, and
// the next chain.
struct Free {
    Free *next = nullptr;
    Free *nextChain = nullptr;
    std::uint32_t length = 0;
};
static_assert(sizeof(Free) <= kHTRecordSize);

struct Record {
    alignas(Free) std::array<std::byte, kHTRecordSize> bytes;
};

// What all threads share.
class Store {
public:
    // A chain of up to kBatch records; null when memory is out.
    Free *take()
    {
        const PMutexGuard guard(mutex_);
        Free *const chain = chains_;
        if (chain == nullptr) {
            return cutLocked();
        }
        chains_ = chain->nextChain;
        return chain;
    }

    // The first record of `chain` knows its length.
    void give(Free *chain)
    {
        const PMutexGuard guard(mutex_);
        chain->nextChain = chains_;
        chains_ = chain;
    }

private:
    struct Block {
        Block *older;
        std::array<Record, kBlockRecords> records;
    };

    Free *cutLocked() HT_REQUIRES(mutex_)
    {
        if (used_ == kBlockRecords && !addBlockLocked()) {
            return nullptr;
        }
        Free *first = nullptr;
        for (std::uint32_t n = 1; n <= kBatch && used_ < kBlockRecords; ++n) {
            void *const place = &blocks_->records[used_++];
            first = new (place) Free{.next = first, .length = n};
        }
        return first;
    }

    bool addBlockLocked() HT_REQUIRES(mutex_)
    {
        auto *const block = static_cast<Block *>(std::malloc(sizeof(Block)));
        if (block == nullptr) {
            return false;
        }
        block->older = blocks_;
        blocks_ = block;
        used_ = 0;
        return true;
    }

    PMutex mutex_;
    Free *chains_ HT_GUARDED_BY(mutex_) = nullptr;
    Block *blocks_ HT_GUARDED_BY(mutex_) = nullptr;  // never freed; leak checkers find them here
    std::size_t used_ HT_GUARDED_BY(mutex_) = kBlockRecords;  // records cut out of the newest block
};

// Created by the first call, which may come before main, and never destroyed: threads may outlive
// main.
Store &store()
{
    alignas(Store) static std::array<std::byte, sizeof(Store)> storage;
    static Store *const instance = new (storage.data()) Store;
    return *instance;
}

// The free records of a thread: less than two batches, so that one that takes and gives in turn
// seldom needs the store. Plain words, because static destructors, which run after those of the
// thread, still give records back.
constinit thread_local Free *newest = nullptr;
constinit thread_local std::uint32_t kept = 0;

// Gives `length` of the thread's records to the store.
void giveToStore(std::uint32_t length)
{
    Free *chain = nullptr;
    for (std::uint32_t n = 1; n <= length && newest != nullptr; ++n) {
        Free *const record = newest;
        newest = record->next;
        record->next = chain;
        record->length = n;
        chain = record;
    }
    kept -= length;
    if (chain != nullptr) {
        store().give(chain);
    }
}

// Hands the thread's records on when the thread ends.
struct Ending {
    Ending() = default;
    ~Ending() { giveToStore(kept); }
    Ending(const Ending &) = delete;
    Ending &operator=(const Ending &) = delete;
};

// To be called by a thread that had no record and has one now.
void giveAtEnd()
{
    static thread_local const Ending ending;
    static_cast<void>(ending);
}

void *take()
{
    if (newest == nullptr) {
        newest = store().take();
        if (newest == nullptr) {
            return nullptr;
        }
        kept = newest->length;
        giveAtEnd();
    }
    --kept;
    return std::exchange(newest, newest->next);
}

void give(void *record)
{
    if (newest == nullptr) {
        giveAtEnd();
    }
    newest = new (record) Free{.next = newest};
    if (++kept == 2 * kBatch) {
        giveToStore(kBatch);
    }
}

}  // namespace

void *HTRecord_new()
{
    return kHTRecordIsOfHeap ? std::malloc(kHTRecordSize) : take();
}

void HTRecord_delete(void *record)
{
    if (kHTRecordIsOfHeap) {
        std::free(record);
    } else if (record != nullptr) {
        give(record);
    }
}
