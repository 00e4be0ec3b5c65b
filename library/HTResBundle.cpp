#include "HTResBundle.h"

#include <langinfo.h>
#include <strings.h>
#include <unicode/ucnv.h>
#include <unicode/uloc.h>
#include <unicode/ures.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "HTHash.h"
#include "HTLocale.h"
#include "HTMemory.h"
#include "HTResFile.h"
#include "htthread.h"

namespace {

constexpr std::uint32_t kBuckets = 256;
constexpr std::uint32_t kElementFreeList = 512;

struct CodePageRow {
    const char *locale;
    const char *codePage;
};

// Searched in order, ignoring the case of names. The code pages are ICU's converter names. Japanese
// has Windows code page 932; ICU's "ibm-932" is a table with other characters. ICU as packaged has
// no converter for code page 1381; its superset 1386 serves instead.
constexpr std::array<CodePageRow, 10> codePageTable = {{
    {"en_US", "ibm-850"},
    {"es_ES", "ibm-850"},
    {"fr_FR", "ibm-850"},
    {"de_DE", "ibm-850"},
    {"it_IT", "ibm-850"},
    {"pt_BR", "ibm-850"},
    {"ja_JP", "ibm-943_P15A-2003"},
    {"ko_KR", "ksc_5601"},
    {"zh_CN", "ibm-1386"},
    {"zh_TW", "BIG5"},
}};
constexpr const char *kDefaultCodePage = "ibm-850";

// One message that was looked up; both texts follow it in the same allocation.
struct Element {
    std::uint32_t key;
    std::uint32_t index;
    const UChar *unicode;
    const char *text;
};

int ResBundle_Compare(const void *item, const void *key)
{
    const auto *const a = static_cast<const Element *>(item);
    const auto *const b = static_cast<const Element *>(key);
    return a->key == b->key && a->index == b->index ? 0 : 1;
}

std::uint32_t ResBundle_Hash(std::uint32_t size, const void *element)
{
    const auto *const e = static_cast<const Element *>(element);
    return (size / 5 * e->key + e->index) % size;
}

}  // namespace

struct ResBundle {
    explicit ResBundle(UResourceBundle *opened) : resources(opened) {}

    // Fixed once it is loaded.
    UResourceBundle *const resources;
    UConverter *converter = nullptr;
    std::array<char, kCodePageSize> codePage{};

    std::atomic<bool> primed =
        false;  // set last by ResBundle_Prime(), with everything in the table

    PMutex mutex;  // guards the rest, and the converter, until the bundle is primed
    HashTable *elements = nullptr;  // of Element
    HTPool heap;                    // the elements' memory; only grows
};

