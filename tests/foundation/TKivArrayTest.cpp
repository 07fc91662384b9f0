// Arrays grow by exactly one element per insertion, dispose of their elements only when
// emptied, and handle an index past the end by growing to that index (0 aborts).
#include "KivString.h"
#include "TKivArray.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{
std::vector<int> ourDisposed;
void RecordDisposal(int& element_io)
{
    ourDisposed.push_back(element_io);
}
void DeleteOwned(int*& element_io)
{
    delete element_io;
}

std::vector<int> Elements(const TKivArray<int>& array_i)
{
    std::vector<int> elements;
    for (unsigned int i = 0; i < array_i.GetElementCount(); ++i)
        elements.push_back(array_i[i]);
    return elements;
}

typedef std::vector<int> Ints;

// A handler that refuses to grow, as a derived class might.
class TKivFixedArray : public TKivArray<int>
{
public:
    void HandleOutOfBoundsSituation(unsigned int) override {}
};
} // namespace

TEST(TKivArray, AppendAndInsert)
{
    TKivArray<int> array;
    EXPECT_EQ(array.GetElementCount(), 0u);
    array.Append(1);
    EXPECT_EQ(array.GetElementCount(), 1u);
    array.Append(3);
    array.Insert(0, 0);
    array.Insert(2, 2);
    EXPECT_EQ(Elements(array), (Ints{0, 1, 2, 3}));
}

TEST(TKivArray, InsertPastTheEndAppends)
{
    TKivArray<int> array;
    array.Append(1);
    array.Append(2);
    array.Insert(9, 5);
    EXPECT_EQ(Elements(array), (Ints{1, 2, 9}));
}

TEST(TKivArray, InsertingAnElementOfTheSameArray)
{
    // The reference points into the block that the insertion replaces.
    TKivArray<KivString> array;
    array.Append("first");
    array.Append("second");
    for (int i = 0; i < 5; ++i)
        array.Insert(array[array.GetElementCount() - 1], 0);
    array.Append(array[0]);
    ASSERT_EQ(array.GetElementCount(), 8u);
    for (unsigned int i = 0; i < 8; ++i)
        EXPECT_TRUE(array[i] == (i == 5 ? "first" : "second")) << i;
}

TEST(TKivArray, ResizeToHoldShrinksWithoutDisposingAndGrowsWithFreshElements)
{
    ourDisposed.clear();
    TKivArray<int> array(RecordDisposal);
    for (int i = 1; i <= 4; ++i)
        array.Append(i);
    array.ResizeToHold(2);
    EXPECT_TRUE(ourDisposed.empty());
    EXPECT_EQ(Elements(array), (Ints{1, 2}));
    array.ResizeToHold(4);
    EXPECT_EQ(Elements(array), (Ints{1, 2, 0, 0}));
    array.Empty();
    EXPECT_EQ(ourDisposed, (Ints{1, 2, 0, 0}));
}

TEST(TKivArray, EmptyAndDestructionDisposeInIndexOrder)
{
    ourDisposed.clear();
    {
        TKivArray<int> array(RecordDisposal);
        array.Append(5);
        array.Append(6);
        array.Insert(4, 0);
        array.Empty();
        EXPECT_EQ(ourDisposed, (Ints{4, 5, 6}));
        EXPECT_EQ(array.GetElementCount(), 0u);
        array.Append(7);
    }
    EXPECT_EQ(ourDisposed, (Ints{4, 5, 6, 7}));
}

TEST(TKivArray, AnOwningArrayDeletesItsObjects)
{
    // Leak checking of the sanitizer build verifies the deletion.
    TKivArray<int*> array(DeleteOwned);
    array.Append(new int(1));
    array.Append(new int(2));
    TKivArray<int*> copy(array); // a copy does not own
    EXPECT_EQ(*copy[1], 2);
}

TEST(TKivArray, CopiesHoldTheElementsButNotTheDisposalProcedure)
{
    ourDisposed.clear();
    TKivArray<int> original(RecordDisposal);
    original.Append(1);
    original.Append(2);

    TKivArray<int> copy(original);
    copy[0] = 10;
    EXPECT_EQ(Elements(original), (Ints{1, 2}));
    copy.Empty();
    EXPECT_TRUE(ourDisposed.empty());

    TKivArray<int> assigned(RecordDisposal);
    assigned.Append(8);
    assigned = original;
    EXPECT_EQ(ourDisposed, (Ints{8})); // its own elements went through its own procedure
    EXPECT_EQ(Elements(assigned), (Ints{1, 2}));
    const TKivArray<int>& alias = assigned;
    assigned = alias;
    EXPECT_EQ(Elements(assigned), (Ints{1, 2}));
}

TEST(TKivArray, IndexPastTheEndGrowsTheArrayToThatIndex)
{
    TKivArray<int> array;
    array.Append(1);
    array.Append(2);
    array[5] = 42; // lands just past the new count, inside the block
    EXPECT_EQ(array.GetElementCount(), 5u);
    EXPECT_EQ(Elements(array), (Ints{1, 2, 0, 0, 0}));

    // Growing again does not carry the element that stood outside the count.
    array.Append(6);
    EXPECT_EQ(Elements(array), (Ints{1, 2, 0, 0, 0, 6}));

    TKivArray<KivString> strings;
    strings[3] = "outside";
    EXPECT_EQ(strings.GetElementCount(), 3u);
    EXPECT_TRUE(strings[2].IsEmpty());
}

TEST(TKivArray, IndexJustPastTheEndKeepsTheCount)
{
    TKivArray<int> array;
    array.Append(1);
    const TKivArray<int>& constArray = array;
    EXPECT_EQ(constArray[1], 0);
    EXPECT_EQ(array.GetElementCount(), 1u);
}

TEST(TKivArrayDeathTest, IndexZeroOfAnEmptyArrayAborts)
{
    TKivArray<int> array;
    EXPECT_DEATH(array[0],
                 "^\tFILE: \"kiv-foundation/include/TKivArray\"\nSTATE ASSERTION FAILURE: index_i > 0\n$");
    array.Append(1);
    array.Empty();
    EXPECT_DEATH(array[0], "STATE ASSERTION FAILURE: index_i > 0\n$");
}

TEST(TKivArrayDeathTest, AHandlerThatDoesNotGrowCannotReachOutsideTheBlock)
{
    TKivFixedArray array;
    array.Append(1);
    EXPECT_EQ(array[1], 0); // the spare slot
    EXPECT_DEATH(array[7],
                 "^\tFILE: \"kiv-foundation/include/TKivArray\"\nSTATE ASSERTION FAILURE: index_i < "
                 "myBlockElementCount\n$");
}
