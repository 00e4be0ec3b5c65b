#include "HTList.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "HTMemory.h"
#include "htthread.h"
#include "tfprintf.h"

namespace {

constexpr std::uint32_t kMasterGrowth = 1000;  // elements in a heap allocation
constexpr std::uint32_t kThreadRefill = 30;    // elements moved from the master list at once

// A thread's free list longer than this passes elements on to the master list: the first limit
// applies when a whole list is released, the higher one when a single element is.
constexpr std::uint32_t kKeepListLimit = 79;
constexpr std::uint32_t kKeepElementLimit = 99;

// The object of a free element, which makes a use after the release easy to spot.
constexpr std::uintptr_t kPoison = 0xcdcdcdcd;

struct FreeList {
    HTList *head = nullptr;
    std::uint32_t count = 0;
    std::uint64_t returned = 0;  // elements that ever came back to it, for a debugger
};

// A chain of elements. The last one is known, so that the chain joins another in one step.
struct Chain {
    HTList *first;
    HTList *last;
    std::uint32_t length;
};

void push(FreeList *list, const Chain &chain)
{
    chain.last->next = list->head;
    list->head = chain.first;
    list->count += chain.length;
}

void giveBack(FreeList *list, const Chain &chain)
{
    push(list, chain);
    list->returned += chain.length;
}

// Takes `length` elements, or all when there are fewer; the list must not be empty.
Chain pop(FreeList *list, std::uint32_t length)
{
    Chain chain = {.first = list->head, .last = list->head, .length = 1};
    while (chain.length < length && chain.last->next != nullptr) {
        chain.last = chain.last->next;
        ++chain.length;
    }
    list->head = chain.last->next;
    list->count -= chain.length;
    return chain;
}

// The free list of the process, which owns the memory of all elements.
class Master {
public:
    Master()
    {
        {
            const PMutexGuard guard(mutex_);
            growLocked();
        }
        if (HTTrace_on(kTraceList)) {
            tfprintf(nullptr, "List........ module initialized.\n");
        }
    }

    // Moves up to `length` elements to `list`; false (reported) when memory is out and none is
    // left.
    bool moveTo(FreeList *list, std::uint32_t length)
    {
        if (!tryMoveTo(list, length)) {
            HTOutOfMemory("library/HTList", "HTList_expandFreeList", __LINE__, sizeof(Block));
            return false;
        }
        return true;
    }

    void takeBack(const Chain &chain)
    {
        const PMutexGuard guard(mutex_);
        giveBack(&free_, chain);
    }

private:
    struct Block {
        Block *older;
        std::array<HTList, kMasterGrowth> elements;
    };

    bool tryMoveTo(FreeList *list, std::uint32_t length)
    {
        const PMutexGuard guard(mutex_);
        if (free_.count < length) {
            growLocked();
        }
        if (free_.count == 0) {
            return false;
        }
        push(list, pop(&free_, length));
        return true;
    }

    void growLocked() HT_REQUIRES(mutex_)
    {
        auto *const block = new (std::nothrow) Block{};
        if (block == nullptr) {
            return;
        }
        block->older = blocks_;
        blocks_ = block;
        for (HTList &element : block->elements) {
            push(&free_, {.first = &element, .last = &element, .length = 1});
        }
        allocated_ += kMasterGrowth;
    }

    PMutex mutex_;
    FreeList free_ HT_GUARDED_BY(mutex_);
    Block *blocks_ HT_GUARDED_BY(mutex_) = nullptr;  // never freed; leak checkers find them here
    std::uint64_t allocated_ HT_GUARDED_BY(mutex_) = 0;  // elements, for a debugger
};

// Created by the first call, which may come before main, and never destroyed: threads may outlive
// main.
Master &master()
{
    alignas(Master) static std::array<std::byte, sizeof(Master)> storage;
    static Master *const instance = new (storage.data()) Master;
    return *instance;
}

// Written before threads start.
constinit int moduleSlot = -1;

void beginThread(HTThreadContext *context, int slot)
{
    void *&place = context->slots[static_cast<std::size_t>(slot)];
    if (place == nullptr) {
        place = new (std::nothrow) FreeList;  // without memory for it: the master list
    }
}

void endThread(HTThreadContext *context, int slot)
{
    void *&place = context->slots[static_cast<std::size_t>(slot)];
    auto *const list = static_cast<FreeList *>(place);
    place = nullptr;
    if (list != nullptr && list->count != 0) {
        master().takeBack(pop(list, list->count));
    }
    delete list;
}

FreeList *threadList(const HTThreadContext *context)
{
    if (context == nullptr || moduleSlot < 0) {
        return nullptr;
    }
    return static_cast<FreeList *>(context->slots[static_cast<std::size_t>(moduleSlot)]);
}

// An empty element from the thread's list, or from the master list when the thread has none.
HTList *newElement(HTThreadContext *context)
{
    FreeList single;
    FreeList *const own = threadList(context);
    FreeList *const source = own == nullptr ? &single : own;
    if (source->count == 0 && !master().moveTo(source, own == nullptr ? 1 : kThreadRefill)) {
        return nullptr;
    }
    HTList *const element = pop(source, 1).first;
    *element = {.object = nullptr, .next = nullptr, .reserved = 0};
    return element;
}

// Marks the elements of the chain that begins at `first` as free.
Chain poison(HTList *first)
{
    Chain chain = {.first = first, .last = first, .length = 0};
    for (HTList *element = first; element != nullptr; element = element->next) {
        element->object = std::bit_cast<void *>(kPoison);
        chain.last = element;
        ++chain.length;
    }
    return chain;
}

void release(const Chain &chain, std::uint32_t limit, HTThreadContext *context)
{
    FreeList *const own = threadList(context);
    if (own != nullptr && own->count <= limit) {
        giveBack(own, chain);
    } else {
        master().takeBack(chain);
    }
}

HTList *insertAfter(HTList *element, void *object, HTThreadContext *context)
{
    HTList *const added = newElement(context);
    if (added != nullptr) {
        added->object = object;
        added->next = element->next;
        element->next = added;
    }
    return added;
}

}  // namespace

int HTList_register()
{
    if (moduleSlot < 0) {
        moduleSlot = HTWorkThread_register("HTList", beginThread, endThread);
        if (HTTrace_on(kTraceList)) {
            tfprintf(nullptr, "List........ functions registered (slot %d)\n", moduleSlot);
        }
    }
    return moduleSlot;
}

HTList *HTList_new(HTThreadContext *context)
{
    return newElement(context);
}

HTList *HTList_addObject(HTList *list, void *object, HTThreadContext *context)
{
    return insertAfter(list, object, context);
}

HTList *HTList_appendObject(HTList *list, void *object, HTThreadContext *context)
{
    HTList *last = list;
    while (last->next != nullptr) {
        last = last->next;
    }
    return insertAfter(last, object, context);
}

void HTList_discardElement(HTList *element, HTThreadContext *context)
{
    if (element != nullptr) {
        element->next = nullptr;
        release(poison(element), kKeepElementLimit, context);
    }
}

void HTList_delete(HTList *list, HTThreadContext *context)
{
    if (list != nullptr) {
        release(poison(list), kKeepListLimit, context);
    }
}

void HTList_deleteAndFreeContents(HTList *list, HTThreadContext *context)
{
    for (const HTList *element = list; element != nullptr; element = element->next) {
        std::free(element->object);
    }
    HTList_delete(list, context);
}
