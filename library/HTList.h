// Singly linked lists of opaque objects. Their elements are recycled and never return to the heap.
//
//     header -> newest -> ... -> oldest -> null        (after HTList_addObject)
//
// A list is its header element, whose object is null. Free elements are kept in the free list of a
// worker thread, used without a lock, or in the master list of the process, behind its mutex. Each
// call takes the context of the calling thread last; null, or a context without a free list of its
// own, means the master list. Any thread may call, also before main; one list must not be changed
// by two threads at once. Objects belong to the caller.
#pragma once

#include <cstdint>

#include "HTWorkThread.h"

struct HTList {
    void *object;
    HTList *next;
    std::uintptr_t reserved;  // always 0
};

// Gives every worker thread that begins later a free list of its own. Returns the thread slot, or
// -1 when none is left. Call before threads start; a second call changes nothing.
int HTList_register();

// An empty list; null (reported) when memory is out. Released with HTList_delete().
[[nodiscard]] HTList *HTList_new(HTThreadContext *context);

// Put a new element that holds `object` in front of all others, or behind the last one, for which
// the whole list is walked. They return the new element, or null, with the list as it was, when
// memory is out.
HTList *HTList_addObject(HTList *list, void *object, HTThreadContext *context);
HTList *HTList_appendObject(HTList *list, void *object, HTThreadContext *context);

// Releases one element, which the caller has unlinked. Null does nothing.
void HTList_discardElement(HTList *element, HTThreadContext *context);

// Releases the header and all elements, but not the objects. Null does nothing.
void HTList_delete(HTList *list, HTThreadContext *context);

// The same, and releases every object with free().
void HTList_deleteAndFreeContents(HTList *list, HTThreadContext *context);
