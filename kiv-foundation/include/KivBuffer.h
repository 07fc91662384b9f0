// A growable block of bytes taken from the guarded allocator. It is the storage underneath
// every string and the scratch space handed to the host for its answers.
#ifndef KIV_BUFFER_H
#define KIV_BUFFER_H

#include "KivObject.h"

// SetSize flags.
constexpr unsigned int kKivBuffer_ZeroFill = 1;     // zero the start of a newly obtained block
constexpr unsigned int kKivBuffer_KeepContents = 2; // move the old bytes into a newly obtained block

class KivBuffer : public KivObject
{
public:
    KivBuffer();
    KivBuffer(unsigned int size_i, unsigned int flags_i);
    KivBuffer(const KivBuffer& buffer_i);
    KivBuffer& operator=(const KivBuffer& buffer_i);
    ~KivBuffer() override;

    // Sets the size in bytes and returns the block's address. Growing obtains a new block of
    // exactly `size_i` bytes; shrinking keeps the block and only lowers the count.
    void* SetSize(unsigned int size_i, unsigned int flags_i);

    unsigned int GetSize() const { return myBufferByteCount; }
    void* GetAddress() const { return myBufferData; }

    // Aborts when the offset is not below the size.
    unsigned char operator[](unsigned int offset_i) const;
    unsigned char& operator[](unsigned int offset_i);

protected:
    void* myBufferData;
    KivUInt32 myBufferByteCount;
};

#endif
