// Connections per worker: reused by the next request, and when the server ends one, the
// request that saw it fails with a clear error and the next one connects anew.
#include "OdbcTestSupport.h"

namespace kiv::db::testing
{
namespace
{

std::string backendPid(OdbcClient& client, uint32_t handle)
{
    // pg_backend_pid() through the service: a one-row table whose default is the session's pid.
    EXPECT_EQ(client.addRecord(handle, {}), 0u);
    return client.getText(handle, "Pid").text;
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
    DataFolder folder;
    std::string table;
};

TEST_F(OdbcConnectionTest, TheNextRequestReusesTheConnection)
{
    std::string first, second;
    {
        OdbcClient request(folder.path(), "KivPostgres");
        uint32_t handle = 0;
        ASSERT_EQ(request.open(table, 2, handle), 0u);
        first = backendPid(request, handle);
    }
    {
        OdbcClient request(folder.path(), "KivPostgres");
        uint32_t handle = 0;
        ASSERT_EQ(request.open(table, 2, handle), 0u);
        second = backendPid(request, handle);
    }
    EXPECT_FALSE(first.empty());
    EXPECT_EQ(first, second);
}

TEST_F(OdbcConnectionTest, ALostConnectionFailsOneRequestClearlyAndIsReplaced)
{
    std::string before;
    {
        OdbcClient request(folder.path(), "KivPostgres");
        uint32_t handle = 0;
        ASSERT_EQ(request.open(table, 2, handle), 0u);
        before = backendPid(request, handle);

        runDirectly("KivPostgres", "SELECT pg_terminate_backend(" + before + ")");
        uint32_t count = 0;
        EXPECT_EQ(request.call(kKivDB_GetRecordCount, &handle, nullptr, nullptr, nullptr, nullptr, &count),
                  result::kConnectionLost);
        const auto text = request.errorInfo(handle).text;
        EXPECT_NE(text.find("connection to the data source KivPostgres was lost"), std::string::npos) << text;
    }
    OdbcClient next(folder.path(), "KivPostgres");
    ASSERT_EQ(next.initializeCode(), 0u);
    uint32_t handle = 0;
    ASSERT_EQ(next.open(table, 2, handle), 0u) << next.errorInfo(result::kConnectionLost).text;
    const std::string after = backendPid(next, handle);
    EXPECT_FALSE(after.empty());
    EXPECT_NE(after, before);
}

TEST_F(OdbcConnectionTest, AnIdleConnectionThatDiedIsNotHandedOut)
{
    std::string before;
    {
        OdbcClient request(folder.path(), "KivPostgres");
        uint32_t handle = 0;
        ASSERT_EQ(request.open(table, 2, handle), 0u);
        before = backendPid(request, handle);
    }
    runDirectly("KivPostgres", "SELECT pg_terminate_backend(" + before + ")");
    OdbcClient next(folder.path(), "KivPostgres");
    ASSERT_EQ(next.initializeCode(), 0u);
    uint32_t handle = 0;
    ASSERT_EQ(next.open(table, 2, handle), 0u);
    EXPECT_NE(backendPid(next, handle), before);
}

} // namespace
} // namespace kiv::db::testing
