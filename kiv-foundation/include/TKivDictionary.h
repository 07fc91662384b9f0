// A map kept as two parallel arrays, the keys sorted ascending without duplicates, so that a
// look-up is a binary search and a walk by index visits the keys in order.
#ifndef TKIV_DICTIONARY_H
#define TKIV_DICTIONARY_H

#include "KivAssert.h"
#include "TKivArray.h"

template <class K, class V> class TKivDictionary : public KivObject
{
public:
    explicit TKivDictionary(void (*keyDisposal_i)(K&) = nullptr, void (*valueDisposal_i)(V&) = nullptr)
        : myKeyArray(keyDisposal_i), myValueArray(valueDisposal_i)
    {
    }

    // Copies keys and values but not the disposal procedures (see TKivArray).
    TKivDictionary(const TKivDictionary& dictionary_i)
        : KivObject(dictionary_i), myKeyArray(dictionary_i.myKeyArray),
          myValueArray(dictionary_i.myValueArray)
    {
    }

    TKivDictionary& operator=(const TKivDictionary& dictionary_i)
    {
        CheckInvariant();
        myKeyArray = dictionary_i.myKeyArray;
        myValueArray = dictionary_i.myValueArray;
        CheckInvariant();
        return *this;
    }

    ~TKivDictionary() override { Empty(); }

    unsigned int GetElementCount() const
    {
        CheckInvariant();
        return myKeyArray.GetElementCount();
    }

    // False, changing nothing, when the key is already present.
    bool Add(const K& key_i, const V& value_i)
    {
        CheckInvariant();
        unsigned int index = 0;
        if (FindElement(key_i, index))
            return false;
        myKeyArray.Insert(key_i, index);
        myValueArray.Insert(value_i, index);
        CheckInvariant();
        return true;
    }

    // Sets `value_io` only when the key is present.
    bool Find(const K& key_i, V& value_io) const
    {
        CheckInvariant();
        unsigned int index = 0;
        if (!FindElement(key_i, index))
            return false;
        value_io = myValueArray[index];
        CheckInvariant();
        return true;
    }

    // On success `index_io` is the key's position; otherwise the position where it would be
    // inserted to keep the keys in order.
    bool FindElement(const K& key_i, unsigned int& index_io) const
    {
        CheckInvariant();
        KivSInt32 low = 0;
        KivSInt32 high = (KivSInt32)myKeyArray.GetElementCount() - 1;
        while (low <= high)
        {
            KivSInt32 middle = (low + high + 1) / 2;
            const K& middleKey = myKeyArray[(unsigned int)middle];
            if (key_i < middleKey)
                high = middle - 1;
            else if (key_i > middleKey)
                low = middle + 1;
            else
            {
                index_io = (unsigned int)middle;
                return true;
            }
        }
        index_io = (unsigned int)low;
        return false;
    }

    // False when `index_i` is not below the count; otherwise copies out that key and value.
    bool GetElement(unsigned int index_i, K& key_io, V& value_io) const
    {
        CheckInvariant();
        if (index_i >= myKeyArray.GetElementCount())
            return false;
        key_io = myKeyArray[index_i];
        value_io = myValueArray[index_i];
        return true;
    }

    // Empties the keys, then the values, each with its disposal procedure.
    void Empty()
    {
        CheckInvariant();
        myKeyArray.Empty();
        myValueArray.Empty();
        CheckInvariant();
    }

protected:
    void CheckInvariant() const
    {
        KIV_ASSERT_STATE(myKeyArray.GetElementCount() == myValueArray.GetElementCount());
    }

    TKivArray<K> myKeyArray;   // ascending, no duplicates
    TKivArray<V> myValueArray; // the value of key i at index i
};

#endif
