// One open embedded database: fields, the record buffer, searches and the cursor. A search
// counts its matches and reads their row ids a window at a time as the cursor moves; field
// values are read one record at a time, through statements prepared once per connection.
#include "EmbeddedDatabase.h"

#include "CsvFormat.h"
#include "DatabaseResultCodes.h"
#include "NameRules.h"
#include "RecordFiles.h"
#include "SearchLanguage.h"
#include "SearchToSql.h"

#include <algorithm>
#include <fstream>
#include <type_traits>
#include <variant>

namespace kiv::db
{

namespace
{
std::string columnDefinition(const FieldDefinition& field)
{
    switch (field.type())
    {
    case FieldType::Float:
        return "REAL NOT NULL DEFAULT 0";
    case FieldType::Number:
        return "TEXT COLLATE KIVNUM"; // no value is NULL
    case FieldType::Text:
    case FieldType::LongText:
        return std::string("TEXT NOT NULL DEFAULT '' COLLATE ") +
               (field.caseSensitive() ? "BINARY" : "KIVNOCASE");
    default:
        return "INTEGER NOT NULL DEFAULT 0";
    }
}

std::string whyNotConvertible(ConversionError error, const FieldDefinition& field)
{
    if (error == ConversionError::TooLong)
        return "is longer than the " + std::to_string(field.length()) + " bytes the field allows.";
    switch (field.type())
    {
    case FieldType::Boolean:
        return "is not true or false.";
    case FieldType::Integer:
        return "is not a whole number from -2147483648 to 2147483647.";
    case FieldType::UInteger:
        return "is not a whole number from 0 to 4294967295.";
    default:
        return "is not a number.";
    }
}

std::string_view stripParentheses(std::string_view name)
{
    if (name.size() >= 2 && name.front() == '(' && name.back() == ')')
        return name.substr(1, name.size() - 2);
    return name;
}

void bindAll(SqliteStatement& statement, const std::vector<SqlBinding>& bindings)
{
    for (size_t i = 0; i < bindings.size(); ++i)
        std::visit(
            [&](const auto& value)
            {
                using T = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<T, int64_t>)
                    statement.bindInteger(int(i) + 1, value);
                else if constexpr (std::is_same_v<T, double>)
                    statement.bindDouble(int(i) + 1, value);
                else
                    statement.bindText(int(i) + 1, value);
            },
            bindings[i]);
}

// The comparisons that must all hold for a record to match: the operands of a top-level chain
// of ANDs, or the one condition there is.
void collectConjuncts(const search::Node& node, std::vector<const search::Node*>& conjuncts)
{
    if (node.kind != search::Node::Kind::And)
    {
        conjuncts.push_back(&node);
        return;
    }
    collectConjuncts(*node.left, conjuncts);
    collectConjuncts(*node.right, conjuncts);
}

// Indexes on two fields are named by their columns, "i2_c3_c5", so that deleting a field
// finds every one that covers its column.
std::string pairIndexName(const std::string& equalColumn, const std::string& orderColumn)
{
    return "i2_" + equalColumn + "_" + orderColumn;
}

// Sets the connection's busy timeout for its lifetime: an index that only speeds up a search
// is not worth the long wait a record change is.
class BusyTimeoutScope
{
public:
    BusyTimeoutScope(SqliteConnection& connection, int milliseconds) : myConnection(connection)
    {
        sqlite3_busy_timeout(myConnection.get(), milliseconds);
    }
    ~BusyTimeoutScope() { sqlite3_busy_timeout(myConnection.get(), kStoreBusyTimeoutMs); }
    BusyTimeoutScope(const BusyTimeoutScope&) = delete;
    BusyTimeoutScope& operator=(const BusyTimeoutScope&) = delete;

private:
    SqliteConnection& myConnection;
};

// The first window of row ids a cursor reads; each further window in a walk is twice as large,
// so walking n results costs O(n) however far the walk goes.
constexpr size_t kFirstWindow = 64;
} // namespace

EmbeddedDatabase::EmbeddedDatabase(std::string name, std::filesystem::path file, DatabaseLock lock,
                                   std::unique_ptr<StoreConnection> connection, std::string uniqueIDFieldName)
    : myName(std::move(name)), myFile(std::move(file)), myLock(std::move(lock)),
      myConnection(std::move(connection)), myUniqueIDFieldName(std::move(uniqueIDFieldName))
{
}

EmbeddedDatabase::~EmbeddedDatabase()
{
    if (myConnection)
        ConnectionPool::instance().release(myFile, std::move(myConnection));
}

