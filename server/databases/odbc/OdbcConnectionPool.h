// Connections to data sources, kept per worker process in one pool per data source, user and
// password, and handed to one request at a time. A pool opens at most KivPoolSize connections
// (the data source's line in odbc.ini, 8 by default). With the pool the worker keeps what the
// driver said about itself (quote character, types, capabilities) and the descriptions of the
// tables (OdbcMetadata), read once instead of per request; each connection keeps its prepared
// statements (OdbcStatementCache).
//
// A connection taken from the pool is not tried with a query first: only the driver's own
// connection-dead flag is asked. If the first statement of the lease then finds the connection
// gone (the server restarted while it was idle), the lease connects again and runs that
// statement once more, so a restart costs one failed attempt per pooled connection and no
// request. A connection lost after it answered fails the request; the lease is then marked
// lost and its connection is closed instead of pooled.
#pragma once

#include "odbc/OdbcHandles.h"
#include "odbc/OdbcMetadata.h"
#include "odbc/OdbcStatementCache.h"
#include "odbc/OdbcTypes.h"

#include <functional>
#include <memory>
#include <optional>
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

// How a query asks for a window of its rows.
enum class WindowSyntax
{
    LimitOffset, // LIMIT n OFFSET m: SQLite, PostgreSQL, MySQL, MariaDB
    OffsetFetch  // OFFSET m ROWS FETCH NEXT n ROWS ONLY: standard SQL since 2008
};

struct SourceTraits
{
    std::string dataSource;
    std::string dbmsName;
    Dialect dialect = Dialect::Other;
    WindowSyntax window = WindowSyntax::OffsetFetch;
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

// The connections a pool may open, from "KivPoolSize" in the data source's section of
// odbc.ini: 8 when it is missing. Throws OdbcError naming the setting when it is not a whole
// number from 1 to 64.
size_t poolSizeOf(const std::string& dataSource);
constexpr size_t kDefaultPoolSize = 8;

struct PooledConnection
{
    Connection connection;
    StatementCache statements;
    std::shared_ptr<const SourceTraits> traits;
    uint64_t generation = 0; // the schema generation its statements were prepared in

    PooledConnection(const std::string& dataSource, const std::string& user, const std::string& password);
};

struct SourcePool;

// Shared by a backend and the handles opened through it; the last one gives the connection back.
class ConnectionLease
{
public:
    ConnectionLease(std::shared_ptr<SourcePool> pool, std::unique_ptr<PooledConnection> connection,
                    bool wasIdle);
    ~ConnectionLease();
    ConnectionLease(const ConnectionLease&) = delete;
    ConnectionLease& operator=(const ConnectionLease&) = delete;

    Connection& connection() { return myConnection->connection; }
    const SourceTraits& traits() const { return *myConnection->traits; }
    void markLost() { myLost = true; }

    // Runs `work`, which talks to the server over connection(); once more on a new connection
    // when the connection was found dead before it ever answered this lease (see above).
    void run(const std::function<void()>& work);
    // Runs `sql` on the connection's kept statement for it (through run()); the statement
    // holds the result until the next statement of this lease.
    Statement& execute(const std::string& sql, std::vector<Parameter> parameters = {});
    // Runs `sql` on a statement of its own that is not kept (schema changes and the like).
    void executeOnce(const std::string& sql, std::vector<Parameter> parameters = {});
    // Transactions: remembered so that a new connection continues in the same mode.
    void setAutoCommit(bool on);

    // The data source's tables and their descriptions, from the pool's copy where it has one.
    std::vector<std::string> tables();
    // The stored spelling of a table named without regard to case; a name the kept list lacks
    // makes it read the list again first (the table may be new).
    std::optional<std::string> findTable(const std::string& name);
    std::shared_ptr<const TableDescription> describe(const std::string& table);
    // The schema changed (through this server or found changed): forget the tables and every
    // description, here and in the server's other workers; statements prepared before are
    // prepared again when they next run.
    void schemaChanged();

private:
    void reconnect();
    void forgetStaleStatements();

    std::shared_ptr<SourcePool> myPool;
    std::unique_ptr<PooledConnection> myConnection;
    bool myWasIdle;          // taken from the pool rather than connected for this lease
    bool myAnswered = false; // the connection answered a statement of this lease
    bool myLost = false;
    bool myAutoCommit = true;
};

// Throws OdbcError when no connection can be made, or when all KivPoolSize connections of the
// pool stay in use for a second.
std::shared_ptr<ConnectionLease> acquireConnection(const std::string& dataSource, const std::string& user,
                                                   const std::string& password);

} // namespace kiv::db::odbc
