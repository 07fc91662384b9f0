// The fixture's data sources and the services that talk to them.
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

std::unique_ptr<DatabaseService> connectService(const std::filesystem::path& dataFolder,
                                                const std::string& dataSource)
{
    auto service = std::make_unique<DatabaseService>(environmentIn(dataFolder));
    EXPECT_EQ(service->connect(dataSource, "kiv", ""), 0u) << service->lastFailure().line;
    return service;
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
    service = connectService(folder.path(), source());
    ASSERT_TRUE(service->usesDataSource());
}

std::string driverName(const ::testing::TestParamInfo<std::string>& info)
{
    return info.param == "KivPostgres" ? "PostgreSQL" : "SQLite";
}

} // namespace kiv::db::testing
