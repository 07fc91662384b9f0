// One open table of a data source.
#include "OdbcDatabase.h"

#include "CsvFormat.h"
#include "DatabaseResultCodes.h"
#include "DecimalText.h"
#include "NameRules.h"
#include "RecordFiles.h"
#include "SearchLanguage.h"


#include <algorithm>
#include <fstream>

namespace kiv::db::odbc
{

namespace
{
constexpr const char* kDefaultUniqueID = "KIVIDFIELD";

std::string_view stripParentheses(std::string_view name)
{
    if (name.size() >= 2 && name.front() == '(' && name.back() == ')')
        return name.substr(1, name.size() - 2);
    return name;
}

std::string whyNotConvertible(ConversionError error, const Column& column)
{
    if (!column.valueClass)
        return "cannot be set: the service does not write values of this column's type.";
    if (error == ConversionError::TooLong)
        return "is longer than the " + std::to_string(column.conversion.length()) +
               " bytes the field allows.";
    switch (*column.valueClass)
    {
    case FieldType::Boolean:
        return "is not true or false.";
    case FieldType::Integer:
        return "is not a whole number from -2147483648 to 2147483647.";
    default:
        return "is not a number.";
    }
}

bool isCharacterType(SQLSMALLINT sqlType)
{
    return sqlType == SQL_CHAR || sqlType == SQL_VARCHAR || sqlType == SQL_WCHAR || sqlType == SQL_WVARCHAR ||
           sqlType == SQL_NUMERIC || sqlType == SQL_DECIMAL;
}

class AutoCommitOff
{
public:
    explicit AutoCommitOff(Connection& connection) : myConnection(connection)
    {
        connection.setAutoCommit(false);
    }
    ~AutoCommitOff()
    {
        if (!myCommitted)
        {
            try
            {
                myConnection.endTransaction(false);
            }
            catch (const OdbcError&)
            {
            }
        }
        try
        {
            myConnection.setAutoCommit(true);
        }
        catch (const OdbcError&)
        {
        }
    }
    void commit()
    {
        myConnection.endTransaction(true);
        myCommitted = true;
    }

private:
    Connection& myConnection;
    bool myCommitted = false;
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

OdbcDatabase::OdbcDatabase(std::shared_ptr<ConnectionLease> lease, std::string table,
                           std::filesystem::path fileFolder, bool scrollable)
    : myLease(std::move(lease)), myTable(std::move(table)), myFileFolder(std::move(fileFolder)),
      myScrollable(scrollable && myLease->traits().staticCursor)
{
}

std::string OdbcDatabase::quote(const std::string& identifier) const
{
    return quoteIdentifier(myLease->traits(), identifier);
}

std::string OdbcDatabase::columnList() const
{
    std::string list;
    for (const auto& column : myColumns)
        list += (list.empty() ? "" : ", ") + quote(column.field.column);
    return list;
}

uint32_t OdbcDatabase::fail(uint32_t code, std::string message)
{
    myMessage = std::move(message);
    return code;
}

uint32_t OdbcDatabase::failOdbc(const OdbcError& error)
{
    if (error.connectionLost())
    {
        myLease->markLost();
        return fail(result::kConnectionLost, "The connection to the data source " +
                                                 myLease->traits().dataSource + " was lost (" + error.what() +
                                                 "). The next request connects again.");
    }
    // Class 23 is an integrity constraint; the SQLite driver reports its constraints as HY000.
    const std::string text = error.what();
    if (error.sqlState() == "23505" || text.find("UNIQUE constraint failed") != std::string::npos)
        return fail(result::kDuplicateValue,
                    "Another record already holds this value in a unique field: " + text);
    return fail(result::kDataSourceError, error.what());
}

template <typename Operation> uint32_t OdbcDatabase::guarded(Operation&& operation)
{
    try
    {
        return operation();
    }
    catch (const OdbcError& error)
    {
        return failOdbc(error);
    }
}

uint32_t OdbcDatabase::load(const std::string& uniqueIDFieldName)
{
    return guarded(
        [&]() -> uint32_t
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
                    describe.check(SQLDescribeCol(describe.get(), i, name, sizeof name, &nameLength,
                                                  &column.sqlType, &column.size, &column.digits, &nullable),
                                   "Describing a column");
                    SQLLEN autoUnique = 0, caseSensitive = 0;
                    SQLColAttribute(describe.get(), i, SQL_DESC_AUTO_UNIQUE_VALUE, nullptr, 0, nullptr,
                                    &autoUnique);
                    SQLColAttribute(describe.get(), i, SQL_DESC_CASE_SENSITIVE, nullptr, 0, nullptr,
                                    &caseSensitive);
                    column.field.name = reinterpret_cast<char*>(name);
                    column.field.column = column.field.name;
                    column.valueClass = valueClassOf(column.sqlType);
                    const uint32_t length = isCharacterType(column.sqlType)
                                                ? uint32_t(std::min<SQLULEN>(column.size, 0xFFFF))
                                                : 0;
                    column.field.typeWord = (uint32_t(typeByteOf(column.sqlType)) << 16) | length |
                                            (autoUnique == SQL_TRUE ? kAutoUniqueBit : 0) |
                                            (caseSensitive == SQL_TRUE ? kCaseSensitiveBit : 0);
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
                    column.field.typeWord |= kIndexedBit | (nonUnique ? 0 : kUniqueBit);
                    // SQLite hands out the values of an INTEGER PRIMARY KEY itself; its driver
                    // does not say so, but names the key's index this way.
                    if (myLease->traits().dialect == Dialect::SQLite && !nonUnique &&
                        column.sqlType == SQL_INTEGER && indexName.rfind("sqlite_autoindex", 0) == 0)
                        column.field.typeWord |= kAutoUniqueBit;
                }
            }
            myColumns = std::move(columns);
            // The unique ID: the field the open named, else KIVIDFIELD, else the first
            // auto-unique field, else the first unique one.
            myUniqueID.reset();
            for (const std::string& wanted : {uniqueIDFieldName, std::string(kDefaultUniqueID)})
                if (!myUniqueID && !wanted.empty())
                    myUniqueID = columnIndex(wanted);
            for (const uint32_t bit : {kAutoUniqueBit, kUniqueBit})
                for (size_t i = 0; i < myColumns.size() && !myUniqueID; ++i)
                    if (myColumns[i].field.typeWord & bit)
                        myUniqueID = i;
            return result::kSuccess;
        });
}