namespace {

// Opens ICU's side of a catalogue; null when there is none, or when one of its files is damaged.
UResourceBundle *ResBundle_LoadCatalog(const char *locale, const char *directory, const char *name,
                                       UErrorCode *status)
{
    std::array<char, 1024> path{};
    const std::size_t length = std::strlen(directory);
    const char *const separator = length != 0 && directory[length - 1] == '/' ? "" : "/";
    std::snprintf(path.data(), path.size(), "%s%s%s", directory, separator, name);
    if (!HTResFile_allSound(path.data(), locale)) {
        return nullptr;
    }
    UResourceBundle *const resources = ures_open(path.data(), locale, status);
    if (U_FAILURE(*status)) {
        ures_close(resources);
        return nullptr;
    }
    return resources;
}

void chooseCodePage(ResBundle *bundle, const char *locale, UErrorCode openStatus)
{
    UErrorCode status = U_ZERO_ERROR;
    std::int32_t length = 0;
    const UChar *const forced =
        ures_getStringByKey(bundle->resources, "force_encoding", &length, &status);
    if (U_SUCCESS(status)) {
        u_austrncpy(bundle->codePage.data(), forced, kCodePageSize - 1);
        return;
    }
    if (openStatus == U_USING_DEFAULT_WARNING) {
        status = U_ZERO_ERROR;
        locale = ures_getLocaleByType(bundle->resources, ULOC_ACTUAL_LOCALE, &status);
    }
    Locale_GetDefaultCodeset(locale, bundle->codePage.data());
}

// The converted text's length; 0 when it cannot be converted.
std::int32_t convertedLength(ResBundle *bundle, const UChar *text, std::int32_t length)
{
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t wanted =
        ucnv_fromUChars(bundle->converter, nullptr, 0, text, length, &status);
    return status == U_BUFFER_OVERFLOW_ERROR ? wanted : 0;
}

// Adds a message to the table; false when memory is out. Needs the bundle's mutex.
bool ResBundle_Insert(ResBundle *bundle, std::uint32_t key, std::uint32_t index, const UChar *text,
                      std::int32_t length)
{
    const std::int32_t converted = convertedLength(bundle, text, length);
    const std::size_t unicodeBytes = (static_cast<std::size_t>(length) + 1) * sizeof(UChar);
    const std::size_t size =
        sizeof(Element) + unicodeBytes + static_cast<std::size_t>(converted) + 1;
    void *const memory = bundle->heap.alloc(size);
    if (memory == nullptr) {
        return false;
    }
    auto *const unicode = reinterpret_cast<UChar *>(static_cast<char *>(memory) + sizeof(Element));
    char *const plain = reinterpret_cast<char *>(unicode) + unicodeBytes;
    u_memcpy(unicode, text, length);
    unicode[length] = 0;
    UErrorCode status = U_ZERO_ERROR;
    ucnv_fromUChars(bundle->converter, plain, converted, text, length, &status);
    plain[converted] = '\0';
    auto *const element =
        new (memory) Element{.key = key, .index = index, .unicode = unicode, .text = plain};
    return HashAdd(bundle->elements, element) == 0;
}

// A top-level resource becomes one message, an array one message an item.
void primeResource(ResBundle *bundle, UResourceBundle *resource)
{
    const char *const name = ures_getKey(resource);
    const auto key =
        static_cast<std::uint32_t>(name == nullptr ? 0 : std::strtol(name, nullptr, 10));
    const UResType type = ures_getType(resource);
    const std::int32_t count = type == URES_ARRAY ? ures_getSize(resource) : 1;
    if (type != URES_ARRAY && type != URES_STRING) {
        return;
    }
    for (std::int32_t i = 0; i < count; ++i) {
        UErrorCode status = U_ZERO_ERROR;
        std::int32_t length = 0;
        const UChar *const text = type == URES_ARRAY
                                      ? ures_getStringByIndex(resource, i, &length, &status)
                                      : ures_getString(resource, &length, &status);
        if (U_SUCCESS(status) &&
            !ResBundle_Insert(bundle, key, static_cast<std::uint32_t>(i) + 1, text, length)) {
            return;
        }
    }
}

// Fetches a message from ICU into the table. Needs the bundle's mutex.
void fetchLocked(ResBundle *bundle, std::uint32_t key, std::uint32_t index)
{
    std::array<char, 16> name{};
    std::snprintf(name.data(), name.size(), "%d", static_cast<int>(key));
    UErrorCode status = U_ZERO_ERROR;
    UResourceBundle *const resource =
        ures_getByKey(bundle->resources, name.data(), nullptr, &status);
    std::int32_t length = 0;
    const UChar *text = nullptr;
    // A single string is item 1, and only that.
    const std::uint32_t items =
        U_FAILURE(status) ? 0 : static_cast<std::uint32_t>(std::max(ures_getSize(resource), 0));
    if (index >= 1 && index <= items) {
        text =
            ures_getStringByIndex(resource, static_cast<std::int32_t>(index) - 1, &length, &status);
    }
    if (U_SUCCESS(status) && text != nullptr) {
        ResBundle_Insert(bundle, key, index, text, length);
    }
    ures_close(resource);
}

const Element *ResBundle_ExtractHashElement(ResBundle *bundle, std::uint32_t key,
                                            std::uint32_t index)
{
    const Element probe{.key = key, .index = index, .unicode = nullptr, .text = nullptr};
    if (bundle->primed) {
        return static_cast<const Element *>(HashLookup(bundle->elements, &probe));
    }
    const PMutexGuard guard(bundle->mutex);
    const void *found = HashLookup(bundle->elements, &probe);
    if (found == nullptr && !bundle->primed) {
        fetchLocked(bundle, key, index);
        found = HashLookup(bundle->elements, &probe);
    }
    return static_cast<const Element *>(found);
}

}  // namespace

