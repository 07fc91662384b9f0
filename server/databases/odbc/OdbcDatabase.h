// One table of a data source opened as a database: its columns as fields, the record buffer,
// the results of a search with a cursor over them, export and import. Records are found by
// the unique-ID field named at the open.
//
// Cursor moves use a static scrollable cursor when the driver offers one that can be
// positioned absolutely: the search's rows stay on the statement and a move fetches the row
// at its position. Otherwise (or when the session asks for it) the search keeps only the
// unique IDs of its results, in order, and a move reads that one record by its ID.
#pragma once

#include "DatabaseBackend.h"
#include "OdbcColumn.h"
#include "OdbcConnectionPool.h"
#include "OdbcSearch.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kiv::db
{
class CsvReader;
}

namespace kiv::db::odbc
{

class OdbcDatabase : public OpenDatabase
{
public:
    OdbcDatabase(std::shared_ptr<ConnectionLease> lease, std::string table, std::filesystem::path fileFolder,
                 bool scrollable);
    // Reads the columns; 0 or a result code with message().
    uint32_t load(const std::string& uniqueIDFieldName);

    const std::string& name() const override { return myTable; }
    const std::string& message() const override { return myMessage; }
    void setMessage(std::string message) override { myMessage = std::move(message); }

    size_t fieldCount() const override { return myColumns.size(); }
    const FieldDefinition* fieldAt(size_t index) const override;
    const FieldDefinition* findField(std::string_view name) const override;
    uint32_t addField(const std::string& name, uint32_t typeWord) override;
    uint32_t deleteField(const std::string& name) override;

    uint32_t createRecord() override;
    uint32_t setValue(std::string_view fieldName, const InputValue& value) override;
    uint32_t getValue(std::string_view fieldName, const FieldDefinition*& field,
                      const FieldValue*& value) override;
    uint32_t addRecord() override;
    uint32_t updateRecord() override;
    uint32_t deleteRecord(const InputValue& uniqueID) override;
    uint32_t deleteAllRecords() override;
    uint32_t recordCount(uint32_t& count) override;

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

private:
    struct Record
    {
        bool valid = false;
        bool isNew = false;
        std::vector<FieldValue> values;
        std::vector<bool> changed;
    };
    // The current search's results (every record without one).
    struct Results
    {
        OdbcSearch search;
        size_t count = 0;
        std::unique_ptr<Statement> rows; // scrollable: every column, the unique ID first
        std::vector<FieldValue> keys;    // fallback: the unique IDs in order
    };

    std::string quote(const std::string& identifier) const;
    std::string table() const { return quote(myTable); }
    std::string columnList() const;
    const Column* column(std::string_view name) const;
    std::optional<size_t> columnIndex(std::string_view name) const;
    const Column* uniqueIDColumn() const;
    uint32_t fail(uint32_t code, std::string message);
    uint32_t failOdbc(const OdbcError& error);
    template <typename Operation> uint32_t guarded(Operation&& operation);

    std::vector<FieldValue> defaultValues() const;
    std::vector<FieldValue> readValues(Statement& statement, SQLUSMALLINT firstColumn) const;
    bool readByKey(const FieldValue& key, std::vector<FieldValue>& values);
    void insertValues(const std::vector<FieldValue>& values, const std::vector<bool>& included,
                      FieldValue* newKey);
    uint32_t keyOf(const InputValue& uniqueID, FieldValue& key);
    uint32_t runSearch(OdbcSearch search);
    uint32_t ensureResults();
    bool readResult(size_t index, std::vector<FieldValue>& values);
    uint32_t settleAt(size_t index, int step, uint32_t noRecord);
    void resetAfterSchemaChange();
    std::filesystem::path resolvePath(const std::filesystem::path& file) const;
    uint32_t importRows(CsvReader& reader, const std::vector<size_t>& columns, uint32_t& count);

    std::shared_ptr<ConnectionLease> myLease;
    std::string myTable;
    std::filesystem::path myFileFolder;
    bool myScrollable;
    std::vector<Column> myColumns;
    std::optional<size_t> myUniqueID;
    std::string myMessage;
    Record myRecord;
    std::optional<Results> myResults;
    bool mySearchActive = false;
    std::optional<size_t> myCursor;
};

} // namespace kiv::db::odbc
