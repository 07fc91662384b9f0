// Shared pieces of the ODBC suites: the data sources that odbc-fixture.sh set up (found
// through ODBCSYSINI and ODBCINI, never the system's files), a database service connected to
// one of them, and table names that no other test uses.
#pragma once

#include "ServiceTesting.h"
#include "odbc/OdbcHandles.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace kiv::db::testing
{

// "KivSqlite" (the SQLite ODBC driver over a file) or "KivPostgres" (psqlODBC over the
// PostgreSQL server of the fixture).
std::string fixtureFolder();
void useFixtureConfiguration(); // sets ODBCSYSINI and ODBCINI; fails the test when missing

// A table name of this test and data source, dropped before the test starts.
std::string tableFor(const std::string& dataSource, const std::string& suffix = "");

// A service connected to the data source (an empty one: the embedded store).
std::unique_ptr<DatabaseService> connectService(const std::filesystem::path& dataFolder,
                                                const std::string& dataSource);

// A direct connection for what a test does behind the service's back.
std::unique_ptr<odbc::Connection> connectDirectly(const std::string& dataSource);
void runDirectly(const std::string& dataSource, const std::string& sql);

// Every parameterised ODBC test runs once per driver.
class OdbcTest : public ::testing::TestWithParam<std::string>
{
protected:
    void SetUp() override;
    const std::string& source() const { return GetParam(); }
    bool isPostgres() const { return GetParam() == "KivPostgres"; }

    DataFolder folder;
    std::unique_ptr<DatabaseService> service;
    std::string table;
};

std::string driverName(const ::testing::TestParamInfo<std::string>& info);

} // namespace kiv::db::testing
