#include "HTWorkThread.h"

#include <pthread.h>

#include <cstddef>
#include <new>
#include <type_traits>

namespace {

struct Module {
    const char *name;
    HTThreadHook begin;
    HTThreadHook end;
};

// Written before threads start, read by all of them afterwards.
std::array<Module, kThreadSlots> modules{};
int moduleCount = 0;

// Room for the context of the thread. It has no destructor: to register one takes memory, and if
// there is none when a thread first asks for its context, the C library ends the process with
// SIGABRT. Setting a value for a key takes none.
struct ContextRoom {
    alignas(HTThreadContext) std::array<std::byte, sizeof(HTThreadContext)> bytes{};
    HTThreadContext *context = nullptr;
};
static_assert(std::is_trivially_destructible_v<ContextRoom>);
thread_local constinit ContextRoom room;

void endContext(void *context)
{
    room.context = nullptr;
    static_cast<HTThreadContext *>(context)->~HTThreadContext();
}

// The key whose destructor ends the contexts. Made by the first thread that asks for its context.
pthread_key_t contextKey()
{
    static const pthread_key_t key = [] {
        pthread_key_t made{};
        pthread_key_create(&made, endContext);
        return made;
    }();
    return key;
}

}  // namespace

HTLibraryConfig *HTLibraryConfig_new()
{
    return new (std::nothrow) HTLibraryConfig;
}

HTThreadContext *HTThread_context()
{
    if (room.context == nullptr) {
        room.context = new (room.bytes.data()) HTThreadContext;
        pthread_setspecific(contextKey(), room.context);
    }
    return room.context;
}

int HTWorkThread_register(const char *name, HTThreadHook begin, HTThreadHook end)
{
    if (moduleCount == kThreadSlots) {
        return -1;
    }
    modules[static_cast<std::size_t>(moduleCount)] = {.name = name, .begin = begin, .end = end};
    return moduleCount++;
}

HTThreadContext *HTWorkThread_threadCreate(int /*kind*/)
{
    HTThreadContext *const context = HTThread_context();
    for (int slot = 0; slot < moduleCount; ++slot) {
        const HTThreadHook begin = modules[static_cast<std::size_t>(slot)].begin;
        if (begin != nullptr) {
            begin(context, slot);
        }
    }
    return context;
}

// The library's scratch memory is scoped by each function that takes some, so a piece of work has
// nothing to set up or to clear.
void HTWorkThread_svcThreadStartWork(int /*kind*/, HTThreadContext * /*context*/) {}

void HTWorkThread_svcThreadEndWork(int /*kind*/, HTThreadContext * /*context*/) {}

void HTWorkThread_threadExit(int /*kind*/, HTThreadContext *context)
{
    for (int slot = moduleCount; slot-- > 0;) {
        const HTThreadHook end = modules[static_cast<std::size_t>(slot)].end;
        if (end != nullptr) {
            end(context, slot);
        }
    }
}
