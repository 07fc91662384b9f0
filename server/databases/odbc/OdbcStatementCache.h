// The prepared statements of one pooled connection, kept by their SQL and the types of their
// parameters: a search of the same shape as an earlier one, with other values, runs the
// statement the driver already prepared (psqlODBC keeps it prepared on the server, so each run
// sends only the values). The most recently used are kept; the rest are freed.
#pragma once

#include "odbc/OdbcHandles.h"

#include <list>
#include <memory>
#include <string>
#include <vector>

namespace kiv::db::odbc
{

class StatementCache
{
public:
    explicit StatementCache(const Connection& connection) : myConnection(connection) {}

    // Runs `sql` with the parameters on its kept statement, prepared now when there is none.
    // A statement the server refuses to run again because a table under it changed
    // (PostgreSQL's "cached plan must not change result type") is prepared anew once. The
    // statement holds the result until the next call. Throws OdbcError.
    Statement& run(const std::string& sql, std::vector<Parameter> parameters);
    // Frees every kept statement (the schema they were prepared for changed).
    void clear() { myEntries.clear(); }
    size_t size() const { return myEntries.size(); }

private:
    struct Entry
    {
        std::string key;
        std::unique_ptr<Statement> statement;
    };

    const Connection& myConnection;
    std::list<Entry> myEntries; // most recently used first
};

// SQLSTATE 0A000 from PostgreSQL: a prepared statement whose result would change shape.
bool isStalePlan(const OdbcError& error);

} // namespace kiv::db::odbc