uint32_t EmbeddedDatabase::open(DatabaseCatalogue& catalogue, const OpenRequest& request,
                                std::unique_ptr<EmbeddedDatabase>& database, std::string& message)
{
    if (message = checkDatabaseName(request.name); !message.empty())
        return result::kInvalidName;
    auto stored = catalogue.resolve(request.name);
    if (!stored && request.createIfMissing)
    {
        const uint32_t code = catalogue.create(request.name, message);
        if (code != result::kSuccess && code != result::kDatabaseExists)
            return code;
        stored = catalogue.resolve(request.name);
    }
    if (!stored)
    {
        message = "No database named \"" + request.name + "\" exists.";
        return result::kDatabaseNotFound;
    }
    const auto mode = request.exclusive ? DatabaseLock::Mode::Exclusive : DatabaseLock::Mode::Shared;
    auto lock = DatabaseLock::acquire(catalogue.lockFileOf(*stored), mode, catalogue.options().lockWait);
    if (!lock)
    {
        message = "The database \"" + *stored + "\" is in use" +
                  (request.exclusive ? "" : " by someone who needs it for exclusive use") +
                  ". Try again in a few moments.";
        return result::kLocked;
    }
    const auto file = catalogue.fileOf(*stored);
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))
    {
        message = "No database named \"" + request.name + "\" exists.";
        return result::kDatabaseNotFound;
    }
    try
    {
        auto connection = ConnectionPool::instance().acquire(file, catalogue.options());
        connection->refreshSchema();
        const std::string idName =
            request.uniqueIDFieldName.empty() ? kUniqueIDFieldName : request.uniqueIDFieldName;
        database = std::make_unique<EmbeddedDatabase>(*stored, file, std::move(*lock), std::move(connection),
                                                      idName);
        if (!database->findField(idName))
            database->myUniqueIDFieldName = kUniqueIDFieldName;
        return result::kSuccess;
    }
    catch (const SqliteError& failure)
    {
        return resultOfSqliteError(failure, message);
    }
}

uint32_t EmbeddedDatabase::fail(uint32_t code, std::string message)
{
    myMessage = std::move(message);
    return code;
}

uint32_t EmbeddedDatabase::failSqlite(const SqliteError& error)
{
    std::string message;
    const uint32_t code = resultOfSqliteError(error, message);
    if (code == result::kDuplicateValue)
        message = "Another record already holds this value in the unique field " +
                  fieldOfConstraint(error.what()) + ".";
    return fail(code, message);
}

uint32_t EmbeddedDatabase::fieldNotFound(std::string_view name)
{
    return fail(result::kFieldNotFound, std::string(name));
}

uint32_t EmbeddedDatabase::conversionFailure(ConversionError error, const FieldDefinition& field)
{
    return fail(error == ConversionError::TooLong ? result::kValueTooLong : result::kTypeMismatch,
                "The value for the field " + field.name + " " + whyNotConvertible(error, field));
}

std::string EmbeddedDatabase::fieldOfConstraint(const std::string& sqliteMessage) const
{
    // SQLite names the column: "UNIQUE constraint failed: kiv_records.c3".
    const auto dot = sqliteMessage.rfind('.');
    const std::string column = dot == std::string::npos ? std::string() : sqliteMessage.substr(dot + 1);
    for (const auto& field : fields())
        if (field.column == column)
            return field.name;
    return "(unknown)";
}

const FieldDefinition* EmbeddedDatabase::fieldAt(size_t index) const
{
    return index < fields().size() ? &fields()[index] : nullptr;
}

std::optional<size_t> EmbeddedDatabase::fieldIndex(std::string_view name) const
{
    if (const auto index = myConnection->fieldIndex(name))
        return index;
    const auto stripped = stripParentheses(name);
    return stripped.size() == name.size() ? std::nullopt : myConnection->fieldIndex(stripped);
}

const FieldDefinition* EmbeddedDatabase::findField(std::string_view name) const
{
    const auto index = fieldIndex(name);
    return index ? &fields()[*index] : nullptr;
}

const FieldDefinition* EmbeddedDatabase::uniqueIDField() const
{
    return findField(myUniqueIDFieldName);
}

uint32_t EmbeddedDatabase::requireSchemaLock()
{
    // Other opens cache the field list; changing it is only safe while no one else has the
    // database open, which is what the exclusive open guarantees.
    if (myLock.mode() != DatabaseLock::Mode::Exclusive)
        return fail(result::kLocked, "Fields can be added or deleted only while the database is open for "
                                     "exclusive use (open mode 3).");
    return result::kSuccess;
}

void EmbeddedDatabase::finishSchemaChange()
{
    myConnection->refreshSchema();
    myRecord = Record();
    myResults.reset();
    mySearchActive = false;
    myCursor.reset();
}