std::optional<size_t> OdbcDatabase::columnIndex(std::string_view name) const
{
    for (const std::string_view candidate : {name, stripParentheses(name)})
        for (size_t i = 0; i < myColumns.size(); ++i)
            if (compareFolded(myColumns[i].field.name, candidate) == 0)
                return i;
    return std::nullopt;
}

const Column* OdbcDatabase::column(std::string_view name) const
{
    const auto index = columnIndex(name);
    return index ? &myColumns[*index] : nullptr;
}

const FieldDefinition* OdbcDatabase::findField(std::string_view name) const
{
    const Column* found = column(name);
    return found ? &found->field : nullptr;
}

const FieldDefinition* OdbcDatabase::fieldAt(size_t index) const
{
    return index < myColumns.size() ? &myColumns[index].field : nullptr;
}

const Column* OdbcDatabase::uniqueIDColumn() const
{
    return myUniqueID ? &myColumns[*myUniqueID] : nullptr;
}

void OdbcDatabase::resetAfterSchemaChange()
{
    myRecord = Record();
    clearSearch();
}

uint32_t OdbcDatabase::addField(const std::string& name, uint32_t typeWord)
{
    if (auto why = checkFieldName(name); !why.empty())
        return fail(result::kInvalidName, why);
    if (column(name))
        return fail(result::kFieldExists, "The database already has a field named " + name + ".");
    const uint8_t typeByte = uint8_t((typeWord >> 16) & 0xFF);
    std::optional<SQLSMALLINT> sqlType = sqlTypeOf(typeByte);
    if (typeByte >= 1 && typeByte <= 7)
        sqlType = sqlTypeForNative(FieldType(typeByte));
    if (!sqlType)
        return fail(result::kInvalidArgument,
                    "The type word " + std::to_string(typeWord) + " names no SQL type of this data source.");
    // The driver's name for the type; with the auto-unique bit, one that hands out values.
    const bool wantAuto = typeWord & kAutoUniqueBit;
    const TypeInfo* chosen = nullptr;
    for (const auto& type : myLease->traits().types)
        if (type.sqlType == *sqlType &&
            (!chosen || (type.autoUnique == wantAuto && chosen->autoUnique != wantAuto)))
            chosen = &type;
    std::string definition;
    const uint32_t length = typeWord & 0xFFFF;
    if (chosen)
    {
        definition = chosen->name;
        if (!chosen->createParams.empty() && length != 0)
            definition += "(" + std::to_string(length) + ")";
    }
    else
    {
        // Standard names for drivers that list no type of that kind.
        switch (*sqlType)
        {
        case SQL_NUMERIC:
        case SQL_DECIMAL:
            definition = "NUMERIC";
            break;
        case SQL_VARCHAR:
            definition = length ? "VARCHAR(" + std::to_string(length) + ")" : "VARCHAR(255)";
            break;
        case SQL_BIT:
            definition = "BOOLEAN";
            break;
        default:
            return fail(result::kInvalidArgument,
                        "The data source offers no type for the type word " + std::to_string(typeWord) + ".");
        }
    }
    const uint32_t code = guarded(
        [&]() -> uint32_t
        {
            Statement statement(myLease->connection());
            statement.execute("ALTER TABLE " + table() + " ADD COLUMN " + quote(name) + " " + definition);
            if (typeWord & (kUniqueBit | kIndexedBit))
                statement.execute(
                    std::string((typeWord & kUniqueBit) ? "CREATE UNIQUE INDEX " : "CREATE INDEX ") +
                    quote("kiv_" + myTable + "_" + name) + " ON " + table() + " (" + quote(name) + ")");
            return result::kSuccess;
        });
    resetAfterSchemaChange();
    const std::string uniqueID = uniqueIDColumn() ? uniqueIDColumn()->field.name : std::string();
    if (const uint32_t reloaded = load(uniqueID); reloaded != result::kSuccess || code != result::kSuccess)
        return code != result::kSuccess ? code : reloaded;
    myMessage = name; // the module publishes the handle's message as the added field's name
    return result::kSuccess;
}

