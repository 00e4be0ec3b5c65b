// User-visible texts by number.
#pragma once

// Message `index` of resource `key` in catalogue set `set`, or `fallback` when there is none. The
// text is not the caller's to free. Any thread.
const char *nlsGetString(int set, int key, int index, const char *fallback);
