// Growable byte blocks: where SetSize puts zeros and old bytes, when it reallocates, copies,
// and the abort paths for bad indexes and failed allocations.
#include "KivBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{
std::string BytesOf(const KivBuffer& buffer_i)
{
    return std::string(static_cast<const char*>(buffer_i.GetAddress()), buffer_i.GetSize());
}

KivBuffer BufferHolding(const char* text_i)
{
    KivBuffer buffer(std::strlen(text_i), 0);
    std::memcpy(buffer.GetAddress(), text_i, buffer.GetSize());
    return buffer;
}
} // namespace

TEST(KivBuffer, StartsEmptyWithoutABlock)
{
    KivBuffer buffer;
    EXPECT_EQ(buffer.GetSize(), 0u);
    EXPECT_EQ(buffer.GetAddress(), nullptr);
    KivBuffer sized(3, 0);
    EXPECT_EQ(BytesOf(sized), "QQQ"); // fresh guarded storage, not zeroed
}

TEST(KivBuffer, GrowingPlacesZerosAtTheStartAndOldBytesOverThem)
{
    KivBuffer zeroOnly = BufferHolding("ABCD");
    zeroOnly.SetSize(10, kKivBuffer_ZeroFill);
    EXPECT_EQ(BytesOf(zeroOnly), std::string("\0\0\0\0\0\0QQQQ", 10));

    KivBuffer keepOnly = BufferHolding("ABCD");
    keepOnly.SetSize(10, kKivBuffer_KeepContents);
    EXPECT_EQ(BytesOf(keepOnly), "ABCDQQQQQQ");

    // The six zeroed bytes come first, then the four old bytes are moved over their start.
    KivBuffer both = BufferHolding("ABCD");
    both.SetSize(10, kKivBuffer_ZeroFill | kKivBuffer_KeepContents);
    EXPECT_EQ(BytesOf(both), std::string("ABCD\0\0QQQQ", 10));

    // Growing by less than the old size: the zeroed run is entirely covered by old bytes.
    KivBuffer small = BufferHolding("ABCD");
    small.SetSize(6, kKivBuffer_ZeroFill | kKivBuffer_KeepContents);
    EXPECT_EQ(BytesOf(small), "ABCDQQ");
}

TEST(KivBuffer, ShrinkingKeepsTheBlockAndGrowingAgainCopiesOnlyTheCurrentBytes)
{
    KivBuffer buffer = BufferHolding("ABCDEFGH");
    void* block = buffer.GetAddress();
    EXPECT_EQ(buffer.SetSize(3, 0), block);
    EXPECT_EQ(buffer.GetSize(), 3u);
    EXPECT_EQ(BytesOf(buffer), "ABC");
    EXPECT_EQ(buffer.SetSize(3, 0), block);

    buffer.SetSize(5, kKivBuffer_KeepContents);
    EXPECT_EQ(BytesOf(buffer), "ABCQQ");
}

TEST(KivBuffer, CopiesAreIndependentAndSelfAssignmentKeepsTheBytes)
{
    KivBuffer original = BufferHolding("hello");
    KivBuffer copy(original);
    copy[0] = 'J';
    EXPECT_EQ(BytesOf(original), "hello");
    EXPECT_EQ(BytesOf(copy), "Jello");

    KivBuffer assigned = BufferHolding("a much longer text");
    assigned = original;
    EXPECT_EQ(BytesOf(assigned), "hello");

    KivBuffer& alias = assigned;
    assigned = alias;
    EXPECT_EQ(BytesOf(assigned), "hello");

    const KivBuffer& constant = original;
    EXPECT_EQ(constant[4], 'o');
}

TEST(KivBufferDeathTest, IndexOutsideTheSizeAborts)
{
    EXPECT_DEATH(
        {
            KivBuffer buffer(4, 0);
            buffer[4] = 0;
        },
        "^\tFILE: \"src/KivBuffer\"\nSTATE ASSERTION FAILURE: offset_i < myBufferByteCount\n$");
    EXPECT_DEATH(
        {
            const KivBuffer buffer;
            (void)buffer[0];
        },
        "^\tFILE: \"src/KivBuffer\"\nSTATE ASSERTION FAILURE: offset_i < myBufferByteCount\n$");
}

TEST(KivBufferDeathTest, FailedAllocationAborts)
{
    EXPECT_DEATH(
        {
            KivObject::SetMemoryAllocatorDeallocatorProcs([](unsigned int) -> void* { return nullptr; },
                                                          nullptr);
            KivBuffer buffer(8, 0);
        },
        "^\tFILE: \"src/KivBuffer\"\nNULL POINTER ASSERTION: newBufferData\n$");
}

TEST(KivBufferDeathTest, WritingPastTheEndIsCaughtWhenTheBufferIsDestroyed)
{
    EXPECT_DEATH(
        {
            KivBuffer buffer(4, 0);
            static_cast<unsigned char*>(buffer.GetAddress())[4] = 0;
        },
        "^\tFILE: \"src/KivObject\"\nUNEXPECTED STATE: \"BUFFER CLOSE SIGNATURE \\(1\\) VIOLATED\"\n$");
}
