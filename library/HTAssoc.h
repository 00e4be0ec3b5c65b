// Association lists: pairs of strings, looked up by name. One list is used by one thread at a time.
//
// The pairs lie in a few blocks of memory, so that a short list takes a single allocation.
#pragma once

#include <cstdint>
#include <string_view>

#include "HTWorkThread.h"

struct HTAssocList;

// One bit of 64, by the length of a name and its first character, whose case does not matter. Names
// whose bits are not in the union of those of others differ from all of them.
constexpr std::uint64_t HTNameMark(std::string_view name)
{
    const unsigned first = name.empty() ? 0U : static_cast<unsigned char>(name.front()) | 0x20U;
    return std::uint64_t{1} << ((name.size() * 5 + first) % 64);
}

// An empty list; null (reported) when memory is out. Released with HTAssocList_delete().
[[nodiscard]] HTAssocList *HTAssocList_new(HTThreadContext *context);

// Adds copies of `name` and `value`. An older pair of that name stays, hidden by the new one.
// False, with the list as it was, when memory is out or the list is null.
bool HTAssocList_add(HTAssocList *list, std::string_view name, std::string_view value,
                     HTThreadContext *context);

// The union of the marks of all names: a name whose mark is not in it is absent.
[[nodiscard]] std::uint64_t HTAssocList_marks(const HTAssocList *list);

// The value of the newest pair whose whole name equals `name`, ignoring the case of ASCII letters;
// null when there is none, or the list is null. The list keeps it; the caller may shorten it in
// place.
[[nodiscard]] char *HTAssocList_lookupExact(const HTAssocList *list, std::string_view name);

// Releases the list and its pairs; null does nothing.
void HTAssocList_delete(HTAssocList *list, HTThreadContext *context);
