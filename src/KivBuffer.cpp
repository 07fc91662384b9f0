// A growable byte block on the guarded allocator.
#include "KivBuffer.h"

#include "KivAssert.h"

#include <cstring>

KivBuffer::KivBuffer() : myBufferData(nullptr), myBufferByteCount(0) {}

KivBuffer::KivBuffer(unsigned int size_i, unsigned int flags_i) : myBufferData(nullptr), myBufferByteCount(0)
{
    SetSize(size_i, flags_i);
}

KivBuffer::KivBuffer(const KivBuffer& buffer_i)
    : KivObject(buffer_i), myBufferData(nullptr), myBufferByteCount(0)
{
    SetSize(buffer_i.myBufferByteCount, 0);
    if (myBufferByteCount != 0)
        std::memcpy(myBufferData, buffer_i.myBufferData, myBufferByteCount);
}

KivBuffer& KivBuffer::operator=(const KivBuffer& buffer_i)
{
    if (this == &buffer_i)
        return *this;
    SetSize(buffer_i.myBufferByteCount, 0);
    if (myBufferByteCount != 0)
        std::memcpy(myBufferData, buffer_i.myBufferData, myBufferByteCount);
    return *this;
}

KivBuffer::~KivBuffer()
{
    KivObject::MemoryDeallocator(myBufferData);
}

void* KivBuffer::SetSize(unsigned int size_i, unsigned int flags_i)
{
    if (size_i > myBufferByteCount)
    {
        void* newBufferData = KivObject::MemoryAllocator(size_i);
        KIV_ASSERT_NOT_NULL(newBufferData);
        // The zeroing covers the first (new - old) bytes of the block, not the grown tail; with
        // kKivBuffer_KeepContents the old bytes then land over the start of that zeroed run.
        // Callers depend on exactly this placement.
        if ((flags_i & kKivBuffer_ZeroFill) != 0)
            std::memset(newBufferData, 0, size_i - myBufferByteCount);
        if ((flags_i & kKivBuffer_KeepContents) != 0 && myBufferData != nullptr)
            std::memmove(newBufferData, myBufferData, myBufferByteCount);
        KivObject::MemoryDeallocator(myBufferData);
        myBufferData = newBufferData;
    }
    myBufferByteCount = size_i;
    return myBufferData;
}

unsigned char KivBuffer::operator[](unsigned int offset_i) const
{
    KIV_ASSERT_STATE(offset_i < myBufferByteCount);
    return static_cast<const unsigned char*>(myBufferData)[offset_i];
}

unsigned char& KivBuffer::operator[](unsigned int offset_i)
{
    KIV_ASSERT_STATE(offset_i < myBufferByteCount);
    return static_cast<unsigned char*>(myBufferData)[offset_i];
}
