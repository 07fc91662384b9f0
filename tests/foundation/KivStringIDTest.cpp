// Identifiers are CRC-32 values with the register starting at 0; tags compare by the identifier
// of their lower-cased names; checksums may be fed in pieces.
#include "KivCRC32.h"
#include "KivStringID.h"
#include "KivTag.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace
{
// A bit-at-a-time CRC-32, independent of the table-driven one under test.
KivUInt32 ReferenceCRC32(KivUInt32 start_i, const std::string& bytes_i)
{
    KivUInt32 crc = ~start_i;
    for (unsigned char byte : bytes_i)
    {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1)));
    }
    return ~crc;
}

KivString ToKivString(const std::string& bytes_i)
{
    return KivString(bytes_i.data(), (unsigned int)bytes_i.size());
}

std::string RandomBytes(std::mt19937& generator_io, size_t maximumLength_i)
{
    std::string bytes(generator_io() % (maximumLength_i + 1), '\0');
    for (char& byte : bytes)
        byte = (char)(generator_io() & 0xFF);
    return bytes;
}
} // namespace

TEST(KivCRC32, ReferenceItselfGivesTheStandardCheckValue)
{
    // With the usual starting register the reference must give the well-known check value;
    // started so that the register is 0, it must give the identifiers' documented values.
    EXPECT_EQ(ReferenceCRC32(0, "123456789"), 0xCBF43926u);
    EXPECT_EQ(ReferenceCRC32(0xFFFFFFFF, "abc"), 0x359A672Fu);
}

TEST(KivCRC32, MatchesTheBitwiseCRCStartedAtZeroOnRandomInputs)
{
    std::mt19937 generator(20240611);
    for (int round = 0; round < 2000; ++round)
    {
        std::string bytes = RandomBytes(generator, 300);
        KivCRC32 crc;
        crc.Process(bytes.data(), (unsigned int)bytes.size());
        ASSERT_EQ((unsigned int)crc, ReferenceCRC32(0xFFFFFFFF, bytes)) << "length " << bytes.size();
        ASSERT_EQ(KivStringID::CalculateID(ToKivString(bytes), 0), ReferenceCRC32(0xFFFFFFFF, bytes));
    }
}

TEST(KivCRC32, PiecesGiveTheSameChecksumAsTheWhole)
{
    std::mt19937 generator(7);
    std::string bytes = RandomBytes(generator, 1000) + "tail";
    KivCRC32 whole;
    whole.Process(bytes.data(), (unsigned int)bytes.size());

    KivCRC32 pieces;
    size_t offset = 0;
    while (offset < bytes.size())
    {
        size_t length = std::min<size_t>(bytes.size() - offset, 1 + generator() % 17);
        pieces.Process(bytes.data() + offset, (unsigned int)length);
        offset += length;
    }
    EXPECT_EQ((unsigned int)pieces, (unsigned int)whole);
    // Reading the checksum does not disturb the register.
    EXPECT_EQ((unsigned int)pieces, (unsigned int)whole);
}

TEST(KivCRC32, ResetStartsOver)
{
    KivCRC32 crc;
    EXPECT_EQ((unsigned int)crc, 0xFFFFFFFFu);
    crc.Process("xyz", 3);
    crc.Reset();
    crc.Process("abc", 3);
    EXPECT_EQ((unsigned int)crc, 0x359A672Fu);
    crc.Process(nullptr, 0);
    EXPECT_EQ((unsigned int)crc, 0x359A672Fu);
}

TEST(KivStringID, DocumentedIdentifiers)
{
    EXPECT_EQ(KivStringID().GetID(), 0xFFFFFFFFu);
    EXPECT_EQ(KivStringID("").GetID(), 0xFFFFFFFFu);
    EXPECT_EQ(KivStringID("abc", 0).GetID(), 0x359A672Fu);
    EXPECT_EQ(KivStringID("ABC", 1).GetID(), 0x359A672Fu);
    EXPECT_NE(KivStringID("ABC", 0).GetID(), 0x359A672Fu);
    EXPECT_EQ(KivStringID('a', 0).GetID(), KivStringID("a").GetID());
    EXPECT_EQ(KivStringID('A', 1).GetID(), KivStringID("a").GetID());
}

