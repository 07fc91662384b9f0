// Connections per worker: reused by the next request without a query to try them; when the
// server ends one while it is idle, the next request connects again without an error; when it
// ends one during a request, that request fails with a clear error and the next one connects
// anew. A pool opens at most the data source's KivPoolSize connections.
#include "OdbcTestSupport.h"

#include <chrono>

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

TEST_F(OdbcConnectionTest, APoolOpensAtMostItsSizeAndSaysSoWhenFull)
{
    // The fixture's KivPostgresPool2 has KivPoolSize=2.
    auto first = connectService(folder.path(), "KivPostgresPool2");
    auto second = connectService(folder.path(), "KivPostgresPool2");
    const std::string firstPid = backendPid(*first, table);
    DatabaseService third(environmentIn(folder.path()));
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(third.connect("KivPostgresPool2", "kiv", ""), result::kODBCUnavailable);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
    EXPECT_NE(third.lastFailure().line.find("All 2 connections"), std::string::npos)
        << third.lastFailure().line;
    EXPECT_NE(third.lastFailure().line.find("KivPoolSize"), std::string::npos);
    first.reset();
    ASSERT_EQ(third.connect("KivPostgresPool2", "kiv", ""), 0u) << third.lastFailure().line;
    EXPECT_EQ(backendPid(third, table), firstPid) << "the connection the first request gave back";
}

TEST_F(OdbcConnectionTest, APoolSizeThatIsNotANumberIsRefusedClearly)
{
    DatabaseService service(environmentIn(folder.path()));
    EXPECT_EQ(service.connect("KivPostgresBadPool", "kiv", ""), result::kODBCUnavailable);
    EXPECT_NE(service.lastFailure().line.find("KivPoolSize = plenty"), std::string::npos)
        << service.lastFailure().line;
}

} // namespace
} // namespace kiv::db::testing
