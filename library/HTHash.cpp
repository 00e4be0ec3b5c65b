#include "HTHash.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <new>

#include "HTMemory.h"
#include "htthread.h"
#include "tfprintf.h"

namespace {

constexpr std::size_t kBlockEntries = 10;

struct Entry {
    void *item;
    Entry *next;
};

struct EntryBlock {
    EntryBlock *older;
    std::array<Entry, kBlockEntries> entries;
};

void outOfMemory(const char *function, int line, std::size_t bytes)
{
    HTOutOfMemory("library/HTHash", function, line, bytes);
}

}  // namespace

struct HashTable {
    // Fixed at creation.
    Entry **buckets = nullptr;
    std::uint32_t size = 0;
    HashComparator comparator = nullptr;
    HashHasher hasher = nullptr;
    std::uint32_t lockCount = 0;

    // Recycling, guarded by freeLock; the length is set before the table is shared.
    Entry *freeEntries = nullptr;
    std::uint32_t freeListLength = 0;
    std::uint32_t freeCount = 0;
    EntryBlock *entryBlocks = nullptr;

    pmutex *locks = nullptr;  // lockCount of them, fixed at creation
    pmutex freeLock = 0;      // none in a table without locks; taken last
};

struct HashEnumeration {
    std::int64_t bucket;  // -1 before the first item
    Entry *next;          // what is left of that bucket
    pmutex held;          // its lock, in a table with several
};

namespace {

// Holds one lock; a handle of 0 is no lock.
class HandleGuard {
public:
    explicit HandleGuard(pmutex handle) : handle_(handle)
    {
        if (handle_ != 0) {
            pmutex_request(handle_);
        }
    }
    ~HandleGuard()
    {
        if (handle_ != 0) {
            pmutex_release(handle_);
        }
    }
    HandleGuard(const HandleGuard &) = delete;
    HandleGuard &operator=(const HandleGuard &) = delete;

private:
    const pmutex handle_;
};

// Holds all locks of a table. Nobody else waits for a second one, so taking them in turn is safe.
class TableGuard {
public:
    explicit TableGuard(const HashTable *table) : table_(table)
    {
        for (std::uint32_t i = 0; i < table_->lockCount; ++i) {
            pmutex_request(table_->locks[i]);
        }
    }
    ~TableGuard()
    {
        for (std::uint32_t i = table_->lockCount; i-- > 0;) {
            pmutex_release(table_->locks[i]);
        }
    }
    TableGuard(const TableGuard &) = delete;
    TableGuard &operator=(const TableGuard &) = delete;

private:
    const HashTable *const table_;
};

// The lock of a bucket, which is the table's when there is just one.
pmutex lockOf(const HashTable *table, std::uint32_t bucket)
{
    return table->lockCount == 0 ? 0 : table->locks[bucket % table->lockCount];
}

std::uint32_t bucketOf(const HashTable *table, const void *key)
{
    const std::uint32_t bucket = table->hasher(table->size, key);
    assert(bucket < table->size);
    return bucket;
}

// The link that points to the newest entry which equals `key`, or to the null at the chain's end.
// The bucket's lock must be held.
Entry **findLocked(const HashTable *table, std::uint32_t bucket, const void *key)
{
    Entry **link = &table->buckets[bucket];
    while (*link != nullptr && table->comparator((*link)->item, key) != 0) {
        link = &(*link)->next;
    }
    return link;
}

// One more block of spare entries; freeLock must be held. False when memory is out.
bool addBlockLocked(HashTable *table)
{
    auto *const block = new (std::nothrow) EntryBlock{};
    if (block == nullptr) {
        return false;
    }
    block->older = table->entryBlocks;
    table->entryBlocks = block;
    for (Entry &entry : block->entries) {
        entry.next = table->freeEntries;
        table->freeEntries = &entry;
    }
    table->freeCount += static_cast<std::uint32_t>(kBlockEntries);
    return true;
}

Entry *takeSpareEntry(HashTable *table)
{
    const HandleGuard guard(table->freeLock);
    if (table->freeEntries == nullptr && !addBlockLocked(table)) {
        return nullptr;
    }
    Entry *const entry = table->freeEntries;
    table->freeEntries = entry->next;
    --table->freeCount;
    return entry;
}

Entry *newEntry(HashTable *table)
{
    const bool recycling = table->freeListLength != 0;
    Entry *const entry = recycling ? takeSpareEntry(table) : new (std::nothrow) Entry;
    if (entry == nullptr) {
        outOfMemory(recycling ? "HashAllocateRecords" : "GetHashtableEntry", __LINE__,
                    recycling ? sizeof(EntryBlock) : sizeof(Entry));
    }
    return entry;
}

void releaseEntry(HashTable *table, Entry *entry)
{
    if (table->freeListLength == 0) {
        delete entry;
        return;
    }
    const HandleGuard guard(table->freeLock);
    entry->next = table->freeEntries;
    table->freeEntries = entry;
    ++table->freeCount;
}

// Unlinks the newest entry that equals `key`; null when there is none.
Entry *unlinkEntry(HashTable *table, const void *key)
{
    const std::uint32_t bucket = bucketOf(table, key);
    const HandleGuard guard(lockOf(table, bucket));
    Entry **const link = findLocked(table, bucket, key);
    Entry *const entry = *link;
    if (entry != nullptr) {
        *link = entry->next;
    }
    return entry;
}

std::uint32_t lengthOf(const Entry *chain)
{
    std::uint32_t length = 0;
    for (; chain != nullptr; chain = chain->next) {
        ++length;
    }
    return length;
}

// Creates the locks and the one of the spare entries; false when memory is out.
bool createLocks(HashTable *table, std::uint32_t lockCount)
{
    if (lockCount == 0) {
        return true;
    }
    table->locks = new (std::nothrow) pmutex[lockCount]{};
    table->freeLock = pmutex_create();
    if (table->locks == nullptr || table->freeLock == 0) {
        return false;
    }
    for (; table->lockCount < lockCount; ++table->lockCount) {
        const pmutex lock = pmutex_create();
        if (lock == 0) {
            return false;
        }
        table->locks[table->lockCount] = lock;
    }
    return true;
}

}  // namespace

