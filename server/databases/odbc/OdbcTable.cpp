// One open table of a data source: its columns, rows by unique ID, and its SQL dialect.
#include "odbc/OdbcTable.h"

#include "ServiceCodes.h"
#include "odbc/OdbcTypes.h"

#include <algorithm>

namespace kiv::db::odbc
{

namespace
{
bool isCharacterType(SQLSMALLINT sqlType)
{
    return sqlType == SQL_CHAR || sqlType == SQL_VARCHAR || sqlType == SQL_WCHAR || sqlType == SQL_WVARCHAR ||
           sqlType == SQL_NUMERIC || sqlType == SQL_DECIMAL;
}

// LIKE patterns escape their wildcards with '!' rather than a backslash, whose meaning in a
// string literal differs between servers.
std::string likePattern(const std::string& value, bool contains)
{
    std::string pattern = contains ? "%" : "";
    for (const char c : value)
    {
        if (c == '%' || c == '_' || c == '!')
            pattern += '!';
        pattern += c;
    }
    return pattern + "%";
}

class OdbcTransaction : public StoreTransaction
{
public:
    explicit OdbcTransaction(Connection& connection) : myConnection(connection)
    {
        connection.setAutoCommit(false);
    }
    ~OdbcTransaction() override
    {
        try
        {
            if (!myCommitted)
                myConnection.endTransaction(false);
            myConnection.setAutoCommit(true);
        }
        catch (const OdbcError&)
        {
        }
    }
    void commit() override
    {
        myConnection.endTransaction(true);
        myCommitted = true;
    }

private:
    Connection& myConnection;
    bool myCommitted = false;
};

// A search's matches as unique IDs: counted with COUNT(*), their keys read in the search's
// order when the cursor first needs them and kept.
class OdbcQuery : public ResultQuery
{
public:
    OdbcQuery(Connection& connection, const Column& id, std::string countSql, std::string keysSql,
              std::vector<Parameter> parameters)
        : myConnection(connection), myID(id), myKeysSql(std::move(keysSql)),
          myParameters(std::move(parameters))
    {
        Statement counter(myConnection);
        counter.execute(countSql, myParameters);
        counter.fetch();
        myCount = size_t(std::max<int64_t>(counter.integer(1).value_or(0), 0));
    }

    size_t count() const override { return myCount; }

