// Memory for the small records of which a process has millions: they are cut out of large blocks,
// because the heap would add 8 bytes to each, and are used again. The blocks never return to the
// heap.
//
// Each thread keeps a few free records, so that most calls take no lock. Any thread may call, and
// may give back what another one took. With AddressSanitizer every record is a heap allocation of
// its own, so that it sees each use after the end.
#pragma once

#include <cstddef>

#include "HTAttributes.h"

inline constexpr std::size_t kHTRecordSize = 24;
// True when every record is a heap allocation of its own.
inline constexpr bool kHTRecordIsOfHeap = HT_ADDRESS_SANITIZER;

// kHTRecordSize bytes, not cleared, aligned for pointers; null when memory is out.
[[nodiscard]] void *HTRecord_new();

// Gives one back. Null does nothing.
void HTRecord_delete(void *record);