HashTable *HashCreate(std::uint32_t size, HashComparator comparator, HashHasher hasher,
                      std::uint32_t lockCount)
{
    if (size == 0) {
        return nullptr;
    }
    auto *const table = new (std::nothrow) HashTable;
    if (table == nullptr) {
        outOfMemory("HashCreate", __LINE__, sizeof(HashTable));
        return nullptr;
    }
    table->size = size;
    table->comparator = comparator;
    table->hasher = hasher;
    table->buckets = new (std::nothrow) Entry *[size] {};
    if (table->buckets == nullptr || !createLocks(table, lockCount)) {
        outOfMemory("HashCreate", __LINE__, size * sizeof(void *) + lockCount * sizeof(pmutex));
        HashDestroy(table);
        return nullptr;
    }
    return table;
}

int HashAdd(HashTable *table, void *item)
{
    const bool tracing = HTTrace_on(kTraceHash);
    const std::uint32_t bucket = bucketOf(table, item);
    Entry *const entry = newEntry(table);
    if (entry == nullptr) {
        if (tracing) {
            tfprintf(nullptr, "Hash........ table couldn't get a new entry!\n");
        }
        return 1;
    }
    std::uint32_t length = 0;
    {
        const HandleGuard guard(lockOf(table, bucket));
        *entry = {.item = item, .next = table->buckets[bucket]};
        table->buckets[bucket] = entry;
        length = tracing ? lengthOf(entry) : 0;
    }
    if (tracing) {
        tfprintf(nullptr, "Hash........ table updated. Added in row %u (it now has %u entries).\n",
                 bucket, length);
    }
    return 0;
}

void *HashLookup(HashTable *table, const void *key)
{
    const std::uint32_t bucket = bucketOf(table, key);
    const HandleGuard guard(lockOf(table, bucket));
    const Entry *const entry = *findLocked(table, bucket, key);
    return entry == nullptr ? nullptr : entry->item;
}

void *HashRemove(HashTable *table, const void *key)
{
    Entry *const entry = unlinkEntry(table, key);
    if (entry == nullptr) {
        return nullptr;
    }
    void *const item = entry->item;
    releaseEntry(table, entry);
    return item;
}

void HashWipe(HashTable *table)
{
    HashDrain(
        table, [](void * /*item*/, void * /*context*/) {}, nullptr);
}