uint32_t EmbeddedDatabase::addField(const std::string& name, uint32_t typeWord)
{
    if (const uint32_t code = requireSchemaLock(); code != result::kSuccess)
        return code;
    if (auto why = checkFieldName(name); !why.empty())
        return fail(result::kInvalidName, why);
    if (!isValidTypeWord(typeWord))
        return fail(result::kInvalidArgument, "The type word " + std::to_string(typeWord) +
                                                  " is not a field type of this database (types 1 to 7, and "
                                                  "auto-unique only for Integer and UInteger).");
    if (findField(name))
        return fail(result::kFieldExists, "The database already has a field named " + name + ".");
    FieldDefinition field;
    field.name = name;
    field.typeWord = typeWord;
    try
    {
        auto& sql = myConnection->sql();
        SqliteTransaction transaction(sql);
        auto next = sql.prepare("SELECT value FROM kiv_meta WHERE key = 'next_column'");
        next.step();
        const int64_t number = std::stoll(std::string(next.columnText(0)));
        next.reset();
        field.column = "c" + std::to_string(number);
        sql.execute("ALTER TABLE kiv_records ADD COLUMN " + field.column + " " + columnDefinition(field));
        int64_t nextAuto = 1;
        if (field.autoUnique())
        {
            // Records that already exist get distinct values at once.
            sql.execute("UPDATE kiv_records SET " + field.column + " = kiv_rowid");
            auto highest = sql.prepare("SELECT COALESCE(MAX(kiv_rowid), 0) + 1 FROM kiv_records");
            highest.step();
            nextAuto = highest.columnInteger(0);
        }
        if (field.unique() || field.indexed())
            sql.execute(std::string(field.unique() ? "CREATE UNIQUE INDEX " : "CREATE INDEX ") + "i_" +
                        field.column + " ON kiv_records(" + field.column + ")");
        auto insert = sql.prepare("INSERT INTO kiv_fields(name, name_key, type_word, column_name, next_auto) "
                                  "VALUES(?, ?, ?, ?, ?)");
        insert.bindText(1, name);
        insert.bindText(2, foldCase(name));
        insert.bindInteger(3, typeWord);
        insert.bindText(4, field.column);
        insert.bindInteger(5, nextAuto);
        insert.execute();
        auto bump = sql.prepare("UPDATE kiv_meta SET value = ? WHERE key = 'next_column'");
        bump.bindText(1, std::to_string(number + 1));
        bump.execute();
        transaction.commit();
    }
    catch (const SqliteError& error)
    {
        if (error.primaryCode() == SQLITE_CONSTRAINT)
            return fail(result::kDuplicateValue,
                        "The field " + name + " cannot be unique: existing records would share its value.");
        return failSqlite(error);
    }
    finishSchemaChange();
    // The module reads the handle's message after adding a field and publishes it as the name.
    myMessage = name;
    return result::kSuccess;
}

uint32_t EmbeddedDatabase::deleteField(const std::string& name)
{
    if (const uint32_t code = requireSchemaLock(); code != result::kSuccess)
        return code;
    const FieldDefinition* field = findField(name);
    if (!field)
        return fieldNotFound(name);
    if (field == uniqueIDField() || compareFolded(field->name, kUniqueIDFieldName) == 0)
        return fail(result::kProtectedField, "The unique ID field " + field->name + " cannot be deleted.");
    const std::string column = field->column;
    try
    {
        auto& sql = myConnection->sql();
        SqliteTransaction transaction(sql);
        sql.execute("DROP INDEX IF EXISTS i_" + column);
        // SQLite refuses to drop a column that an index still covers.
        std::vector<std::string> pairIndexes;
        {
            auto select = sql.prepare("SELECT name FROM sqlite_master WHERE type = 'index' AND "
                                      "tbl_name = 'kiv_records' AND (name GLOB ? OR name GLOB ?)");
            select.bindText(1, pairIndexName(column, "*"));
            select.bindText(2, pairIndexName("*", column));
            while (select.step())
                pairIndexes.emplace_back(select.columnText(0));
        }
        for (const auto& index : pairIndexes)
            sql.execute("DROP INDEX IF EXISTS \"" + index + "\"");
        sql.execute("ALTER TABLE kiv_records DROP COLUMN " + column);
        auto remove = sql.prepare("DELETE FROM kiv_fields WHERE column_name = ?");
        remove.bindText(1, column);
        remove.execute();
        transaction.commit();
    }
    catch (const SqliteError& error)
    {
        return failSqlite(error);
    }
    finishSchemaChange();
    myMessage.clear();
    return result::kSuccess;
}

std::vector<FieldValue> EmbeddedDatabase::defaultValues() const
{
    std::vector<FieldValue> values;
    values.reserve(fields().size());
    for (const auto& field : fields())
    {
        switch (field.type())
        {
        case FieldType::Float:
            values.emplace_back(0.0);
            break;
        case FieldType::Number:
            values.emplace_back(std::monostate());
            break;
        case FieldType::Text:
        case FieldType::LongText:
            values.emplace_back(std::string());
            break;
        default:
            values.emplace_back(int64_t(0));
        }
    }
    return values;
}

void EmbeddedDatabase::bindValue(SqliteStatement& statement, int index, const FieldValue& value)
{
    if (const auto* i = std::get_if<int64_t>(&value))
        statement.bindInteger(index, *i);
    else if (const auto* d = std::get_if<double>(&value))
        statement.bindDouble(index, *d);
    else if (const auto* s = std::get_if<std::string>(&value))
        statement.bindText(index, *s);
    else
        statement.bindNull(index);
}

void EmbeddedDatabase::readColumn(SqliteStatement& statement, int column, const FieldDefinition& field,
                                  FieldValue& value)
{
    const auto assignText = [&]()
    {
        // A walk over the results reads record after record into the same buffer: keep the
        // string's memory.
        if (auto* text = std::get_if<std::string>(&value))
            text->assign(statement.columnText(column));
        else
            value = std::string(statement.columnText(column));
    };
    switch (field.type())
    {
    case FieldType::Float:
        value = statement.columnDouble(column);
        return;
    case FieldType::Number:
        if (statement.columnType(column) == SQLITE_NULL)
            value = std::monostate();
        else
            assignText();
        return;
    case FieldType::Text:
    case FieldType::LongText:
        assignText();
        return;
    default:
        value = statement.columnInteger(column);
    }
}

