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
    OdbcError(std::string sqlState, const std::string& message)
        : std::runtime_error(message), mySqlState(std::move(sqlState))
    {
    }
    const std::string& sqlState() const { return mySqlState; }
    // Class 08 is "connection exception"; PostgreSQL's 57P01-57P03 are a server going away.
    bool connectionLost() const { return mySqlState.rfind("08", 0) == 0 || mySqlState.rfind("57P0", 0) == 0; }

private:
    std::string mySqlState;
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
    void closeCursor();
    SQLSMALLINT columnCount();
    SQLLEN rowCount();

    bool fetch();
    // The column as text; nullopt for NULL. Long values are read in pieces.
    std::optional<std::string> text(SQLUSMALLINT column);
    std::optional<int64_t> integer(SQLUSMALLINT column);

    void check(SQLRETURN rc, const char* what) const;

private:
    SQLHSTMT myHandle = SQL_NULL_HSTMT;
    std::vector<Parameter> myParameters;
    std::vector<SQLLEN> myIndicators;
};

} // namespace kiv::db::odbc
