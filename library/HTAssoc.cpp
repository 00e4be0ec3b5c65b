#include "HTAssoc.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

#include "HTMemory.h"

namespace {

// Enough for the headers of most responses.
constexpr std::size_t kFirstRoom = 256;
constexpr std::size_t kRoom = 2048;

// The name and its NUL follow the record in memory, and the value follows them.
struct Pair {
    Pair *older;
    std::size_t nameLength;

    [[nodiscard]] char *name() { return reinterpret_cast<char *>(this + 1); }
    [[nodiscard]] char *value() { return name() + nameLength + 1; }
    [[nodiscard]] bool isNamed(std::string_view wanted)
    {
        return nameLength == wanted.size() && strncasecmp(name(), wanted.data(), nameLength) == 0;
    }
};

// A block of memory; its room follows.
struct Block {
    Block *older;
};

}  // namespace

// Room for pairs follows the record.
struct HTAssocList {
    Pair *newest = nullptr;
    Block *blocks = nullptr;  // further ones
    std::uint64_t marks = 0;  // of all names: most look-ups ask for what is not there
    char *at = reinterpret_cast<char *>(this + 1);
    std::size_t left = kFirstRoom;
};

namespace {

bool addBlock(HTAssocList *list, std::size_t needed)
{
    const std::size_t room = std::max(needed, kRoom);
    void *const memory = std::malloc(sizeof(Block) + room);
    if (memory == nullptr) {
        HTOutOfMemory("library/HTAssoc", "HTAssocList_add", __LINE__, sizeof(Block) + room);
        return false;
    }
    list->blocks = new (memory) Block{.older = list->blocks};
    list->at = reinterpret_cast<char *>(list->blocks + 1);
    list->left = room;
    return true;
}

}  // namespace

HTAssocList *HTAssocList_new(HTThreadContext * /*context*/)
{
    constexpr std::size_t size = sizeof(HTAssocList) + kFirstRoom;
    void *const memory = std::malloc(size);
    if (memory == nullptr) {
        HTOutOfMemory("library/HTAssoc", "HTAssocList_new", __LINE__, size);
        return nullptr;
    }
    return new (memory) HTAssocList;
}

bool HTAssocList_add(HTAssocList *list, std::string_view name, std::string_view value,
                     HTThreadContext * /*context*/)
{
    constexpr std::size_t align = alignof(Pair);
    const std::size_t bytes = sizeof(Pair) + name.size() + 1 + value.size() + 1;
    const std::size_t size = (bytes + align - 1) / align * align;
    if (list == nullptr || (size > list->left && !addBlock(list, size))) {
        return false;
    }
    auto *const pair = new (list->at) Pair{.older = list->newest, .nameLength = name.size()};
    *std::copy(name.begin(), name.end(), pair->name()) = '\0';
    *std::copy(value.begin(), value.end(), pair->value()) = '\0';
    list->newest = pair;
    list->marks |= HTNameMark(name);
    list->at += size;
    list->left -= size;
    return true;
}

std::uint64_t HTAssocList_marks(const HTAssocList *list)
{
    return list == nullptr ? 0 : list->marks;
}

char *HTAssocList_lookupExact(const HTAssocList *list, std::string_view name)
{
    const bool isAbsent = (HTAssocList_marks(list) & HTNameMark(name)) == 0;
    Pair *pair = isAbsent ? nullptr : list->newest;
    while (pair != nullptr && !pair->isNamed(name)) {
        pair = pair->older;
    }
    return pair == nullptr ? nullptr : pair->value();
}

void HTAssocList_delete(HTAssocList *list, HTThreadContext * /*context*/)
{
    if (list == nullptr) {
        return;
    }
    for (Block *block = list->blocks; block != nullptr;) {
        std::free(std::exchange(block, block->older));
    }
    std::free(list);
}