bool EmbeddedDatabase::readRecord(int64_t rowID, std::vector<FieldValue>& values)
{
    // One statement per record; `values` is left alone when the record no longer exists.
    auto& select = myConnection->selectRecord();
    StatementScope scope(select);
    select.bindInteger(1, rowID);
    if (!select.step())
        return false;
    const auto& all = fields();
    values.resize(all.size());
    for (size_t i = 0; i < all.size(); ++i)
        readColumn(select, int(i) + 1, all[i], values[i]);
    return true;
}

bool EmbeddedDatabase::loadRecord(int64_t rowID)
{
    if (!readRecord(rowID, myRecord.values))
        return false;
    myRecord.valid = true;
    myRecord.isNew = false;
    myRecord.rowID = rowID;
    myRecord.changed.assign(fields().size(), false);
    return true;
}

uint32_t EmbeddedDatabase::createRecord()
{
    myRecord.valid = true;
    myRecord.isNew = true;
    myRecord.rowID = 0;
    myRecord.values = defaultValues();
    myRecord.changed.assign(fields().size(), false);
    return result::kSuccess;
}

uint32_t EmbeddedDatabase::setValue(std::string_view fieldName, const InputValue& value)
{
    const auto index = fieldIndex(fieldName);
    if (!index)
        return fieldNotFound(fieldName);
    if (!myRecord.valid)
        return fail(result::kNoCurrentRecord,
                    "There is no record to set a value in: create a record or move to one.");
    const FieldDefinition& field = fields()[*index];
    if (field.autoUnique())
        return result::kSuccess; // the service assigns these; a posted copy of the old value is ignored
    FieldValue stored;
    if (const auto error = convertForField(field, value, stored); error != ConversionError::None)
        return conversionFailure(error, field);
    myRecord.values[*index] = std::move(stored);
    myRecord.changed[*index] = true;
    return result::kSuccess;
}

uint32_t EmbeddedDatabase::getValue(std::string_view fieldName, const FieldDefinition*& field,
                                    const FieldValue*& value)
{
    const auto index = fieldIndex(fieldName);
    if (!index)
        return fieldNotFound(fieldName);
    if (!myRecord.valid)
        return fail(result::kNoCurrentRecord,
                    "There is no current record: search and move to a record first.");
    field = &fields()[*index];
    value = &myRecord.values[*index];
    return result::kSuccess;
}

void EmbeddedDatabase::insertValues(std::vector<FieldValue>& values, const std::vector<bool>& given,
                                    int64_t& rowID)
{
    const auto& all = fields();
    for (size_t i = 0; i < all.size(); ++i)
    {
        if (!all[i].autoUnique())
            continue;
        const std::string position = std::to_string(myConnection->fieldPosition(i));
        if (i < given.size() && given[i])
        {
            auto& raise = myConnection->statement(
                "raise-auto", "UPDATE kiv_fields SET next_auto = MAX(next_auto, ? + 1) WHERE position = ?");
            StatementScope scope(raise);
            raise.bindInteger(1, std::get<int64_t>(values[i]));
            raise.bindInteger(2, myConnection->fieldPosition(i));
            raise.execute();
            continue;
        }
        auto& take = myConnection->statement(
            "take-auto",
            "UPDATE kiv_fields SET next_auto = next_auto + 1 WHERE position = ? RETURNING next_auto - 1");
        StatementScope scope(take);
        take.bindInteger(1, myConnection->fieldPosition(i));
        take.step();
        values[i] = take.columnInteger(0);
    }
    auto& insert = myConnection->insertRecord();
    StatementScope scope(insert);
    for (size_t i = 0; i < all.size(); ++i)
        bindValue(insert, int(i) + 1, values[i]);
    insert.execute();
    rowID = myConnection->sql().lastInsertRowId();
}

uint32_t EmbeddedDatabase::addRecord()
{
    if (!myRecord.valid || !myRecord.isNew)
        return fail(result::kNoCurrentRecord, "Create a record before adding it.");
    try
    {
        completeResults();
        SqliteTransaction transaction(myConnection->sql());
        int64_t rowID = 0;
        insertValues(myRecord.values, {}, rowID);
        transaction.commit();
        myRecord.isNew = false;
        myRecord.rowID = rowID;
        myRecord.changed.assign(fields().size(), false);
    }
    catch (const SqliteError& error)
    {
        return failSqlite(error);
    }
    return result::kSuccess;
}

uint32_t EmbeddedDatabase::updateRecord()
{
    if (!myRecord.valid || myRecord.isNew)
        return fail(result::kNoCurrentRecord, "Move to a record before updating it.");
    // Only the fields set since the record was read are written, so two requests that change
    // different fields of one record do not undo each other.
    std::string assignments;
    std::vector<size_t> changed;
    for (size_t i = 0; i < myRecord.changed.size(); ++i)
        if (myRecord.changed[i])
        {
            assignments += (assignments.empty() ? "" : ", ") + fields()[i].column + " = ?";
            changed.push_back(i);
        }
    try
    {
        completeResults();
        if (changed.empty())
        {
            std::vector<FieldValue> ignored;
            return readRecord(myRecord.rowID, ignored)
                       ? result::kSuccess
                       : fail(result::kRecordNotFound, "The record no longer exists.");
        }
        auto update =
            myConnection->sql().prepare("UPDATE kiv_records SET " + assignments + " WHERE kiv_rowid = ?");
        for (size_t i = 0; i < changed.size(); ++i)
            bindValue(update, int(i) + 1, myRecord.values[changed[i]]);
        update.bindInteger(int(changed.size()) + 1, myRecord.rowID);
        update.execute();
        if (myConnection->sql().changes() == 0)
            return fail(result::kRecordNotFound, "The record no longer exists.");
    }
    catch (const SqliteError& error)
    {
        return failSqlite(error);
    }
    myRecord.changed.assign(fields().size(), false);
    return result::kSuccess;
}

