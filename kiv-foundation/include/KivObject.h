// The root of the foundation's classes and its guarded memory allocator.
// Every block of string and buffer storage is wrapped in signatures so that an overrun or a
// foreign pointer is caught, loudly, at the moment the block is given back.
#ifndef KIV_OBJECT_H
#define KIV_OBJECT_H

#include "KivTypes.h"

class KivObject
{
public:
    // Thrown by the default allocator when the system has no memory left (see KivException.h).
    class MemoryAllocationFailure;

    typedef void* (*AllocatorProc)(unsigned int);
    typedef void (*DeallocatorProc)(void*);

    KivObject() = default;
    KivObject(const KivObject&) = default;
    KivObject& operator=(const KivObject&) = default;
    virtual ~KivObject();

    // Installs the host's procedures for the raw blocks; null restores malloc/free. Meant to be
    // called once, before the first allocation.
    static void SetMemoryAllocatorDeallocatorProcs(void* (*allocator_i)(unsigned int),
                                                   void (*deallocator_i)(void*));

    // Returns `size_i` usable bytes filled with 'Q', or null when an installed allocator failed.
    // The default allocator throws MemoryAllocationFailure instead of returning null.
    static void* MemoryAllocator(unsigned int size_i);

    // Gives back a block from MemoryAllocator (null is ignored); aborts on a damaged block.
    static void MemoryDeallocator(void* block_i);

    // Bytes added around every block: origin mark, open signature, size, two close signatures.
    static constexpr unsigned int kGuardOverhead = 17;

private:
    static AllocatorProc ourAllocatorProc;
    static DeallocatorProc ourDeallocatorProc;
};

// The nested exception class derives from KivException, which itself derives from KivObject.
#include "KivException.h"

#endif
