// The worker's connection pool.
#include "odbc/OdbcConnectionPool.h"

#include "FieldTypes.h"

#include <odbcinst.h>

#include <unistd.h>

#include <map>
#include <mutex>

namespace kiv::db::odbc
{

namespace
{
// More idle connections than this per data source are closed rather than kept.
constexpr size_t kMaximumIdle = 8;

class Pool
{
public:
    static Pool& instance()
    {
        static Pool* pool = std::make_unique<Pool>().release(); // outlives every worker thread
        return *pool;
    }

    std::unique_ptr<PooledConnection> take(const std::string& key)
    {
        std::lock_guard<std::mutex> guard(myMutex);
        forgetParentsConnections();
        auto& idle = myIdle[key];
        if (idle.empty())
            return nullptr;
        auto connection = std::move(idle.back());
        idle.pop_back();
        return connection;
    }

    void give(std::unique_ptr<PooledConnection> connection)
    {
        std::lock_guard<std::mutex> guard(myMutex);
        forgetParentsConnections();
        auto& idle = myIdle[connection->key];
        if (idle.size() < kMaximumIdle)
            idle.push_back(std::move(connection));
    }

private:
    // A forked worker inherits its parent's sockets; closing them would end the parent's
    // sessions, so the child lets go of them without a word.
    void forgetParentsConnections()
    {
        if (myPid == ::getpid())
            return;
        for (auto& entry : myIdle)
            for (auto& connection : entry.second)
                connection->connection.abandon();
        myIdle.clear();
        myPid = ::getpid();
    }

    std::mutex myMutex;
    pid_t myPid = ::getpid();
    std::map<std::string, std::vector<std::unique_ptr<PooledConnection>>> myIdle;
};

bool isAlive(PooledConnection& pooled)
{
    if (pooled.traits.dialect == Dialect::SQLite)
        return true; // a file, not a server
    try
    {
        Statement ping(pooled.connection);
        ping.execute("SELECT 1");
        return true;
    }
    catch (const OdbcError&)
    {
        return false;
    }
}

Dialect dialectOf(const std::string& dbmsName)
{
    const std::string folded = foldCase(dbmsName);
    if (folded.find("sqlite") != std::string::npos)
        return Dialect::SQLite;
    if (folded.find("postgres") != std::string::npos)
        return Dialect::PostgreSQL;
    return Dialect::Other;
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

PooledConnection::PooledConnection(std::string poolKey, const std::string& dataSource,
                                   const std::string& user, const std::string& password)
    : key(std::move(poolKey)), connection(dataSource, user, password)
{
    traits.dataSource = dataSource;
    traits.dbmsName = connection.infoText(SQL_DBMS_NAME);
    traits.dialect = dialectOf(traits.dbmsName);
    traits.quote = std::string(trimBlanks(connection.infoText(SQL_IDENTIFIER_QUOTE_CHAR)));
    traits.types = readTypeInfo(connection);
    traits.supportFlags = supportFlagsOf(connection);
    traits.cursorFlags = cursorFlagsOf(connection);
    char optOut[16] = {};
    SQLGetPrivateProfileString(dataSource.c_str(), "KivCaseSensitiveText", "no", optOut, sizeof optOut,
                               "odbc.ini");
    traits.caseSensitiveText = parseTruth(optOut).value_or(false);
}

ConnectionLease::ConnectionLease(std::unique_ptr<PooledConnection> connection)
    : myConnection(std::move(connection))
{
}

ConnectionLease::~ConnectionLease()
{
    if (!myConnection->lost)
        Pool::instance().give(std::move(myConnection));
}

std::shared_ptr<ConnectionLease> acquireConnection(const std::string& dataSource, const std::string& user,
                                                   const std::string& password)
{
    const std::string key = dataSource + '\n' + user + '\n' + password;
    while (auto pooled = Pool::instance().take(key))
    {
        // A server restarted or a session ended since the connection was made: drop it and try
        // the next one, so that only the request that saw the loss reports it.
        if (!pooled->connection.knownDead() && isAlive(*pooled))
            return std::make_shared<ConnectionLease>(std::move(pooled));
    }
    return std::make_shared<ConnectionLease>(
        std::make_unique<PooledConnection>(key, dataSource, user, password));
}

} // namespace kiv::db::odbc
