#include "HTAssoc.h"

#include <strings.h>

#include <cstring>
#include <memory>
#include <new>

#include "HTMemory.h"
#include "HTString.h"

namespace {

struct Pair {
    HeapString name;
    HeapString value;
};

}  // namespace

HTAssocList *HTAssocList_new(HTThreadContext *context)
{
    return HTList_new(context);
}

bool HTAssocList_add(HTAssocList *list, const char *name, const char *value,
                     HTThreadContext *context)
{
    std::unique_ptr<Pair> pair(new (std::nothrow) Pair{.name = HeapString(strdup(name)),
                                                       .value = HeapString(strdup(value))});
    if (pair == nullptr || pair->name == nullptr || pair->value == nullptr) {
        HTOutOfMemory("library/HTAssoc", "HTAssocList_add", __LINE__,
                      sizeof(Pair) + std::strlen(name) + std::strlen(value) + 2);
        return false;
    }
    HTList *const element = HTList_addObject(list, nullptr, context);
    if (element == nullptr) {
        return false;
    }
    element->object = pair.release();
    return true;
}

char *HTAssocList_lookupExact(const HTAssocList *list, const char *name)
{
    for (const HTList *element = list->next; element != nullptr; element = element->next) {
        const auto *const pair = static_cast<const Pair *>(element->object);
        if (strcasecmp(pair->name.get(), name) == 0) {
            return pair->value.get();
        }
    }
    return nullptr;
}

void HTAssocList_delete(HTAssocList *list, HTThreadContext *context)
{
    for (const HTList *element = list; element != nullptr; element = element->next) {
        delete static_cast<Pair *>(element->object);  // the header's is null
    }
    HTList_delete(list, context);
}
