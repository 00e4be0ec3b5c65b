#include "HTHash.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <new>
#include <utility>

#include "HTMemory.h"
#include "HTRecord.h"
#include "HTSipHash.h"
#include "htthread.h"
#include "tfprintf.h"

namespace {

constexpr std::size_t kBlockEntries = 10;

struct Entry {
    void *item;
    Entry *next;
    std::uint32_t hash;  // hashOf() the item
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
    HashComparator comparator = nullptr;
    HashHasher hasher = nullptr;
    HashText text = nullptr;      // null: the table is not keyed
    std::uint32_t firstSize = 0;  // of the buckets, until the table grows
    std::uint32_t lockCount = 0;
    bool grows = false;

    // Changed under all locks, or the owner's; the numbers only in a table that grows.
    Entry **buckets = nullptr;
    std::uint32_t size = 0;
    // Of items; kept in tables that grow. Written under the lock, read without it: a thread that
    // knows of an item knows of its count, too.
    std::atomic<std::uint32_t> count = 0;

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

// Holds all locks of a table. No other call waits for a second lock while it holds one, so taking
// them in order cannot deadlock.
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

// The number of buckets for which a table that grows asks its hasher.
constexpr std::uint32_t kWholeRange = UINT32_MAX;

// Chains are this long on average before a table grows.
constexpr std::uint32_t kMostPerBucket = 2;

// `hash`, which is evenly spread, as a number below `size`.
std::uint32_t scaled(std::uint32_t hash, std::uint32_t size)
{
    return static_cast<std::uint32_t>(std::uint64_t{hash} * size >> 32);
}

std::uint32_t hashOf(const HashTable *table, const void *key)
{
    if (table->text != nullptr) {
        const auto hash = static_cast<std::uint32_t>(HTKeyedHash(table->text(key)));
        return table->grows ? hash : scaled(hash, table->firstSize);
    }
    return table->hasher(table->grows ? kWholeRange : table->firstSize, key);
}

// The bucket of a hash; the lock of a table that grows must be held. Hashes of texts with the same
// end differ little in their low bits, so multiplying by the golden ratio spreads them first.
std::uint32_t bucketOf(const HashTable *table, std::uint32_t hash)
{
    constexpr std::uint32_t kGoldenRatio = 2654435769;
    if (!table->grows) {
        return hash;
    }
    return scaled(hash * kGoldenRatio, table->size);
}

// The lock of a bucket. Tables with several never grow: there the hash of a key is its bucket.
pmutex lockOf(const HashTable *table, std::uint32_t bucket)
{
    return table->lockCount == 0 ? 0 : table->locks[bucket % table->lockCount];
}

// The link that points to the newest entry which equals `key`, or to the null at the chain's end.
// The lock of the hash must be held.
Entry **findLocked(const HashTable *table, std::uint32_t hash, const void *key)
{
    Entry **link = &table->buckets[bucketOf(table, hash)];
    while (*link != nullptr &&
           ((*link)->hash != hash || table->comparator((*link)->item, key) != 0)) {
        link = &(*link)->next;
    }
    return link;
}

void pushLocked(HashTable *table, Entry *entry)
{
    Entry **const head = &table->buckets[bucketOf(table, entry->hash)];
    entry->next = *head;
    *head = entry;
}

// Makes room for one more item: twice as many buckets once the chains are long. Without memory for
// that the table stays as it is. The lock must be held.
void growLocked(HashTable *table)
{
    if (!table->grows) {
        return;
    }
    const std::uint32_t count = table->count.load(std::memory_order_relaxed) + 1;
    table->count.store(count, std::memory_order_relaxed);
    if (count / kMostPerBucket < table->size || table->size > kWholeRange / 2) {
        return;
    }
    const std::uint32_t oldSize = table->size;
    auto *const buckets = new (std::nothrow) Entry *[2 * std::size_t{oldSize}] {};
    if (buckets == nullptr) {
        return;
    }
    Entry **const oldBuckets = table->buckets;
    table->buckets = buckets;
    table->size = 2 * oldSize;
    for (std::uint32_t bucket = 0; bucket < oldSize; ++bucket) {
        // Oldest first, so that the newest of equal ones is found first in its new chain, too.
        Entry *oldestFirst = nullptr;
        while (Entry *const entry = oldBuckets[bucket]) {
            oldBuckets[bucket] = entry->next;
            entry->next = oldestFirst;
            oldestFirst = entry;
        }
        while (Entry *const entry = oldestFirst) {
            oldestFirst = entry->next;
            pushLocked(table, entry);
        }
    }
    delete[] oldBuckets;
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

static_assert(sizeof(Entry) <= kHTRecordSize);

Entry *newSingleEntry()
{
    void *const memory = HTRecord_new();
    return memory == nullptr ? nullptr : new (memory) Entry{};
}

// An entry of `item`, whose hash is `hash`, that is in no bucket yet; null (reported) when memory
// is out.
Entry *newEntry(HashTable *table, void *item, std::uint32_t hash)
{
    const bool recycling = table->freeListLength != 0;
    Entry *const entry = recycling ? takeSpareEntry(table) : newSingleEntry();
    if (entry == nullptr) {
        outOfMemory(recycling ? "HashAllocateRecords" : "GetHashtableEntry", __LINE__,
                    recycling ? sizeof(EntryBlock) : sizeof(Entry));
        if (HTTrace_on(kTraceHash)) {
            tfprintf(nullptr, "Hash........ table couldn't get a new entry!\n");
        }
        return nullptr;
    }
    *entry = {.item = item, .next = nullptr, .hash = hash};
    return entry;
}

void releaseEntry(HashTable *table, Entry *entry)
{
    if (table->freeListLength == 0) {
        HTRecord_delete(entry);
        return;
    }
    const HandleGuard guard(table->freeLock);
    entry->next = table->freeEntries;
    table->freeEntries = entry;
    ++table->freeCount;
}

// Unlinks the newest entry that equals `key`; null when there is none. An empty table, from which a
// run's end removes each URL that is left, does not even hash the key.
Entry *unlinkEntry(HashTable *table, const void *key)
{
    if (table->grows && table->count.load(std::memory_order_relaxed) == 0) {
        return nullptr;
    }
    const std::uint32_t hash = hashOf(table, key);
    const HandleGuard guard(lockOf(table, hash));
    Entry **const link = findLocked(table, hash, key);
    Entry *const entry = *link;
    if (entry != nullptr) {
        *link = entry->next;
        if (table->grows) {
            --table->count;
        }
    }
    return entry;
}

// What a trace line shows of the bucket that an item was added to.
struct Row {
    std::uint32_t number = 0;
    std::uint32_t length = 0;
};

// The row of the entry that was added last; the lock must be held. Keyed tables show the row of the
// hasher, which is the same in each process, and look at all entries for that.
Row rowOfLocked(const HashTable *table, const Entry *added)
{
    if (table->text == nullptr) {
        Row row{.number = bucketOf(table, added->hash)};
        for (; added != nullptr; added = added->next) {
            ++row.length;
        }
        return row;
    }
    Row row{.number = table->hasher(table->firstSize, added->item)};
    for (std::uint32_t bucket = 0; bucket < table->size; ++bucket) {
        for (const Entry *at = table->buckets[bucket]; at != nullptr; at = at->next) {
            row.length += table->hasher(table->firstSize, at->item) == row.number ? 1U : 0U;
        }
    }
    return row;
}

// Creates the locks of the buckets and the lock of the spare entries; false when memory is out.
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
    return HashCreateKeyed(size, comparator, hasher, nullptr, lockCount);
}

HashTable *HashCreateKeyed(std::uint32_t size, HashComparator comparator, HashHasher hasher,
                           HashText text, std::uint32_t lockCount)
{
    if (size == 0 || (text != nullptr && lockCount > 1)) {
        return nullptr;
    }
    auto *const table = new (std::nothrow) HashTable;
    if (table == nullptr) {
        outOfMemory("HashCreate", __LINE__, sizeof(HashTable));
        return nullptr;
    }
    table->firstSize = size;
    table->size = size;
    // Locks are divided by bucket, and one bucket means that all items are to be compared.
    table->grows = lockCount <= 1 && size > 1;
    table->comparator = comparator;
    table->hasher = hasher;
    table->text = text;
    table->buckets = new (std::nothrow) Entry *[size] {};
    if (table->buckets == nullptr || !createLocks(table, lockCount)) {
        outOfMemory("HashCreate", __LINE__, size * sizeof(void *) + lockCount * sizeof(pmutex));
        HashDestroy(table);
        return nullptr;
    }
    return table;
}

namespace {

enum class Duplicates : std::uint8_t { Allowed, Refused };

// Adds the entry, or releases it when duplicates are refused and there is an equal item. True when
// it was added.
bool addEntry(HashTable *table, Entry *entry, Duplicates duplicates)
{
    const bool tracing = HTTrace_on(kTraceHash);
    Row row;
    {
        const HandleGuard guard(lockOf(table, entry->hash));
        if (duplicates == Duplicates::Allowed ||
            *findLocked(table, entry->hash, entry->item) == nullptr) {
            growLocked(table);
            pushLocked(table, entry);
            row = tracing ? rowOfLocked(table, entry) : row;
            entry = nullptr;
        }
    }
    if (entry != nullptr) {
        releaseEntry(table, entry);
        return false;
    }
    if (tracing) {
        tfprintf(nullptr, "Hash........ table updated. Added in row %u (it now has %u entries).\n",
                 row.number, row.length);
    }
    return true;
}

}  // namespace

int HashAdd(HashTable *table, void *item)
{
    Entry *const entry = newEntry(table, item, hashOf(table, item));
    return entry != nullptr && addEntry(table, entry, Duplicates::Allowed) ? 0 : 1;
}

HashProbe::HashProbe(HashTable *table, const void *key)
    : table_(table), key_(key), hash_(hashOf(table, key))
{
}

int HashAddUnique(HashTable *table, void *item)
{
    return HashAddUnique(HashProbe(table, item), item);
}

int HashAddUnique(const HashProbe &probe, void *item)
{
    Entry *const entry = newEntry(probe.table_, item, probe.hash_);
    if (entry == nullptr) {
        return -1;
    }
    return addEntry(probe.table_, entry, Duplicates::Refused) ? 0 : 1;
}

void *HashLookup(HashTable *table, const void *key)
{
    return HashLookup(HashProbe(table, key));
}

void *HashLookup(const HashProbe &probe)
{
    const HandleGuard guard(lockOf(probe.table_, probe.hash_));
    const Entry *const entry = *findLocked(probe.table_, probe.hash_, probe.key_);
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

namespace {

void emptyBuckets(HashTable *table, Entry **buckets, std::uint32_t size,
                  void (*visit)(void *item, void *context), void *context)
{
    for (std::uint32_t bucket = 0; bucket < size; ++bucket) {
        while (Entry *const entry = buckets[bucket]) {
            void *const item = entry->item;
            buckets[bucket] = entry->next;
            releaseEntry(table, entry);
            visit(item, context);
        }
    }
}

}  // namespace

void HashDrain(HashTable *table, void (*visit)(void *item, void *context), void *context)
{
    auto *const fresh = new (std::nothrow) Entry *[table->firstSize] {};
    if (fresh == nullptr) {
        const TableGuard guard(table);
        emptyBuckets(table, table->buckets, table->size, visit, context);
        table->count = 0;
        return;
    }
    // The buckets are exchanged for empty ones, so no lock is held while their items are visited.
    Entry **buckets = fresh;
    std::uint32_t size = table->firstSize;
    {
        const TableGuard guard(table);
        std::swap(buckets, table->buckets);
        if (table->grows) {
            std::swap(size, table->size);
        }
        table->count = 0;
    }
    emptyBuckets(table, buckets, size, visit, context);
    delete[] buckets;
}

void HashDestroy(HashTable *table)
{
    if (table == nullptr) {
        return;
    }
    if (table->buckets != nullptr) {
        emptyBuckets(
            table, table->buckets, table->size, [](void * /*item*/, void * /*context*/) {},
            nullptr);
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
    // Entries in use were allocated in the other way and would be released wrongly.
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

std::uint32_t ElfHash(std::uint32_t size, std::string_view string)
{
    std::uint32_t hash = 0;
    for (const char c : string) {
        // Bytes from 128 on are added as negative numbers.
        hash = (hash << 4) + static_cast<std::uint32_t>(static_cast<signed char>(c));
        const std::uint32_t top = hash & 0xf0000000;
        hash ^= top >> 24;
        hash &= ~top;
    }
    return size == 0 ? hash : hash % size;
}
