// One open table of a data source: its columns, rows by unique ID, and its SQL dialect.
#include "odbc/OdbcTable.h"

#include "ServiceCodes.h"
#include "odbc/OdbcTypes.h"

#include <algorithm>

namespace kiv::db::odbc
{

namespace
{
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
    explicit OdbcTransaction(ConnectionLease& lease) : myLease(lease) { lease.setAutoCommit(false); }
    ~OdbcTransaction() override
    {
        try
        {
            if (!myCommitted)
                myLease.connection().endTransaction(false);
            myLease.setAutoCommit(true);
        }
        catch (const OdbcError&)
        {
        }
    }
    void commit() override
    {
        myLease.connection().endTransaction(true);
        myCommitted = true;
    }

private:
    ConnectionLease& myLease;
    bool myCommitted = false;
};

// A search's matches: counted with COUNT(*) when the search runs, then read a window at a
// time with every column, in the search's order and then the unique ID's.
class OdbcQuery : public ResultQuery
{
public:
    OdbcQuery(OdbcTable& table, const std::string& columns, const std::string& from, const std::string& order,
              const std::string& idColumn, std::vector<Parameter> parameters)
        : myTable(table), myRowsSql("SELECT " + columns + " " + from + order),
          myKeysSql("SELECT " + idColumn + " " + from + order), myParameters(std::move(parameters))
    {
        myCount = myTable.count("SELECT COUNT(*) " + from, myParameters);
    }

    size_t count() const override { return myCount; }

    bool fetch(size_t offset, size_t limit, std::vector<RowKey>& keys) override
    {
        read(myKeysSql, offset, limit, keys, nullptr);
        return unchanged(offset, limit, keys.size());
    }

    bool fetchRows(size_t offset, size_t limit, std::vector<RowKey>& keys,
                   std::vector<std::vector<FieldValue>>& rows) override
    {
        read(myRowsSql, offset, limit, keys, &rows);
        return unchanged(offset, limit, keys.size());
    }

private:
    void read(const std::string& sql, size_t offset, size_t limit, std::vector<RowKey>& keys,
              std::vector<std::vector<FieldValue>>* rows)
    {
        std::string windowed = sql;
        std::vector<Parameter> parameters = myParameters;
        if (limit != SIZE_MAX || offset != 0)
            myTable.addWindow(windowed, parameters, offset, limit);
        myTable.readRows(windowed, std::move(parameters), keys, rows);
    }

    // A window holds the rows the count saw when it holds as many as the count leaves for it;
    // the data source cannot say more cheaply whether others changed the matches since.
    bool unchanged(size_t offset, size_t limit, size_t got) const
    {
        if (offset == 0 && limit == SIZE_MAX)
            return true;
        const size_t left = offset < myCount ? myCount - offset : 0;
        return got == std::min(limit, left);
    }

