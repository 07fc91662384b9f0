// The embedded store's steps: fields as generated columns, rows by row id, searches counted
// and read a window at a time, and the two-field indexes that let a page read only its window.
#include "embedded/EmbeddedTable.h"

#include "ServiceCodes.h"
#include "embedded/SqliteHandles.h"

#include <algorithm>
#include <type_traits>
#include <variant>

namespace kiv::db
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

namespace
{

void bindValue(SqliteStatement& statement, int index, const FieldValue& value)
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
            bindings[i].value);
}

void readColumn(SqliteStatement& statement, int column, const FieldDefinition& field, FieldValue& value)
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

class EmbeddedTransaction : public StoreTransaction
{
public:
    explicit EmbeddedTransaction(SqliteConnection& connection) : myTransaction(connection) {}
    void commit() override { myTransaction.commit(); }

private:
    SqliteTransaction myTransaction;
};

// A search's matches: counted in one snapshot with the file's data version; each window is
// read in a snapshot of its own with the version again, so a window the count saw is told from
// one that changed since. A window carries its rows' values, read by the same statement as their
// row ids: a page costs one statement rather than one more per record.
class EmbeddedQuery : public ResultQuery
{
public:
    EmbeddedQuery(StoreConnection& connection, const SqlSearch& search) : myConnection(connection)
    {
        const std::string where = search.where.empty() ? std::string() : " WHERE " + search.where;
        const std::string rest = " FROM kiv_records" + where + " ORDER BY " +
                                 (search.orderBy.empty() ? "" : search.orderBy + ", ") +
                                 "kiv_rowid LIMIT ? OFFSET ?";
        std::string columns;
        for (const auto& field : myConnection.fields())
            columns += ", " + field.column;
        myKeysSql = "SELECT kiv_rowid" + rest;
        myRowsSql = "SELECT kiv_rowid" + columns + rest;
        myBindings = search.bindings;
        myConnection.searchStatement(myRowsSql); // prepared now, so a search SQLite refuses fails here
        SqliteTransaction snapshot(myConnection.sql(), false);
        auto& count = myConnection.searchStatement("SELECT COUNT(*) FROM kiv_records" + where);
        {
            StatementScope scope(count);
            bindAll(count, myBindings);
            count.step();
            myCount = size_t(std::max<int64_t>(count.columnInteger(0), 0));
        }
        myDataVersion = dataVersion();
        snapshot.commit();
    }

    ~EmbeddedQuery() override
    {
        if (myConnection.walking(myWalk))
            myConnection.endWalk();
    }

    size_t count() const override { return myCount; }

    bool fetch(size_t offset, size_t limit, std::vector<RowKey>& keys) override
    {
        myConnection.endWalk();
        return read(myKeysSql, offset, limit, keys, nullptr);
    }

    bool fetchRows(size_t offset, size_t limit, std::vector<RowKey>& keys,
                   std::vector<std::vector<FieldValue>>& rows) override
    {
        if (myConnection.walking(myWalk) && offset == myWalkNext)
        {
            // In the snapshot the walk began in, which the count saw.
            if (!stepRows(myWalk, limit, keys, &rows))
                myConnection.endWalk();
            myWalkNext += keys.size();
            return true;
        }
        myConnection.endWalk();
        // The window right after the last one: the page goes on past its first window, so its
        // statement reads on without a limit and stays open for the windows that follow.
        const bool walkOn = offset != 0 && offset == myNextOffset;
        const bool unchanged =
            walkOn ? startWalk(offset, limit, keys, rows) : read(myRowsSql, offset, limit, keys, &rows);
        myNextOffset = offset + keys.size();
        return unchanged;
    }

private:
    void bindWindow(SqliteStatement& select, size_t offset, size_t limit)
    {
        bindAll(select, myBindings);
        const int next = int(myBindings.size()) + 1;
        select.bindInteger(next, limit == SIZE_MAX ? -1 : int64_t(limit));
        select.bindInteger(next + 1, int64_t(offset));
    }

