// One open embedded database, as a handle of the module sees it: its fields, the record
// buffer that the setters and getters work on, the current search results with their cursor,
// and export and import. Every operation answers a result code and leaves a message that
// 'MDEI' hands out for the handle.
#pragma once

#include "DatabaseBackend.h"
#include "DatabaseLock.h"
#include "EmbeddedStore.h"
#include "FieldTypes.h"
#include "SearchToSql.h"
#include "SqliteHandles.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::db
{

class CsvReader;

class EmbeddedDatabase : public OpenDatabase
{
public:
    using OpenRequest = kiv::db::OpenRequest;

    static uint32_t open(DatabaseCatalogue& catalogue, const OpenRequest& request,
                         std::unique_ptr<EmbeddedDatabase>& database, std::string& message);
    ~EmbeddedDatabase() override;
    EmbeddedDatabase(const EmbeddedDatabase&) = delete;
    EmbeddedDatabase& operator=(const EmbeddedDatabase&) = delete;

    const std::string& name() const override { return myName; }
    const std::string& message() const override { return myMessage; }
    void setMessage(std::string message) override { myMessage = std::move(message); }

    // Fields. Lookups ignore case and accept the name in one pair of parentheses: "(City)".
    size_t fieldCount() const override { return fields().size(); }
    const FieldDefinition* fieldAt(size_t index) const override;
    const FieldDefinition* findField(std::string_view name) const override;
    uint32_t addField(const std::string& name, uint32_t typeWord) override;
    uint32_t deleteField(const std::string& name) override;

    // The record buffer: a new record, or the record under the cursor.
    uint32_t createRecord() override;
    uint32_t setValue(std::string_view fieldName, const InputValue& value) override;
    uint32_t getValue(std::string_view fieldName, const FieldDefinition*& field,
                      const FieldValue*& value) override;
    uint32_t addRecord() override;
    uint32_t updateRecord() override;
    uint32_t deleteRecord(const InputValue& uniqueID) override;
    uint32_t deleteAllRecords() override;
    uint32_t recordCount(uint32_t& count) override;

    // Searches and the cursor over their results. Without a search the results are every
    // record in the order they were added.
    void clearSearch() override;
    uint32_t executeSearch(std::string_view text) override;
    uint32_t resultCount(uint32_t& count) override;
    uint32_t moveFirst() override;
    uint32_t moveLast() override;
    uint32_t moveNext() override;
    uint32_t movePrevious() override;
    uint32_t jump(uint32_t offset) override;
    uint32_t moveTo(const InputValue& uniqueID) override;

    uint32_t exportRecords(const std::filesystem::path& file, std::string_view fieldList,
                           uint32_t& count) override;
    uint32_t importRecords(const std::filesystem::path& file, uint32_t& count) override;

    EmbeddedDatabase(std::string name, std::filesystem::path file, DatabaseLock lock,
                     std::unique_ptr<StoreConnection> connection, std::string uniqueIDFieldName);

private:
    struct Record
    {
        bool valid = false;
        bool isNew = false;
        int64_t rowID = 0;
        std::vector<FieldValue> values;
        std::vector<bool> changed;
    };

    const std::vector<FieldDefinition>& fields() const { return myConnection->fields(); }
    std::optional<size_t> fieldIndex(std::string_view name) const;
    const FieldDefinition* uniqueIDField() const;
    uint32_t fail(uint32_t code, std::string message);
    uint32_t failSqlite(const SqliteError& error);
    template <typename Operation> uint32_t guarded(Operation&& operation);
    uint32_t fieldNotFound(std::string_view name);
    uint32_t conversionFailure(ConversionError error, const FieldDefinition& field);

    void bindValue(SqliteStatement& statement, int index, const FieldValue& value);
    void readColumn(SqliteStatement& statement, int column, const FieldDefinition& field, FieldValue& value);
    std::vector<FieldValue> defaultValues() const;
    bool readRecord(int64_t rowID, std::vector<FieldValue>& values);
    bool loadRecord(int64_t rowID);
    // Inside a transaction the caller holds. Auto-unique fields get the next value unless
    // `given` says the caller supplied one (an import keeps the IDs it reads).
    void insertValues(std::vector<FieldValue>& values, const std::vector<bool>& given, int64_t& rowID);
    // A search's results: counted when the search runs, their row ids read a window at a time
    // as the cursor needs them. The window query runs only while no one has changed the
    // database since the count, so it sees exactly the records the count saw; otherwise, and
    // before this handle changes records itself, every row id is read at once and kept.
    struct Results
    {
        std::string rowsSql; // the row ids in order, "LIMIT ? OFFSET ?" after the bindings
        std::vector<SqlBinding> bindings;
        size_t count = 0;
        int64_t dataVersion = 0; // of the database when counted
        bool complete = false;   // rowIDs holds them all
        size_t windowStart = 0;
        std::vector<int64_t> rowIDs;
    };
    void startResults(const std::string& condition, const std::string& orderBy,
                      std::vector<SqlBinding> bindings);
    void ensureResults();
    void readRowIDs(size_t offset, size_t limit, std::vector<int64_t>& rowIDs);
    void completeResults();
    std::optional<int64_t> rowAt(size_t index, int step);
    uint32_t settleAt(size_t index, int step, uint32_t noRecord);
    uint32_t findByUniqueID(const InputValue& uniqueID, std::vector<int64_t>& rowIDs);
    void ensurePairIndex(const search::Query& query);
    uint32_t requireSchemaLock();
    void finishSchemaChange();
    uint32_t importRows(CsvReader& reader, const std::vector<size_t>& columns, uint32_t& count);
    bool mayCreateImportFields() const;
    uint32_t createImportFields(const std::filesystem::path& source, const std::vector<std::string>& header,
                                std::vector<std::string>& created);
    void removeFields(const std::vector<std::string>& names);
    std::filesystem::path resolvePath(const std::filesystem::path& file) const;
    std::string fieldOfConstraint(const std::string& sqliteMessage) const;

    std::string myName;
    std::filesystem::path myFile;
    DatabaseLock myLock;
    std::unique_ptr<StoreConnection> myConnection;
    std::string myUniqueIDFieldName;
    std::string myMessage;
    Record myRecord;
    std::optional<Results> myResults; // nullopt: no search yet
    bool mySearchActive = false;
    std::optional<size_t> myCursor;
};

} // namespace kiv::db