    OdbcTable& myTable;
    std::string myRowsSql;
    std::string myKeysSql;
    std::vector<Parameter> myParameters;
    size_t myCount = 0;
};

// Errors after which the table may not be what the description says: PostgreSQL's undefined
// column or table, SQLite's "no such column/table".
bool schemaError(const OdbcError& error)
{
    const std::string text = error.what();
    return error.sqlState() == "42703" || error.sqlState() == "42P01" ||
           text.find("no such column") != std::string::npos ||
           text.find("no such table") != std::string::npos;
}
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

OdbcTable::OdbcTable(std::shared_ptr<ConnectionLease> lease,
                     std::shared_ptr<const TableDescription> description,
                     const std::string& uniqueIDFieldName)
    : myLease(std::move(lease)), myDescription(std::move(description))
{
    chooseUniqueID(uniqueIDFieldName);
}

void OdbcTable::chooseUniqueID(const std::string& uniqueIDFieldName)
{
    myUniqueID.reset();
    for (const std::string& wanted : {uniqueIDFieldName, std::string(KIV_DEFAULT_UNIQUE_ID_FIELD)})
        if (!myUniqueID && !wanted.empty())
            myUniqueID = fieldIndex(wanted);
    for (const uint32_t bit : {uint32_t(kKivFieldFlag_AutoUnique), uint32_t(kKivFieldFlag_Unique)})
        for (size_t i = 0; i < fields().size() && !myUniqueID; ++i)
            if (fields()[i].typeWord & bit)
                myUniqueID = i;
}

std::string OdbcTable::quote(const std::string& identifier) const
{
    return quoteIdentifier(myLease->traits(), identifier);
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
    // A table changed behind this server's back: the next request reads its description anew.
    if (schemaError(*odbc))
    {
        myLease->schemaChanged();
        message += " (the table " + name() + " changed; the next request reads its fields anew)";
    }
    if (odbc->sqlState() == "23505" || text.find("UNIQUE constraint failed") != std::string::npos)
    {
        message = "Another record already holds this value in a unique field: " + text;
        return kKivResult_NotUnique;
    }
    if (odbc->sqlState() == "22001")
        return result::kValueTooLong; // the data source refused a text longer than its column
    return result::kDataSourceError;
}

void OdbcTable::afterSchemaChange()
{
    const std::string uniqueID = myUniqueID ? fields()[*myUniqueID].name : std::string();
    myLease->schemaChanged();
    myDescription = myLease->describe(name());
    chooseUniqueID(uniqueID);
}

void OdbcTable::checkColumns(Statement& statement)
{
    const std::vector<std::string> names = statement.resultColumnNames();
    bool same = names.size() == columns().size();
    for (size_t i = 0; same && i < names.size(); ++i)
        same = names[i] == columns()[i].field.column;
    if (same)
        return;
    myLease->schemaChanged();
    throw StoreError(result::kDataSourceError,
                     "The table " + name() +
                         " changed while it was open (a field was added or deleted elsewhere); the next "
                         "request sees its fields as they are now.");
}

std::string OdbcTable::selectList() const
{
    // PostgreSQL refuses to run a prepared "SELECT *" again once the table's columns changed,
    // so a change made behind this server's back shows at once. Other servers may quietly
    // re-prepare it with other columns than their driver describes; the columns by name make a
    // deleted one an error there instead, named with the table because SQLite takes a quoted
    // name that is no column for a text.
    if (myLease->traits().dialect == Dialect::PostgreSQL)
        return "*";
    std::string list;
    for (const auto& field : fields())
        list += (list.empty() ? "" : ", ") + table() + "." + quote(field.column);
    return list;
}

std::vector<FieldValue> OdbcTable::rowValues(Statement& statement) const
{
    std::vector<FieldValue> values;
    values.reserve(columns().size());
    for (size_t i = 0; i < columns().size(); ++i)
        values.push_back(valueFromText(columns()[i], statement.text(SQLUSMALLINT(i + 1))));
    return values;
}

std::optional<size_t> OdbcTable::fieldIndex(std::string_view name) const
{
    for (size_t i = 0; i < fields().size(); ++i)
        if (compareFolded(fields()[i].name, name) == 0)
            return i;
    return std::nullopt;
}

const FieldDefinition* OdbcTable::conversionOf(size_t index) const
{
    return columns()[index].valueClass ? &columns()[index].conversion : nullptr;
}

const Column& OdbcTable::uniqueIDColumn() const
{
    if (!myUniqueID)
        throw StoreError(kKivResult_NotFound, KIV_DEFAULT_UNIQUE_ID_FIELD);
    return columns()[*myUniqueID];
}

std::string OdbcTable::whereUniqueID() const
{
    return " WHERE " + quote(uniqueIDColumn().field.column) + " = ?";
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
    // PostgreSQL would cut a longer name short without a word, and the field would then not
    // answer to the name it was given.
    SQLUSMALLINT longestName = 0;
    if (SQL_SUCCEEDED(SQLGetInfo(myLease->connection().get(), SQL_MAX_COLUMN_NAME_LEN, &longestName,
                                 sizeof longestName, nullptr)) &&
        longestName != 0 && name.size() > longestName)
        throw StoreError(result::kInvalidFieldName, "The data source " + myLease->traits().dataSource +
                                                        " takes field names of at most " +
                                                        std::to_string(longestName) + " bytes.");
    myLease->executeOnce("ALTER TABLE " + table() + " ADD COLUMN " + quote(name) + " " + definition);
    if (typeWord & (kKivFieldFlag_Unique | kKivFieldFlag_Indexed))
        myLease->executeOnce(
            std::string((typeWord & kKivFieldFlag_Unique) ? "CREATE UNIQUE INDEX " : "CREATE INDEX ") +
            quote("kiv_" + this->name() + "_" + name) + " ON " + table() + " (" + quote(name) + ")");
    afterSchemaChange();
}

void OdbcTable::deleteField(size_t index)
{
    const std::string columnName = fields()[index].column;
    // SQLite keeps a column that an index covers; the index this service made goes first.
    try
    {
        myLease->executeOnce("DROP INDEX IF EXISTS " + quote("kiv_" + name() + "_" + columnName));
    }
    catch (const OdbcError& error)
    {
        if (error.connectionLost())
            throw;
    }
    myLease->executeOnce("ALTER TABLE " + table() + " DROP COLUMN " + quote(columnName));
    afterSchemaChange();
}

bool OdbcTable::readRow(const RowKey& key, std::vector<FieldValue>& values)
{
    const Column& id = uniqueIDColumn();
    Statement& select = myLease->execute("SELECT " + selectList() + " FROM " + table() + whereUniqueID(),
                                         {id.parameterOf(key)});
    CursorScope scope(select);
    checkColumns(select);
    if (!select.fetch())
        return false;
    values = rowValues(select);
    return true;
}

size_t OdbcTable::count(const std::string& sql, const std::vector<Parameter>& parameters)
{
    Statement& counter = myLease->execute(sql, parameters);
    CursorScope scope(counter);
    counter.fetch();
    return size_t(std::max<int64_t>(counter.integer(1).value_or(0), 0));
}

void OdbcTable::readRows(const std::string& sql, std::vector<Parameter> parameters, std::vector<RowKey>& keys,
                         std::vector<std::vector<FieldValue>>* rows)
{
    const Column& id = uniqueIDColumn();
    Statement& select = myLease->execute(sql, std::move(parameters));
    CursorScope scope(select);
    keys.clear();
    if (rows)
    {
        checkColumns(select);
        rows->clear();
        while (select.fetch())
        {
            rows->push_back(rowValues(select));
            keys.push_back(rows->back()[*myUniqueID]);
        }
        return;
    }
    while (select.fetch())
        keys.push_back(valueFromText(id, select.text(1)));
}

void OdbcTable::addWindow(std::string& sql, std::vector<Parameter>& parameters, size_t offset,
                          size_t limit) const
{
    // Bound like any value, so that every window of a search runs one prepared statement. A
    // limit of "to the end" is the largest the server takes.
    const auto rows = Parameter::ofInteger(int64_t(std::min<size_t>(limit, INT64_MAX)));
    const auto skipped = Parameter::ofInteger(int64_t(offset));
    if (myLease->traits().window == WindowSyntax::LimitOffset)
    {
        sql += " LIMIT ? OFFSET ?";
        parameters.push_back(rows);
        parameters.push_back(skipped);
    }
    else
    {
        sql += " OFFSET ? ROWS FETCH NEXT ? ROWS ONLY";
        parameters.push_back(skipped);
        parameters.push_back(rows);
    }
}

RowKey OdbcTable::insertRow(std::vector<FieldValue>& values, const std::vector<bool>& given)
{
    // Columns left out take the table's defaults, as the data source defines them.
    std::string names, marks;
    std::vector<Parameter> parameters;
    for (size_t i = 0; i < columns().size(); ++i)
    {
        if (i >= given.size() || !given[i] || !columns()[i].valueClass)
            continue;
        names += (names.empty() ? "" : ", ") + quote(fields()[i].column);
        marks += marks.empty() ? "?" : ", ?";
        parameters.push_back(columns()[i].parameterOf(values[i]));
    }
    const bool assigned = myUniqueID && fields()[*myUniqueID].autoUnique() &&
                          !(*myUniqueID < given.size() && given[*myUniqueID]);
    std::string sql = "INSERT INTO " + table() +
                      (names.empty() ? " DEFAULT VALUES" : " (" + names + ") VALUES (" + marks + ")");
    const Dialect dialect = myLease->traits().dialect;
    if (assigned && dialect == Dialect::PostgreSQL)
        sql += " RETURNING " + quote(fields()[*myUniqueID].column);
    Statement* insert = &myLease->execute(sql, std::move(parameters));
    if (!myUniqueID)
        return RowKey();
    if (!assigned)
        return values[*myUniqueID];
    const Column& id = columns()[*myUniqueID];
    if (dialect != Dialect::PostgreSQL)
        insert = &myLease->execute(dialect == Dialect::SQLite
                                       ? "SELECT last_insert_rowid()"
                                       : "SELECT MAX(" + quote(id.field.column) + ") FROM " + table());
    CursorScope scope(*insert);
    if (!insert->fetch())
        throw OdbcError("HY000", "The data source did not say which unique ID the new record got.");
    values[*myUniqueID] = valueFromText(id, insert->text(1));
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
        assignments += (assignments.empty() ? "" : ", ") + quote(fields()[i].column) + " = ?";
        parameters.push_back(columns()[i].parameterOf(values[i]));
    }
    parameters.push_back(id.parameterOf(key));
    return myLease
               ->execute("UPDATE " + table() + " SET " + assignments + whereUniqueID(), std::move(parameters))
               .rowCount() != 0;
}

