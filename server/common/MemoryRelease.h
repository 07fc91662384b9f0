// Giving memory back to the system: a worker that has made one very large page (10,000 rows)
// must not keep that page's worth of memory for the rest of its life.
#pragma once

#include <cstddef>

namespace kiv
{

// A response at least this large is followed by giveBackFreeMemory().
constexpr size_t kLargeResponseBytes = 1024 * 1024;

// Once per serving process, before its threads start: blocks of 256 KiB and more (pages, a
// window of rows, response bodies) are mapped on their own and unmapped when freed, instead of
// staying in the heap after glibc's own threshold has risen to their size.
void limitRetainedMemory();

// Hands the free pages of every allocator arena back to the system (malloc_trim).
void giveBackFreeMemory();

} // namespace kiv
