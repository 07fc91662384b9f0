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
        handle = openSampleDatabase(*client, table);
        ASSERT_EQ(client->addRecord(handle, {{"Name", "Ada, Countess"}, {"City", "London"}, {"Qty", "3"}}),
                  0u);
        ASSERT_EQ(client->addRecord(handle, {{"Name", "Bo \"B\""}, {"City", "Oslo"}, {"Qty", "5"}}), 0u);
        ASSERT_EQ(client->addRecord(handle, {{"Name", "Cy"}, {"City", "Oslo"}, {"Qty", "7"}}), 0u);
    }
    uint32_t handle = 0;
};

TEST_P(OdbcExportImportTest, ExportWritesTheSearchResultsAsCsv)
{
    ASSERT_EQ(client->search(handle, "City = 'Oslo' ORDER BY Qty DESC"), 0u);
    uint32_t count = 0;
    ASSERT_EQ(client->exportRecords(handle, "out.csv", "Name, Qty", count), result::kEndOfFile)
        << client->errorInfo(handle).text;
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(readFile(folder.path() / "out.csv"), "Name,Qty\r\nCy,7\r\n\"Bo \"\"B\"\"\",5\r\n")
        << "a relative path is taken from the data folder";
    EXPECT_EQ(client->exportRecords(handle, "out.csv", "Name, Nope", count), result::kFieldNotFound);
}

TEST_P(OdbcExportImportTest, ImportAddsEveryRowOrNone)
{
    uint32_t count = 0;
    ASSERT_EQ(client->exportRecords(handle, "all.csv", "", count), result::kEndOfFile);
    ASSERT_EQ(count, 3u);

    // Into a second table, keeping the IDs; new records then continue after them.
    const std::string copy = tableFor(source(), "Copy");
    uint32_t copyHandle = openSampleDatabase(*client, copy);
    ASSERT_EQ(client->importRecords(copyHandle, "all.csv", count), 0u) << client->errorInfo(copyHandle).text;
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(client->column(copyHandle, "", "Name"),
              (std::vector<std::string>{"Ada, Countess", "Bo \"B\"", "Cy"}));
    ASSERT_EQ(client->addRecord(copyHandle, {{"Name", "Di"}}), 0u) << client->errorInfo(copyHandle).text;
    uint32_t id = 0;
    ASSERT_EQ(client->getUInt(copyHandle, "KIVIDFIELD", id), 0u);
    EXPECT_EQ(id, 4u);

    writeFile(folder.path() / "bad.csv", "Name,Qty\r\nEd,1\r\nFay,two\r\n");
    EXPECT_EQ(client->importRecords(copyHandle, "bad.csv", count), result::kImportFailed);
    const auto why = client->errorInfo(copyHandle).text;
    EXPECT_NE(why.find("Row 3 (line 3), field Qty"), std::string::npos) << why;
    EXPECT_EQ(client->recordCount(copyHandle), 4u) << "Ed was not imported either";

    writeFile(folder.path() / "unknown.csv", "Name,Shoe\r\nEd,1\r\n");
    EXPECT_EQ(client->importRecords(copyHandle, "unknown.csv", count), result::kImportFailed);
    EXPECT_EQ(client->importRecords(copyHandle, "missing.csv", count), result::kFileError);
}

INSTANTIATE_TEST_SUITE_P(Drivers, OdbcExportImportTest, ::testing::Values("KivSqlite", "KivPostgres"),
                         driverName);

} // namespace
} // namespace kiv::db::testing
