// RAII wrappers for the SQLite handles the embedded store uses: a connection and a prepared
// statement. They own their handle, finalise or close it exactly once, and turn SQLite's
// result codes into exceptions carrying the connection's message so the store can map them.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kiv::db
{

class SqliteError : public std::runtime_error
{
public:
    SqliteError(int code, const std::string& message) : std::runtime_error(message), myCode(code) {}
    int code() const { return myCode; }
    int primaryCode() const { return myCode & 0xFF; }

private:
    int myCode;
};

class SqliteStatement
{
public:
    SqliteStatement() = default;
    SqliteStatement(sqlite3* connection, std::string_view sql);

    explicit operator bool() const { return bool(myStatement); }
    sqlite3_stmt* get() const { return myStatement.get(); }

    void bindNull(int index);
    void bindInteger(int index, int64_t value);
    void bindDouble(int index, double value);
    void bindText(int index, std::string_view value); // copied by SQLite; any bytes

    // true while a row is available; throws on error.
    bool step();
    void execute(); // step through to the end
    void reset();   // ready for new bindings

    int columnType(int column) const { return sqlite3_column_type(myStatement.get(), column); }
    int64_t columnInteger(int column) const { return sqlite3_column_int64(myStatement.get(), column); }
    double columnDouble(int column) const { return sqlite3_column_double(myStatement.get(), column); }
    std::string_view columnText(int column) const;

private:
    struct Finalizer
    {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    std::unique_ptr<sqlite3_stmt, Finalizer> myStatement;
    sqlite3* myConnection = nullptr;
};

// Resets a statement when a use of it ends, so that no half-read statement keeps a read
// transaction (and with it an old snapshot of the database) open between calls.
class StatementScope
{
public:
    explicit StatementScope(SqliteStatement& statement) : myStatement(statement) {}
    ~StatementScope() { sqlite3_reset(myStatement.get()); }
    StatementScope(const StatementScope&) = delete;
    StatementScope& operator=(const StatementScope&) = delete;

private:
    SqliteStatement& myStatement;
};

class SqliteConnection
{
public:
    SqliteConnection() = default;
    SqliteConnection(const std::string& path, int flags);

    explicit operator bool() const { return bool(myConnection); }
    sqlite3* get() const { return myConnection.get(); }

    void execute(std::string_view sql); // one or more statements without results
    SqliteStatement prepare(std::string_view sql) { return SqliteStatement(myConnection.get(), sql); }
    int64_t lastInsertRowId() const { return sqlite3_last_insert_rowid(myConnection.get()); }
    int changes() const { return sqlite3_changes(myConnection.get()); }

    // Leaves the handle open without closing it: used in a forked child, which must not touch
    // the connections it inherited from its parent.
    void abandon() { (void)myConnection.release(); }

private:
    struct Closer
    {
        void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
    };
    std::unique_ptr<sqlite3, Closer> myConnection;
};

// A transaction that rolls back unless committed; the destructor never throws.
class SqliteTransaction
{
public:
    explicit SqliteTransaction(SqliteConnection& connection, bool immediate = true);
    ~SqliteTransaction();
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;
    void commit();

private:
    SqliteConnection& myConnection;
    bool myOpen = true;
};

} // namespace kiv::db