    // Up to `limit` rows from where the statement stands; false when it reached the end.
    bool stepRows(SqliteStatement& select, size_t limit, std::vector<RowKey>& keys,
                  std::vector<std::vector<FieldValue>>* rows)
    {
        keys.clear();
        if (rows)
            rows->clear();
        const auto& fields = myConnection.fields();
        while (keys.size() < limit)
        {
            if (!select.step())
                return false;
            keys.emplace_back(select.columnInteger(0));
            if (!rows)
                continue;
            auto& values = rows->emplace_back(fields.size());
            for (size_t i = 0; i < fields.size(); ++i)
                readColumn(select, int(i) + 1, fields[i], values[i]);
            myConnection.countRowsRead(1);
        }
        return true;
    }

    bool read(const std::string& sql, size_t offset, size_t limit, std::vector<RowKey>& keys,
              std::vector<std::vector<FieldValue>>* rows)
    {
        SqliteTransaction snapshot(myConnection.sql(), false);
        auto& select = myConnection.searchStatement(sql);
        {
            StatementScope scope(select);
            bindWindow(select, offset, limit);
            stepRows(select, limit, keys, rows);
        }
        const bool unchanged = dataVersion() == myDataVersion;
        snapshot.commit();
        return unchanged || (offset == 0 && limit == SIZE_MAX);
    }

    bool startWalk(size_t offset, size_t limit, std::vector<RowKey>& keys,
                   std::vector<std::vector<FieldValue>>& rows)
    {
        if (!myWalk)
            myWalk = myConnection.sql().prepare(myRowsSql);
        SqliteTransaction snapshot(myConnection.sql(), false);
        bindWindow(myWalk, offset, SIZE_MAX);
        myConnection.beginWalk(myWalk);
        const bool more = stepRows(myWalk, limit, keys, &rows);
        const bool unchanged = dataVersion() == myDataVersion;
        snapshot.commit(); // the walk's statement keeps its read snapshot while it is open
        if (!more || !unchanged)
            myConnection.endWalk();
        myWalkNext = offset + keys.size();
        return unchanged;
    }

    int64_t dataVersion()
    {
        auto& version = myConnection.statement("data-version", "PRAGMA data_version");
        StatementScope scope(version);
        version.step();
        return version.columnInteger(0);
    }

    StoreConnection& myConnection;
    // The row ids in order, alone or with every field's column; "LIMIT ? OFFSET ?" after the
    // bindings.
    std::string myKeysSql;
    std::string myRowsSql;
    std::vector<SqlBinding> myBindings;
    size_t myCount = 0;
    int64_t myDataVersion = 0; // of the database when counted
    size_t myNextOffset = 0;   // the offset after the window read last
    SqliteStatement myWalk;    // myRowsSql without a limit, prepared when a walk first needs it
    size_t myWalkNext = 0;     // the offset of the row it steps to next
};
} // namespace

EmbeddedTable::EmbeddedTable(std::string name, std::filesystem::path file, DatabaseLock lock,
                             std::unique_ptr<StoreConnection> connection, std::string uniqueIDFieldName,
                             const StoreOptions& options)
    : myName(std::move(name)), myFile(std::move(file)), myLock(std::move(lock)),
      myConnection(std::move(connection)), myUniqueIDFieldName(std::move(uniqueIDFieldName)),
      myOptions(options)
{
    if (!myConnection->fieldIndex(myUniqueIDFieldName))
        myUniqueIDFieldName = KIV_DEFAULT_UNIQUE_ID_FIELD;
}

EmbeddedTable::~EmbeddedTable()
{
    if (myConnection)
        myConnection->endWalk();
    if (myConnection && !myConnectionFailed)
        ConnectionPool::instance().release(myFile, std::move(myConnection));
}

std::optional<size_t> EmbeddedTable::fieldIndex(std::string_view name) const
{
    return myConnection->fieldIndex(name);
}

