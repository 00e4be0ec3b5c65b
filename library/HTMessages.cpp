#include "HTMessages.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "HTResBundle.h"
#include "htthread.h"

namespace {

struct CatalogueSet {
    const char *name;
    bool prime;  // convert everything when it is opened
    std::atomic<ResBundle *> bundle = nullptr;
    int uses = 0;
    int attempts = 0;
};

// Rows by set number. Changed under the lock; an open bundle is read without it.
constinit std::array<CatalogueSet, 7> ResBundleData = {{
    {"refetchd", false},
    {"config", false},
    {"HTMLForm", false},
    {"htmlprox", false},
    {"tarnproxy", false},
    {"tarnhtc", true},
    {"tarnzu", true},
}};

// Never destroyed: a thread may ask for a text while the process ends.
PMutex &setsMutex()
{
    static PMutex *const mutex = new PMutex;
    return *mutex;
}

CatalogueSet *setOf(int number)
{
    const auto index = static_cast<std::size_t>(number);
    return number < 0 || index >= ResBundleData.size() ? nullptr : &ResBundleData[index];
}

// Opens the set unless it is open. Only the first attempt ever opens it. Needs the lock.
bool openLocked(CatalogueSet *set, const char *locale)
{
    if (set->bundle != nullptr) {
        return true;
    }
    if (set->attempts++ != 0) {
        return false;
    }
    ResBundle *const bundle = ResBundle_LoadSpecific(locale, kCatalogueDirectory, set->name);
    if (bundle != nullptr && set->prime) {
        ResBundle_Prime(bundle);
    }
    set->bundle = bundle;
    return bundle != nullptr;
}

}  // namespace

int nlsLoadResources(int set, const char *locale)
{
    CatalogueSet *const row = setOf(set);
    if (row == nullptr) {
        return 0;
    }
    const PMutexGuard guard(setsMutex());
    if (!openLocked(row, locale)) {
        return 0;
    }
    ++row->uses;
    return 1;
}

void nlsFreeResources(int set)
{
    CatalogueSet *const row = setOf(set);
    if (row == nullptr) {
        return;
    }
    const PMutexGuard guard(setsMutex());
    if (row->bundle != nullptr && --row->uses == 0) {
        ResBundle_Destroy(row->bundle.exchange(nullptr));
    }
}

const char *nlsGetString(int set, int key, int index, const char *fallback)
{
    const CatalogueSet *const row = setOf(set);
    if (row == nullptr || (row->bundle == nullptr && nlsLoadResources(set, nullptr) == 0)) {
        return fallback;
    }
    ResBundle *const bundle = row->bundle;
    return bundle == nullptr
               ? fallback
               : ResBundle_ExtractWithDefault(bundle, static_cast<std::uint32_t>(key),
                                              static_cast<std::uint32_t>(index), fallback);
}
