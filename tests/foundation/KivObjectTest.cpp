// The guarded allocator: block layout, fills, the installed procedures and the abort paths
// that catch overruns and foreign pointers.
#include "KivObject.h"
#include "KivString.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{
KivUInt32 WordAt(const unsigned char* address_i)
{
    KivUInt32 value;
    std::memcpy(&value, address_i, sizeof value);
    return value;
}

// An installed allocator pair that records what it was given and checks the release fill.
std::vector<unsigned int> ourRequestedSizes;
std::vector<void*> ourReleasedBlocks;
bool ourReleasedBlockWasFilled = false;

void* RecordingAllocator(unsigned int size_i)
{
    ourRequestedSizes.push_back(size_i);
    return std::malloc(size_i);
}

void RecordingDeallocator(void* block_i)
{
    // The size field was overwritten too, so the size comes from the allocation record.
    const unsigned char* bytes = static_cast<const unsigned char*>(block_i);
    unsigned int blockSize = ourRequestedSizes.back();
    ourReleasedBlockWasFilled = bytes[0] == 0x55;
    for (unsigned int i = 1; i < blockSize; ++i)
        ourReleasedBlockWasFilled = ourReleasedBlockWasFilled && bytes[i] == 0x71;
    ourReleasedBlocks.push_back(block_i);
    std::free(block_i);
}

void* FailingAllocator(unsigned int)
{
    return nullptr;
}

class KivObjectAllocator : public testing::Test
{
protected:
    void SetUp() override
    {
        ourRequestedSizes.clear();
        ourReleasedBlocks.clear();
        ourReleasedBlockWasFilled = false;
    }
    void TearDown() override { KivObject::SetMemoryAllocatorDeallocatorProcs(nullptr, nullptr); }
};
} // namespace

TEST_F(KivObjectAllocator, DefaultBlockCarriesMarkSignaturesSizeAndFill)
{
    unsigned char* bytes = static_cast<unsigned char*>(KivObject::MemoryAllocator(5));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(bytes[-9], 0xAA);
    EXPECT_EQ(WordAt(bytes - 8), 0x77777777u);
    EXPECT_EQ(std::memcmp(bytes - 8, "wwww", 4), 0);
    EXPECT_EQ(WordAt(bytes - 4), 5u);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(bytes[i], 'Q');
    EXPECT_EQ(WordAt(bytes + 5), 0xAAAFAAAFu);
    EXPECT_EQ(WordAt(bytes + 9), 0xAAAFAAAFu);
    KivObject::MemoryDeallocator(bytes);
}

TEST_F(KivObjectAllocator, ZeroSizedBlockHasCloseSignaturesRightAfterTheSize)
{
    unsigned char* bytes = static_cast<unsigned char*>(KivObject::MemoryAllocator(0));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(WordAt(bytes - 4), 0u);
    EXPECT_EQ(WordAt(bytes), 0xAAAFAAAFu);
    EXPECT_EQ(WordAt(bytes + 4), 0xAAAFAAAFu);
    KivObject::MemoryDeallocator(bytes);
}

TEST_F(KivObjectAllocator, NullIsIgnoredOnRelease)
{
    KivObject::MemoryDeallocator(nullptr);
}

TEST_F(KivObjectAllocator, InstalledProceduresGetTheWholeGuardedBlockAndAFilledReturn)
{
    KivObject::SetMemoryAllocatorDeallocatorProcs(RecordingAllocator, RecordingDeallocator);
    unsigned char* bytes = static_cast<unsigned char*>(KivObject::MemoryAllocator(10));
    ASSERT_EQ(ourRequestedSizes.size(), 1u);
    EXPECT_EQ(ourRequestedSizes[0], 27u);
    EXPECT_EQ(bytes[-9], 0x55);

    KivObject::MemoryDeallocator(bytes);
    ASSERT_EQ(ourReleasedBlocks.size(), 1u);
    EXPECT_EQ(ourReleasedBlocks[0], bytes - 9);
    EXPECT_TRUE(ourReleasedBlockWasFilled);
}