std::optional<size_t> EmbeddedTable::uniqueIDIndex() const
{
    return myConnection->fieldIndex(myUniqueIDFieldName);
}

uint32_t EmbeddedTable::failureOf(const std::exception& error, std::string& message)
{
    const auto* sqlite = dynamic_cast<const SqliteError*>(&error);
    if (!sqlite)
    {
        message = std::string("Unexpected failure: ") + error.what();
        return kKivResult_UnknownError;
    }
    const uint32_t code = resultOfSqliteError(*sqlite, message);
    if (code == kKivResult_NotUnique)
        message = "Another record already holds this value in the unique field " +
                  fieldOfConstraint(error.what()) + ".";
    if (code == result::kStorageError)
        myConnectionFailed = true;
    return code;
}

std::string EmbeddedTable::fieldOfConstraint(const std::string& sqliteMessage) const
{
    // SQLite names the column: "UNIQUE constraint failed: kiv_records.c3".
    const auto dot = sqliteMessage.rfind('.');
    const std::string column = dot == std::string::npos ? std::string() : sqliteMessage.substr(dot + 1);
    for (const auto& field : fields())
        if (field.column == column)
            return field.name;
    return "(unknown)";
}

std::string EmbeddedTable::takeSchemaLock()
{
    // Other opens cache the field list; changing it is only safe while no one else has the
    // database open. A shared open waits for the others to end, as an exclusive open would.
    if (myLock.makeExclusive(myOptions.lockWait))
        return {};
    return "Fields can be added or deleted only while no one else uses the database \"" + myName +
           "\". Try again in a few moments.";
}

void EmbeddedTable::addField(const std::string& name, uint32_t typeWord)
{
    myConnection->endWalk();
    if (!isValidTypeWord(typeWord))
        throw StoreError(result::kInvalidArgument,
                         "The type word " + std::to_string(typeWord) +
                             " is not a field type of this database (types 1 to 7, and "
                             "auto-unique only for Integer and UInteger).");
    FieldDefinition field;
    field.name = name;
    field.typeWord = typeWord;
    auto& sql = myConnection->sql();
    try
    {
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
        myConnection->refreshSchema();
        if (error.primaryCode() == SQLITE_CONSTRAINT)
            throw StoreError(kKivResult_NotUnique,
                             "The field " + name +
                                 " cannot be unique: existing records would share its value.");
        throw;
    }
    myConnection->refreshSchema();
}

void EmbeddedTable::deleteField(size_t index)
{
    myConnection->endWalk();
    const std::string column = fields()[index].column;
    auto& sql = myConnection->sql();
    {
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
        for (const auto& pairIndex : pairIndexes)
            sql.execute("DROP INDEX IF EXISTS \"" + pairIndex + "\"");
        keepDeletedField(sql, myOptions, column);
        sql.execute("ALTER TABLE kiv_records DROP COLUMN " + column);
        auto remove = sql.prepare("DELETE FROM kiv_fields WHERE column_name = ?");
        remove.bindText(1, column);
        remove.execute();
        transaction.commit();
    }
    myConnection->refreshSchema();
}

bool EmbeddedTable::readRow(const RowKey& key, std::vector<FieldValue>& values)
{
    myConnection->endWalk();
    // One statement per record; `values` is left alone when the record no longer exists.
    auto& select = myConnection->selectRecord();
    StatementScope scope(select);
    select.bindInteger(1, std::get<int64_t>(key));
    if (!select.step())
        return false;
    const auto& all = fields();
    values.resize(all.size());
    for (size_t i = 0; i < all.size(); ++i)
        readColumn(select, int(i) + 1, all[i], values[i]);
    myConnection->countRowsRead(1);
    return true;
}

