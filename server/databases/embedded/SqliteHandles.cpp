// RAII wrappers for SQLite connections, statements and transactions.
#include "embedded/SqliteHandles.h"

namespace kiv::db
{

namespace
{
[[noreturn]] void throwError(sqlite3* connection, int code)
{
    std::string message = connection ? sqlite3_errmsg(connection) : sqlite3_errstr(code);
    const int extended = connection ? sqlite3_extended_errcode(connection) : code;
    throw SqliteError(extended, message);
}
} // namespace

SqliteStatement::SqliteStatement(sqlite3* connection, std::string_view sql) : myConnection(connection)
{
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(connection, sql.data(), int(sql.size()), SQLITE_PREPARE_PERSISTENT,
                                        &statement, nullptr);
    myStatement.reset(statement);
    if (code != SQLITE_OK)
        throwError(connection, code);
}

void SqliteStatement::bindNull(int index)
{
    if (const int code = sqlite3_bind_null(get(), index); code != SQLITE_OK)
        throwError(myConnection, code);
}

void SqliteStatement::bindInteger(int index, int64_t value)
{
    if (const int code = sqlite3_bind_int64(get(), index, value); code != SQLITE_OK)
        throwError(myConnection, code);
}

void SqliteStatement::bindDouble(int index, double value)
{
    if (const int code = sqlite3_bind_double(get(), index, value); code != SQLITE_OK)
        throwError(myConnection, code);
}

void SqliteStatement::bindText(int index, std::string_view value)
{
    if (const int code =
            sqlite3_bind_text64(get(), index, value.data(), value.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        code != SQLITE_OK)
        throwError(myConnection, code);
}

bool SqliteStatement::step()
{
    const int code = sqlite3_step(get());
    if (code == SQLITE_ROW)
        return true;
    if (code == SQLITE_DONE)
        return false;
    // Reset so that the statement can be used again; the error stays in the connection.
    sqlite3_reset(get());
    throwError(myConnection, code);
}

void SqliteStatement::execute()
{
    while (step())
    {
    }
}

void SqliteStatement::reset()
{
    sqlite3_reset(get());
    sqlite3_clear_bindings(get());
}

std::string_view SqliteStatement::columnText(int column) const
{
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(get(), column));
    const int length = sqlite3_column_bytes(get(), column);
    return text ? std::string_view(text, size_t(length)) : std::string_view();
}

SqliteConnection::SqliteConnection(const std::string& path, int flags)
{
    sqlite3* connection = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &connection, flags, nullptr);
    myConnection.reset(connection);
    if (code != SQLITE_OK)
        throwError(connection, code);
    sqlite3_extended_result_codes(connection, 1);
}

void SqliteConnection::execute(std::string_view sql)
{
    std::string text(sql);
    char* message = nullptr;
    const int code = sqlite3_exec(get(), text.c_str(), nullptr, nullptr, &message);
    if (code != SQLITE_OK)
    {
        std::string error = message ? message : sqlite3_errstr(code);
        sqlite3_free(message);
        throw SqliteError(sqlite3_extended_errcode(get()), error);
    }
}

SqliteTransaction::SqliteTransaction(SqliteConnection& connection, bool immediate) : myConnection(connection)
{
    myConnection.execute(immediate ? "BEGIN IMMEDIATE" : "BEGIN");
}

SqliteTransaction::~SqliteTransaction()
{
    if (myOpen)
        sqlite3_exec(myConnection.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void SqliteTransaction::commit()
{
    myConnection.execute("COMMIT");
    myOpen = false;
}

} // namespace kiv::db