uint32_t OdbcDatabase::deleteField(const std::string& name)
{
    const Column* found = column(name);
    if (!found)
        return fail(result::kFieldNotFound, name);
    if (found == uniqueIDColumn())
        return fail(result::kProtectedField,
                    "The unique ID field " + found->field.name + " cannot be deleted.");
    const std::string columnName = found->field.column;
    const uint32_t code = guarded(
        [&]() -> uint32_t
        {
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
            return result::kSuccess;
        });
    resetAfterSchemaChange();
    const std::string uniqueID = uniqueIDColumn() ? uniqueIDColumn()->field.name : std::string();
    if (const uint32_t reloaded = load(uniqueID); reloaded != result::kSuccess || code != result::kSuccess)
        return code != result::kSuccess ? code : reloaded;
    myMessage.clear();
    return result::kSuccess;
}

std::vector<FieldValue> OdbcDatabase::defaultValues() const
{
    std::vector<FieldValue> values;
    for (const auto& column : myColumns)
        values.push_back(valueFromText(column, std::nullopt));
    return values;
}

std::vector<FieldValue> OdbcDatabase::readValues(Statement& statement, SQLUSMALLINT firstColumn) const
{
    std::vector<FieldValue> values;
    values.reserve(myColumns.size());
    for (size_t i = 0; i < myColumns.size(); ++i)
        values.push_back(valueFromText(myColumns[i], statement.text(SQLUSMALLINT(firstColumn + i))));
    return values;
}