uint32_t EmbeddedDatabase::findByUniqueID(const InputValue& uniqueID, std::vector<int64_t>& rowIDs)
{
    const FieldDefinition* field = uniqueIDField();
    if (!field)
        return fieldNotFound(myUniqueIDFieldName);
    FieldValue key;
    if (convertForField(*field, uniqueID, key) != ConversionError::None ||
        std::holds_alternative<std::monostate>(key))
        return fail(result::kRecordNotFound, "No record has that unique ID.");
    auto& select = myConnection->statement(
        "by-id-" + field->column, "SELECT kiv_rowid FROM kiv_records WHERE " + field->column + " = ?");
    StatementScope scope(select);
    bindValue(select, 1, key);
    rowIDs.clear();
    while (select.step())
        rowIDs.push_back(select.columnInteger(0));
    if (rowIDs.empty())
        return fail(result::kRecordNotFound,
                    "No record has the unique ID " + quoteValue(valueAsText(*field, key)) + ".");
    return result::kSuccess;
}

uint32_t EmbeddedDatabase::deleteRecord(const InputValue& uniqueID)
{
    try
    {
        std::vector<int64_t> rowIDs;
        if (const uint32_t code = findByUniqueID(uniqueID, rowIDs); code != result::kSuccess)
            return code;
        completeResults();
        SqliteTransaction transaction(myConnection->sql());
        auto& remove = myConnection->statement("delete-row", "DELETE FROM kiv_records WHERE kiv_rowid = ?");
        for (const int64_t rowID : rowIDs)
        {
            StatementScope scope(remove);
            remove.bindInteger(1, rowID);
            remove.execute();
        }
        transaction.commit();
    }
    catch (const SqliteError& error)
    {
        return failSqlite(error);
    }
    return result::kSuccess;
}

uint32_t EmbeddedDatabase::deleteAllRecords()
{
    try
    {
        myConnection->sql().execute("DELETE FROM kiv_records");
    }
    catch (const SqliteError& error)
    {
        return failSqlite(error);
    }
    clearSearch();
    myRecord = Record();
    return result::kSuccess;
}

uint32_t EmbeddedDatabase::recordCount(uint32_t& count)
{
    try
    {
        auto& select = myConnection->statement("count", "SELECT COUNT(*) FROM kiv_records");
        StatementScope scope(select);
        select.step();
        count = uint32_t(std::min<int64_t>(select.columnInteger(0), UINT32_MAX));
    }
    catch (const SqliteError& error)
    {
        return failSqlite(error);
    }
    return result::kSuccess;
}

void EmbeddedDatabase::clearSearch()
{
    myResults.reset();
    mySearchActive = false;
    myCursor.reset();
}

uint32_t EmbeddedDatabase::executeSearch(std::string_view text)
{
    auto parsed = search::parseSearch(text);
    if (auto* error = std::get_if<search::SyntaxError>(&parsed))
        return fail(result::kImproperFormat, error->message);
    SqlSearch sql;
    std::string message;
    const auto lookup = [this](std::string_view name) { return findField(name); };
    const auto& query = std::get<search::Query>(parsed);
    if (const uint32_t code = translateSearch(query, lookup, sql, message); code != result::kSuccess)
        return fail(code, message);
    ensurePairIndex(query);
    try
    {
        try
        {
            startResults(sql.where, sql.orderBy, std::move(sql.bindings));
        }
        catch (const SqliteError& error)
        {
            // The query holds only our column names and parameters; if SQLite still cannot
            // take it, the search was too complex for it.
            if (error.primaryCode() != SQLITE_ERROR)
                throw;
            return fail(result::kImproperFormat, "The search is too complex; simplify it.");
        }
        mySearchActive = true;
    }
    catch (const SqliteError& error)
    {
        return failSqlite(error);
    }
    return result::kSuccess;
}

