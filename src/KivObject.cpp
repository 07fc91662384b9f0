// The guarded allocator behind every block of string and buffer storage.
// Layout of a block of n caller bytes (n + 17 bytes in all):
//   [0] origin mark   [1..4] "wwww"   [5..8] n   [9..9+n) caller bytes   then 0xAAAFAAAF twice.
// New caller bytes are 'Q' and a released block is 'q' from offset 1 on, so that reading
// uninitialised or freed memory shows up in any dump instead of passing silently.
#include "KivObject.h"

#include "KivAssert.h"

#include <cstdlib>
#include <cstring>

namespace
{
const unsigned char kOriginInstalledProc = 0x55;
const unsigned char kOriginDefault = 0xAA;
const KivUInt32 kOpenSignature = 0x77777777;
const KivUInt32 kCloseSignature = 0xAAAFAAAF;
const unsigned int kSizeOffset = 5;
const unsigned int kDataOffset = 9;
const unsigned char kFreshFill = 0x51;
const unsigned char kReleasedFill = 0x71;

// Header fields sit at odd offsets, so they are read and written bytewise.
KivUInt32 ReadWord(const unsigned char* address_i)
{
    KivUInt32 value;
    std::memcpy(&value, address_i, sizeof value);
    return value;
}

void WriteWord(unsigned char* address_i, KivUInt32 value_i)
{
    std::memcpy(address_i, &value_i, sizeof value_i);
}

void* DefaultAllocator(unsigned int size_i)
{
    void* block = std::malloc(size_i);
    if (block == nullptr)
        throw KivObject::MemoryAllocationFailure();
    return block;
}

void DefaultDeallocator(void* block_i)
{
    if (block_i != nullptr)
        std::free(block_i);
}
} // namespace

KivObject::AllocatorProc KivObject::ourAllocatorProc = nullptr;
KivObject::DeallocatorProc KivObject::ourDeallocatorProc = nullptr;

KivObject::~KivObject() {}

void KivObject::SetMemoryAllocatorDeallocatorProcs(void* (*allocator_i)(unsigned int),
                                                   void (*deallocator_i)(void*))
{
    ourAllocatorProc = allocator_i;
    ourDeallocatorProc = deallocator_i;
}

void* KivObject::MemoryAllocator(unsigned int size_i)
{
    // The 32-bit size field cannot describe a block whose guarded size would wrap around.
    KIV_ASSERT_STATE(size_i <= 0xFFFFFFFFu - kGuardOverhead);

    unsigned int blockSize = size_i + kGuardOverhead;
    unsigned char* block;
    if (ourAllocatorProc != nullptr)
    {
        block = static_cast<unsigned char*>(ourAllocatorProc(blockSize));
        if (block == nullptr)
            return nullptr;
        block[0] = kOriginInstalledProc;
    }
    else
    {
        block = static_cast<unsigned char*>(DefaultAllocator(blockSize));
        block[0] = kOriginDefault;
    }

    WriteWord(block + 1, kOpenSignature);
    WriteWord(block + kSizeOffset, size_i);
    std::memset(block + kDataOffset, kFreshFill, size_i);
    WriteWord(block + kDataOffset + size_i, kCloseSignature);
    WriteWord(block + kDataOffset + size_i + 4, kCloseSignature);
    return block + kDataOffset;
}

void KivObject::MemoryDeallocator(void* block_i)
{
    if (block_i == nullptr)
        return;

    unsigned char* block = static_cast<unsigned char*>(block_i) - kDataOffset;
    if (ReadWord(block + 1) != kOpenSignature)
        KIV_UNEXPECTED_STATE("BUFFER OPEN SIGNATURE VIOLATED.  BAD POINTER?");
    KivUInt32 size = ReadWord(block + kSizeOffset);
    if (ReadWord(block + kDataOffset + size) != kCloseSignature)
        KIV_UNEXPECTED_STATE("BUFFER CLOSE SIGNATURE (1) VIOLATED");
    if (ReadWord(block + kDataOffset + size + 4) != kCloseSignature)
        KIV_UNEXPECTED_STATE("BUFFER CLOSE SIGNATURE (2) VIOLATED");

    std::memset(block + 1, kReleasedFill, (size_t)size + kGuardOverhead - 1);

    // The origin mark decides, so a block goes back to the kind of procedure that gave it.
    if (block[0] == kOriginInstalledProc && ourDeallocatorProc != nullptr)
        ourDeallocatorProc(block);
    else
        DefaultDeallocator(block);
}