bool OdbcDatabase::readByKey(const FieldValue& key, std::vector<FieldValue>& values)
{
    Statement select(myLease->connection());
    select.execute("SELECT " + columnList() + " FROM " + table() + " WHERE " +
                       quote(uniqueIDColumn()->field.column) + " = ?",
                   {uniqueIDColumn()->parameterOf(key)});
    if (!select.fetch())
        return false;
    values = readValues(select, 1);
    return true;
}

uint32_t OdbcDatabase::createRecord()
{
    myRecord.valid = true;
    myRecord.isNew = true;
    myRecord.values = defaultValues();
    myRecord.changed.assign(myColumns.size(), false);
    return result::kSuccess;
}

uint32_t OdbcDatabase::setValue(std::string_view fieldName, const InputValue& value)
{
    const auto index = columnIndex(fieldName);
    if (!index)
        return fail(result::kFieldNotFound, std::string(fieldName));
    if (!myRecord.valid)
        return fail(result::kNoCurrentRecord,
                    "There is no record to set a value in: create a record or move to one.");
    const Column& target = myColumns[*index];
    if (target.field.autoUnique())
        return result::kSuccess; // the data source assigns these; a posted copy of the old value is ignored
    FieldValue stored;
    const auto error =
        target.valueClass ? convertForField(target.conversion, value, stored) : ConversionError::TypeMismatch;
    if (error != ConversionError::None)
        return fail(error == ConversionError::TooLong ? result::kValueTooLong : result::kTypeMismatch,
                    "The value for the field " + target.field.name + " " + whyNotConvertible(error, target));
    myRecord.values[*index] = std::move(stored);
    myRecord.changed[*index] = true;
    return result::kSuccess;
}

uint32_t OdbcDatabase::getValue(std::string_view fieldName, const FieldDefinition*& field,
                                const FieldValue*& value)
{
    const auto index = columnIndex(fieldName);
    if (!index)
        return fail(result::kFieldNotFound, std::string(fieldName));
    if (!myRecord.valid)
        return fail(result::kNoCurrentRecord,
                    "There is no current record: search and move to a record first.");
    field = &myColumns[*index].field;
    value = &myRecord.values[*index];
    return result::kSuccess;
}

void OdbcDatabase::insertValues(const std::vector<FieldValue>& values, const std::vector<bool>& included,
                                FieldValue* newKey)
{
    // Columns left out take the table's defaults, as the data source defines them.
    std::string names, marks;
    std::vector<Parameter> parameters;
    for (size_t i = 0; i < myColumns.size(); ++i)
    {
        if (!included[i] || !myColumns[i].valueClass)
            continue;
        names += (names.empty() ? "" : ", ") + quote(myColumns[i].field.column);
        marks += marks.empty() ? "?" : ", ?";
        parameters.push_back(myColumns[i].parameterOf(values[i]));
    }
    const Column* id = uniqueIDColumn();
    const bool assigned = id && id->field.autoUnique() && !included[*myUniqueID];
    std::string sql = "INSERT INTO " + table() +
                      (names.empty() ? " DEFAULT VALUES" : " (" + names + ") VALUES (" + marks + ")");
    const Dialect dialect = myLease->traits().dialect;
    if (assigned && newKey && dialect == Dialect::PostgreSQL)
        sql += " RETURNING " + quote(id->field.column);
    Statement insert(myLease->connection());
    insert.execute(sql, std::move(parameters));
    if (!newKey || !id)
        return;
    if (!assigned)
    {
        *newKey = values[*myUniqueID];
        return;
    }
    if (dialect != Dialect::PostgreSQL)
        insert.execute(dialect == Dialect::SQLite
                           ? "SELECT last_insert_rowid()"
                           : "SELECT MAX(" + quote(id->field.column) + ") FROM " + table());
    if (!insert.fetch())
        throw OdbcError("HY000", "The data source did not say which unique ID the new record got.");
    *newKey = valueFromText(*id, insert.text(1));
}

