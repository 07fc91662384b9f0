// The fixture's data sources and the client that talks to them.
#include "OdbcTestSupport.h"

#include <cstdlib>
#include <filesystem>

namespace kiv::db::testing
{

std::string fixtureFolder()
{
    return KIV_ODBC_FIXTURE_DIR;
}

void useFixtureConfiguration()
{
    const std::filesystem::path folder = fixtureFolder();
    ASSERT_TRUE(std::filesystem::exists(folder / "odbc.ini"))
        << "the ODBC fixture is not set up: run the suite through ctest (odbc_fixture_start)";
    ::setenv("ODBCSYSINI", folder.c_str(), 1);
    ::setenv("ODBCINI", (folder / "odbc.ini").c_str(), 1);
}

std::string tableFor(const std::string& dataSource, const std::string& suffix)
{
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(test->name());
    name = name.substr(0, name.find('/')) + suffix;
    runDirectly(dataSource, "DROP TABLE IF EXISTS \"" + name + "\"");
    return name;
}

OdbcClient::OdbcClient(const std::filesystem::path& dataFolder, const std::string& dataSource,
                       const std::string& tag, bool scrollable)
    : ServiceClient(SessionEnvironment{dataFolder, std::chrono::milliseconds(0), false, scrollable}, tag)
{
    if (!dataSource.empty())
        myInitializeCode = initialize(dataSource + ",kiv,");
}

uint32_t OdbcClient::initialize(const std::string& connection)
{
    std::string text = connection;
    uint32_t size = uint32_t(text.size() + 1);
    return call(kKivDB_Initialize, nullptr, text.data(), &size);
}

uint32_t OdbcClient::typeInfo(uint32_t selector, uint32_t codeOrIndex, std::string& name, uint32_t& typeWord)
{
    char buffer[32];
    uint32_t room = sizeof buffer;
    uint32_t slot = codeOrIndex;
    uint32_t type = 0;
    uint32_t code = call(selector, &slot, buffer, &room, nullptr, nullptr, &type);
    std::vector<char> larger;
    if (code == result::kBufferTooSmall)
    {
        larger.resize(room);
        code = call(selector, &slot, larger.data(), &room, nullptr, nullptr, &type);
    }
    if (code == result::kSuccess)
    {
        name.assign(larger.empty() ? buffer : larger.data(), room);
        typeWord = type;
    }
    return code;
}

uint32_t OdbcClient::typeByName(const std::string& name, uint32_t& typeWord)
{
    std::string text = name;
    uint32_t size = uint32_t(text.size() + 1);
    return call(kKivDB_GetODBCFieldTypeByName, nullptr, text.data(), &size, nullptr, nullptr, &typeWord);
}

uint32_t OdbcClient::word(uint32_t selector)
{
    uint32_t value = 0;
    EXPECT_EQ(call(selector, nullptr, nullptr, nullptr, nullptr, nullptr, &value), 0u);
    return value;
}

std::unique_ptr<odbc::Connection> connectDirectly(const std::string& dataSource)
{
    return std::make_unique<odbc::Connection>(dataSource, "kiv", "");
}

void runDirectly(const std::string& dataSource, const std::string& sql)
{
    auto connection = connectDirectly(dataSource);
    odbc::Statement statement(*connection);
    statement.execute(sql);
}

void OdbcTest::SetUp()
{
    useFixtureConfiguration();
    table = tableFor(source());
    client = std::make_unique<OdbcClient>(folder.path(), source());
    ASSERT_EQ(client->initializeCode(), 0u) << client->errorInfo(client->initializeCode()).text;
}

std::string driverName(const ::testing::TestParamInfo<std::string>& info)
{
    return info.param == "KivPostgres" ? "PostgreSQL" : "SQLite";
}

} // namespace kiv::db::testing
