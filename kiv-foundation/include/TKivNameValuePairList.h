// An unsorted list of name/value pairs in insertion order, duplicates allowed, such as the parts
// and headers of a parsed message. Readers walk the two arrays by index.
#ifndef TKIV_NAME_VALUE_PAIR_LIST_H
#define TKIV_NAME_VALUE_PAIR_LIST_H

#include "KivAssert.h"
#include "TKivArray.h"

template <class N, class V> class TKivNameValuePairList : public KivObject
{
public:
    explicit TKivNameValuePairList(void (*nameDisposal_i)(N&) = nullptr,
                                   void (*valueDisposal_i)(V&) = nullptr)
        : myNameArray(nameDisposal_i), myValueArray(valueDisposal_i)
    {
    }

    // Copies names and values but not the disposal procedures (see TKivArray).
    TKivNameValuePairList(const TKivNameValuePairList& list_i) = default;
    TKivNameValuePairList& operator=(const TKivNameValuePairList& list_i) = default;
    ~TKivNameValuePairList() override = default;

    void Add(const N& name_i, const V& value_i)
    {
        CheckInvariant();
        myNameArray.Append(name_i);
        myValueArray.Append(value_i);
        CheckInvariant();
    }

    unsigned int GetElementCount() const { return myNameArray.GetElementCount(); }
    const TKivArray<N>& GetNameArray() const { return myNameArray; }
    const TKivArray<V>& GetValueArray() const { return myValueArray; }

    void Empty()
    {
        myNameArray.Empty();
        myValueArray.Empty();
    }

protected:
    void CheckInvariant() const
    {
        KIV_ASSERT_STATE(myNameArray.GetElementCount() == myValueArray.GetElementCount());
    }

    TKivArray<N> myNameArray;  // in insertion order
    TKivArray<V> myValueArray; // the value of name i at index i
};

#endif