RowKey EmbeddedTable::insertRow(std::vector<FieldValue>& values, const std::vector<bool>& given)
{
    myConnection->endWalk();
    const auto& all = fields();
    for (size_t i = 0; i < all.size(); ++i)
    {
        if (!all[i].autoUnique())
            continue;
        if (i < given.size() && given[i])
        {
            // An import keeps the IDs it reads and moves the counter past them.
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
    return RowKey(myConnection->sql().lastInsertRowId());
}

bool EmbeddedTable::updateRow(const RowKey& key, const std::vector<size_t>& changed,
                              const std::vector<FieldValue>& values)
{
    myConnection->endWalk();
    std::string assignments;
    for (const size_t i : changed)
        assignments += (assignments.empty() ? "" : ", ") + fields()[i].column + " = ?";
    auto update =
        myConnection->sql().prepare("UPDATE kiv_records SET " + assignments + " WHERE kiv_rowid = ?");
    for (size_t i = 0; i < changed.size(); ++i)
        bindValue(update, int(i) + 1, values[changed[i]]);
    update.bindInteger(int(changed.size()) + 1, std::get<int64_t>(key));
    update.execute();
    return myConnection->sql().changes() != 0;
}

std::vector<RowKey> EmbeddedTable::rowsWithUniqueID(const FieldValue& uniqueID)
{
    myConnection->endWalk();
    const FieldDefinition& field = fields()[*uniqueIDIndex()];
    auto& select = myConnection->statement(
        "by-id-" + field.column, "SELECT kiv_rowid FROM kiv_records WHERE " + field.column + " = ?");
    StatementScope scope(select);
    bindValue(select, 1, uniqueID);
    std::vector<RowKey> rows;
    while (select.step())
        rows.emplace_back(select.columnInteger(0));
    return rows;
}

void EmbeddedTable::deleteRows(const std::vector<RowKey>& keys)
{
    myConnection->endWalk();
    std::vector<int64_t> rowIDs;
    for (const RowKey& key : keys)
        rowIDs.push_back(std::get<int64_t>(key));
    keepDeletedRows(myConnection->sql(), myOptions, rowIDs);
    auto& remove = myConnection->statement("delete-row", "DELETE FROM kiv_records WHERE kiv_rowid = ?");
    for (const RowKey& key : keys)
    {
        StatementScope scope(remove);
        remove.bindInteger(1, std::get<int64_t>(key));
        remove.execute();
    }
}

void EmbeddedTable::deleteAllRows()
{
    myConnection->endWalk();
    // One deletion in the bin, whole or not at all.
    SqliteTransaction transaction(myConnection->sql());
    keepDeletedRows(myConnection->sql(), myOptions, {});
    myConnection->sql().execute("DELETE FROM kiv_records");
    transaction.commit();
}

size_t EmbeddedTable::rowCount()
{
    myConnection->endWalk();
    auto& select = myConnection->statement("count", "SELECT COUNT(*) FROM kiv_records");
    StatementScope scope(select);
    select.step();
    return size_t(std::max<int64_t>(select.columnInteger(0), 0));
}

std::unique_ptr<StoreTransaction> EmbeddedTable::begin()
{
    myConnection->endWalk();
    return std::make_unique<EmbeddedTransaction>(myConnection->sql());
}

std::unique_ptr<ResultQuery> EmbeddedTable::query(const SqlSearch& search)
{
    myConnection->endWalk();
    try
    {
        return std::make_unique<EmbeddedQuery>(*myConnection, search);
    }
    catch (const SqliteError& error)
    {
        // The query holds only our column names and parameters; if SQLite still cannot take
        // it, the search was too complex for it.
        if (error.primaryCode() != SQLITE_ERROR)
            throw;
        throw StoreError(kKivResult_ImproperFormat, "The search is too complex; simplify it.");
    }
}

void EmbeddedTable::prepareSearch(const search::Query& query)
{
    myConnection->endWalk();
    // "City = 'Lyon' ORDER BY Name" with one index per field: SQLite finds the matches through
    // the City index and then sorts them all. An index on (City, Name) hands them out in order,
    // so a page reads only its window. Made the first time a search needs it. Only fields
    // marked indexed take part: they are the ones chosen as search keys, which keeps the number
    // of such indexes, and their cost on every record change, bounded.
    if (!query.condition || query.order.empty())
        return;
    const auto ordered = fieldIndex(query.order.front().field);
    if (!ordered || !fields()[*ordered].indexed())
        return;
    std::vector<const search::Node*> conjuncts;
    collectConjuncts(*query.condition, conjuncts);
    for (const search::Node* node : conjuncts)
    {
        if (node->kind != search::Node::Kind::Comparison || node->op != search::Operator::Equal)
            continue;
        const auto filtered = fieldIndex(node->field);
        if (!filtered || !fields()[*filtered].indexed() || *filtered == *ordered)
            continue;
        const std::string name = pairIndexName(fields()[*filtered].column, fields()[*ordered].column);
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
                                        fields()[*filtered].column + ", " + fields()[*ordered].column + ")");
        }
        catch (const SqliteError&)
        {
        }
        return;
    }
}

