// An ordered, index-addressed array of values, the building block of every collection in the
// library. Arrays here are short, so there is no spare capacity: every Insert and Append
// reallocates and copies the whole array, growing it by exactly one element.
#ifndef TKIV_ARRAY_H
#define TKIV_ARRAY_H

#include "KivAssert.h"
#include "KivObject.h"

template <class T> class TKivArray : public KivObject
{
public:
    typedef void (*DisposalProc)(T&);

    // `disposal_i` (may be null) is called on each element when the array is emptied, for
    // instance to delete the objects that an array of pointers owns.
    explicit TKivArray(DisposalProc disposal_i = nullptr) : myDisposalProc(disposal_i) {}

    // The copy holds copies of the elements but no disposal procedure: only one array may own
    // what the elements point to.
    TKivArray(const TKivArray& array_i) : KivObject(array_i), myDisposalProc(nullptr)
    {
        CopyElementsFrom(array_i);
    }

    // Empties this array (disposing of its elements) and copies the other's elements; the
    // disposal procedure stays as it was.
    TKivArray& operator=(const TKivArray& array_i)
    {
        if (this != &array_i)
        {
            Empty();
            CopyElementsFrom(array_i);
        }
        return *this;
    }

    ~TKivArray() override { Empty(); }

    unsigned int GetElementCount() const { return myElementCount; }

    // An index not below the count is first handed to HandleOutOfBoundsSituation, whose default
    // aborts for index 0 and otherwise grows the array to `index_i` elements; the element at
    // `index_i` then lies just past the count, in the block's spare slot.
    T& operator[](unsigned int index_i)
    {
        if (index_i >= myElementCount)
        {
            HandleOutOfBoundsSituation(index_i);
            // A derived handler may leave the index anywhere; never reach outside the block.
            KIV_ASSERT_STATE(index_i < myBlockElementCount);
        }
        return myElements[index_i];
    }

    const T& operator[](unsigned int index_i) const { return (*const_cast<TKivArray*>(this))[index_i]; }

    // Inserts a copy of `element_i` before `index_i`, which is clamped to the count.
    void Insert(const T& element_i, unsigned int index_i)
    {
        // The element may live in this very array, whose block is about to be replaced.
        T element = element_i;
        unsigned int oldCount = myElementCount;
        if (index_i > oldCount)
            index_i = oldCount;
        ResizeToHold(oldCount + 1);
        for (unsigned int i = oldCount; i > index_i; --i)
            myElements[i] = myElements[i - 1];
        myElements[index_i] = element;
    }

    void Append(const T& element_i) { Insert(element_i, 0xFFFFFFFF); }

    // Shrinking only lowers the count: the block is kept and no element is disposed of.
    // Growing allocates a new block, default-constructs the new elements and copies the old ones.
    void ResizeToHold(unsigned int count_i)
    {
        if (count_i <= myElementCount)
        {
            myElementCount = count_i;
            return;
        }
        // One slot more than the count, so that an access just past the count after
        // HandleOutOfBoundsSituation stays inside the block.
        // Value-initialised, so that new numbers and pointers read as 0 rather than garbage.
        unsigned int blockElementCount = count_i + 1;
        T* elements = new T[blockElementCount]();
        for (unsigned int i = 0; i < myElementCount; ++i)
            elements[i] = myElements[i];
        delete[] myElements;
        myElements = elements;
        myBlockElementCount = blockElementCount;
        myElementCount = count_i;
    }

    // Disposes of every element from index 0 up, then frees the block.
    void Empty()
    {
        for (unsigned int i = 0; i < myElementCount; ++i)
            ElementDisposal(myElements[i]);
        delete[] myElements;
        myElements = nullptr;
        myBlockElementCount = 0;
        myElementCount = 0;
    }

    void ElementDisposal(T& element_io)
    {
        if (myDisposalProc != nullptr)
            myDisposalProc(element_io);
    }

    // Called by operator[] for an index not below the count.
    virtual void HandleOutOfBoundsSituation(unsigned int index_i)
    {
        KIV_ASSERT_STATE(index_i > 0);
        ResizeToHold(index_i);
    }

private:
    void CopyElementsFrom(const TKivArray& array_i)
    {
        ResizeToHold(array_i.myElementCount);
        for (unsigned int i = 0; i < array_i.myElementCount; ++i)
            myElements[i] = array_i.myElements[i];
    }

    T* myElements = nullptr;              // null when nothing was ever allocated
    unsigned int myBlockElementCount = 0; // elements in the block: the count plus a spare slot
    unsigned int myElementCount = 0;
    DisposalProc myDisposalProc;
};

#endif
