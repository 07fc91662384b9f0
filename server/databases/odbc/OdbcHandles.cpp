// ODBC handle ownership and diagnostics.
#include "odbc/OdbcHandles.h"

#include <algorithm>
#include <memory>
#include <mutex>

namespace kiv::db::odbc
{

namespace
{
bool failed(SQLRETURN rc)
{
    return rc != SQL_SUCCESS && rc != SQL_SUCCESS_WITH_INFO && rc != SQL_NO_DATA;
}

[[noreturn]] void raise(SQLSMALLINT type, SQLHANDLE handle, const char* what)
{
    std::string state;
    std::string text = describeDiagnostics(type, handle, &state);
    if (text.empty())
        text = std::string(what) + " failed without a diagnostic from the driver.";
    throw OdbcError(state, text);
}

struct Environment
{
    SQLHENV handle = SQL_NULL_HENV;
    Environment()
    {
        if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &handle)))
            throw OdbcError("HY001", "The ODBC driver manager could not create an environment.");
        SQLSetEnvAttr(handle, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    }
    // Kept until the process ends: connections of any thread may outlive static destructors.
};
} // namespace

std::string describeDiagnostics(SQLSMALLINT handleType, SQLHANDLE handle, std::string* firstState)
{
    std::string all;
    for (SQLSMALLINT record = 1; record <= 8; ++record)
    {
        SQLCHAR state[6] = {};
        SQLCHAR message[1024] = {};
        SQLINTEGER native = 0;
        SQLSMALLINT length = 0;
        if (!SQL_SUCCEEDED(
                SQLGetDiagRec(handleType, handle, record, state, &native, message, sizeof message, &length)))
            break;
        const std::string code(reinterpret_cast<char*>(state));
        if (firstState && firstState->empty())
            *firstState = code;
        if (!all.empty())
            all += "; ";
        all += "[" + code + "] " + reinterpret_cast<char*>(message);
    }
    return all;
}

SQLHENV environmentHandle()
{
    static Environment* environment = nullptr;
    static std::once_flag once;
    // Deliberately never freed (see Environment); a unique_ptr would free it at exit while a
    // worker thread may still hold a connection.
    std::call_once(once, [] { environment = std::make_unique<Environment>().release(); });
    return environment->handle;
}

Connection::Connection(const std::string& dataSource, const std::string& user, const std::string& password)
{
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, environmentHandle(), &myHandle)))
        raise(SQL_HANDLE_ENV, environmentHandle(), "Allocating a connection");
    SQLSetConnectAttr(myHandle, SQL_ATTR_LOGIN_TIMEOUT, reinterpret_cast<SQLPOINTER>(10), 0);
    const SQLRETURN rc =
        SQLConnect(myHandle, reinterpret_cast<SQLCHAR*>(const_cast<char*>(dataSource.c_str())), SQL_NTS,
                   reinterpret_cast<SQLCHAR*>(const_cast<char*>(user.c_str())), SQL_NTS,
                   reinterpret_cast<SQLCHAR*>(const_cast<char*>(password.c_str())), SQL_NTS);
    if (!SQL_SUCCEEDED(rc))
    {
        std::string state;
        std::string text = describeDiagnostics(SQL_HANDLE_DBC, myHandle, &state);
        SQLFreeHandle(SQL_HANDLE_DBC, myHandle);
        myHandle = SQL_NULL_HDBC;
        throw OdbcError(state, text.empty() ? "The driver refused the connection." : text);
    }
    myConnected = true;
}

Connection::~Connection()
{
    if (myHandle == SQL_NULL_HDBC)
        return;
    if (myConnected)
    {
        SQLEndTran(SQL_HANDLE_DBC, myHandle, SQL_ROLLBACK);
        SQLDisconnect(myHandle);
    }
    SQLFreeHandle(SQL_HANDLE_DBC, myHandle);
}

void Connection::check(SQLRETURN rc, const char* what) const
{
    if (failed(rc))
        raise(SQL_HANDLE_DBC, myHandle, what);
}

bool Connection::knownDead() const
{
    SQLUINTEGER dead = SQL_CD_FALSE;
    if (!SQL_SUCCEEDED(SQLGetConnectAttr(myHandle, SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr)))
        return false;
    return dead == SQL_CD_TRUE;
}

void Connection::setAutoCommit(bool on)
{
    check(SQLSetConnectAttr(myHandle, SQL_ATTR_AUTOCOMMIT,
                            reinterpret_cast<SQLPOINTER>(on ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF), 0),
          "Setting the commit mode");
}

void Connection::endTransaction(bool commit)
{
    check(SQLEndTran(SQL_HANDLE_DBC, myHandle, commit ? SQL_COMMIT : SQL_ROLLBACK), "Ending a transaction");
}

std::string Connection::infoText(SQLUSMALLINT type) const
{
    char buffer[256] = {};
    SQLSMALLINT length = 0;
    if (!SQL_SUCCEEDED(SQLGetInfo(myHandle, type, buffer, sizeof buffer, &length)))
        return {};
    return buffer;
}

uint32_t Connection::infoWord(SQLUSMALLINT type) const
{
    SQLUINTEGER value = 0;
    if (!SQL_SUCCEEDED(SQLGetInfo(myHandle, type, &value, sizeof value, nullptr)))
        return 0;
    return value;
}

