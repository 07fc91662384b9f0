// Shared pieces of the ODBC suites: the data sources that odbc-fixture.sh set up (found
// through ODBCSYSINI and ODBCINI, never the system's files), a client whose session serves
// one of them, and table names that no other test uses.
#pragma once

#include "ServiceClient.h"
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

class OdbcClient : public ServiceClient
{
public:
    OdbcClient(const std::filesystem::path& dataFolder, const std::string& dataSource,
               const std::string& tag = "kivModifyDatabase", bool scrollable = true);
    uint32_t initialize(const std::string& connection);
    uint32_t initializeCode() const { return myInitializeCode; }

    // 'MOFT', 'MOFI' (by code or index in a3), 'MDFN', 'MOFC', 'MOSF', 'MOCF'.
    uint32_t typeInfo(uint32_t selector, uint32_t codeOrIndex, std::string& name, uint32_t& typeWord);
    uint32_t typeByName(const std::string& name, uint32_t& typeWord);
    uint32_t word(uint32_t selector);

private:
    uint32_t myInitializeCode = 0;
};

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
    std::unique_ptr<OdbcClient> client;
    std::string table;
};

std::string driverName(const ::testing::TestParamInfo<std::string>& info);

} // namespace kiv::db::testing
