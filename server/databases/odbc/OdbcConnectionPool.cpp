// The worker's connection pools, their kept metadata and the leases that hand out connections.
#include "odbc/OdbcConnectionPool.h"

#include "FieldTypes.h"

#include <odbcinst.h>

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

namespace kiv::db::odbc
{

// One data source, user and password in this worker: its connections and what it keeps about
// the data source. The connection counts and idle list are guarded by the registry's mutex,
// the traits and metadata by metadataMutex.
struct SourcePool
{
    SourcePool(std::string poolKey, std::string source, std::string userName, std::string secret, size_t most)
        : key(std::move(poolKey)), dataSource(std::move(source)), user(std::move(userName)),
          password(std::move(secret)), limit(most)
    {
    }

    // With metadataMutex held: drops what a schema change since made stale.
    void followGeneration()
    {
        const uint64_t now = schemaGeneration();
        if (generation == now)
            return;
        tables.reset();
        descriptions.clear();
        generation = now;
    }

    const std::string key, dataSource, user, password;
    const size_t limit;
    size_t open = 0; // connections of this pool that exist, idle or leased
    std::vector<std::unique_ptr<PooledConnection>> idle;

    std::mutex metadataMutex;
    std::shared_ptr<const SourceTraits> traits;
    uint64_t generation = 0; // the schema generation of what is kept below
    std::optional<std::vector<std::string>> tables;
    std::map<std::string, std::shared_ptr<const TableDescription>> descriptions;
};

namespace
{
// How long a request waits for one of the pool's connections when all are leased.
constexpr auto kPoolWait = std::chrono::seconds(1);

class Registry
{
public:
    static Registry& instance()
    {
        static Registry* registry = std::make_unique<Registry>().release(); // outlives every worker thread
        return *registry;
    }

    std::shared_ptr<SourcePool> poolFor(const std::string& dataSource, const std::string& user,
                                        const std::string& password)
    {
        const std::string key = dataSource + '\n' + user + '\n' + password;
        {
            std::lock_guard<std::mutex> guard(myMutex);
            forgetParentsConnections();
            if (const auto found = myPools.find(key); found != myPools.end())
                return found->second;
        }
        const size_t limit = poolSizeOf(dataSource); // reads odbc.ini: not under the lock
        std::lock_guard<std::mutex> guard(myMutex);
        auto& pool = myPools[key];
        if (!pool)
            pool = std::make_shared<SourcePool>(key, dataSource, user, password, limit);
        return pool;
    }

    // An idle connection of the pool, or null with a place reserved for a new one. Throws
    // OdbcError when the pool stays full.
    std::unique_ptr<PooledConnection> take(SourcePool& pool)
    {
        std::vector<std::unique_ptr<PooledConnection>> dead; // closed after the lock is released
        std::unique_lock<std::mutex> lock(myMutex);
        forgetParentsConnections();
        const bool available = myReturned.wait_for(lock, kPoolWait,
                                                   [&]
                                                   {
                                                       while (!pool.idle.empty())
                                                       {
                                                           if (!pool.idle.back()->connection.knownDead())
                                                               return true;
                                                           dead.push_back(std::move(pool.idle.back()));
                                                           pool.idle.pop_back();
                                                           --pool.open;
                                                       }
                                                       return pool.open < pool.limit;
                                                   });
        if (!available)
            throw OdbcError("HY000", "All " + std::to_string(pool.limit) +
                                         " connections this worker may open to " + pool.dataSource +
                                         " are in use (KivPoolSize in odbc.ini).");
        if (!pool.idle.empty())
        {
            auto connection = std::move(pool.idle.back());
            pool.idle.pop_back();
            return connection;
        }
        ++pool.open;
        return nullptr;
    }

    // A connection back from a lease (null: it was closed, or never made).
    void giveBack(SourcePool& pool, std::unique_ptr<PooledConnection> connection)
    {
        {
            std::lock_guard<std::mutex> guard(myMutex);
            if (myPid != ::getpid())
            {
                if (connection)
                    connection->connection.abandon(); // the parent's, as above
            }
            else if (connection)
                pool.idle.push_back(std::move(connection));
            else if (--pool.open == 0 && pool.idle.empty())
            {
                // A pool without connections is not kept: names that never connected (a wrong
                // password, a data source that does not exist) must not pile up.
                if (const auto found = myPools.find(pool.key);
                    found != myPools.end() && found->second.get() == &pool)
                    myPools.erase(found);
            }
        }
        myReturned.notify_all();
    }

private:
    // A forked worker inherits its parent's sockets; closing them would end the parent's
    // sessions, so the child lets go of them without a word.
    void forgetParentsConnections()
    {
        if (myPid == ::getpid())
            return;
        for (auto& entry : myPools)
            for (auto& connection : entry.second->idle)
                connection->connection.abandon();
        myPools.clear();
        myPid = ::getpid();
    }

