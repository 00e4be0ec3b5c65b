// User-visible texts by number, from the catalogues of the process's locale.
//
// A catalogue is opened when its first text is requested. This is tried once: a set that could not
// be opened gives the fallback texts from then on. Any thread may call at any time.
#pragma once

// Where the catalogues are.
inline constexpr const char *kCatalogueDirectory = "/opt/tarn/fell/zu/msg";

// Opens set `set` for `locale` (null: ICU's default), or adds one use when it is open. 1, or 0 when
// there is no such set, it cannot be opened, or opening it has failed before.
int nlsLoadResources(int set, const char *locale);
// Ends one use; after the last one the set is closed and is not opened again. Its texts must no
// longer be in use.
void nlsFreeResources(int set);

// Message `index` (from 1) of resource `key` in set `set`, in the locale's code page; or `fallback`
// when there is none or it is empty. The text is not the caller's to free.
const char *nlsGetString(int set, int key, int index, const char *fallback);