void EmbeddedDatabase::ensurePairIndex(const search::Query& query)
{
    // "City = 'Lyon' ORDER BY Name" with one index per field: SQLite finds the matches through
    // the City index and then sorts them all. An index on (City, Name) hands them out in order,
    // so a page reads only its window. Made the first time a search needs it. Only fields
    // marked indexed take part: they are the ones chosen as search keys, which keeps the number
    // of such indexes, and their cost on every record change, bounded.
    if (!query.condition || query.order.empty())
        return;
    const FieldDefinition* ordered = findField(query.order.front().field);
    if (!ordered || !ordered->indexed())
        return;
    std::vector<const search::Node*> conjuncts;
    collectConjuncts(*query.condition, conjuncts);
    for (const search::Node* node : conjuncts)
    {
        if (node->kind != search::Node::Kind::Comparison || node->op != search::Operator::Equal)
            continue;
        const FieldDefinition* filtered = findField(node->field);
        if (!filtered || !filtered->indexed() || filtered->column == ordered->column)
            continue;
        const std::string name = pairIndexName(filtered->column, ordered->column);
        if (myConnection->knowsIndex(name))
            return;
        // Tried once per connection and schema version, also when it fails: the search runs as
        // well without it. Other opens may use the database meanwhile; SQLite makes the index
        // in a write transaction of its own, and their cached statements prepare themselves
        // again for the new schema. The field list does not change.
        myConnection->rememberIndex(name);
        try
        {
            BusyTimeoutScope wait(myConnection->sql(), 250);
            myConnection->sql().execute("CREATE INDEX IF NOT EXISTS " + name + " ON kiv_records(" +
                                        filtered->column + ", " + ordered->column + ")");
        }
        catch (const SqliteError&)
        {
        }
        return;
    }
}

void EmbeddedDatabase::startResults(const std::string& condition, const std::string& orderBy,
                                    std::vector<SqlBinding> bindings)
{
    const std::string where = condition.empty() ? std::string() : " WHERE " + condition;
    Results results;
    results.rowsSql =
        "SELECT kiv_rowid FROM kiv_records" + where + " ORDER BY " + orderBy + " LIMIT ? OFFSET ?";
    results.bindings = std::move(bindings);
    myConnection->searchStatement(results.rowsSql); // prepared now, so a search SQLite refuses fails here
    // The count and the data version from one snapshot.
    SqliteTransaction snapshot(myConnection->sql(), false);
    auto& count = myConnection->searchStatement("SELECT COUNT(*) FROM kiv_records" + where);
    {
        StatementScope scope(count);
        bindAll(count, results.bindings);
        count.step();
        results.count = size_t(std::max<int64_t>(count.columnInteger(0), 0));
    }
    auto& version = myConnection->statement("data-version", "PRAGMA data_version");
    {
        StatementScope scope(version);
        version.step();
        results.dataVersion = version.columnInteger(0);
    }
    snapshot.commit();
    results.complete = results.count == 0;
    myResults = std::move(results);
    myCursor.reset();
}

void EmbeddedDatabase::ensureResults()
{
    if (!myResults)
        startResults("", "kiv_rowid", {});
}

void EmbeddedDatabase::readRowIDs(size_t offset, size_t limit, std::vector<int64_t>& rowIDs)
{
    auto& select = myConnection->searchStatement(myResults->rowsSql);
    StatementScope scope(select);
    bindAll(select, myResults->bindings);
    const int next = int(myResults->bindings.size()) + 1;
    select.bindInteger(next, limit == SIZE_MAX ? -1 : int64_t(limit));
    select.bindInteger(next + 1, int64_t(offset));
    rowIDs.clear();
    while (select.step())
        rowIDs.push_back(select.columnInteger(0));
}

void EmbeddedDatabase::completeResults()
{
    // Also when someone changed the database since the count: the results then become the
    // matches as they are now.
    if (!myResults || myResults->complete)
        return;
    readRowIDs(0, SIZE_MAX, myResults->rowIDs);
    myResults->count = myResults->rowIDs.size();
    myResults->windowStart = 0;
    myResults->complete = true;
}

std::optional<int64_t> EmbeddedDatabase::rowAt(size_t index, int step)
{
    auto& results = *myResults;
    if (index >= results.count)
        return std::nullopt;
    if (!results.complete &&
        (index < results.windowStart || index - results.windowStart >= results.rowIDs.size()))
    {
        const size_t size = std::max(kFirstWindow, results.rowIDs.size() * 2);
        const size_t start = step >= 0 ? index : (index + 1 >= size ? index + 1 - size : 0);
        std::vector<int64_t> window;
        int64_t dataVersion = 0;
        {
            SqliteTransaction snapshot(myConnection->sql(), false);
            readRowIDs(start, size, window);
            auto& version = myConnection->statement("data-version", "PRAGMA data_version");
            StatementScope scope(version);
            version.step();
            dataVersion = version.columnInteger(0);
            snapshot.commit();
        }
        if (dataVersion != results.dataVersion)
            completeResults();
        else
        {
            results.windowStart = start;
            results.rowIDs = std::move(window);
            results.complete = start == 0 && results.rowIDs.size() >= results.count;
        }
        if (index >= results.count)
            return std::nullopt;
    }
    if (results.complete)
        return index < results.rowIDs.size() ? std::optional<int64_t>(results.rowIDs[index]) : std::nullopt;
    const size_t offset = index - results.windowStart;
    return offset < results.rowIDs.size() ? std::optional<int64_t>(results.rowIDs[offset]) : std::nullopt;
}

uint32_t EmbeddedDatabase::resultCount(uint32_t& count)
{
    if (!mySearchActive)
        return recordCount(count);
    count = uint32_t(std::min<size_t>(myResults->count, UINT32_MAX));
    return result::kSuccess;
}

