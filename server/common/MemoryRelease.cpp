// Memory given back after large responses (glibc's allocator).
#include "common/MemoryRelease.h"

#include <malloc.h>

namespace kiv
{

namespace
{
constexpr int kMappedBlockBytes = 256 * 1024;
}

void limitRetainedMemory()
{
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__)
    // Setting the threshold also stops glibc from raising it each time a mapped block is freed.
    mallopt(M_MMAP_THRESHOLD, kMappedBlockBytes);
#endif
}

void giveBackFreeMemory()
{
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__)
    malloc_trim(0);
#endif
}

} // namespace kiv
