#include "HTWorkThread.h"

#include <cstddef>
#include <new>

namespace {

struct Module {
    const char *name;
    HTThreadHook begin;
    HTThreadHook end;
};

// Written before threads start, read by all of them afterwards.
std::array<Module, kThreadSlots> modules{};
int moduleCount = 0;

thread_local HTThreadContext threadContext;

}  // namespace

HTLibraryConfig *HTLibraryConfig_new()
{
    return new (std::nothrow) HTLibraryConfig;
}

HTThreadContext *HTThread_context()
{
    return &threadContext;
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