std::vector<RowKey> OdbcTable::rowsWithUniqueID(const FieldValue& uniqueID)
{
    const Column& id = uniqueIDColumn();
    if (count("SELECT COUNT(*) FROM " + table() + whereUniqueID(), {id.parameterOf(uniqueID)}) == 0)
        return {};
    return {uniqueID};
}

void OdbcTable::deleteRows(const std::vector<RowKey>& keys)
{
    const Column& id = uniqueIDColumn();
    const std::string sql = "DELETE FROM " + table() + whereUniqueID();
    for (const RowKey& key : keys)
        myLease->execute(sql, {id.parameterOf(key)});
}

void OdbcTable::deleteAllRows()
{
    myLease->execute("DELETE FROM " + table());
}

size_t OdbcTable::rowCount()
{
    return count("SELECT COUNT(*) FROM " + table(), {});
}

std::unique_ptr<StoreTransaction> OdbcTable::begin()
{
    return std::make_unique<OdbcTransaction>(*myLease);
}

void OdbcTable::afterImportedIDs()
{
    // IDs written as they were read leave a PostgreSQL sequence behind them.
    if (!myUniqueID || myLease->traits().dialect != Dialect::PostgreSQL)
        return;
    const std::string column = fields()[*myUniqueID].column;
    myLease->executeOnce("SELECT setval(pg_get_serial_sequence(?, ?), COALESCE(MAX(" + quote(column) +
                             "), 0) + 1, false) FROM " + table(),
                         {Parameter::ofText(table()), Parameter::ofText(column)});
}

