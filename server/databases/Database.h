// One open database as a handle of the module, or a typed caller, sees it: its fields, the
// record buffer that the setters and getters work on, the current search's results with their
// cursor, export and import. The flows are written here once; the store behind the Table
// supplies the steps. Every operation answers a result code and leaves a message that 'MDEI'
// hands out for the handle; a failure is also reported to the service that opened it.
#pragma once

#include "AuditEntry.h"
#include "FieldTypes.h"
#include "Store.h"
#include "results/ResultCursor.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kiv::db
{

class CsvReader;
class FilePolicy;

// What an open database tells the service that opened it: each failure with the one line the
// error box shows, and warnings for the log (a text stored longer than its field's length).
struct DatabaseEvents
{
    std::function<void(uint32_t code, const std::string& line)> failure;
    std::function<void(const std::string& line)> warning;
    // How long a search took to run (counted, its first window ready), for the server's metrics.
    std::function<void(std::chrono::steady_clock::duration took)> searched;
    // Each write that succeeded, with the values before and after, for the audit log; none: the
    // writes read nothing extra.
    std::function<void(AuditEntry& entry)> changed;
};

class Database
{
public:
    Database(std::unique_ptr<Table> table, const FilePolicy& files, DatabaseEvents events);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const std::string& name() const { return myTable->name(); }
    const std::string& message() const { return myMessage; }
    Table& table() { return *myTable; }

    // Fields. Lookups ignore case (ASCII and Latin-1 letters) and surrounding blanks, and accept
    // the name in one pair of parentheses: "(City)", as the search template hands it over.
    size_t fieldCount() const { return fields().size(); }
    const FieldDefinition* fieldAt(size_t index) const;
    const FieldDefinition* findField(std::string_view name) const;
    // The field's type word, or 'MNtF' with its name as the message.
    uint32_t fieldInfo(std::string_view name, uint32_t& typeWord);
    uint32_t addField(const std::string& givenName, uint32_t typeWord);
    uint32_t deleteField(const std::string& name);

    // The record buffer: a new record, or the record under the cursor.
    uint32_t createRecord();
    uint32_t setValue(std::string_view fieldName, const InputValue& value);
    uint32_t getValue(std::string_view fieldName, const FieldDefinition*& field, const FieldValue*& value);
    uint32_t addRecord();
    uint32_t updateRecord();
    uint32_t deleteRecord(const InputValue& uniqueID);
    uint32_t deleteAllRecords();
    uint32_t recordCount(uint32_t& count);

    // Searches and the cursor over their results; without a search, every record in the order
    // they were added, as they are at each move.
    void clearSearch();
    uint32_t executeSearch(std::string_view text);
    uint32_t resultCount(uint32_t& count);
    uint32_t moveFirst();
    uint32_t moveLast();
    uint32_t moveNext();
    uint32_t movePrevious();
    uint32_t jump(uint32_t offset);
    uint32_t moveTo(const InputValue& uniqueID);

    // Files inside the region's exports folder (FilePolicy). Export answers 'MEOF' when every
    // result was written.
    uint32_t exportRecords(std::string_view file, std::string_view fieldList, uint32_t& count);
    uint32_t importRecords(std::string_view file, uint32_t& count);
    // An import that writes nothing: each row the import would refuse (a wrong number of values,
    // a value its field cannot take) as "line N: why" in `problems`, all of them; `rows` counts
    // the rows read. Values that would break a unique index are found only by the import.
    uint32_t checkImport(std::string_view file, std::vector<std::string>& problems, uint32_t& rows);

    // Indexes declared from the shell: one on two fields (searches that compare the first and
    // sort by the second read their matches in order), and the indexes there are, by field names.
    uint32_t addIndex(std::string_view first, std::string_view second);
    uint32_t listIndexes(std::vector<std::vector<std::string>>& indexes);

private:
    struct Record
    {
        bool valid = false;
        bool isNew = false;
        RowKey key;
        std::vector<FieldValue> values;
        std::vector<bool> changed;
    };

    const std::vector<FieldDefinition>& fields() const { return myTable->fields(); }
    std::optional<size_t> fieldIndex(std::string_view name) const;
    std::optional<size_t> lookUpField(std::string_view name) const;
    uint32_t fail(uint32_t code, std::string message, std::string line = {});
    uint32_t fieldNotFound(std::string_view name);
    template <typename Operation> uint32_t guarded(Operation&& operation);
    uint32_t convert(size_t index, const InputValue& value, FieldValue& stored, std::string& why) const;
    std::vector<FieldValue> defaultValues() const;
    bool loadRow(const RowKey& key, const std::vector<FieldValue>* values = nullptr);
    uint32_t settleCursor();
    uint32_t keyOf(const InputValue& uniqueID, FieldValue& key);
    // Runs `action` on the rows whose unique ID is `uniqueID`; 'MRNF' when there are none.
    uint32_t withRowsOf(const InputValue& uniqueID,
                        const std::function<uint32_t(const std::vector<RowKey>& rows)>& action);
    void ensureResults();
    void afterSchemaChange();
    uint32_t importRows(CsvReader& reader, const std::vector<size_t>& columns, uint32_t& count);
    // Why the row cannot be imported ("3 values, but ..."); empty when its values were converted
    // into `values`, the fields they set marked in `given`.
    std::string rowProblem(const std::vector<std::string>& cells, const std::vector<size_t>& columns,
                           std::vector<FieldValue>& values, std::vector<bool>& given) const;
    // An import file, open, with its header row read.
    struct ImportFile;
    uint32_t openImportFile(std::string_view file, ImportFile& import);
    // The fields the header names, in column order; 0, or the code with `why`.
    uint32_t resolveColumns(const ImportFile& import, std::vector<size_t>& columns, std::string& why);
    bool mayCreateImportFields() const;
    uint32_t createImportFields(const std::filesystem::path& source, const std::vector<std::string>& header,
                                std::vector<std::string>& created);
    void removeFields(const std::vector<std::string>& names);
    // The audit log's view of a row: its unique ID, and the values of `only` (all: empty).
    std::string recordIDOf(const std::vector<FieldValue>& values) const;
    AuditValues auditValuesOf(const std::vector<FieldValue>& values,
                              const std::vector<size_t>& only = {}) const;
    AuditEntry changeOf(AuditAction action) const;
    // Only while someone listens (myEvents.changed).
    void reportRecord(AuditAction action, const std::vector<FieldValue>& values, AuditValues before,
                      AuditValues after);

    std::unique_ptr<Table> myTable;
    const FilePolicy& myFiles;
    DatabaseEvents myEvents;
    std::string myMessage;
    Record myRecord;
    ResultCursor myResults;
    ResultCursor::RowLoader myLoader;
    bool mySearchActive = false;
    // Field names as asked, with their answers (fieldIndex); a handful per page.
    static constexpr size_t kRememberedFieldNames = 32;
    mutable std::vector<std::pair<std::string, std::optional<size_t>>> myAskedFieldNames;
};

} // namespace kiv::db