uint32_t OdbcDatabase::addRecord()
{
    if (!myRecord.valid || !myRecord.isNew)
        return fail(result::kNoCurrentRecord, "Create a record before adding it.");
    return guarded(
        [&]() -> uint32_t
        {
            FieldValue key;
            insertValues(myRecord.values, myRecord.changed, &key);
            myRecord.isNew = false;
            myRecord.changed.assign(myColumns.size(), false);
            // The stored record becomes the current one, with the values the source gave it.
            std::vector<FieldValue> stored;
            if (uniqueIDColumn() && readByKey(key, stored))
                myRecord.values = std::move(stored);
            return result::kSuccess;
        });
}

uint32_t OdbcDatabase::updateRecord()
{
    if (!myRecord.valid || myRecord.isNew)
        return fail(result::kNoCurrentRecord, "Move to a record before updating it.");
    const Column* id = uniqueIDColumn();
    if (!id)
        return fail(result::kFieldNotFound, kDefaultUniqueID);
    // Only the fields set since the record was read are written, so two requests that change
    // different fields of one record do not undo each other.
    std::string assignments;
    std::vector<Parameter> parameters;
    for (size_t i = 0; i < myColumns.size(); ++i)
        if (myRecord.changed[i])
        {
            assignments += (assignments.empty() ? "" : ", ") + quote(myColumns[i].field.column) + " = ?";
            parameters.push_back(myColumns[i].parameterOf(myRecord.values[i]));
        }
    return guarded(
        [&]() -> uint32_t
        {
            const FieldValue key = myRecord.values[*myUniqueID];
            if (parameters.empty())
            {
                std::vector<FieldValue> ignored;
                return readByKey(key, ignored)
                           ? result::kSuccess
                           : fail(result::kRecordNotFound, "The record no longer exists.");
            }
            parameters.push_back(id->parameterOf(key));
            Statement update(myLease->connection());
            update.execute("UPDATE " + table() + " SET " + assignments + " WHERE " + quote(id->field.column) +
                               " = ?",
                           std::move(parameters));
            if (update.rowCount() == 0)
                return fail(result::kRecordNotFound, "The record no longer exists.");
            myRecord.changed.assign(myColumns.size(), false);
            return result::kSuccess;
        });
}

uint32_t OdbcDatabase::keyOf(const InputValue& uniqueID, FieldValue& key)
{
    const Column* id = uniqueIDColumn();
    if (!id)
        return fail(result::kFieldNotFound, kDefaultUniqueID);
    if (convertForField(id->conversion, uniqueID, key) != ConversionError::None ||
        std::holds_alternative<std::monostate>(key))
        return fail(result::kRecordNotFound, "No record has that unique ID.");
    return result::kSuccess;
}

uint32_t OdbcDatabase::deleteRecord(const InputValue& uniqueID)
{
    FieldValue key;
    if (const uint32_t code = keyOf(uniqueID, key); code != result::kSuccess)
        return code;
    return guarded(
        [&]() -> uint32_t
        {
            const Column* id = uniqueIDColumn();
            Statement remove(myLease->connection());
            remove.execute("DELETE FROM " + table() + " WHERE " + quote(id->field.column) + " = ?",
                           {id->parameterOf(key)});
            if (remove.rowCount() == 0)
                return fail(result::kRecordNotFound,
                            "No record has the unique ID " + quoteValue(valueAsText(id->field, key)) + ".");
            return result::kSuccess;
        });
}

uint32_t OdbcDatabase::deleteAllRecords()
{
    return guarded(
        [&]() -> uint32_t
        {
            Statement remove(myLease->connection());
            remove.execute("DELETE FROM " + table());
            clearSearch();
            myRecord = Record();
            return result::kSuccess;
        });
}

uint32_t OdbcDatabase::recordCount(uint32_t& count)
{
    return guarded(
        [&]() -> uint32_t
        {
            Statement select(myLease->connection());
            select.execute("SELECT COUNT(*) FROM " + table());
            select.fetch();
            count = uint32_t(std::clamp<int64_t>(select.integer(1).value_or(0), 0, UINT32_MAX));
            return result::kSuccess;
        });
}