void HashDrain(HashTable *table, void (*visit)(void *item, void *context), void *context)
{
    const TableGuard guard(table);
    for (std::uint32_t bucket = 0; bucket < table->size; ++bucket) {
        while (Entry *const entry = table->buckets[bucket]) {
            void *const item = entry->item;
            table->buckets[bucket] = entry->next;
            releaseEntry(table, entry);
            visit(item, context);
        }
    }
}

void HashDestroy(HashTable *table)
{
    if (table == nullptr) {
        return;
    }
    if (table->buckets != nullptr) {
        HashWipe(table);
    }
    while (EntryBlock *const block = table->entryBlocks) {
        table->entryBlocks = block->older;
        delete block;
    }
    for (std::uint32_t i = 0; i < table->lockCount; ++i) {
        pmutex_destroy(table->locks[i]);
    }
    pmutex_destroy(table->freeLock);
    delete[] table->locks;
    delete[] table->buckets;
    delete table;
}

HashEnumeration *HashStartEnumeration(HashTable *table)
{
    auto *const enumeration =
        new (std::nothrow) HashEnumeration{.bucket = -1, .next = nullptr, .held = 0};
    if (enumeration == nullptr) {
        outOfMemory("HashStartEnumeration", __LINE__, sizeof(HashEnumeration));
        return nullptr;
    }
    HashLockTable(table);
    return enumeration;
}

namespace {

void leaveBucket(HashEnumeration *enumeration)
{
    if (enumeration->held != 0) {
        pmutex_release(enumeration->held);
        enumeration->held = 0;
    }
}

// Locks and enters the bucket behind the present one; false when that was the last.
bool enterNextBucket(const HashTable *table, HashEnumeration *enumeration)
{
    leaveBucket(enumeration);
    if (enumeration->bucket + 1 >= table->size) {
        return false;
    }
    const auto bucket = static_cast<std::uint32_t>(++enumeration->bucket);
    if (table->lockCount > 1) {
        enumeration->held = lockOf(table, bucket);
        pmutex_request(enumeration->held);
    }
    enumeration->next = table->buckets[bucket];
    return true;
}

}  // namespace

void *HashEnumerateNext(HashTable *table, HashEnumeration *enumeration)
{
    while (enumeration->next == nullptr) {
        if (!enterNextBucket(table, enumeration)) {
            return nullptr;
        }
    }
    void *const item = enumeration->next->item;
    enumeration->next = enumeration->next->next;
    return item;
}

void HashEndEnumeration(HashTable *table, HashEnumeration *enumeration)
{
    if (enumeration != nullptr) {
        leaveBucket(enumeration);
        HashUnlockTable(table);
        delete enumeration;
    }
}

void HashLockTable(HashTable *table)
{
    if (table->lockCount == 1) {
        pmutex_request(table->locks[0]);
    }
}

void HashUnlockTable(HashTable *table)
{
    if (table->lockCount == 1) {
        pmutex_release(table->locks[0]);
    }
}

void HashSetFreelistLength(HashTable *table, std::uint32_t length)
{
    // Entries in use would otherwise be given back the wrong way.
    const TableGuard guard(table);
    if (std::all_of(table->buckets, table->buckets + table->size,
                    [](const Entry *chain) { return chain == nullptr; })) {
        table->freeListLength = length;
    }
}

int HashPreallocate(HashTable *table)
{
    bool room = true;
    {
        const HandleGuard guard(table->freeLock);
        while (room && table->freeCount < table->freeListLength) {
            room = addBlockLocked(table);
        }
    }
    if (!room) {
        outOfMemory("HashAllocateRecords", __LINE__, sizeof(EntryBlock));
    }
    return room ? 0 : 1;
}

std::uint32_t ElfHash(std::uint32_t size, const char *string)
{
    std::uint32_t hash = 0;
    for (; *string != '\0'; ++string) {
        // Bytes from 128 on are added as negative numbers.
        hash = (hash << 4) + static_cast<std::uint32_t>(static_cast<signed char>(*string));
        const std::uint32_t top = hash & 0xf0000000;
        hash ^= top >> 24;
        hash &= ~top;
    }
    return size == 0 ? hash : hash % size;
}