TEST_F(KivObjectAllocator, EachBlockGoesBackToTheKindOfProcedureThatGaveIt)
{
    void* fromDefault = KivObject::MemoryAllocator(4);
    KivObject::SetMemoryAllocatorDeallocatorProcs(RecordingAllocator, RecordingDeallocator);
    void* fromInstalled = KivObject::MemoryAllocator(4);

    KivObject::MemoryDeallocator(fromDefault); // marked 0xAA: free(), not the installed procedure
    EXPECT_TRUE(ourReleasedBlocks.empty());

    // An installed allocator without a deallocator: its blocks go to free().
    KivObject::SetMemoryAllocatorDeallocatorProcs(RecordingAllocator, nullptr);
    KivObject::MemoryDeallocator(fromInstalled);
    EXPECT_TRUE(ourReleasedBlocks.empty());
}

TEST_F(KivObjectAllocator, InstalledAllocatorReturningNullGivesNullWithoutThrowing)
{
    KivObject::SetMemoryAllocatorDeallocatorProcs(FailingAllocator, nullptr);
    void* bytes = reinterpret_cast<void*>(1);
    EXPECT_NO_THROW(bytes = KivObject::MemoryAllocator(16));
    EXPECT_EQ(bytes, nullptr);
}

TEST(KivObjectDeathTest, DamagedBlocksAbortOnReleaseInCheckOrder)
{
    EXPECT_DEATH(
        {
            unsigned char foreign[64] = {0};
            KivObject::MemoryDeallocator(foreign + 16);
        },
        "^\tFILE: \"src/KivObject\"\nUNEXPECTED STATE: \"BUFFER OPEN SIGNATURE VIOLATED.  BAD "
        "POINTER\\?\"\n$");
    EXPECT_DEATH(
        {
            unsigned char* bytes = static_cast<unsigned char*>(KivObject::MemoryAllocator(8));
            bytes[8] = 0; // one byte past the end
            KivObject::MemoryDeallocator(bytes);
        },
        "^\tFILE: \"src/KivObject\"\nUNEXPECTED STATE: \"BUFFER CLOSE SIGNATURE \\(1\\) VIOLATED\"\n$");
    EXPECT_DEATH(
        {
            unsigned char* bytes = static_cast<unsigned char*>(KivObject::MemoryAllocator(8));
            bytes[12] = 0;
            KivObject::MemoryDeallocator(bytes);
        },
        "^\tFILE: \"src/KivObject\"\nUNEXPECTED STATE: \"BUFFER CLOSE SIGNATURE \\(2\\) VIOLATED\"\n$");
    // A released block is overwritten with 'q', so releasing it again is caught. The installed
    // pair hands out static storage and never frees it, to keep the block readable.
    EXPECT_DEATH(
        {
            static unsigned char storage[64];
            KivObject::SetMemoryAllocatorDeallocatorProcs([](unsigned int) -> void* { return storage; },
                                                          [](void*) {});
            void* bytes = KivObject::MemoryAllocator(8);
            KivObject::MemoryDeallocator(bytes);
            KivObject::MemoryDeallocator(bytes);
        },
        "^\tFILE: \"src/KivObject\"\nUNEXPECTED STATE: \"BUFFER OPEN SIGNATURE VIOLATED.  BAD "
        "POINTER\\?\"\n$");
}

TEST(KivException, BaseHasNoTextAndCopiesKeepTheirClass)
{
    KivException base;
    EXPECT_TRUE(base.GetStringRepresentation().IsEmpty());

    KivObject::MemoryAllocationFailure failure;
    EXPECT_TRUE(failure.GetStringRepresentation().IsNotEmpty());
    KivException* copy = static_cast<const KivException&>(failure).Clone();
    EXPECT_NE(dynamic_cast<KivObject::MemoryAllocationFailure*>(copy), nullptr);
    EXPECT_EQ(copy->GetStringRepresentation(), failure.GetStringRepresentation());
    delete copy;
}
