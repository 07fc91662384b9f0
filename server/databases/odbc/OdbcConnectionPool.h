// Connections to data sources, kept per worker process and handed to one request at a time.
// With each connection the pool keeps what the driver said about itself once (quote
// character, types, capabilities), so a request does not ask again. A lease that saw the
// connection fail marks it lost; a lost connection is closed instead of going back, and the
// next request connects anew.
#pragma once

#include "odbc/OdbcHandles.h"
#include "odbc/OdbcTypes.h"

#include <memory>
#include <string>
#include <vector>

namespace kiv::db::odbc
{

enum class Dialect
{
    SQLite,
    PostgreSQL,
    Other
};

struct SourceTraits
{
    std::string dataSource;
    std::string dbmsName;
    Dialect dialect = Dialect::Other;
    std::string quote; // identifier quote character; empty when the driver has none
    std::vector<TypeInfo> types;
    uint32_t supportFlags = 0;
    uint32_t cursorFlags = 0;
    // Text comparisons follow the driver's case-sensitivity of each column instead of ignoring
    // case: the data source's "KivCaseSensitiveText = yes" in odbc.ini.
    bool caseSensitiveText = false;
};

// The identifier in the driver's quote character, quotes inside it doubled; as it is when
// the driver has no quote character.
std::string quoteIdentifier(const SourceTraits& traits, const std::string& identifier);

struct PooledConnection
{
    std::string key;
    Connection connection;
    SourceTraits traits;
    bool lost = false;

    PooledConnection(std::string poolKey, const std::string& dataSource, const std::string& user,
                     const std::string& password);
};

// Shared by a backend and the handles opened through it; the last one gives the connection back.
class ConnectionLease
{
public:
    explicit ConnectionLease(std::unique_ptr<PooledConnection> connection);
    ~ConnectionLease();
    ConnectionLease(const ConnectionLease&) = delete;
    ConnectionLease& operator=(const ConnectionLease&) = delete;

    Connection& connection() { return myConnection->connection; }
    const SourceTraits& traits() const { return myConnection->traits; }
    void markLost() { myConnection->lost = true; }

private:
    std::unique_ptr<PooledConnection> myConnection;
};

// Throws OdbcError when no connection can be made.
std::shared_ptr<ConnectionLease> acquireConnection(const std::string& dataSource, const std::string& user,
                                                   const std::string& password);

} // namespace kiv::db::odbc