    bool fetch(size_t offset, size_t limit, std::vector<RowKey>& keys) override
    {
        if (!myKeys)
        {
            myKeys.emplace();
            Statement select(myConnection);
            select.execute(myKeysSql, myParameters);
            while (select.fetch())
                myKeys->push_back(valueFromText(myID, select.text(1)));
        }
        keys.assign(myKeys->begin() + std::min(offset, myKeys->size()),
                    myKeys->begin() +
                        std::min(limit == SIZE_MAX ? myKeys->size() : offset + limit, myKeys->size()));
        return myKeys->size() == myCount || (offset == 0 && limit == SIZE_MAX);
    }

private:
    Connection& myConnection;
    const Column& myID;
    std::string myKeysSql;
    std::vector<Parameter> myParameters;
    size_t myCount = 0;
    std::optional<std::vector<RowKey>> myKeys;
};
} // namespace

Parameter Column::parameterOf(const FieldValue& value) const
{
    Parameter parameter;
    if (const auto* i = std::get_if<int64_t>(&value))
        parameter = classOrText() == FieldType::Boolean ? Parameter::ofInteger(*i != 0, SQL_BIT)
                                                        : Parameter::ofInteger(*i, sqlType);
    else if (const auto* d = std::get_if<double>(&value))
        parameter = Parameter::ofDouble(*d, sqlType);
    else if (const auto* s = std::get_if<std::string>(&value))
        parameter = Parameter::ofText(*s, sqlType);
    else
        parameter = Parameter::null(sqlType);
    parameter.columnSize = size;
    parameter.decimalDigits = digits;
    return parameter;
}

FieldValue valueFromText(const Column& column, const std::optional<std::string>& text)
{
    if (!text)
    {
        switch (column.classOrText())
        {
        case FieldType::Number:
            return std::monostate();
        case FieldType::Float:
            return 0.0;
        case FieldType::Text:
        case FieldType::LongText:
            return std::string();
        default:
            return int64_t(0);
        }
    }
    switch (column.classOrText())
    {
    case FieldType::Boolean:
        if (const auto truth = parseTruth(*text))
            return int64_t(*truth);
        break;
    case FieldType::Integer:
    case FieldType::UInteger:
        if (const auto whole = parseInteger(*text))
            return *whole;
        break;
    case FieldType::Float:
        if (const auto real = parseDouble(*text))
            return *real;
        break;
    default:
        break;
    }
    return *text;
}

OdbcTable::OdbcTable(std::shared_ptr<ConnectionLease> lease, std::string table)
    : myLease(std::move(lease)), myTable(std::move(table))
{
}

std::string OdbcTable::quote(const std::string& identifier) const
{
    return quoteIdentifier(myLease->traits(), identifier);
}

std::string OdbcTable::columnList() const
{
    std::string list;
    for (const auto& field : myFields)
        list += (list.empty() ? "" : ", ") + quote(field.column);
    return list;
}

uint32_t OdbcTable::failureOf(const std::exception& error, std::string& message)
{
    const auto* odbc = dynamic_cast<const OdbcError*>(&error);
    if (!odbc)
    {
        message = std::string("Unexpected failure: ") + error.what();
        return kKivResult_UnknownError;
    }
    if (odbc->connectionLost())
    {
        myLease->markLost();
        message = "The connection to the data source " + myLease->traits().dataSource + " was lost (" +
                  odbc->what() + "). The next request connects again.";
        return result::kConnectionLost;
    }
    // Class 23 is an integrity constraint; the SQLite driver reports its constraints as HY000.
    const std::string text = odbc->what();
    message = text;
    if (odbc->sqlState() == "23505" || text.find("UNIQUE constraint failed") != std::string::npos)
    {
        message = "Another record already holds this value in a unique field: " + text;
        return kKivResult_NotUnique;
    }
    if (odbc->sqlState() == "22001")
        return result::kValueTooLong; // the data source refused a text longer than its column
    return result::kDataSourceError;
}

void OdbcTable::load(const std::string& uniqueIDFieldName)
{
    auto& connection = myLease->connection();
    std::vector<Column> columns;
    {
        Statement describe(connection);
        describe.execute("SELECT * FROM " + table() + " WHERE 1 = 0");
        const SQLSMALLINT count = describe.columnCount();
        for (SQLUSMALLINT i = 1; i <= SQLUSMALLINT(count); ++i)
        {
            SQLCHAR name[256] = {};
            SQLSMALLINT nameLength = 0, nullable = 0;
            Column column;
            describe.check(SQLDescribeCol(describe.get(), i, name, sizeof name, &nameLength, &column.sqlType,
                                          &column.size, &column.digits, &nullable),
                           "Describing a column");
            SQLLEN autoUnique = 0, caseSensitive = 0;
            SQLColAttribute(describe.get(), i, SQL_DESC_AUTO_UNIQUE_VALUE, nullptr, 0, nullptr, &autoUnique);
            SQLColAttribute(describe.get(), i, SQL_DESC_CASE_SENSITIVE, nullptr, 0, nullptr, &caseSensitive);
            column.field.name = reinterpret_cast<char*>(name);
            column.field.column = column.field.name;
            column.valueClass = valueClassOf(column.sqlType);
            const uint32_t length =
                isCharacterType(column.sqlType) ? uint32_t(std::min<SQLULEN>(column.size, 0xFFFF)) : 0;
            column.field.typeWord = (uint32_t(typeByteOf(column.sqlType)) << 16) | length |
                                    (autoUnique == SQL_TRUE ? kKivFieldFlag_AutoUnique : 0) |
                                    (caseSensitive == SQL_TRUE ? kKivFieldFlag_CaseSensitive : 0);
            const FieldType valueClass = column.classOrText();
            column.conversion.name = column.field.name;
            column.conversion.typeWord =
                (uint32_t(valueClass) << 16) | (valueClass == FieldType::Text ? length : 0);
            columns.push_back(std::move(column));
        }
    }
    // Indexes: a single-column unique index makes its column unique, any index indexed.
    Statement statistics(connection);
    std::string tableName = myTable;
    statistics.check(SQLStatistics(statistics.get(), nullptr, 0, nullptr, 0,
                                   reinterpret_cast<SQLCHAR*>(tableName.data()),
                                   SQLSMALLINT(tableName.size()), SQL_INDEX_ALL, SQL_QUICK),
                     "Listing the table's indexes");
    while (statistics.fetch())
    {
        const bool nonUnique = statistics.integer(4).value_or(1) != 0;
        const std::string indexName = statistics.text(6).value_or("");
        const auto type = statistics.integer(7).value_or(SQL_TABLE_STAT);
        statistics.integer(8);
        const std::string columnName = statistics.text(9).value_or("");
        if (type == SQL_TABLE_STAT)
            continue;
        for (auto& column : columns)
        {
            if (column.field.column != columnName)
                continue;
            column.field.typeWord |= kKivFieldFlag_Indexed | (nonUnique ? 0 : kKivFieldFlag_Unique);
            // SQLite hands out the values of an INTEGER PRIMARY KEY itself; its driver does not
            // say so, but names the key's index this way.
            if (myLease->traits().dialect == Dialect::SQLite && !nonUnique && column.sqlType == SQL_INTEGER &&
                indexName.rfind("sqlite_autoindex", 0) == 0)
                column.field.typeWord |= kKivFieldFlag_AutoUnique;
        }
    }
    myColumns = std::move(columns);
    myFields.clear();
    for (const auto& column : myColumns)
        myFields.push_back(column.field);
    myUniqueID.reset();
    for (const std::string& wanted : {uniqueIDFieldName, std::string(KIV_DEFAULT_UNIQUE_ID_FIELD)})
        if (!myUniqueID && !wanted.empty())
            myUniqueID = fieldIndex(wanted);
    for (const uint32_t bit : {uint32_t(kKivFieldFlag_AutoUnique), uint32_t(kKivFieldFlag_Unique)})
        for (size_t i = 0; i < myFields.size() && !myUniqueID; ++i)
            if (myFields[i].typeWord & bit)
                myUniqueID = i;
}

void OdbcTable::reload()
{
    load(myUniqueID ? myFields[*myUniqueID].name : std::string());
}

std::optional<size_t> OdbcTable::fieldIndex(std::string_view name) const
{
    for (size_t i = 0; i < myFields.size(); ++i)
        if (compareFolded(myFields[i].name, name) == 0)
            return i;
    return std::nullopt;
}

const FieldDefinition* OdbcTable::conversionOf(size_t index) const
{
    return myColumns[index].valueClass ? &myColumns[index].conversion : nullptr;
}

const Column& OdbcTable::uniqueIDColumn() const
{
    if (!myUniqueID)
        throw StoreError(kKivResult_NotFound, KIV_DEFAULT_UNIQUE_ID_FIELD);
    return myColumns[*myUniqueID];
}

void OdbcTable::addField(const std::string& name, uint32_t typeWord)
{
    const uint8_t typeByte = uint8_t((typeWord >> 16) & 0xFF);
    std::optional<SQLSMALLINT> sqlType = sqlTypeOf(typeByte);
    if (typeByte >= 1 && typeByte <= 7)
        sqlType = sqlTypeForNative(FieldType(typeByte));
    if (!sqlType)
        throw StoreError(result::kInvalidArgument, "The type word " + std::to_string(typeWord) +
                                                       " names no SQL type of this data source.");
    // The driver's name for the type; with the auto-unique bit, one that hands out values.
    const bool wantAuto = typeWord & kKivFieldFlag_AutoUnique;
    const TypeInfo* chosen = nullptr;
    for (const auto& type : myLease->traits().types)
        if (type.sqlType == *sqlType &&
            (!chosen || (type.autoUnique == wantAuto && chosen->autoUnique != wantAuto)))
            chosen = &type;
    const uint32_t length = typeWord & 0xFFFF;
    std::string definition;
    if (chosen)
        definition = chosen->name +
                     (!chosen->createParams.empty() && length != 0 ? "(" + std::to_string(length) + ")" : "");
    else if (const auto standard = standardTypeDefinition(*sqlType, length))
        definition = *standard; // for drivers that list no type of that kind
    else
        throw StoreError(result::kInvalidArgument, "The data source offers no type for the type word " +
                                                       std::to_string(typeWord) + ".");
    Statement statement(myLease->connection());
    statement.execute("ALTER TABLE " + table() + " ADD COLUMN " + quote(name) + " " + definition);
    if (typeWord & (kKivFieldFlag_Unique | kKivFieldFlag_Indexed))
        statement.execute(
            std::string((typeWord & kKivFieldFlag_Unique) ? "CREATE UNIQUE INDEX " : "CREATE INDEX ") +
            quote("kiv_" + myTable + "_" + name) + " ON " + table() + " (" + quote(name) + ")");
    reload();
}

void OdbcTable::deleteField(size_t index)
{
    const std::string columnName = myFields[index].column;
    Statement statement(myLease->connection());
    // SQLite keeps a column that an index covers; the index this service made goes first.
    try
    {
        statement.execute("DROP INDEX IF EXISTS " + quote("kiv_" + myTable + "_" + columnName));
    }
    catch (const OdbcError& error)
    {
        if (error.connectionLost())
            throw;
    }
    statement.execute("ALTER TABLE " + table() + " DROP COLUMN " + quote(columnName));
    reload();
}

bool OdbcTable::readRow(const RowKey& key, std::vector<FieldValue>& values)
{
    const Column& id = uniqueIDColumn();
    Statement select(myLease->connection());
    select.execute("SELECT " + columnList() + " FROM " + table() + " WHERE " + quote(id.field.column) +
                       " = ?",
                   {id.parameterOf(key)});
    if (!select.fetch())
        return false;
    values.clear();
    for (size_t i = 0; i < myColumns.size(); ++i)
        values.push_back(valueFromText(myColumns[i], select.text(SQLUSMALLINT(i + 1))));
    return true;
}

RowKey OdbcTable::insertRow(std::vector<FieldValue>& values, const std::vector<bool>& given)
{
    // Columns left out take the table's defaults, as the data source defines them.
    std::string names, marks;
    std::vector<Parameter> parameters;
    for (size_t i = 0; i < myColumns.size(); ++i)
    {
        if (i >= given.size() || !given[i] || !myColumns[i].valueClass)
            continue;
        names += (names.empty() ? "" : ", ") + quote(myFields[i].column);
        marks += marks.empty() ? "?" : ", ?";
        parameters.push_back(myColumns[i].parameterOf(values[i]));
    }
    const bool assigned = myUniqueID && myFields[*myUniqueID].autoUnique() &&
                          !(*myUniqueID < given.size() && given[*myUniqueID]);
    std::string sql = "INSERT INTO " + table() +
                      (names.empty() ? " DEFAULT VALUES" : " (" + names + ") VALUES (" + marks + ")");
    const Dialect dialect = myLease->traits().dialect;
    if (assigned && dialect == Dialect::PostgreSQL)
        sql += " RETURNING " + quote(myFields[*myUniqueID].column);
    Statement insert(myLease->connection());
    insert.execute(sql, std::move(parameters));
    if (!myUniqueID)
        return RowKey();
    if (!assigned)
        return values[*myUniqueID];
    const Column& id = myColumns[*myUniqueID];
    if (dialect != Dialect::PostgreSQL)
        insert.execute(dialect == Dialect::SQLite
                           ? "SELECT last_insert_rowid()"
                           : "SELECT MAX(" + quote(id.field.column) + ") FROM " + table());
    if (!insert.fetch())
        throw OdbcError("HY000", "The data source did not say which unique ID the new record got.");
    values[*myUniqueID] = valueFromText(id, insert.text(1));
    return values[*myUniqueID];
}

bool OdbcTable::updateRow(const RowKey& key, const std::vector<size_t>& changed,
                          const std::vector<FieldValue>& values)
{
    const Column& id = uniqueIDColumn();
    std::string assignments;
    std::vector<Parameter> parameters;
    for (const size_t i : changed)
    {
        assignments += (assignments.empty() ? "" : ", ") + quote(myFields[i].column) + " = ?";
        parameters.push_back(myColumns[i].parameterOf(values[i]));
    }
    parameters.push_back(id.parameterOf(key));
    Statement update(myLease->connection());
    update.execute("UPDATE " + table() + " SET " + assignments + " WHERE " + quote(id.field.column) + " = ?",
                   std::move(parameters));
    return update.rowCount() != 0;
}

std::vector<RowKey> OdbcTable::rowsWithUniqueID(const FieldValue& uniqueID)
{
    const Column& id = uniqueIDColumn();
    Statement select(myLease->connection());
    select.execute("SELECT COUNT(*) FROM " + table() + " WHERE " + quote(id.field.column) + " = ?",
                   {id.parameterOf(uniqueID)});
    select.fetch();
    if (select.integer(1).value_or(0) == 0)
        return {};
    return {uniqueID};
}

void OdbcTable::deleteRows(const std::vector<RowKey>& keys)
{
    const Column& id = uniqueIDColumn();
    Statement remove(myLease->connection());
    for (const RowKey& key : keys)
        remove.execute("DELETE FROM " + table() + " WHERE " + quote(id.field.column) + " = ?",
                       {id.parameterOf(key)});
}

void OdbcTable::deleteAllRows()
{
    Statement remove(myLease->connection());
    remove.execute("DELETE FROM " + table());
}

size_t OdbcTable::rowCount()
{
    Statement select(myLease->connection());
    select.execute("SELECT COUNT(*) FROM " + table());
    select.fetch();
    return size_t(std::max<int64_t>(select.integer(1).value_or(0), 0));
}

std::unique_ptr<StoreTransaction> OdbcTable::begin()
{
    return std::make_unique<OdbcTransaction>(myLease->connection());
}

void OdbcTable::afterImportedIDs()
{
    // IDs written as they were read leave a PostgreSQL sequence behind them.
    if (!myUniqueID || myLease->traits().dialect != Dialect::PostgreSQL)
        return;
    const std::string column = myFields[*myUniqueID].column;
    Statement advance(myLease->connection());
    advance.execute("SELECT setval(pg_get_serial_sequence(?, ?), COALESCE(MAX(" + quote(column) +
                        "), 0) + 1, false) FROM " + table(),
                    {Parameter::ofText(table()), Parameter::ofText(column)});
}

Parameter OdbcTable::parameterOf(const SqlBinding& binding) const
{
    if (binding.as == SqlBinding::As::FieldValue)
    {
        FieldValue value;
        std::visit([&](const auto& v) { value = v; }, binding.value);
        return myColumns[binding.field].parameterOf(value);
    }
    if (const auto* i = std::get_if<int64_t>(&binding.value))
        return Parameter::ofInteger(*i);
    if (const auto* d = std::get_if<double>(&binding.value))
        return Parameter::ofDouble(*d);
    return Parameter::ofText(std::get<std::string>(binding.value),
                             binding.as == SqlBinding::As::Decimal ? SQL_NUMERIC : SQL_VARCHAR);
}

std::vector<Parameter> OdbcTable::parametersOf(const std::vector<SqlBinding>& bindings) const
{
    std::vector<Parameter> parameters;
    for (const auto& binding : bindings)
        parameters.push_back(parameterOf(binding));
    return parameters;
}

std::unique_ptr<ResultQuery> OdbcTable::query(const SqlSearch& search)
{
    const Column& id = uniqueIDColumn();
    const std::string where = search.where.empty() ? "" : " WHERE " + search.where;
    const std::string orderBy =
        (search.orderBy.empty() ? "" : search.orderBy + ", ") + quote(id.field.column);
    return std::make_unique<OdbcQuery>(myLease->connection(), id, "SELECT COUNT(*) FROM " + table() + where,
                                       "SELECT " + quote(id.field.column) + " FROM " + table() + where +
                                           " ORDER BY " + orderBy,
                                       parametersOf(search.bindings));
}

bool OdbcTable::foldsCase(size_t field) const
{
    // Text compares without regard to case, as on the embedded store; a data source that opted
    // out compares the columns its driver calls case-sensitive as they are.
    return !(myLease->traits().caseSensitiveText && myFields[field].caseSensitive());
}

std::string OdbcTable::textOf(size_t field) const
{
    const std::string name = quote(myFields[field].column);
    return myColumns[field].valueClass ? "COALESCE(" + name + ", '')"
                                       : "COALESCE(CAST(" + name + " AS VARCHAR(255)), '')";
}

std::string OdbcTable::compareText(size_t field, const char* symbol, const std::string& parameter) const
{
    const std::string text = textOf(field);
    if (foldsCase(field))
        return "(LOWER(" + text + ") " + symbol + " LOWER(" + parameter + "))";
    return "(" + text + " " + symbol + " " + parameter + ")";
}

std::string OdbcTable::matchText(size_t field, bool contains, const std::string& text,
                                 const SqlBinder& bind) const
{
    const bool textual = classOf(field) == FieldType::Text || classOf(field) == FieldType::LongText;
    const std::string value =
        textual ? textOf(field) : "COALESCE(CAST(" + quote(myFields[field].column) + " AS VARCHAR(255)), '')";
    const std::string pattern = bind(SqlBinding(likePattern(text, contains)));
    if (textual && foldsCase(field))
        return "(LOWER(" + value + ") LIKE LOWER(" + pattern + ") ESCAPE '!')";
    return "(" + value + " LIKE " + pattern + " ESCAPE '!')";
}

std::string OdbcTable::compareNumber(size_t field, const char* symbol, const std::string& parameter) const
{
    return "(COALESCE(" + quote(myFields[field].column) + ", 0) " + symbol + " " + parameter + ")";
}

std::string OdbcTable::isTrue(size_t field, const SqlBinder& bind) const
{
    const std::string name = quote(myFields[field].column);
    return "(" + name + " IS NOT NULL AND " + name + " = " +
           bind(SqlBinding(int64_t(1), SqlBinding::As::FieldValue, field)) + ")";
}

} // namespace kiv::db::odbc
