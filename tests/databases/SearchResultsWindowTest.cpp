// A search's results are counted at once and their row ids read a window at a time: walks,
// jumps and moves to a unique ID across many windows, in both directions, must visit exactly
// the records a complete list would, and changes made between the search and the first move
// must never show a record twice or at the wrong place.
#include "ServiceTesting.h"

#include <string>
#include <vector>

namespace kiv::db::testing
{
namespace
{
constexpr int kRecords = 700; // several windows: 64, 128, 256, ...

class SearchResultsWindowTest : public ::testing::Test
{
protected:
    Database& makeMany()
    {
        EXPECT_EQ(service.createDatabase("Many"), 0u);
        Database& setup = open(service, "Many", OpenMode::Exclusive);
        EXPECT_EQ(setup.addField("Name", 0x00060000), 0u);
        EXPECT_EQ(setup.addField("Odd", 0x00020000), 0u);
        // Names in the reverse of the order they are added, so ORDER BY Name is not the row order.
        for (int i = 0; i < kRecords; ++i)
        {
            setup.createRecord();
            setup.setValue("Name", std::string_view(nameOf(kRecords - 1 - i)));
            setup.setValue("Odd", int32_t(i % 2));
            EXPECT_EQ(setup.addRecord(), 0u);
        }
        service.disconnect();
        return open(service, "Many");
    }

    static std::string nameOf(int number)
    {
        std::string digits = std::to_string(number);
        return "n" + std::string(4 - digits.size(), '0') + digits;
    }

    std::string current() { return text(db, "(name)"); }

    DataFolder folder;
    DatabaseService service{environmentIn(folder.path())};
    Database& db = makeMany();
};

TEST_F(SearchResultsWindowTest, WalksForwardAndBackwardVisitEveryResultInOrder)
{
    ASSERT_EQ(db.executeSearch("Odd = 0 ORDER BY Name"), 0u);
    ASSERT_EQ(resultCount(db), uint32_t(kRecords / 2));
    std::vector<std::string> forward;
    for (uint32_t move = db.moveFirst(); move == 0; move = db.moveNext())
        forward.push_back(current());
    std::vector<std::string> expected;
    for (int number = 0; number < kRecords; ++number)
        if ((kRecords - 1 - number) % 2 == 0)
            expected.push_back(nameOf(number));
    EXPECT_EQ(forward, expected);
    EXPECT_EQ(db.moveNext(), kKivResult_EndOfFile);

    std::vector<std::string> backward;
    for (uint32_t move = db.moveLast(); move == 0; move = db.movePrevious())
        backward.push_back(current());
    EXPECT_EQ(backward, std::vector<std::string>(expected.rbegin(), expected.rend()));
}

TEST_F(SearchResultsWindowTest, JumpsAndMovesToAnIDLandAnywhereInTheResults)
{
    ASSERT_EQ(db.executeSearch("Name >= 'n0100' ORDER BY Name DESC"), 0u);
    ASSERT_EQ(resultCount(db), uint32_t(kRecords - 100));
    for (const uint32_t offset : {599u, 0u, 300u, 63u, 64u, 65u, 128u})
    {
        ASSERT_EQ(db.jump(offset), 0u) << offset;
        EXPECT_EQ(current(), nameOf(kRecords - 1 - int(offset))) << offset;
        ASSERT_EQ(db.movePrevious(), offset == 0 ? uint32_t(kKivResult_BeginningOfFile) : 0u);
    }
    EXPECT_EQ(db.jump(kRecords - 100), kKivResult_EndOfFile);
    // The record with the unique ID 11 was added 11th and holds the name n0689, the 11th of the
    // descending results.
    ASSERT_EQ(db.moveTo(uint32_t(11)), 0u);
    EXPECT_EQ(current(), nameOf(689));
    ASSERT_EQ(db.moveNext(), 0u);
    EXPECT_EQ(current(), nameOf(688));
    EXPECT_EQ(db.moveTo(uint32_t(650)), result::kRecordNotFound); // n0050: not a result
}

TEST_F(SearchResultsWindowTest, ChangesByAnotherOpenBeforeTheFirstMoveGiveTheResultsAsTheyAreNow)
{
    DatabaseService otherService{environmentIn(folder.path())};
    Database& other = open(otherService, "Many");
    ASSERT_EQ(db.executeSearch("Name < 'n0010' ORDER BY Name"), 0u);
    ASSERT_EQ(resultCount(db), 10u);
    ASSERT_EQ(other.deleteRecord(uint32_t(kRecords - 3)), 0u); // n0003
    ASSERT_EQ(addRecord(other, {{"Name", "n0000a"}}), 0u);
    std::vector<std::string> seen;
    for (uint32_t move = db.moveFirst(); move == 0; move = db.moveNext())
        seen.push_back(current());
    EXPECT_EQ(seen, (std::vector<std::string>{"n0000", "n0000a", "n0001", "n0002", "n0004", "n0005", "n0006",
                                              "n0007", "n0008", "n0009"}));
    EXPECT_EQ(resultCount(db), 10u);
}

TEST_F(SearchResultsWindowTest, RecordsThisOpenAddsDuringAWalkAreNotResults)
{
    ASSERT_EQ(db.executeSearch("Name < 'n0003' ORDER BY Name"), 0u);
    ASSERT_EQ(db.moveFirst(), 0u);
    ASSERT_EQ(db.createRecord(), 0u);
    ASSERT_EQ(db.setValue("Name", std::string_view("n0000b")), 0u);
    ASSERT_EQ(db.addRecord(), 0u);
    ASSERT_EQ(db.jump(1), 0u);
    EXPECT_EQ(current(), "n0001");
    EXPECT_EQ(resultCount(db), 3u);
}

} // namespace
} // namespace kiv::db::testing
