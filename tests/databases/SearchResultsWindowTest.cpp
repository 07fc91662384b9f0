// A search's results are counted at once and their row ids read a window at a time: walks,
// jumps and moves to a unique ID across many windows, in both directions, must visit exactly
// the records a complete list would, and changes made between the search and the first move
// must never show a record twice or at the wrong place.
#include "ServiceClient.h"

#include <string>
#include <vector>

namespace kiv::db::testing
{
namespace
{
constexpr uint32_t kShared = 2;
constexpr int kRecords = 700; // several windows: 64, 128, 256, ...

class SearchResultsWindowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(client.createDatabase("Many"), 0u);
        uint32_t setup = 0;
        ASSERT_EQ(client.open("Many", 3, setup), 0u);
        ASSERT_EQ(client.addField(setup, "Name", 0x00060000), 0u);
        ASSERT_EQ(client.addField(setup, "Odd", 0x00020000), 0u);
        // Names in the reverse of the order they are added, so ORDER BY Name is not the row order.
        for (int i = 0; i < kRecords; ++i)
        {
            ASSERT_EQ(client.simple(kKivDB_CreateRecord, setup), 0u);
            ASSERT_EQ(client.setText(setup, "Name", nameOf(kRecords - 1 - i)), 0u);
            ASSERT_EQ(client.setInt(setup, "Odd", i % 2), 0u);
            ASSERT_EQ(client.simple(kKivDB_AddRecord, setup), 0u);
        }
        ASSERT_EQ(client.close(setup), 0u);
        ASSERT_EQ(client.open("Many", kShared, handle), 0u);
    }

    static std::string nameOf(int number)
    {
        std::string digits = std::to_string(number);
        return "n" + std::string(4 - digits.size(), '0') + digits;
    }

    std::string current() { return client.getText(handle, "(name)").text; }

    DataFolder folder;
    ServiceClient client{folder.path()};
    uint32_t handle = 0;
};

TEST_F(SearchResultsWindowTest, WalksForwardAndBackwardVisitEveryResultInOrder)
{
    ASSERT_EQ(client.search(handle, "Odd = 0 ORDER BY Name"), 0u);
    ASSERT_EQ(client.resultCount(handle), uint32_t(kRecords / 2));
    std::vector<std::string> forward;
    for (uint32_t move = client.simple(kKivDB_MoveFirstRecord, handle); move == 0;
         move = client.simple(kKivDB_MoveNextRecord, handle))
        forward.push_back(current());
    std::vector<std::string> expected;
    for (int number = 0; number < kRecords; ++number)
        if ((kRecords - 1 - number) % 2 == 0)
            expected.push_back(nameOf(number));
    EXPECT_EQ(forward, expected);
    EXPECT_EQ(client.simple(kKivDB_MoveNextRecord, handle), result::kEndOfFile);

    std::vector<std::string> backward;
    for (uint32_t move = client.simple(kKivDB_MoveLastRecord, handle); move == 0;
         move = client.simple(kKivDB_MovePrevRecord, handle))
        backward.push_back(current());
    EXPECT_EQ(backward, std::vector<std::string>(expected.rbegin(), expected.rend()));
}

TEST_F(SearchResultsWindowTest, JumpsAndMovesToAnIDLandAnywhereInTheResults)
{
    ASSERT_EQ(client.search(handle, "Name >= 'n0100' ORDER BY Name DESC"), 0u);
    ASSERT_EQ(client.resultCount(handle), uint32_t(kRecords - 100));
    for (const uint32_t offset : {599u, 0u, 300u, 63u, 64u, 65u, 128u})
    {
        ASSERT_EQ(client.jump(handle, offset), 0u) << offset;
        EXPECT_EQ(current(), nameOf(kRecords - 1 - int(offset))) << offset;
        ASSERT_EQ(client.simple(kKivDB_MovePrevRecord, handle), offset == 0 ? result::kBeginningOfFile : 0u);
    }
    EXPECT_EQ(client.jump(handle, kRecords - 100), result::kEndOfFile);
    // The record with the unique ID 11 was added 11th and holds the name n0689, the 11th of the
    // descending results.
    ASSERT_EQ(client.moveToUInt(handle, 11), 0u);
    EXPECT_EQ(current(), nameOf(689));
    ASSERT_EQ(client.simple(kKivDB_MoveNextRecord, handle), 0u);
    EXPECT_EQ(current(), nameOf(688));
    EXPECT_EQ(client.moveToUInt(handle, 650), result::kRecordNotFound); // n0050: not a result
}

TEST_F(SearchResultsWindowTest, ChangesByAnotherOpenBeforeTheFirstMoveGiveTheResultsAsTheyAreNow)
{
    ServiceClient other{folder.path()};
    uint32_t otherHandle = 0;
    ASSERT_EQ(other.open("Many", kShared, otherHandle), 0u);
    ASSERT_EQ(client.search(handle, "Name < 'n0010' ORDER BY Name"), 0u);
    ASSERT_EQ(client.resultCount(handle), 10u);
    ASSERT_EQ(other.deleteRecordByUInt(otherHandle, kRecords - 3), 0u); // n0003
    ASSERT_EQ(other.simple(kKivDB_CreateRecord, otherHandle), 0u);
    ASSERT_EQ(other.setText(otherHandle, "Name", "n0000a"), 0u);
    ASSERT_EQ(other.simple(kKivDB_AddRecord, otherHandle), 0u);
    std::vector<std::string> seen;
    for (uint32_t move = client.simple(kKivDB_MoveFirstRecord, handle); move == 0;
         move = client.simple(kKivDB_MoveNextRecord, handle))
        seen.push_back(current());
    EXPECT_EQ(seen, (std::vector<std::string>{"n0000", "n0000a", "n0001", "n0002", "n0004", "n0005", "n0006",
                                              "n0007", "n0008", "n0009"}));
    EXPECT_EQ(client.resultCount(handle), 10u);
    EXPECT_EQ(other.close(otherHandle), 0u);
}

TEST_F(SearchResultsWindowTest, RecordsThisOpenAddsDuringAWalkAreNotResults)
{
    ASSERT_EQ(client.search(handle, "Name < 'n0003' ORDER BY Name"), 0u);
    ASSERT_EQ(client.simple(kKivDB_MoveFirstRecord, handle), 0u);
    ASSERT_EQ(client.simple(kKivDB_CreateRecord, handle), 0u);
    ASSERT_EQ(client.setText(handle, "Name", "n0000b"), 0u);
    ASSERT_EQ(client.simple(kKivDB_AddRecord, handle), 0u);
    ASSERT_EQ(client.jump(handle, 1), 0u);
    EXPECT_EQ(current(), "n0001");
    EXPECT_EQ(client.resultCount(handle), 3u);
}

} // namespace
} // namespace kiv::db::testing