void OdbcDatabase::clearSearch()
{
    myResults.reset();
    mySearchActive = false;
    myCursor.reset();
}

uint32_t OdbcDatabase::executeSearch(std::string_view text)
{
    auto parsed = search::parseSearch(text);
    if (auto* error = std::get_if<search::SyntaxError>(&parsed))
        return fail(result::kImproperFormat, error->message);
    OdbcSearch sql;
    std::string message;
    const auto lookup = [this](std::string_view name) { return column(name); };
    const auto quoted = [this](const std::string& name) { return quote(name); };
    if (const uint32_t code = translateSearch(std::get<search::Query>(parsed), lookup, quoted, sql, message);
        code != result::kSuccess)
        return fail(code, message);
    const uint32_t code = runSearch(std::move(sql));
    if (code == result::kSuccess)
        mySearchActive = true;
    return code;
}

uint32_t OdbcDatabase::runSearch(OdbcSearch search)
{
    return guarded(
        [&]() -> uint32_t
        {
            const Column* id = uniqueIDColumn();
            if (!id && !myScrollable)
                return fail(result::kFieldNotFound, kDefaultUniqueID);
            std::string orderBy = search.orderBy;
            if (id)
                orderBy += (orderBy.empty() ? "" : ", ") + quote(id->field.column);
            const std::string where = search.where.empty() ? "" : " WHERE " + search.where;
            const std::string tail =
                " FROM " + table() + where + (orderBy.empty() ? "" : " ORDER BY " + orderBy);
            Results results;
            auto& connection = myLease->connection();
            if (myScrollable)
            {
                Statement counter(connection);
                counter.execute("SELECT COUNT(*) FROM " + table() + where, search.parameters);
                counter.fetch();
                results.count = size_t(std::max<int64_t>(counter.integer(1).value_or(0), 0));
                results.rows = std::make_unique<Statement>(connection);
                results.rows->requestStaticCursor();
                results.rows->execute("SELECT " + columnList() + tail, search.parameters);
            }
            else
            {
                Statement keys(connection);
                keys.execute("SELECT " + quote(id->field.column) + tail, search.parameters);
                while (keys.fetch())
                    results.keys.push_back(valueFromText(*id, keys.text(1)));
                results.count = results.keys.size();
            }
            results.search = std::move(search);
            myResults = std::move(results);
            myCursor.reset();
            return result::kSuccess;
        });
}

uint32_t OdbcDatabase::ensureResults()
{
    // Without a search, every record as it is now.
    if (!mySearchActive || !myResults)
        return runSearch(OdbcSearch());
    return result::kSuccess;
}

uint32_t OdbcDatabase::resultCount(uint32_t& count)
{
    if (!mySearchActive)
        return recordCount(count);
    count = uint32_t(std::min<size_t>(myResults->count, UINT32_MAX));
    return result::kSuccess;
}

bool OdbcDatabase::readResult(size_t index, std::vector<FieldValue>& values)
{
    if (index >= myResults->count)
        return false;
    if (myResults->rows)
    {
        if (!myResults->rows->fetchAbsolute(SQLLEN(index + 1)))
            return false;
        values = readValues(*myResults->rows, 1);
        return true;
    }
    return index < myResults->keys.size() && readByKey(myResults->keys[index], values);
}

uint32_t OdbcDatabase::settleAt(size_t index, int step, uint32_t noRecord)
{
    return guarded(
        [&]() -> uint32_t
        {
            // Records deleted since the search are passed over.
            std::vector<FieldValue> values;
            while (index < myResults->count)
            {
                if (readResult(index, values))
                {
                    myCursor = index;
                    myRecord.valid = true;
                    myRecord.isNew = false;
                    myRecord.values = std::move(values);
                    myRecord.changed.assign(myColumns.size(), false);
                    return result::kSuccess;
                }
                if (step < 0 && index == 0)
                    break;
                index = step > 0 ? index + 1 : index - 1;
            }
            return noRecord;
        });
}

