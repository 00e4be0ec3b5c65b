// Association lists: pairs of strings, looked up by name. One list is used by one thread at a time.
//
// The pairs lie in a few blocks of memory, so that a short list takes a single allocation.
#pragma once

#include <string_view>

#include "HTWorkThread.h"

struct HTAssocList;

// An empty list; null (reported) when memory is out. Released with HTAssocList_delete().
[[nodiscard]] HTAssocList *HTAssocList_new(HTThreadContext *context);

// Adds copies of `name` and `value`. An older pair of that name stays, hidden by the new one.
// False, with the list as it was, when memory is out or the list is null.
bool HTAssocList_add(HTAssocList *list, std::string_view name, std::string_view value,
                     HTThreadContext *context);

// The value of the newest pair whose whole name equals `name`, ignoring the case of ASCII letters;
// null when there is none, or the list is null. The list keeps it; the caller may shorten it in
// place.
[[nodiscard]] char *HTAssocList_lookupExact(const HTAssocList *list, std::string_view name);

// Releases the list and its pairs; null does nothing.
void HTAssocList_delete(HTAssocList *list, HTThreadContext *context);