ResBundle *ResBundle_LoadSpecific(const char *locale, const char *directory, const char *name)
{
    if (*directory == '\0') {
        return nullptr;
    }
    if (locale == nullptr) {
        locale = uloc_getDefault();
    }
    UErrorCode openStatus = U_ZERO_ERROR;
    UResourceBundle *const resources = ResBundle_LoadCatalog(locale, directory, name, &openStatus);
    if (resources == nullptr) {
        return nullptr;
    }
    auto *const bundle = new (std::nothrow) ResBundle(resources);
    if (bundle == nullptr) {
        ures_close(resources);
        return nullptr;
    }
    chooseCodePage(bundle, locale, openStatus);
    UErrorCode status = U_ZERO_ERROR;
    bundle->converter = ucnv_open(bundle->codePage.data(), &status);
    bundle->elements = HashCreate(kBuckets, ResBundle_Compare, ResBundle_Hash, 0);
    if (U_FAILURE(status) || bundle->elements == nullptr) {
        ResBundle_Destroy(bundle);
        return nullptr;
    }
    HashSetFreelistLength(bundle->elements, kElementFreeList);
    HashPreallocate(bundle->elements);
    return bundle;
}

ResBundle *ResBundle_Load(const char *directory, const char *name)
{
    return ResBundle_LoadSpecific(nullptr, directory, name);
}

void ResBundle_Prime(ResBundle *bundle)
{
    const PMutexGuard guard(bundle->mutex);
    if (bundle->primed) {
        return;
    }
    ures_resetIterator(bundle->resources);
    while (ures_hasNext(bundle->resources) != 0) {
        UErrorCode status = U_ZERO_ERROR;
        UResourceBundle *const resource = ures_getNextResource(bundle->resources, nullptr, &status);
        if (U_SUCCESS(status)) {
            primeResource(bundle, resource);
        }
        ures_close(resource);
    }
    bundle->primed = true;
}

const char *ResBundle_ExtractWithDefault(ResBundle *bundle, std::uint32_t key, std::uint32_t index,
                                         const char *fallback)
{
    const Element *const element = ResBundle_ExtractHashElement(bundle, key, index);
    return element == nullptr || *element->text == '\0' ? fallback : element->text;
}

const char *ResBundle_Extract(ResBundle *bundle, std::uint32_t key, std::uint32_t index)
{
    return ResBundle_ExtractWithDefault(bundle, key, index, nullptr);
}

const UChar *ResBundle_ExtractUnicodeWithDefault(ResBundle *bundle, std::uint32_t key,
                                                 std::uint32_t index, const UChar *fallback)
{
    const Element *const element = ResBundle_ExtractHashElement(bundle, key, index);
    return element == nullptr || *element->unicode == 0 ? fallback : element->unicode;
}

const UChar *ResBundle_ExtractUnicode(ResBundle *bundle, std::uint32_t key, std::uint32_t index)
{
    return ResBundle_ExtractUnicodeWithDefault(bundle, key, index, nullptr);
}

void ResBundle_Destroy(ResBundle *bundle)
{
    if (bundle == nullptr) {
        return;
    }
    HashDestroy(bundle->elements);
    ucnv_close(bundle->converter);
    ures_close(bundle->resources);
    delete bundle;
}

namespace {

void copyCodePage(const char *name, char *codeset)
{
    std::snprintf(codeset, kCodePageSize, "%.*s", static_cast<int>(std::strcspn(name, ":")), name);
}

// The character set of the environment. The process itself stays in the "C" locale, in which
// letters compare as the protocols want it.
void copySystemCodePage(char *codeset)
{
    const locale_t environment = newlocale(LC_CTYPE_MASK, "", nullptr);
    const char *const name = environment == nullptr ? "" : nl_langinfo_l(CODESET, environment);
    copyCodePage(*name == '\0' ? kDefaultCodePage : name, codeset);
    if (environment != nullptr) {
        freelocale(environment);
    }
}

}  // namespace

void Locale_GetDefaultCodeset(const char *locale, char *codeset)
{
    if (locale == nullptr) {
        locale = Locale_GetDefault();
    }
    if (locale == nullptr) {
        locale = "en_US";
    }
    for (const CodePageRow &row : codePageTable) {
        if (strcasecmp(row.locale, locale) == 0) {
            copyCodePage(row.codePage, codeset);
            return;
        }
    }
    copySystemCodePage(codeset);
}