uint32_t EmbeddedDatabase::settleAt(size_t index, int step, uint32_t noRecord)
{
    // Records deleted since the search are passed over.
    while (const auto rowID = rowAt(index, step))
    {
        if (loadRecord(*rowID))
        {
            myCursor = index;
            return result::kSuccess;
        }
        if (step < 0 && index == 0)
            break;
        index = step > 0 ? index + 1 : index - 1;
    }
    return noRecord;
}

template <typename Operation> uint32_t EmbeddedDatabase::guarded(Operation&& operation)
{
    try
    {
        return operation();
    }
    catch (const SqliteError& error)
    {
        return failSqlite(error);
    }
}

uint32_t EmbeddedDatabase::moveFirst()
{
    return guarded(
        [&]() -> uint32_t
        {
            if (!mySearchActive)
                myResults.reset(); // without a search, every record as it is now
            ensureResults();
            return settleAt(0, +1, result::kEndOfFile);
        });
}

uint32_t EmbeddedDatabase::moveLast()
{
    return guarded(
        [&]() -> uint32_t
        {
            if (!mySearchActive)
                myResults.reset();
            ensureResults();
            if (myResults->count == 0)
                return result::kEndOfFile;
            return settleAt(myResults->count - 1, -1, result::kEndOfFile);
        });
}

uint32_t EmbeddedDatabase::moveNext()
{
    if (!myCursor)
        return moveFirst();
    return guarded([&]() -> uint32_t { return settleAt(*myCursor + 1, +1, result::kEndOfFile); });
}

uint32_t EmbeddedDatabase::movePrevious()
{
    if (!myCursor)
        return moveLast();
    if (*myCursor == 0)
        return result::kBeginningOfFile;
    return guarded([&]() -> uint32_t { return settleAt(*myCursor - 1, -1, result::kBeginningOfFile); });
}

uint32_t EmbeddedDatabase::jump(uint32_t offset)
{
    return guarded(
        [&]() -> uint32_t
        {
            if (!mySearchActive)
                myResults.reset();
            ensureResults();
            return settleAt(offset, +1, result::kEndOfFile);
        });
}

uint32_t EmbeddedDatabase::moveTo(const InputValue& uniqueID)
{
    return guarded(
        [&]() -> uint32_t
        {
            std::vector<int64_t> rowIDs;
            if (const uint32_t code = findByUniqueID(uniqueID, rowIDs); code != result::kSuccess)
                return code;
            if (!mySearchActive)
                myResults.reset();
            ensureResults();
            completeResults();
            const auto& results = myResults->rowIDs;
            for (size_t index = 0; index < results.size(); ++index)
                if (results[index] == rowIDs.front() && loadRecord(results[index]))
                {
                    myCursor = index;
                    return result::kSuccess;
                }
            return fail(result::kRecordNotFound,
                        "The record is not among the results of the current search.");
        });
}

std::filesystem::path EmbeddedDatabase::resolvePath(const std::filesystem::path& file) const
{
    return file.is_absolute() ? file : myFile.parent_path() / file;
}

uint32_t EmbeddedDatabase::exportRecords(const std::filesystem::path& file, std::string_view fieldList,
                                         uint32_t& count)
{
    std::vector<size_t> columns;
    const auto lookup = [this](std::string_view name) { return fieldIndex(name); };
    if (const auto unknown = resolveFieldList(fieldList, fields().size(), lookup, columns))
        return fieldNotFound(*unknown);
    uint32_t written = 0;
    std::string fileError;
    const uint32_t code = writeFileInPlace(
        resolvePath(file),
        [&](std::ostream& out) -> uint32_t
        {
            std::vector<std::string> row;
            for (const size_t column : columns)
                row.push_back(fields()[column].name);
            writeCsvRow(out, row);
            try
            {
                if (!mySearchActive)
                    myResults.reset();
                ensureResults();
                completeResults();
                std::vector<FieldValue> values;
                for (const int64_t rowID : myResults->rowIDs)
                {
                    if (!readRecord(rowID, values))
                        continue;
                    row.clear();
                    for (const size_t column : columns)
                        row.push_back(valueAsText(fields()[column], values[column]));
                    writeCsvRow(out, row);
                    ++written;
                }
            }
            catch (const SqliteError& error)
            {
                return failSqlite(error);
            }
            return result::kSuccess;
        },
        fileError);
    if (code != result::kSuccess)
        return code == result::kFileError && !fileError.empty() ? fail(code, fileError) : code;
    count = written;
    myMessage.clear();
    // 'MEOF': every record up to the end of the results was written; the editor counts only
    // this answer as a finished export.
    return result::kEndOfFile;
}

