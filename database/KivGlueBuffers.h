// The byte blocks that the host wrappers hand to the host's callbacks: zero-terminated copies
// of input texts with their length words, and output buffers with their capacity words that
// can grow once when the host answers 'MBtS'. Shared by KivGlue.cpp and KivGlueDB.cpp only.
#ifndef KIV_GLUE_BUFFERS_H
#define KIV_GLUE_BUFFERS_H

#include "KivModuleInterface.h"
#include "KivBuffer.h"
#include "KivString.h"
#include "KivTypes.h"

// An input text as the host reads it: a zero-terminated copy and the word length + 1. The copy
// keeps the host from ever seeing (or writing into) the storage that strings share.
class KivGlueInputText
{
public:
    explicit KivGlueInputText(const KivString& text_i);

    void* GetText() { return myBuffer.GetAddress(); }
    void* GetLengthWord() { return &myLengthWord; }

private:
    KivBuffer myBuffer;
    KivUInt32 myLengthWord;
};

// An output buffer and its capacity word. The host writes the bytes and, into the capacity
// word, either the number of bytes it wrote or, with 'MBtS', the size it needs.
class KivGlueOutputBuffer
{
public:
    explicit KivGlueOutputBuffer(unsigned int capacity_i);

    void* GetAddress() { return myBuffer.GetAddress(); }
    void* GetCapacityWord() { return &myCapacityWord; }

    // After 'MBtS': resizes to the size the host asked for, but never below `minimum_i` (an
    // InOut buffer must still hold its input), and resets the capacity word to the real size.
    void GrowToRequestedSize(unsigned int minimum_i = 0);

    // Puts `text_i` with a terminating zero at the start of the buffer, growing it if needed,
    // and sets the capacity word to the buffer's size (the InOut shape).
    void LoadInput(const KivString& text_i);

    // The bytes the host wrote. A host that counted the terminating zero does not leave it in
    // the text, and a count beyond the buffer is cut to the buffer.
    KivString GetText() const;

private:
    KivBuffer myBuffer;
    KivUInt32 myCapacityWord;
};

// Calls `call_i` and, when the host answers 'MBtS', lets `grow_i` make room and calls exactly
// once more: a host that answers 'MBtS' again has failed.
template <typename CallProc, typename GrowProc>
KivUInt32 KivGlueCallWithRetry(CallProc call_i, GrowProc grow_i)
{
    KivUInt32 result = call_i();
    if (result == kKivResult_BufferTooSmall)
    {
        grow_i();
        result = call_i();
    }
    return result;
}

#endif
