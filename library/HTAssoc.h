// Association lists: pairs of strings, looked up by name. Built on HTList: the last argument of a
// call is the calling thread's context, and one list is used by one thread at a time.
#pragma once

#include "HTList.h"

using HTAssocList = HTList;

// An empty list; null (reported) when memory is out. Released with HTAssocList_delete().
[[nodiscard]] HTAssocList *HTAssocList_new(HTThreadContext *context);

// Adds copies of `name` and `value`. An older pair of that name stays, hidden by the new one.
// False, with the list as it was, when memory is out.
bool HTAssocList_add(HTAssocList *list, const char *name, const char *value,
                     HTThreadContext *context);

// The value of the newest pair whose whole name equals `name`, ignoring the case of ASCII letters;
// null when there is none. The list keeps it; the caller may shorten it in place.
[[nodiscard]] char *HTAssocList_lookupExact(const HTAssocList *list, const char *name);

// Releases the list and its pairs; null does nothing.
void HTAssocList_delete(HTAssocList *list, HTThreadContext *context);
