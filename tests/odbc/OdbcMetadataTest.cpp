// What a worker keeps about a data source's tables: read once, not per request; a change made
// through the server (by any of its worker processes) is seen by the next open, and a change
// made behind the server's back fails the first read that finds the table different, clearly,
// after which the next request sees the table as it is.
#include "OdbcTestSupport.h"

#include <sys/wait.h>
#include <unistd.h>

namespace kiv::db::testing
{
namespace
{

class OdbcMetadataTest : public OdbcTest
{
protected:
    void SetUp() override
    {
        OdbcTest::SetUp();
        if (HasFatalFailure())
            return;
        Database& db = openSampleDatabase(*service, table);
        for (int i = 0; i < 3; ++i)
            ASSERT_EQ(addRecord(db, {{"Name", "P" + std::to_string(i)}, {"Qty", std::to_string(i)}}), 0u)
                << db.message();
        service.reset(); // the connection goes back to the pool with what it prepared
    }

    std::unique_ptr<DatabaseService> nextRequest() { return connectService(folder.path(), source()); }
};

TEST_P(OdbcMetadataTest, AFieldAddedByAnotherWorkerProcessIsSeenByTheNextOpen)
{
    ASSERT_FALSE(open(*nextRequest(), table).findField("Extra")) << "the description is kept";
    // A forked worker adds the field through its own pool; it shares only the generation.
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0)
    {
        DatabaseService worker(environmentIn(folder.path()));
        DatabaseHandle handle = 0;
        const bool added =
            worker.connect(source(), "kiv", "") == 0 &&
            worker.openDatabase(table, OpenMode::Shared, OpenIntent::MustExist, "", handle) == 0 &&
            worker.database(handle)->addField("Extra", 0x00020000) == 0;
        ::_exit(added ? 0 : 1); // no destructor may close what the parent process still uses
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    auto request = nextRequest();
    Database& db = open(*request, table);
    ASSERT_TRUE(db.findField("Extra"));
    EXPECT_EQ(column(db, "Qty >= 1 ORDER BY Qty", "Extra"), (std::vector<std::string>{"0", "0"}));
}

TEST_P(OdbcMetadataTest, TablesMadeOrDroppedElsewhere)
{
    ASSERT_EQ(recordCount(open(*nextRequest(), table)), 3u);
    const std::string made = tableFor(source(), "Made");
    runDirectly(source(),
                "CREATE TABLE \"" + made + "\" (\"KIVIDFIELD\" INTEGER PRIMARY KEY, \"Title\" VARCHAR(20))");
    auto request = nextRequest();
    EXPECT_EQ(recordCount(open(*request, made)), 0u) << "a name the kept list lacks is looked up again";

    runDirectly(source(), "DROP TABLE \"" + table + "\"");
    auto stale = nextRequest();
    DatabaseHandle handle = 0;
    ASSERT_EQ(stale->openDatabase(table, OpenMode::Shared, OpenIntent::MustExist, "", handle), 0u)
        << "opened from the kept description";
    uint32_t count = 0;
    EXPECT_EQ(stale->database(handle)->recordCount(count), result::kDataSourceError);
    EXPECT_NE(stale->database(handle)->message().find("reads its fields anew"), std::string::npos)
        << stale->database(handle)->message();
    stale.reset();
    EXPECT_EQ(nextRequest()->openDatabase(table, OpenMode::Shared, OpenIntent::MustExist, "", handle),
              result::kDatabaseNotFound);
}

TEST_P(OdbcMetadataTest, AFieldDroppedBehindTheServersBackFailsOneReadClearly)
{
    ASSERT_EQ(column(open(*nextRequest(), table), "Qty >= 0 ORDER BY Qty", "Name"),
              (std::vector<std::string>{"P0", "P1", "P2"}));
    runDirectly(source(), "ALTER TABLE \"" + table + "\" DROP COLUMN \"Notes\"");
    {
        auto stale = nextRequest();
        Database& db = open(*stale, table);
        ASSERT_TRUE(db.findField("Notes")) << "opened from the kept description";
        ASSERT_EQ(db.executeSearch("Qty >= 0 ORDER BY Qty"), 0u);
        ASSERT_EQ(db.moveFirst(), 0u);
        const FieldDefinition* field = nullptr;
        const FieldValue* value = nullptr;
        const uint32_t code = db.getValue("Name", field, value);
        EXPECT_EQ(code, result::kDataSourceError) << "never the values of other columns";
        EXPECT_TRUE(db.message().find("changed") != std::string::npos) << db.message();
    }
    auto request = nextRequest();
    Database& db = open(*request, table);
    EXPECT_FALSE(db.findField("Notes"));
    EXPECT_EQ(column(db, "Qty >= 0 ORDER BY Qty DESC", "Name"), (std::vector<std::string>{"P2", "P1", "P0"}));
}

INSTANTIATE_TEST_SUITE_P(Drivers, OdbcMetadataTest, ::testing::Values("KivSqlite", "KivPostgres"),
                         driverName);

} // namespace
} // namespace kiv::db::testing