Parameter OdbcTable::parameterOf(const SqlBinding& binding) const
{
    if (binding.as == SqlBinding::As::FieldValue)
    {
        FieldValue value;
        std::visit([&](const auto& v) { value = v; }, binding.value);
        return columns()[binding.field].parameterOf(value);
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
    const std::string idColumn = quote(uniqueIDColumn().field.column);
    const std::string from = "FROM " + table() + (search.where.empty() ? "" : " WHERE " + search.where);
    const std::string order = " ORDER BY " + (search.orderBy.empty() ? "" : search.orderBy + ", ") + idColumn;
    return std::make_unique<OdbcQuery>(*this, selectList(), from, order, idColumn,
                                       parametersOf(search.bindings));
}

bool OdbcTable::foldsCase(size_t field) const
{
    // Text compares without regard to case, as on the embedded store; a data source that opted
    // out compares the columns its driver calls case-sensitive as they are.
    return !(myLease->traits().caseSensitiveText && fields()[field].caseSensitive());
}

std::string OdbcTable::textOf(size_t field) const
{
    const std::string name = quote(fields()[field].column);
    return columns()[field].valueClass ? "COALESCE(" + name + ", '')"
                                       : "COALESCE(CAST(" + name + " AS VARCHAR(255)), '')";
}

std::string OdbcTable::compareText(size_t field, const char* symbol, const std::string& parameter) const
{
    const std::string text = textOf(field);
    if (foldsCase(field))
        return "(LOWER(" + text + ") " + symbol + " LOWER(" + parameter + "))";
    return "(" + text + " " + symbol + " " + parameter + ")";
}

std::string OdbcTable::equalsText(size_t field, const std::string& parameter) const
{
    // The column itself, not COALESCE(column, ''), so that an index on it (or, ignoring case,
    // on LOWER(column)) finds the matches; a missing value never equals a text that is not empty.
    if (!columns()[field].valueClass)
        return compareText(field, "=", parameter);
    const std::string name = quote(fields()[field].column);
    if (foldsCase(field))
        return "(" + name + " IS NOT NULL AND LOWER(" + name + ") = LOWER(" + parameter + "))";
    return "(" + name + " IS NOT NULL AND " + name + " = " + parameter + ")";
}

std::string OdbcTable::matchText(size_t field, bool contains, const std::string& text,
                                 const SqlBinder& bind) const
{
    const bool textual = classOf(field) == FieldType::Text || classOf(field) == FieldType::LongText;
    const std::string value =
        textual ? textOf(field) : "COALESCE(CAST(" + quote(fields()[field].column) + " AS VARCHAR(255)), '')";
    const std::string pattern = bind(SqlBinding(likePattern(text, contains)));
    if (textual && foldsCase(field))
        return "(LOWER(" + value + ") LIKE LOWER(" + pattern + ") ESCAPE '!')";
    return "(" + value + " LIKE " + pattern + " ESCAPE '!')";
}

std::string OdbcTable::compareNumber(size_t field, const char* symbol, const std::string& parameter) const
{
    return "(COALESCE(" + quote(fields()[field].column) + ", 0) " + symbol + " " + parameter + ")";
}

std::string OdbcTable::isTrue(size_t field, const SqlBinder& bind) const
{
    const std::string name = quote(fields()[field].column);
    return "(" + name + " IS NOT NULL AND " + name + " = " +
           bind(SqlBinding(int64_t(1), SqlBinding::As::FieldValue, field)) + ")";
}

} // namespace kiv::db::odbc