uint32_t OdbcDatabase::moveFirst()
{
    if (const uint32_t code = ensureResults(); code != result::kSuccess)
        return code;
    return settleAt(0, +1, result::kEndOfFile);
}

uint32_t OdbcDatabase::moveLast()
{
    if (const uint32_t code = ensureResults(); code != result::kSuccess)
        return code;
    if (myResults->count == 0)
        return result::kEndOfFile;
    return settleAt(myResults->count - 1, -1, result::kEndOfFile);
}

uint32_t OdbcDatabase::moveNext()
{
    if (!myCursor || !myResults)
        return moveFirst();
    return settleAt(*myCursor + 1, +1, result::kEndOfFile);
}

uint32_t OdbcDatabase::movePrevious()
{
    if (!myCursor || !myResults)
        return moveLast();
    if (*myCursor == 0)
        return result::kBeginningOfFile;
    return settleAt(*myCursor - 1, -1, result::kBeginningOfFile);
}

uint32_t OdbcDatabase::jump(uint32_t offset)
{
    if (const uint32_t code = ensureResults(); code != result::kSuccess)
        return code;
    return settleAt(offset, +1, result::kEndOfFile);
}

uint32_t OdbcDatabase::moveTo(const InputValue& uniqueID)
{
    FieldValue key;
    if (const uint32_t code = keyOf(uniqueID, key); code != result::kSuccess)
        return code;
    if (const uint32_t code = ensureResults(); code != result::kSuccess)
        return code;
    const Column& id = *uniqueIDColumn();
    const std::string wanted = valueAsText(id.field, key);
    return guarded(
        [&]() -> uint32_t
        {
            for (size_t index = 0; index < myResults->count; ++index)
            {
                std::string candidate;
                if (myResults->rows)
                {
                    if (!myResults->rows->fetchAbsolute(SQLLEN(index + 1)))
                        break;
                    candidate = valueAsText(
                        id.field, valueFromText(id, myResults->rows->text(SQLUSMALLINT(*myUniqueID + 1))));
                }
                else
                    candidate = valueAsText(id.field, myResults->keys[index]);
                if (candidate == wanted)
                    return settleAt(index, +1, result::kRecordNotFound) == result::kSuccess &&
                                   myCursor == index
                               ? result::kSuccess
                               : fail(result::kRecordNotFound, "The record no longer exists.");
            }
            return fail(result::kRecordNotFound,
                        mySearchActive ? "The record is not among the results of the current search."
                                       : "No record has the unique ID " + quoteValue(wanted) + ".");
        });
}

std::filesystem::path OdbcDatabase::resolvePath(const std::filesystem::path& file) const
{
    return file.is_absolute() ? file : myFileFolder / file;
}

uint32_t OdbcDatabase::exportRecords(const std::filesystem::path& file, std::string_view fieldList,
                                     uint32_t& count)
{
    std::vector<size_t> columns;
    const auto lookup = [this](std::string_view name) { return columnIndex(name); };
    if (const auto unknown = resolveFieldList(fieldList, myColumns.size(), lookup, columns))
        return fail(result::kFieldNotFound, *unknown);
    if (const uint32_t code = ensureResults(); code != result::kSuccess)
        return code;
    uint32_t written = 0;
    std::string fileError;
    const uint32_t code = writeFileInPlace(
        resolvePath(file),
        [&](std::ostream& out) -> uint32_t
        {
            std::vector<std::string> row;
            for (const size_t column : columns)
                row.push_back(myColumns[column].field.name);
            writeCsvRow(out, row);
            return guarded(
                [&]() -> uint32_t
                {
                    std::vector<FieldValue> values;
                    for (size_t index = 0; index < myResults->count; ++index)
                    {
                        if (!readResult(index, values))
                            continue;
                        row.clear();
                        for (const size_t column : columns)
                            row.push_back(valueAsText(myColumns[column].field, values[column]));
                        writeCsvRow(out, row);
                        ++written;
                    }
                    return result::kSuccess;
                });
        },
        fileError);
    if (code != result::kSuccess)
        return code == result::kFileError && !fileError.empty() ? fail(code, fileError) : code;
    count = written;
    myMessage.clear();
    return result::kEndOfFile; // every result written: the answer the editor counts as finished
}

