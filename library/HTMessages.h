// User-visible texts by number, from the catalogues of the process's locale.
//
// A catalogue is opened when its first text is asked for, and only once: a set that could not be
// opened then gives the fallback texts from there on. Any thread may call at any time.
#pragma once

// Where the catalogues are.
inline constexpr const char *kCatalogueDirectory = "/opt/tarn/fell/zu/msg";

// Opens set `set` for `locale` (null: ICU's default), or takes one more use of it when it is open.
// 1, or 0 when there is no such set, it cannot be opened, or it was tried before.
int nlsLoadResources(int set, const char *locale);
// Gives one use back; with the last one the set is closed, for good. Nobody may hold texts of it.
void nlsFreeResources(int set);

// Message `index` (from 1) of resource `key` in set `set`, in the locale's code page; or `fallback`
// when there is none or it is empty. The text is not the caller's to free.
const char *nlsGetString(int set, int key, int index, const char *fallback);