uint32_t EmbeddedDatabase::importRecords(const std::filesystem::path& file, uint32_t& count)
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
    const auto resolveHeader = [&]()
    {
        return resolveImportHeader(
            header, [this](std::string_view name) { return fieldIndex(name); },
            [this](size_t index) { return fields()[index].name; }, myName, columns, why);
    };
    uint32_t imported = 0;
    if (resolveHeader() == result::kSuccess)
    {
        if (const uint32_t code = importRows(reader, columns, imported); code != result::kSuccess)
            return code;
    }
    else
    {
        if (!mayCreateImportFields())
            return fail(result::kImportFailed, why);
        // A database that has no fields yet takes its fields from the file.
        std::vector<std::string> created;
        if (const uint32_t code = createImportFields(source, header, created); code != result::kSuccess)
            return code;
        uint32_t code =
            resolveHeader() == result::kSuccess ? result::kSuccess : fail(result::kImportFailed, why);
        if (code == result::kSuccess)
        {
            std::ifstream again(source, std::ios::binary);
            CsvReader rows(again);
            std::vector<std::string> skipped;
            if (!again || !rows.readRow(skipped))
                code = fail(result::kFileError,
                            "The import file " + quoteValue(source.string()) + " cannot be read again.");
            else
                code = importRows(rows, columns, imported);
        }
        if (code != result::kSuccess)
        {
            // The import brings nothing in, fields included.
            const std::string reason = myMessage;
            removeFields(created);
            return fail(code, reason);
        }
    }
    count = imported;
    myMessage.clear();
    return result::kSuccess;
}

bool EmbeddedDatabase::mayCreateImportFields() const
{
    // Only a database without fields of its own, and only while no one else has it open, so
    // that no other open holds a field list that would change under it.
    if (myLock.mode() != DatabaseLock::Mode::Exclusive)
        return false;
    const FieldDefinition* id = uniqueIDField();
    for (const auto& field : fields())
        if (&field != id && compareFolded(field.name, kUniqueIDFieldName) != 0)
            return false;
    return true;
}

uint32_t EmbeddedDatabase::createImportFields(const std::filesystem::path& source,
                                              const std::vector<std::string>& header,
                                              std::vector<std::string>& created)
{
    // The columns that name no field, checked before anything is created.
    struct NewField
    {
        size_t column;
        std::string name;
        bool allIntegers = true;
        bool anyValue = false;
    };
    std::vector<NewField> newFields;
    for (size_t i = 0; i < header.size(); ++i)
    {
        const std::string name(trimBlanks(header[i]));
        if (fieldIndex(name))
            continue;
        if (auto why = checkFieldName(name); !why.empty())
            return fail(result::kImportFailed,
                        "Row 1: the column " + quoteValue(header[i]) + " cannot become a field: " + why);
        for (const auto& other : newFields)
            if (compareFolded(other.name, name) == 0)
                return fail(result::kImportFailed, "Row 1: the field " + name + " is named twice.");
        newFields.push_back({i, name});
    }
    // A column becomes an Integer field when every value it has is a whole number that fits
    // one, and a LongText field otherwise, so no value of the file can fail to convert.
    std::ifstream in(source, std::ios::binary);
    CsvReader reader(in);
    std::vector<std::string> cells;
    reader.readRow(cells); // the header
    FieldDefinition integer;
    integer.typeWord = uint32_t(FieldType::Integer) << 16;
    FieldValue converted;
    while (reader.readRow(cells))
    {
        if (cells.size() != header.size())
            continue; // the import itself names the row
        for (auto& field : newFields)
        {
            const std::string_view value = cells[field.column];
            if (trimBlanks(value).empty())
                continue;
            field.anyValue = true;
            field.allIntegers = field.allIntegers && convertForField(integer, InputValue(value), converted) ==
                                                         ConversionError::None;
        }
    }
    if (!reader.error().empty())
        return fail(result::kImportFailed, reader.error());
    for (const auto& field : newFields)
    {
        const FieldType type = field.anyValue && field.allIntegers ? FieldType::Integer : FieldType::LongText;
        if (const uint32_t code = addField(field.name, uint32_t(type) << 16); code != result::kSuccess)
        {
            const std::string reason = myMessage;
            removeFields(created);
            return fail(code == result::kImportFailed ? code : result::kImportFailed,
                        "Row 1: the field " + field.name + " cannot be created: " + reason);
        }
        created.push_back(field.name);
    }
    return result::kSuccess;
}

void EmbeddedDatabase::removeFields(const std::vector<std::string>& names)
{
    for (const auto& name : names)
        deleteField(name);
}

uint32_t EmbeddedDatabase::importRows(CsvReader& reader, const std::vector<size_t>& columns, uint32_t& count)
{
    const auto& all = fields();
    std::string where;
    try
    {
        completeResults();
        // One transaction: a bad row imports nothing.
        SqliteTransaction transaction(myConnection->sql());
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
            std::vector<bool> given(all.size(), false);
            for (size_t i = 0; i < columns.size(); ++i)
            {
                const FieldDefinition& field = all[columns[i]];
                if (field.autoUnique() && trimBlanks(cells[i]).empty())
                    continue; // assigned like any added record
                if (const auto error = convertForField(field, std::string_view(cells[i]), values[columns[i]]);
                    error != ConversionError::None)
                    return fail(result::kImportFailed, where + ", field " + field.name + ": " +
                                                           quoteValue(cells[i]) + " " +
                                                           whyNotConvertible(error, field));
                given[columns[i]] = field.autoUnique();
            }
            int64_t rowID = 0;
            insertValues(values, given, rowID);
            ++count;
        }
        if (!reader.error().empty())
            return fail(result::kImportFailed, reader.error());
        transaction.commit();
    }
    catch (const SqliteError& error)
    {
        failSqlite(error);
        return fail(result::kImportFailed, (where.empty() ? "" : where + ": ") + myMessage);
    }
    return result::kSuccess;
}

} // namespace kiv::db
