// What a kind of store supplies to the database service: a catalogue of databases, and for
// each open database the steps that the shared flows (record buffer, search and cursor, export
// and import, in Database.cpp) are written over: its fields, reading and writing one row,
// counting a query's matches and fetching a window of them, transactions and the SQL dialect
// of its searches. A new kind of store adds one folder beside embedded/ and odbc/.
#pragma once

#include "FieldTypes.h"
#include "search/SqlTranslation.h"

#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::db
{

// A refusal a store decides itself ("the type word names no SQL type"), with its code and the
// sentence for the handle's message.
class StoreError : public std::runtime_error
{
public:
    StoreError(uint32_t code, const std::string& message) : std::runtime_error(message), myCode(code) {}
    uint32_t code() const { return myCode; }

private:
    uint32_t myCode;
};

// How a store names one row: the embedded store's row id, a data source's unique-ID value.
using RowKey = FieldValue;

// The matches of one search, in order. The count is taken when the query starts; the keys are
// fetched a window at a time as the cursor needs them.
class ResultQuery
{
public:
    virtual ~ResultQuery() = default;
    virtual size_t count() const = 0;
    // The keys of the matches [offset, offset + limit), limit SIZE_MAX meaning to the end.
    // Answers false when the data changed since the count, so that the window may not hold the
    // records the count saw; the cursor then reads every key at once and keeps them.
    virtual bool fetch(size_t offset, size_t limit, std::vector<RowKey>& keys) = 0;
    // The same window with the rows' values, one per key, for a store that reads them in the
    // same round trip as the keys (a data source); by default only the keys, and the cursor
    // reads each row by its key as it gets there.
    virtual bool fetchRows(size_t offset, size_t limit, std::vector<RowKey>& keys,
                           std::vector<std::vector<FieldValue>>& rows)
    {
        rows.clear();
        return fetch(offset, limit, keys);
    }
};

// Rolls back unless committed.
class StoreTransaction
{
public:
    virtual ~StoreTransaction() = default;
    virtual void commit() = 0;
};

// One open database of a store. Steps throw StoreError or the store's own exceptions, which
// failureOf() turns into a code and a message.
class Table
{
public:
    virtual ~Table() = default;

    virtual const std::string& name() const = 0;
    virtual const std::vector<FieldDefinition>& fields() const = 0;
    // The field of that name, without regard to case.
    virtual std::optional<size_t> fieldIndex(std::string_view name) const = 0;
    // The field that identifies a record, as chosen at the open.
    virtual std::optional<size_t> uniqueIDIndex() const = 0;
    // The definition whose conversions a value of the field goes through; null when the store
    // cannot write values of the field's type.
    virtual const FieldDefinition* conversionOf(size_t index) const = 0;

    // Whether fields may be added or deleted now; may wait for the other opens to end. Empty
    // when they may, else why not (answered with 'MLkd').
    virtual std::string takeSchemaLock() = 0;
    virtual void addField(const std::string& name, uint32_t typeWord) = 0;
    virtual void deleteField(size_t index) = 0;

    // Rows. insertRow writes the fields `given` marks (the others take the store's defaults;
    // auto-unique ones get their next value, filled into `values`) and answers the new row's key.
    virtual bool readRow(const RowKey& key, std::vector<FieldValue>& values) = 0;
    virtual RowKey insertRow(std::vector<FieldValue>& values, const std::vector<bool>& given) = 0;
    virtual bool updateRow(const RowKey& key, const std::vector<size_t>& changed,
                           const std::vector<FieldValue>& values) = 0;
    virtual std::vector<RowKey> rowsWithUniqueID(const FieldValue& uniqueID) = 0;
    virtual void deleteRows(const std::vector<RowKey>& keys) = 0;
    virtual void deleteAllRows() = 0;
    virtual size_t rowCount() = 0;
    virtual std::unique_ptr<StoreTransaction> begin() = 0;
    // After an import that wrote unique IDs of its own: a data source's sequence moves past them.
    virtual void afterImportedIDs() {}

    // Searches. The dialect writes the store's SQL for the shared translation; query() runs a
    // translated search (an empty one: every row in the order they were added).
    virtual const SqlDialect& dialect() const = 0;
    virtual std::unique_ptr<ResultQuery> query(const SqlSearch& search) = 0;
    // A chance to prepare for a search before it runs (the embedded store's two-field index).
    virtual void prepareSearch(const search::Query&) {}

    // Indexes declared from the shell (kiv-server db index): one on two fields, in that order,
    // for searches that compare the first and sort by the second; and the indexes there are, as
    // lists of field positions. A store that keeps no indexes of its own throws StoreError.
    virtual void addIndex(size_t first, size_t second);
    virtual std::vector<std::vector<size_t>> indexes();

    // A failure of a step as a code and a message; a store that sees its connection lost
    // marks it so that the next request opens a new one.
    virtual uint32_t failureOf(const std::exception& error, std::string& message) = 0;
};

// How an open names its database.
struct OpenRequest
{
    std::string name;
    bool exclusive = false;
    bool createIfMissing = false;
    std::string uniqueIDFieldName; // empty: KIVIDFIELD
};

// A field type as 'MOFT', 'MOFI' and 'MDFN' describe it.
struct TypeDescription
{
    std::string name;
    uint32_t typeWord = 0;
};

// What the recycle bin holds: one deletion of records (a Delete, a Delete All) of a database, or
// a whole database (its file in the trash folder).
struct TrashEntry
{
    std::string database;
    int64_t deletion = 0;               // records: the deletion's number in its database
    std::string file;                   // a database: its file's name in the trash folder
    std::string deletedAt;              // UTC, ISO-8601
    std::string deletedBy;              // as the audit log names users
    uint64_t records = 0;               // records the deletion holds
    std::vector<std::string> recordIDs; // their unique IDs, the first few
    std::string field;                  // a deleted field: its name (records: the values kept)
};

// Which deleted things to put back: a database's file, a whole deletion, or one record of it.
struct TrashRestore
{
    std::string database;
    int64_t deletion = 0;
    std::string recordID; // empty: every record of the deletion
    std::string file;     // set: the database of this trash file
};

// The databases of one store. Every call answers a result code and, on failure, a message.
class Catalogue
{
public:
    virtual ~Catalogue() = default;

    virtual uint32_t createDatabase(const std::string& name, std::string& message) = 0;
    virtual uint32_t deleteDatabase(const std::string& name, std::string& message) = 0;
    virtual uint32_t listDatabases(std::vector<std::string>& names, std::string& message) = 0;
    virtual uint32_t openDatabase(const OpenRequest& request, std::unique_ptr<Table>& table,
                                  std::string& message) = 0;

    virtual uint32_t supportFlags() = 0;
    virtual uint32_t cursorFlags() = 0;
    virtual size_t typeCount() = 0;
    // By position in the type list, by the type bits of a type word (bits 16-24), by name.
    virtual bool typeAt(size_t index, TypeDescription& type) = 0;
    virtual bool typeOfWord(uint32_t typeBits, TypeDescription& type) = 0;
    virtual bool typeNamed(std::string_view name, TypeDescription& type) = 0;

    // Maintenance from the shell (kiv-server db check, backup, restore), for a store whose
    // databases are files the server keeps. check lists every problem it finds (none: the
    // database is sound); backup writes a consistent copy while others go on writing; restore
    // puts such a copy in place under the exclusive lock. A data source answers 'MUnF': its
    // own server has the tools for that.
    virtual uint32_t checkDatabase(const std::string& name, std::vector<std::string>& problems,
                                   std::string& message);
    virtual uint32_t backupDatabase(const std::string& name, const std::filesystem::path& target,
                                    std::string& message);
    virtual uint32_t restoreDatabase(const std::string& name, const std::filesystem::path& source,
                                     std::string& message);

    // The recycle bin: deleted records and databases kept for a while, put back with their IDs.
    // A data source answers 'MUnF': the host does not change a foreign schema.
    virtual uint32_t listTrash(std::vector<TrashEntry>& entries, std::string& message);
    virtual uint32_t restoreTrash(const TrashRestore& which, uint64_t& restored, std::string& message);
    virtual uint32_t emptyTrash(std::string& message);
};

} // namespace kiv::db