uint32_t OdbcDatabase::importRecords(const std::filesystem::path& file, uint32_t& count)
{
    const auto source = resolvePath(file);
    std::ifstream in(source, std::ios::binary);
    if (!in)
        return fail(result::kFileError,
                    "The import file " + quoteValue(source.string()) + " cannot be opened.");
    CsvReader reader(in);
    std::vector<std::string> header;
    if (!reader.readRow(header))
        return fail(result::kImportFailed,
                    reader.error().empty()
                        ? "The import file is empty: it needs a header row naming the fields."
                        : reader.error());
    std::vector<size_t> columns;
    std::string why;
    if (resolveImportHeader(
            header, [this](std::string_view name) { return columnIndex(name); },
            [this](size_t index) { return myColumns[index].field.name; }, myTable, columns,
            why) != result::kSuccess)
        return fail(result::kImportFailed, why);
    uint32_t imported = 0;
    if (const uint32_t code = importRows(reader, columns, imported); code != result::kSuccess)
        return code;
    clearSearch();
    count = imported;
    myMessage.clear();
    return result::kSuccess;
}

uint32_t OdbcDatabase::importRows(CsvReader& reader, const std::vector<size_t>& columns, uint32_t& count)
{
    std::string where;
    try
    {
        // One transaction: a bad row imports nothing.
        AutoCommitOff transaction(myLease->connection());
        bool explicitIDs = false;
        std::vector<std::string> cells;
        while (reader.readRow(cells))
        {
            where = "Row " + std::to_string(reader.rowNumber()) + " (line " +
                    std::to_string(reader.rowStartLine()) + ")";
            if (cells.size() == 1 && cells[0].empty() && columns.size() > 1)
                continue; // a blank line
            if (cells.size() != columns.size())
                return fail(result::kImportFailed, where + ": " + std::to_string(cells.size()) +
                                                       " values, but the header names " +
                                                       std::to_string(columns.size()) + " fields.");
            std::vector<FieldValue> values = defaultValues();
            std::vector<bool> given(myColumns.size(), false);
            for (size_t i = 0; i < columns.size(); ++i)
            {
                const Column& target = myColumns[columns[i]];
                if (target.field.autoUnique() && trimBlanks(cells[i]).empty())
                    continue; // assigned like any added record
                const auto error =
                    target.valueClass
                        ? convertForField(target.conversion, std::string_view(cells[i]), values[columns[i]])
                        : ConversionError::TypeMismatch;
                if (error != ConversionError::None)
                    return fail(result::kImportFailed, where + ", field " + target.field.name + ": " +
                                                           quoteValue(cells[i]) + " " +
                                                           whyNotConvertible(error, target));
                given[columns[i]] = true;
                explicitIDs = explicitIDs || target.field.autoUnique();
            }
            insertValues(values, given, nullptr);
            ++count;
        }
        if (!reader.error().empty())
            return fail(result::kImportFailed, reader.error());
        // IDs written as they were read leave a PostgreSQL sequence behind them.
        const Column* id = uniqueIDColumn();
        if (explicitIDs && id && myLease->traits().dialect == Dialect::PostgreSQL)
        {
            Statement advance(myLease->connection());
            advance.execute("SELECT setval(pg_get_serial_sequence(?, ?), COALESCE(MAX(" +
                                quote(id->field.column) + "), 0) + 1, false) FROM " + table(),
                            {Parameter::ofText(table()), Parameter::ofText(id->field.column)});
        }
        transaction.commit();
    }
    catch (const OdbcError& error)
    {
        failOdbc(error);
        if (error.connectionLost())
            return result::kConnectionLost;
        return fail(result::kImportFailed, (where.empty() ? "" : where + ": ") + myMessage);
    }
    return result::kSuccess;
}

} // namespace kiv::db::odbc
