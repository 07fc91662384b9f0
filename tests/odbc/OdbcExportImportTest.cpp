// Export and import on data sources: the same CSV as the embedded store, written from the
// current search, read back in one transaction.
#include "OdbcTestSupport.h"

namespace kiv::db::testing
{
namespace
{

class OdbcExportImportTest : public OdbcTest
{
protected:
    void SetUp() override
    {
        OdbcTest::SetUp();
        if (HasFatalFailure())
            return;
        db = &openSampleDatabase(*service, table);
        ASSERT_EQ(addRecord(*db, {{"Name", "Ada, Countess"}, {"City", "London"}, {"Qty", "3"}}), 0u);
        ASSERT_EQ(addRecord(*db, {{"Name", "Bo \"B\""}, {"City", "Oslo"}, {"Qty", "5"}}), 0u);
        ASSERT_EQ(addRecord(*db, {{"Name", "Cy"}, {"City", "Oslo"}, {"Qty", "7"}}), 0u);
    }
    Database* db = nullptr;
};

TEST_P(OdbcExportImportTest, ExportWritesTheSearchResultsAsCsv)
{
    ASSERT_EQ(db->executeSearch("City = 'Oslo' ORDER BY Qty DESC"), 0u);
    uint32_t count = 0;
    ASSERT_EQ(db->exportRecords("out.csv", "Name, Qty", count), kKivResult_EndOfFile) << db->message();
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(readFile(folder.exports() / "out.csv"), "Name,Qty\r\nCy,7\r\n\"Bo \"\"B\"\"\",5\r\n")
        << "a relative path is taken from the exports folder";
    EXPECT_EQ(db->exportRecords("out.csv", "Name, Nope", count), kKivResult_NotFound);
}

TEST_P(OdbcExportImportTest, ImportAddsEveryRowOrNone)
{
    uint32_t count = 0;
    ASSERT_EQ(db->exportRecords("all.csv", "", count), kKivResult_EndOfFile);
    ASSERT_EQ(count, 3u);

    // Into a second table, keeping the IDs; new records then continue after them.
    const std::string copy = tableFor(source(), "Copy");
    Database* copyDb = &openSampleDatabase(*service, copy);
    ASSERT_EQ(copyDb->importRecords("all.csv", count), 0u) << copyDb->message();
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(column(*copyDb, "", "Name"), (std::vector<std::string>{"Ada, Countess", "Bo \"B\"", "Cy"}));
    ASSERT_EQ(addRecord(*copyDb, {{"Name", "Di"}}), 0u) << copyDb->message();
    EXPECT_EQ(text(*copyDb, "KIVIDFIELD"), "4");

    writeFile(folder.exports() / "bad.csv", "Name,Qty\r\nEd,1\r\nFay,two\r\n");
    EXPECT_EQ(copyDb->importRecords("bad.csv", count), result::kImportFailed);
    const auto why = copyDb->message();
    EXPECT_NE(why.find("Row 3 (line 3), field Qty"), std::string::npos) << why;
    EXPECT_EQ(recordCount(*copyDb), 4u) << "Ed was not imported either";

    writeFile(folder.exports() / "unknown.csv", "Name,Shoe\r\nEd,1\r\n");
    EXPECT_EQ(copyDb->importRecords("unknown.csv", count), result::kImportFailed);
    EXPECT_EQ(copyDb->importRecords("missing.csv", count), result::kFileError);
}

INSTANTIATE_TEST_SUITE_P(Drivers, OdbcExportImportTest, ::testing::Values("KivSqlite", "KivPostgres"),
                         driverName);

} // namespace
} // namespace kiv::db::testing