void EmbeddedTable::addIndex(size_t first, size_t second)
{
    myConnection->endWalk();
    // The same name as the index a search would make for these two fields, so that the two
    // never both exist and deleting either field drops it.
    const std::string name = pairIndexName(fields()[first].column, fields()[second].column);
    myConnection->sql().execute("CREATE INDEX IF NOT EXISTS " + name + " ON kiv_records(" +
                                fields()[first].column + ", " + fields()[second].column + ")");
    myConnection->rememberIndex(name);
}

std::vector<std::vector<size_t>> EmbeddedTable::indexes()
{
    myConnection->endWalk();
    // "i_c3" indexes one field's column, "i2_c3_c5" two; the fields are found by their columns.
    const auto fieldOfColumn = [this](std::string_view column) -> std::optional<size_t>
    {
        for (size_t i = 0; i < fields().size(); ++i)
            if (fields()[i].column == column)
                return i;
        return std::nullopt;
    };
    std::vector<std::vector<size_t>> found;
    auto select = myConnection->sql().prepare(
        "SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = 'kiv_records' ORDER BY name");
    while (select.step())
    {
        const std::string name(select.columnText(0));
        const size_t start = name.rfind("i_", 0) == 0 ? 2 : name.rfind("i2_", 0) == 0 ? 3 : std::string::npos;
        if (start == std::string::npos)
            continue;
        std::vector<size_t> positions;
        size_t at = start;
        while (at <= name.size())
        {
            const size_t end = std::min(name.find('_', at), name.size());
            if (const auto field = fieldOfColumn(std::string_view(name).substr(at, end - at)))
                positions.push_back(*field);
            at = end + 1;
        }
        if (!positions.empty())
            found.push_back(std::move(positions));
    }
    return found;
}

std::string EmbeddedTable::compareText(size_t field, const char* symbol, const std::string& parameter) const
{
    return "(" + fields()[field].column + " " + symbol + " " + parameter + ")";
}

std::string EmbeddedTable::matchText(size_t field, bool contains, const std::string& text,
                                     const SqlBinder& bind) const
{
    // kiv_contains and kiv_begins work on bytes: the stored text is single-byte.
    const FieldDefinition& definition = fields()[field];
    const char* function = contains ? "kiv_contains(" : "kiv_begins(";
    std::string value = definition.column;
    if (definition.type() == FieldType::Number)
        value = "COALESCE(" + value + ", '')";
    else if (!definition.isTextual())
        value = "CAST(" + value + " AS TEXT)";
    const bool caseSensitive = !definition.isTextual() || definition.caseSensitive();
    return std::string(function) + value + ", " + bind(SqlBinding(text)) + ", " +
           (caseSensitive ? "1" : "0") + ")";
}

std::string EmbeddedTable::compareNumber(size_t field, const char* symbol, const std::string& parameter) const
{
    return "(" + fields()[field].column + " " + symbol + " " + parameter + ")";
}

std::string EmbeddedTable::isTrue(size_t field, const SqlBinder&) const
{
    return "(" + fields()[field].column + " <> 0)";
}

} // namespace kiv::db
