// Kept prepared statements, most recently used first.
#include "odbc/OdbcStatementCache.h"

namespace kiv::db::odbc
{

namespace
{
constexpr size_t kKeptStatements = 32;

// The SQL and, per parameter, its kind and SQL type: a driver fixes the parameters' types
// when it prepares.
std::string keyOf(const std::string& sql, const std::vector<Parameter>& parameters)
{
    std::string key = sql;
    key += '\0';
    for (const auto& parameter : parameters)
    {
        key += char('0' + int(parameter.kind));
        key += std::to_string(parameter.sqlType);
        key += ',';
    }
    return key;
}
} // namespace

bool isStalePlan(const OdbcError& error)
{
    return error.sqlState() == "0A000" && std::string(error.what()).find("cached plan") != std::string::npos;
}

Statement& StatementCache::run(const std::string& sql, std::vector<Parameter> parameters)
{
    const std::string key = keyOf(sql, parameters);
    auto found = myEntries.begin();
    while (found != myEntries.end() && found->key != key)
        ++found;
    if (found != myEntries.end())
    {
        myEntries.splice(myEntries.begin(), myEntries, found);
        Statement& kept = *myEntries.front().statement;
        try
        {
            kept.run(parameters);
            return kept;
        }
        catch (const OdbcError& error)
        {
            if (!isStalePlan(error))
                throw;
            myEntries.pop_front(); // prepared again below, for the table as it is now
        }
    }
    auto statement = std::make_unique<Statement>(myConnection);
    statement->prepare(sql);
    statement->run(std::move(parameters));
    myEntries.push_front(Entry{key, std::move(statement)});
    if (myEntries.size() > kKeptStatements)
        myEntries.pop_back();
    return *myEntries.front().statement;
}

} // namespace kiv::db::odbc
