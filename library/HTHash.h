// Chained hash table of opaque items. The caller supplies the hasher and the comparator; the table
// has its own locks.
//
//     bucket 0 -> newest -> ... -> oldest
//     bucket 1 -> null
//     ...                                    lock of bucket i: number i mod lockCount
//
// A table with several buckets and at most one lock adds buckets as it fills, so that its chains
// stay short. A keyed one stays fast even if an outsider chooses what it holds: it derives its
// buckets from a keyed hash (HTSipHash.h), and its hasher serves its trace lines alone.
//
// Items belong to the caller; the table never frees one. With a lock count of 1 one lock guards the
// whole table; with a higher one each lock guards its share of the buckets. Any thread may then
// call. With a lock count of 0 the owner locks. Hashers run before any lock is taken; comparators
// run under it and must not call the table.
#pragma once

#include <cstdint>
#include <string_view>

struct HashTable;
struct HashEnumeration;

// 0 when `item` is the one that `key` asks for.
using HashComparator = int (*)(const void *item, const void *key);
// The bucket of `key` in a table of `size` buckets, below `size`. A table that grows asks with the
// largest `size` and derives the bucket from the result. Called with items and with keys: both must
// give the same bucket when the comparator finds them equal.
using HashHasher = std::uint32_t (*)(std::uint32_t size, const void *key);
// The text of an item or key; equal ones have equal texts. It must stay as it is during the call.
using HashText = std::string_view (*)(const void *key);

// An empty table of `size` buckets at first, at least 1. Null when `size` is 0, or (reported) when
// memory is out. Released with HashDestroy().
[[nodiscard]] HashTable *HashCreate(std::uint32_t size, HashComparator comparator,
                                    HashHasher hasher, std::uint32_t lockCount);

// The same for a keyed table, which has at most one lock; null when `lockCount` is above 1. It
// traces the bucket that `hasher` gives for the initial `size`, and how many of its items have that
// bucket.
[[nodiscard]] HashTable *HashCreateKeyed(std::uint32_t size, HashComparator comparator,
                                         HashHasher hasher, HashText text, std::uint32_t lockCount);

// A key of a table with its hash, so that several calls hash it once. The key must stay as it is
// meanwhile; the table may change.
class HashProbe {
public:
    HashProbe(HashTable *table, const void *key);
    [[nodiscard]] const void *key() const { return key_; }

private:
    friend int HashAddUnique(const HashProbe &probe, void *item);
    friend void *HashLookup(const HashProbe &probe);

    HashTable *table_;
    const void *key_;
    std::uint32_t hash_;
};

// Adds `item` at the head of its bucket. Equal items stay; look-ups find the new one. 0, or 1
// (reported) when memory is out.
int HashAdd(HashTable *table, void *item);

// The same unless the table holds an equal item; atomic for other threads. 0 when it was added, 1
// when there is an equal item, -1 (reported) when memory is out.
[[nodiscard]] int HashAddUnique(HashTable *table, void *item);
// The same for an item that equals the probe's key.
[[nodiscard]] int HashAddUnique(const HashProbe &probe, void *item);

// The newest item that equals `key`, or null.
[[nodiscard]] void *HashLookup(HashTable *table, const void *key);
[[nodiscard]] void *HashLookup(const HashProbe &probe);

// Takes the newest item that equals `key` out of the table and returns it; null when there is none.
void *HashRemove(HashTable *table, const void *key);

// Empties the table; atomic for other threads.
void HashWipe(HashTable *table);

// The same, and calls `visit` with each item, which it may free; it must not call the table. Other
// threads are not blocked while items are visited, unless memory is out. An item that another
// thread adds meanwhile is either visited or stays in the table.
void HashDrain(HashTable *table, void (*visit)(void *item, void *context), void *context);

// Releases the table, not its items; null does nothing. No other thread may use it any more.
void HashDestroy(HashTable *table);

// Enumeration visits every item once, in no particular order. With one lock the table stays locked
// from start to end; with more, the bucket that the last item came from stays locked until the next
// call. In a table with locks the enumerating thread must make no other call on the table before
// the end: it would wait for a lock of its own or for another thread that waits for that lock. In a
// table without locks it may look up items, and remove the one that it was given last.
// Start gives null (reported), with nothing locked, when memory is out.
[[nodiscard]] HashEnumeration *HashStartEnumeration(HashTable *table);
// The next item; null at the end, and from then on.
[[nodiscard]] void *HashEnumerateNext(HashTable *table, HashEnumeration *enumeration);
// Frees the enumeration and unlocks; null does nothing.
void HashEndEnumeration(HashTable *table, HashEnumeration *enumeration);

// Take and release the one lock of a table that has exactly one; otherwise do nothing. No other
// call on the table is possible in between.
void HashLockTable(HashTable *table);
void HashUnlockTable(HashTable *table);

// Recycling: with a `length` other than 0 entries are allocated ten at a time and reused until
// HashDestroy(); with 0, the initial value, each entry is a record of its own (HTRecord.h). Does
// nothing while the table holds items. Call before other threads use the table.
void HashSetFreelistLength(HashTable *table, std::uint32_t length);
// Allocates spare entries until there are `length` of them. 0, or 1 (reported) when memory is out.
int HashPreallocate(HashTable *table);

// The ELF hash of a string, whose bytes count as signed: modulo `size`, or as it is when `size` is
// 0.
[[nodiscard]] std::uint32_t ElfHash(std::uint32_t size, std::string_view string);