TEST(KivStringID, HashesTheWholeLengthIncludingZeroBytes)
{
    KivString withZero("a\0b", 3);
    EXPECT_EQ(KivStringID(withZero).GetID(), ReferenceCRC32(0xFFFFFFFF, std::string("a\0b", 3)));
    EXPECT_NE(KivStringID(withZero).GetID(), KivStringID("a").GetID());
    EXPECT_EQ(KivStringID(withZero).GetStringLength(), 3u);
}

TEST(KivStringID, CaseInsensitiveIdentifiersFollowTheLowercaseConversion)
{
    // The lower-case conversion turns accented letters into their upper-case forms, so 0x8E
    // (lower-case e acute) hashes like 0x83 (its capital).
    EXPECT_EQ(KivStringID::CalculateID("\x8E", 1), KivStringID::CalculateID("\x83", 0));
    EXPECT_EQ(KivStringID::CalculateID("\x83", 1), KivStringID::CalculateID("\x83", 0));
    EXPECT_EQ(KivStringID::CalculateID("Hello World", 1), KivStringID::CalculateID("hello world", 0));
}

TEST(KivStringID, KeepsTheStringAsGiven)
{
    KivStringID id("DataBaseName", 1);
    EXPECT_TRUE(id.GetString() == "DataBaseName");
    EXPECT_STREQ(id.GetCStringAccess(), "DataBaseName");
    EXPECT_EQ(id.GetStringLength(), 12u);
    EXPECT_EQ(id.GetID(), KivStringID::CalculateID("databasename", 0));
}

TEST(KivStringID, CopiesKeepTheIdentifierAndFlagsRecomputeIt)
{
    KivStringID insensitive("ABC", 1);
    KivStringID copy(insensitive);
    EXPECT_EQ(copy.GetID(), insensitive.GetID());
    EXPECT_TRUE(copy.GetString() == "ABC");

    KivStringID recomputed(insensitive, 0);
    EXPECT_EQ(recomputed.GetID(), KivStringID::CalculateID("ABC", 0));
    EXPECT_TRUE(recomputed.GetString() == "ABC");

    KivStringID assigned;
    assigned = insensitive;
    EXPECT_EQ(assigned.GetID(), 0x359A672Fu);
    const KivStringID& alias = assigned;
    assigned = alias;
    EXPECT_EQ(assigned.GetID(), 0x359A672Fu);
}

TEST(KivStringID, EqualityComparesOnlyTheIdentifiers)
{
    EXPECT_TRUE(KivStringID("ABC", 1) == KivStringID("abc", 0));
    EXPECT_FALSE(KivStringID("ABC", 0) == KivStringID("abc", 0));
    EXPECT_TRUE(KivStringID("ABC", 0) != KivStringID("abc", 0));
}

TEST(KivTag, NamesCompareWithoutRegardToCase)
{
    KivTag lower("kivsearchdatabase");
    KivTag mixed(KivString("kivSearchDatabase"));
    EXPECT_TRUE(lower == mixed);
    EXPECT_FALSE(lower != mixed);
    EXPECT_FALSE(lower == KivTag("kivModifyDatabase"));
    EXPECT_TRUE(KivTag("Foo") == KivTag("FOO"));
    EXPECT_TRUE(KivTag() == KivTag(""));
    EXPECT_EQ(mixed.GetID(), KivStringID::CalculateID("kivsearchdatabase", 0));
}

TEST(KivTag, KeepsTheNameAsGiven)
{
    KivTag tag("kivEditDatabase");
    EXPECT_TRUE(tag.GetName() == "kivEditDatabase");
    EXPECT_TRUE((KivString)tag == "kivEditDatabase");

    KivTag copy(tag);
    KivTag assigned;
    assigned = tag;
    EXPECT_TRUE(copy.GetName() == "kivEditDatabase");
    EXPECT_TRUE(assigned == tag);
}
