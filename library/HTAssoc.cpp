#include "HTAssoc.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <string_view>

#include "HTMemory.h"
#include "HTString.h"

namespace {

// The name and its NUL follow the record in memory, and the value follows them.
struct Pair {
    char *value;

    [[nodiscard]] char *name() { return reinterpret_cast<char *>(this + 1); }
};

Pair *newPair(std::string_view name, std::string_view value)
{
    const std::size_t size = sizeof(Pair) + name.size() + 1 + value.size() + 1;
    void *const memory = std::malloc(size);
    if (memory == nullptr) {
        HTOutOfMemory("library/HTAssoc", "HTAssocList_add", __LINE__, size);
        return nullptr;
    }
    auto *const pair = new (memory) Pair;
    pair->value = pair->name() + name.size() + 1;
    *std::copy(name.begin(), name.end(), pair->name()) = '\0';
    *std::copy(value.begin(), value.end(), pair->value) = '\0';
    return pair;
}

}  // namespace

HTAssocList *HTAssocList_new(HTThreadContext *context)
{
    return HTList_new(context);
}

bool HTAssocList_add(HTAssocList *list, const char *name, const char *value,
                     HTThreadContext *context)
{
    Pair *const pair = newPair(name, value);
    if (pair == nullptr || HTList_addObject(list, pair, context) == nullptr) {
        std::free(pair);
        return false;
    }
    return true;
}

char *HTAssocList_lookupExact(const HTAssocList *list, const char *name)
{
    // Most names differ in the first letter already.
    const char first = HTLower(*name);
    for (const HTList *element = list->next; element != nullptr; element = element->next) {
        auto *const pair = static_cast<Pair *>(element->object);
        if (HTLower(*pair->name()) == first && strcasecmp(pair->name(), name) == 0) {
            return pair->value;
        }
    }
    return nullptr;
}

void HTAssocList_delete(HTAssocList *list, HTThreadContext *context)
{
    HTList_deleteAndFreeContents(list, context);
}
