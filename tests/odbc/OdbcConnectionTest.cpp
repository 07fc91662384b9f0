// Connections per worker: reused by the next request, and when the server ends one, the
// request that saw it fails with a clear error and the next one connects anew.
#include "OdbcTestSupport.h"

namespace kiv::db::testing
{
namespace
{

// pg_backend_pid() through the service: a new record whose default is the session's pid.
std::string backendPid(DatabaseService& request, const std::string& table)
{
    Database& db = open(request, table);
    EXPECT_EQ(addRecord(db, {}), 0u) << db.message();
    return text(db, "Pid");
}

class OdbcConnectionTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        useFixtureConfiguration();
        if (HasFatalFailure())
            return;
        table = tableFor("KivPostgres");
        runDirectly("KivPostgres",
                    "CREATE TABLE \"" + table +
                        "\" (\"KIVIDFIELD\" SERIAL PRIMARY KEY, \"Pid\" INTEGER DEFAULT pg_backend_pid())");
    }
    std::string pidOfANewRequest()
    {
        return backendPid(*connectService(folder.path(), "KivPostgres"), table);
    }

    DataFolder folder;
    std::string table;
};

TEST_F(OdbcConnectionTest, TheNextRequestReusesTheConnection)
{
    const std::string first = pidOfANewRequest();
    EXPECT_FALSE(first.empty());
    EXPECT_EQ(pidOfANewRequest(), first);
}

TEST_F(OdbcConnectionTest, ALostConnectionFailsOneRequestClearlyAndIsReplaced)
{
    std::string before;
    {
        auto request = connectService(folder.path(), "KivPostgres");
        Database& db = open(*request, table);
        ASSERT_EQ(addRecord(db, {}), 0u);
        before = text(db, "Pid");
        runDirectly("KivPostgres", "SELECT pg_terminate_backend(" + before + ")");
        uint32_t count = 0;
        EXPECT_EQ(db.recordCount(count), result::kConnectionLost);
        EXPECT_NE(db.message().find("connection to the data source KivPostgres was lost"), std::string::npos)
            << db.message();
    }
    const std::string after = pidOfANewRequest();
    EXPECT_FALSE(after.empty());
    EXPECT_NE(after, before);
}

TEST_F(OdbcConnectionTest, AnIdleConnectionThatDiedIsNotHandedOut)
{
    const std::string before = pidOfANewRequest();
    runDirectly("KivPostgres", "SELECT pg_terminate_backend(" + before + ")");
    EXPECT_NE(pidOfANewRequest(), before);
}

} // namespace
} // namespace kiv::db::testing
