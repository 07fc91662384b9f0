// RAII wrappers for the ODBC handles of a data source: the process's environment, a
// connection and a statement. Each owns its handle and frees it exactly once; failures become
// OdbcError exceptions carrying the driver's diagnostics and SQLSTATE, so callers can tell a
// lost connection from a refused statement.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::db::odbc
{

class OdbcError : public std::runtime_error
{
public:
    OdbcError(std::string sqlState, const std::string& message, bool connectionDead = false)
        : std::runtime_error(message), mySqlState(std::move(sqlState)), myConnectionDead(connectionDead)
    {
    }
    const std::string& sqlState() const { return mySqlState; }
    // Class 08 is "connection exception"; PostgreSQL's 57P01-57P03 are a server going away. A
    // driver may also answer a general error and then call the connection dead (psqlODBC does
    // for a prepared statement whose server went away).
    bool connectionLost() const
    {
        return myConnectionDead || mySqlState.rfind("08", 0) == 0 || mySqlState.rfind("57P0", 0) == 0;
    }

private:
    std::string mySqlState;
    bool myConnectionDead;
};

// "[SQLSTATE] message" for every diagnostic record of the handle, joined with "; ".
std::string describeDiagnostics(SQLSMALLINT handleType, SQLHANDLE handle, std::string* firstState = nullptr);

// The process's one ODBC environment (ODBC 3 behaviour), created on first use.
SQLHENV environmentHandle();

class Connection
{
public:
    // Connects to a data source named in odbc.ini; throws OdbcError.
    Connection(const std::string& dataSource, const std::string& user, const std::string& password);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    SQLHDBC get() const { return myHandle; }
    // Drops the handle without a word to the server: a forked worker must not close the
    // session its parent still uses.
    void abandon()
    {
        myHandle = SQL_NULL_HDBC;
        myConnected = false;
    }

    // The driver's own idea of whether the server is still there (ODBC 3.5); false when the
    // driver cannot tell.
    bool knownDead() const;
    void setAutoCommit(bool on);
    void endTransaction(bool commit);

    std::string infoText(SQLUSMALLINT type) const;
    uint32_t infoWord(SQLUSMALLINT type) const;
    bool hasFunction(SQLUSMALLINT function) const;

    // Throws OdbcError with the connection's diagnostics when `rc` is a failure.
    void check(SQLRETURN rc, const char* what) const;

private:
    SQLHDBC myHandle = SQL_NULL_HDBC;
    bool myConnected = false;
};

// A value bound to a statement parameter; `sqlType` says what the server should take it as.
struct Parameter
{
    enum class Kind
    {
        Null,
        Integer,
        Double,
        Text
    };
    Kind kind = Kind::Null;
    int64_t integer = 0;
    double real = 0;
    std::string text;
    SQLSMALLINT sqlType = SQL_VARCHAR;
    SQLULEN columnSize = 0;
    SQLSMALLINT decimalDigits = 0;

    static Parameter ofInteger(int64_t value, SQLSMALLINT sqlType = SQL_BIGINT);
    static Parameter ofDouble(double value, SQLSMALLINT sqlType = SQL_DOUBLE);
    static Parameter ofText(std::string value, SQLSMALLINT sqlType = SQL_VARCHAR);
    static Parameter null(SQLSMALLINT sqlType = SQL_VARCHAR);
};

class Statement
{
public:
    explicit Statement(const Connection& connection);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    SQLHSTMT get() const { return myHandle; }

    // Binds the parameters (kept alive by the statement until the next execute) and runs the
    // query. Throws OdbcError.
    void execute(const std::string& sql, std::vector<Parameter> parameters = {});
    // A statement prepared once and run many times with other values: the driver parses it
    // once (psqlODBC keeps it prepared on the server), each run only sends the values.
    void prepare(const std::string& sql);
    void run(std::vector<Parameter> parameters);
    // The result's column names, as the driver describes them after a run (no round trip).
    std::vector<std::string> resultColumnNames();
    void closeCursor();
    SQLSMALLINT columnCount();
    SQLLEN rowCount();

    bool fetch();
    // The column as text; nullopt for NULL. Long values are read in pieces.
    std::optional<std::string> text(SQLUSMALLINT column);
    std::optional<int64_t> integer(SQLUSMALLINT column);

    void check(SQLRETURN rc, const char* what) const;

private:
    void bind(std::vector<Parameter> parameters);

    SQLHDBC myConnection;
    SQLHSTMT myHandle = SQL_NULL_HSTMT;
    std::vector<Parameter> myParameters;
    std::vector<SQLLEN> myIndicators;
};

// Closes a kept statement's cursor once its result has been read: an open one may hold the
// server's locks (SQLite keeps a reader's lock until the statement is reset).
class CursorScope
{
public:
    explicit CursorScope(Statement& statement) : myStatement(statement) {}
    ~CursorScope() { myStatement.closeCursor(); }
    CursorScope(const CursorScope&) = delete;
    CursorScope& operator=(const CursorScope&) = delete;

private:
    Statement& myStatement;
};

} // namespace kiv::db::odbc