bool Connection::hasFunction(SQLUSMALLINT function) const
{
    SQLUSMALLINT supported = SQL_FALSE;
    return SQL_SUCCEEDED(SQLGetFunctions(myHandle, function, &supported)) && supported == SQL_TRUE;
}

Parameter Parameter::ofInteger(int64_t value, SQLSMALLINT sqlType)
{
    Parameter parameter;
    parameter.kind = Kind::Integer;
    parameter.integer = value;
    parameter.sqlType = sqlType;
    return parameter;
}

Parameter Parameter::ofDouble(double value, SQLSMALLINT sqlType)
{
    Parameter parameter;
    parameter.kind = Kind::Double;
    parameter.real = value;
    parameter.sqlType = sqlType;
    return parameter;
}

Parameter Parameter::ofText(std::string value, SQLSMALLINT sqlType)
{
    Parameter parameter;
    parameter.kind = Kind::Text;
    parameter.text = std::move(value);
    parameter.sqlType = sqlType;
    return parameter;
}

Parameter Parameter::null(SQLSMALLINT sqlType)
{
    Parameter parameter;
    parameter.sqlType = sqlType;
    return parameter;
}

Statement::Statement(const Connection& connection)
{
    connection.check(SQLAllocHandle(SQL_HANDLE_STMT, connection.get(), &myHandle), "Allocating a statement");
}

Statement::~Statement()
{
    if (myHandle != SQL_NULL_HSTMT)
        SQLFreeHandle(SQL_HANDLE_STMT, myHandle);
}

void Statement::check(SQLRETURN rc, const char* what) const
{
    if (failed(rc))
        raise(SQL_HANDLE_STMT, myHandle, what);
}

void Statement::execute(const std::string& sql, std::vector<Parameter> parameters)
{
    SQLFreeStmt(myHandle, SQL_CLOSE);
    SQLFreeStmt(myHandle, SQL_RESET_PARAMS);
    myParameters = std::move(parameters);
    myIndicators.assign(myParameters.size(), 0);
    for (size_t i = 0; i < myParameters.size(); ++i)
    {
        Parameter& parameter = myParameters[i];
        SQLSMALLINT cType = SQL_C_CHAR;
        SQLPOINTER value = nullptr;
        SQLLEN bufferLength = 0;
        SQLULEN size = parameter.columnSize;
        switch (parameter.kind)
        {
        case Parameter::Kind::Null:
            myIndicators[i] = SQL_NULL_DATA;
            size = size ? size : 1;
            break;
        case Parameter::Kind::Integer:
            cType = SQL_C_SBIGINT;
            value = &parameter.integer;
            size = size ? size : 19;
            break;
        case Parameter::Kind::Double:
            cType = SQL_C_DOUBLE;
            value = &parameter.real;
            size = size ? size : 15;
            break;
        case Parameter::Kind::Text:
            value = parameter.text.data();
            bufferLength = SQLLEN(parameter.text.size());
            myIndicators[i] = SQLLEN(parameter.text.size());
            size = std::max<SQLULEN>({size, parameter.text.size(), 1});
            break;
        }
        check(SQLBindParameter(myHandle, SQLUSMALLINT(i + 1), SQL_PARAM_INPUT, cType, parameter.sqlType, size,
                               parameter.decimalDigits, value, bufferLength, &myIndicators[i]),
              "Binding a parameter");
    }
    const SQLRETURN rc = SQLExecDirect(myHandle, reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql.c_str())),
                                       SQLINTEGER(sql.size()));
    check(rc, "Running a statement");
}

void Statement::closeCursor()
{
    SQLFreeStmt(myHandle, SQL_CLOSE);
}

SQLSMALLINT Statement::columnCount()
{
    SQLSMALLINT count = 0;
    check(SQLNumResultCols(myHandle, &count), "Counting columns");
    return count;
}

SQLLEN Statement::rowCount()
{
    SQLLEN count = 0;
    check(SQLRowCount(myHandle, &count), "Counting rows");
    return count;
}

bool Statement::fetch()
{
    const SQLRETURN rc = SQLFetch(myHandle);
    if (rc == SQL_NO_DATA)
        return false;
    check(rc, "Fetching a row");
    return true;
}

std::optional<std::string> Statement::text(SQLUSMALLINT column)
{
    std::string value;
    char buffer[4096];
    for (;;)
    {
        SQLLEN indicator = 0;
        const SQLRETURN rc = SQLGetData(myHandle, column, SQL_C_CHAR, buffer, sizeof buffer, &indicator);
        if (rc == SQL_NO_DATA)
            break;
        check(rc, "Reading a value");
        if (indicator == SQL_NULL_DATA)
            return std::nullopt;
        // SQL_SUCCESS_WITH_INFO with 01004 means the buffer held only part of the value.
        const size_t got = (indicator == SQL_NO_TOTAL || indicator >= SQLLEN(sizeof buffer))
                               ? sizeof buffer - 1
                               : size_t(indicator);
        value.append(buffer, got);
        if (rc == SQL_SUCCESS)
            break;
    }
    return value;
}

std::optional<int64_t> Statement::integer(SQLUSMALLINT column)
{
    SQLBIGINT value = 0;
    SQLLEN indicator = 0;
    check(SQLGetData(myHandle, column, SQL_C_SBIGINT, &value, 0, &indicator), "Reading a number");
    if (indicator == SQL_NULL_DATA)
        return std::nullopt;
    return int64_t(value);
}

} // namespace kiv::db::odbc