    std::mutex myMutex;
    std::condition_variable myReturned;
    pid_t myPid = ::getpid();
    std::map<std::string, std::shared_ptr<SourcePool>> myPools;
};

Dialect dialectOf(const std::string& dbmsName)
{
    const std::string folded = foldCase(dbmsName);
    if (folded.find("sqlite") != std::string::npos)
        return Dialect::SQLite;
    if (folded.find("postgres") != std::string::npos)
        return Dialect::PostgreSQL;
    return Dialect::Other;
}

WindowSyntax windowSyntaxOf(const std::string& dbmsName)
{
    const std::string folded = foldCase(dbmsName);
    for (const char* name : {"sqlite", "postgres", "mysql", "mariadb"})
        if (folded.find(name) != std::string::npos)
            return WindowSyntax::LimitOffset;
    return WindowSyntax::OffsetFetch;
}

std::string profileString(const std::string& dataSource, const char* key, const char* fallback)
{
    char value[64] = {};
    SQLGetPrivateProfileString(dataSource.c_str(), key, fallback, value, sizeof value, "odbc.ini");
    return value;
}

std::shared_ptr<const SourceTraits> readTraits(const Connection& connection, const std::string& dataSource)
{
    auto traits = std::make_shared<SourceTraits>();
    traits->dataSource = dataSource;
    traits->dbmsName = connection.infoText(SQL_DBMS_NAME);
    traits->dialect = dialectOf(traits->dbmsName);
    traits->window = windowSyntaxOf(traits->dbmsName);
    traits->quote = std::string(trimBlanks(connection.infoText(SQL_IDENTIFIER_QUOTE_CHAR)));
    traits->types = readTypeInfo(connection);
    traits->supportFlags = supportFlagsOf(connection);
    traits->cursorFlags = cursorFlagsOf(connection);
    traits->caseSensitiveText =
        parseTruth(profileString(dataSource, "KivCaseSensitiveText", "no")).value_or(false);
    return traits;
}

// A new connection of the pool; the first one also learns the driver's traits for all.
std::unique_ptr<PooledConnection> connectTo(SourcePool& pool)
{
    auto connection = std::make_unique<PooledConnection>(pool.dataSource, pool.user, pool.password);
    std::lock_guard<std::mutex> guard(pool.metadataMutex);
    if (!pool.traits)
        pool.traits = readTraits(connection->connection, pool.dataSource);
    connection->traits = pool.traits;
    return connection;
}
} // namespace

std::string quoteIdentifier(const SourceTraits& traits, const std::string& identifier)
{
    const std::string& q = traits.quote;
    if (q.size() != 1)
        return identifier;
    std::string quoted = q;
    for (const char c : identifier)
    {
        quoted += c;
        if (c == q[0])
            quoted += c;
    }
    return quoted + q;
}

size_t poolSizeOf(const std::string& dataSource)
{
    const std::string value(trimBlanks(profileString(dataSource, "KivPoolSize", "")));
    if (value.empty())
        return kDefaultPoolSize;
    const auto size = parseInteger(value);
    if (!size || *size < 1 || *size > 64)
        throw OdbcError("HY000", "KivPoolSize = " + value + " in the section " + dataSource +
                                     " of odbc.ini is not a whole number from 1 to 64.");
    return size_t(*size);
}

PooledConnection::PooledConnection(const std::string& dataSource, const std::string& user,
                                   const std::string& password)
    : connection(dataSource, user, password), statements(connection), generation(schemaGeneration())
{
}

ConnectionLease::ConnectionLease(std::shared_ptr<SourcePool> pool,
                                 std::unique_ptr<PooledConnection> connection, bool wasIdle)
    : myPool(std::move(pool)), myConnection(std::move(connection)), myWasIdle(wasIdle)
{
}

void ConnectionLease::forgetStaleStatements()
{
    // Statements prepared before a schema change may describe the tables as they were. Done
    // before a statement runs, when no caller still reads a kept one.
    if (const uint64_t now = schemaGeneration(); myConnection->generation != now)
    {
        myConnection->statements.clear();
        myConnection->generation = now;
    }
}

ConnectionLease::~ConnectionLease()
{
    if (myLost)
        myConnection.reset();
    Registry::instance().giveBack(*myPool, std::move(myConnection));
}

void ConnectionLease::reconnect()
{
    auto fresh = connectTo(*myPool);
    if (!myAutoCommit)
        fresh->connection.setAutoCommit(false);
    myConnection = std::move(fresh); // the dead one is closed; it held the pool place this one takes
    myWasIdle = false;
}

void ConnectionLease::run(const std::function<void()>& work)
{
    try
    {
        work();
    }
    catch (const OdbcError& error)
    {
        // Nothing of this lease reached a server that could have acted on it: the connection
        // died while it was idle. Work that did reach it (a later statement) is not repeated.
        if (!error.connectionLost() || myAnswered || !myWasIdle)
            throw;
        reconnect();
        work();
    }
    myAnswered = true;
}

Statement& ConnectionLease::execute(const std::string& sql, std::vector<Parameter> parameters)
{
    Statement* statement = nullptr;
    run(
        [&]
        {
            forgetStaleStatements();
            statement = &myConnection->statements.run(sql, parameters);
        });
    return *statement;
}

void ConnectionLease::executeOnce(const std::string& sql, std::vector<Parameter> parameters)
{
    run(
        [&]
        {
            Statement statement(connection());
            statement.execute(sql, parameters);
        });
}

void ConnectionLease::setAutoCommit(bool on)
{
    connection().setAutoCommit(on);
    myAutoCommit = on;
}

std::vector<std::string> ConnectionLease::tables()
{
    uint64_t generation = 0;
    {
        std::lock_guard<std::mutex> guard(myPool->metadataMutex);
        myPool->followGeneration();
        if (myPool->tables)
            return *myPool->tables;
        generation = myPool->generation;
    }
    std::vector<std::string> names;
    run([&] { names = listTables(connection()); });
    std::lock_guard<std::mutex> guard(myPool->metadataMutex);
    myPool->followGeneration();
    if (myPool->generation == generation)
        myPool->tables = names;
    return names;
}

std::optional<std::string> ConnectionLease::findTable(const std::string& name)
{
    const auto find = [&](const std::vector<std::string>& names) -> std::optional<std::string>
    {
        for (const auto& table : names)
            if (compareFolded(table, name) == 0)
                return table;
        return std::nullopt;
    };
    if (auto found = find(tables()))
        return found;
    {
        std::lock_guard<std::mutex> guard(myPool->metadataMutex);
        myPool->tables.reset(); // made since the list was read, perhaps by another server
    }
    return find(tables());
}

std::shared_ptr<const TableDescription> ConnectionLease::describe(const std::string& table)
{
    uint64_t generation = 0;
    {
        std::lock_guard<std::mutex> guard(myPool->metadataMutex);
        myPool->followGeneration();
        if (const auto found = myPool->descriptions.find(table); found != myPool->descriptions.end())
            return found->second;
        generation = myPool->generation;
    }
    std::shared_ptr<const TableDescription> description;
    run([&]
        { description = std::make_shared<TableDescription>(describeTable(connection(), traits(), table)); });
    std::lock_guard<std::mutex> guard(myPool->metadataMutex);
    myPool->followGeneration();
    if (myPool->generation == generation)
        myPool->descriptions[table] = description;
    return description;
}

void ConnectionLease::schemaChanged()
{
    advanceSchemaGeneration();
    std::lock_guard<std::mutex> guard(myPool->metadataMutex);
    myPool->followGeneration();
}

std::shared_ptr<ConnectionLease> acquireConnection(const std::string& dataSource, const std::string& user,
                                                   const std::string& password)
{
    auto& registry = Registry::instance();
    auto pool = registry.poolFor(dataSource, user, password);
    if (auto idle = registry.take(*pool))
        return std::make_shared<ConnectionLease>(pool, std::move(idle), true);
    std::unique_ptr<PooledConnection> connection;
    try
    {
        connection = connectTo(*pool);
    }
    catch (...)
    {
        registry.giveBack(*pool, nullptr);
        throw;
    }
    return std::make_shared<ConnectionLease>(pool, std::move(connection), false);
}

} // namespace kiv::db::odbc
