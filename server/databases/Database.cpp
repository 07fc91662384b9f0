// The record buffer, searches and moves of one open database, for every store.
#include "Database.h"

#include "NameRules.h"
#include "ServiceCodes.h"
#include "files/CsvFormat.h"
#include "files/FilePolicy.h"
#include "files/RecordFiles.h"
#include "search/SearchLanguage.h"

#include <algorithm>
#include <fstream>

namespace kiv::db
{

namespace
{
std::string_view stripParentheses(std::string_view name)
{
    if (name.size() >= 2 && name.front() == '(' && name.back() == ')')
        return name.substr(1, name.size() - 2);
    return name;
}

std::string whyNotConvertible(const FieldDefinition& conversion)
{
    switch (conversion.type())
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
} // namespace

Database::Database(std::unique_ptr<Table> table, const FilePolicy& files, DatabaseEvents events)
    : myTable(std::move(table)), myFiles(files), myEvents(std::move(events)),
      myLoader([this](const RowKey& key, const std::vector<FieldValue>* values)
               { return loadRow(key, values); })
{
}

Database::~Database() = default;

uint32_t Database::fail(uint32_t code, std::string message, std::string line)
{
    myMessage = std::move(message);
    if (myEvents.failure)
        myEvents.failure(code, line.empty() ? myMessage : line);
    return code;
}

uint32_t Database::fieldNotFound(std::string_view name)
{
    // The message is the bare name: the module quotes it in its own sentences.
    return fail(kKivResult_NotFound, std::string(name),
                "no field " + quoteValue(name) + " in " + quoteValue(this->name()));
}

template <typename Operation> uint32_t Database::guarded(Operation&& operation)
{
    try
    {
        return operation();
    }
    catch (const StoreError& error)
    {
        return fail(error.code(), error.what());
    }
    catch (const std::exception& error)
    {
        std::string message;
        const uint32_t code = myTable->failureOf(error, message);
        return fail(code, message);
    }
}

std::optional<size_t> Database::fieldIndex(std::string_view name) const
{
    // A page asks for the same few names, as written, for every record it shows: remember the
    // answers by the exact text asked, until the field list changes.
    for (const auto& [asked, index] : myAskedFieldNames)
        if (asked == name)
            return index;
    const auto index = lookUpField(name);
    if (myAskedFieldNames.size() < kRememberedFieldNames)
        myAskedFieldNames.emplace_back(std::string(name), index);
    return index;
}

std::optional<size_t> Database::lookUpField(std::string_view name) const
{
    // As people and the module write names: "City ", "(City)" from a placeholder, "( City )".
    name = trimBlanks(name);
    if (const auto index = myTable->fieldIndex(name))
        return index;
    const auto stripped = stripParentheses(name);
    return stripped.size() == name.size() ? std::nullopt : myTable->fieldIndex(trimBlanks(stripped));
}

const FieldDefinition* Database::fieldAt(size_t index) const
{
    return index < fields().size() ? &fields()[index] : nullptr;
}

const FieldDefinition* Database::findField(std::string_view name) const
{
    const auto index = fieldIndex(name);
    return index ? &fields()[*index] : nullptr;
}

uint32_t Database::fieldInfo(std::string_view name, uint32_t& typeWord)
{
    const FieldDefinition* field = findField(name);
    if (!field)
        return fieldNotFound(name);
    typeWord = field->typeWord;
    return kKivResult_Success;
}

void Database::afterSchemaChange()
{
    myAskedFieldNames.clear();
    myRecord = Record();
    clearSearch();
}

std::string Database::recordIDOf(const std::vector<FieldValue>& values) const
{
    const auto id = myTable->uniqueIDIndex();
    return id && *id < values.size() ? valueAsText(fields()[*id], values[*id]) : std::string();
}

AuditValues Database::auditValuesOf(const std::vector<FieldValue>& values,
                                    const std::vector<size_t>& only) const
{
    AuditValues shown;
    const auto add = [&](size_t index)
    {
        if (index < values.size())
            shown.emplace_back(fields()[index].name, valueAsText(fields()[index], values[index]));
    };
    if (only.empty())
        for (size_t i = 0; i < values.size(); ++i)
            add(i);
    for (size_t index : only)
        add(index);
    return shown;
}

AuditEntry Database::changeOf(AuditAction action) const
{
    AuditEntry entry;
    entry.action = action;
    entry.database = name();
    return entry;
}

void Database::reportRecord(AuditAction action, const std::vector<FieldValue>& values, AuditValues before,
                            AuditValues after)
{
    AuditEntry entry = changeOf(action);
    entry.record = recordIDOf(values);
    entry.before = std::move(before);
    entry.after = std::move(after);
    myEvents.changed(entry);
}

uint32_t Database::addField(const std::string& givenName, uint32_t typeWord)
{
    // Lookups ignore surrounding blanks, so a name typed with one means the name without it.
    const std::string name(trimBlanks(givenName));
    if (auto why = checkFieldName(name); !why.empty())
        return fail(result::kInvalidFieldName, why);
    if (findField(name))
        return fail(kKivResult_NotUnique, "The database already has a field named " + name + ".",
                    "the field " + quoteValue(name) + " already exists in " + quoteValue(this->name()));
    if (auto why = myTable->takeSchemaLock(); !why.empty())
        return fail(result::kLocked, why);
    const uint32_t code = guarded(
        [&]() -> uint32_t
        {
            myTable->addField(name, typeWord);
            return kKivResult_Success;
        });
    afterSchemaChange();
    if (code != kKivResult_Success)
        return code;
    if (myEvents.changed)
    {
        AuditEntry entry = changeOf(AuditAction::FieldAdded);
        entry.field = name;
        myEvents.changed(entry);
    }
    // The module reads the handle's message after adding a field and publishes it as the name.
    myMessage = name;
    return kKivResult_Success;
}

uint32_t Database::deleteField(const std::string& name)
{
    const auto index = fieldIndex(name);
    if (!index)
        return fieldNotFound(name);
    const std::string stored = fields()[*index].name;
    if (index == myTable->uniqueIDIndex() || compareFolded(stored, KIV_DEFAULT_UNIQUE_ID_FIELD) == 0)
        return fail(result::kProtectedField, "The unique ID field " + stored + " cannot be deleted.");
    if (auto why = myTable->takeSchemaLock(); !why.empty())
        return fail(result::kLocked, why);
    const uint32_t code = guarded(
        [&]() -> uint32_t
        {
            myTable->deleteField(*index);
            return kKivResult_Success;
        });
    afterSchemaChange();
    if (code == kKivResult_Success)
    {
        myMessage.clear();
        if (myEvents.changed)
        {
            AuditEntry entry = changeOf(AuditAction::FieldDeleted);
            entry.field = stored;
            myEvents.changed(entry);
        }
    }
    return code;
}

std::vector<FieldValue> Database::defaultValues() const
{
    std::vector<FieldValue> values;
    values.reserve(fields().size());
    for (size_t i = 0; i < fields().size(); ++i)
    {
        const FieldDefinition* conversion = myTable->conversionOf(i);
        switch (conversion ? conversion->type() : FieldType::Text)
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

uint32_t Database::convert(size_t index, const InputValue& value, FieldValue& stored, std::string& why) const
{
    const FieldDefinition* conversion = myTable->conversionOf(index);
    if (!conversion)
    {
        why = "cannot be set: the service does not write values of this column's type.";
        return result::kTypeMismatch;
    }
    switch (convertForField(*conversion, value, stored))
    {
    case ConversionError::None:
        return kKivResult_Success;
    case ConversionError::TooLong:
        // Kept whole: a page that said "added" must not have lost the end of the text.
        if (myEvents.warning)
            myEvents.warning("database " + name() + ": a text of " +
                             std::to_string(std::get<std::string>(stored).size()) +
                             " bytes was stored whole in " + fields()[index].name + ", whose length is " +
                             std::to_string(conversion->length()));
        return kKivResult_Success;
    case ConversionError::TypeMismatch:
        break;
    }
    why = whyNotConvertible(*conversion);
    return result::kTypeMismatch;
}

bool Database::loadRow(const RowKey& key, const std::vector<FieldValue>* values)
{
    if (values)
        myRecord.values = *values; // read with the window of results
    else if (!myTable->readRow(key, myRecord.values))
        return false;
    myRecord.valid = true;
    myRecord.isNew = false;
    myRecord.key = key;
    myRecord.changed.assign(fields().size(), false);
    return true;
}

uint32_t Database::settleCursor()
{
    // The record a moveFirst went to is read when it is first needed; none left: no record.
    if (!myResults.pending())
        return kKivResult_Success;
    const uint32_t code = guarded([&]() { return myResults.settle(myLoader); });
    return code == kKivResult_EndOfFile ? uint32_t(kKivResult_Success) : code;
}

uint32_t Database::createRecord()
{
    if (const uint32_t code = settleCursor(); code != kKivResult_Success)
        return code;
    myRecord.valid = true;
    myRecord.isNew = true;
    myRecord.key = RowKey();
    myRecord.values = defaultValues();
    myRecord.changed.assign(fields().size(), false);
    return kKivResult_Success;
}

uint32_t Database::setValue(std::string_view fieldName, const InputValue& value)
{
    const auto index = fieldIndex(fieldName);
    if (!index)
        return fieldNotFound(fieldName);
    if (const uint32_t code = settleCursor(); code != kKivResult_Success)
        return code;
    if (!myRecord.valid)
        return fail(result::kNoCurrentRecord,
                    "There is no record to set a value in: create a record or move to one.");
    if (fields()[*index].autoUnique())
        return kKivResult_Success; // the store assigns these; a posted copy of the old value is ignored
    FieldValue stored;
    std::string why;
    if (const uint32_t code = convert(*index, value, stored, why); code != kKivResult_Success)
        return fail(code, "The value for the field " + fields()[*index].name + " " + why);
    myRecord.values[*index] = std::move(stored);
    myRecord.changed[*index] = true;
    return kKivResult_Success;
}

uint32_t Database::getValue(std::string_view fieldName, const FieldDefinition*& field,
                            const FieldValue*& value)
{
    const auto index = fieldIndex(fieldName);
    if (!index)
        return fieldNotFound(fieldName);
    if (const uint32_t code = settleCursor(); code != kKivResult_Success)
        return code;
    if (!myRecord.valid)
        return fail(result::kNoCurrentRecord,
                    "There is no current record: search and move to a record first.");
    field = &fields()[*index];
    value = &myRecord.values[*index];
    return kKivResult_Success;
}

uint32_t Database::addRecord()
{
    if (!myRecord.valid || !myRecord.isNew)
        return fail(result::kNoCurrentRecord, "Create a record before adding it.");
    return guarded(
        [&]() -> uint32_t
        {
            myResults.complete();
            auto transaction = myTable->begin();
            const RowKey key = myTable->insertRow(myRecord.values, myRecord.changed);
            transaction->commit();
            // The stored record becomes the current one, with the values the store gave it.
            if (!loadRow(key))
            {
                myRecord.isNew = false;
                myRecord.key = key;
                myRecord.changed.assign(fields().size(), false);
            }
            if (myEvents.changed)
                reportRecord(AuditAction::RecordAdded, myRecord.values, {}, auditValuesOf(myRecord.values));
            return kKivResult_Success;
        });
}

uint32_t Database::updateRecord()
{
    if (const uint32_t code = settleCursor(); code != kKivResult_Success)
        return code;
    if (!myRecord.valid || myRecord.isNew)
        return fail(result::kNoCurrentRecord, "Move to a record before updating it.");
    // Only the fields set since the record was read are written, so two requests that change
    // different fields of one record do not undo each other.
    std::vector<size_t> changed;
    for (size_t i = 0; i < myRecord.changed.size(); ++i)
        if (myRecord.changed[i])
            changed.push_back(i);
    return guarded(
        [&]() -> uint32_t
        {
            myResults.complete();
            std::vector<FieldValue> current;
            // The audit log needs the values the update replaces.
            const bool readFirst = changed.empty() || myEvents.changed;
            bool found = !readFirst || myTable->readRow(myRecord.key, current);
            if (found && !changed.empty())
                found = myTable->updateRow(myRecord.key, changed, myRecord.values);
            if (!found)
                return fail(result::kRecordNotFound, "The record no longer exists.");
            myRecord.changed.assign(fields().size(), false);
            if (myEvents.changed && !changed.empty())
                reportRecord(AuditAction::RecordUpdated, current, auditValuesOf(current, changed),
                             auditValuesOf(myRecord.values, changed));
            return kKivResult_Success;
        });
}

uint32_t Database::keyOf(const InputValue& uniqueID, FieldValue& key)
{
    const auto id = myTable->uniqueIDIndex();
    if (!id)
        return fieldNotFound(KIV_DEFAULT_UNIQUE_ID_FIELD);
    const FieldDefinition* conversion = myTable->conversionOf(*id);
    if (!conversion || convertForField(*conversion, uniqueID, key) != ConversionError::None ||
        std::holds_alternative<std::monostate>(key))
        return fail(result::kRecordNotFound, "No record has that unique ID.");
    return kKivResult_Success;
}

uint32_t Database::withRowsOf(const InputValue& uniqueID,
                              const std::function<uint32_t(const std::vector<RowKey>& rows)>& action)
{
    FieldValue id;
    if (const uint32_t code = keyOf(uniqueID, id); code != kKivResult_Success)
        return code;
    return guarded(
        [&]() -> uint32_t
        {
            const auto rows = myTable->rowsWithUniqueID(id);
            if (rows.empty())
                return fail(result::kRecordNotFound,
                            "No record has the unique ID " +
                                quoteValue(valueAsText(fields()[*myTable->uniqueIDIndex()], id)) + ".");
            return action(rows);
        });
}

uint32_t Database::deleteRecord(const InputValue& uniqueID)
{
    return withRowsOf(uniqueID,
                      [&](const std::vector<RowKey>& rows)
                      {
                          myResults.complete();
                          auto transaction = myTable->begin();
                          std::vector<std::vector<FieldValue>> deleted(myEvents.changed ? rows.size() : 0);
                          for (size_t i = 0; i < deleted.size(); ++i)
                              myTable->readRow(rows[i], deleted[i]);
                          myTable->deleteRows(rows);
                          transaction->commit();
                          for (const auto& values : deleted)
                              reportRecord(AuditAction::RecordDeleted, values, auditValuesOf(values), {});
                          return uint32_t(kKivResult_Success);
                      });
}

uint32_t Database::deleteAllRecords()
{
    return guarded(
        [&]() -> uint32_t
        {
            const size_t count = myEvents.changed ? myTable->rowCount() : 0;
            myTable->deleteAllRows();
            clearSearch();
            myRecord = Record();
            if (myEvents.changed)
            {
                AuditEntry entry = changeOf(AuditAction::AllRecordsDeleted);
                entry.count = count;
                myEvents.changed(entry);
            }
            return kKivResult_Success;
        });
}

uint32_t Database::recordCount(uint32_t& count)
{
    return guarded(
        [&]() -> uint32_t
        {
            count = uint32_t(std::min<size_t>(myTable->rowCount(), UINT32_MAX));
            return kKivResult_Success;
        });
}

void Database::clearSearch()
{
    myResults.clear();
    mySearchActive = false;
}

uint32_t Database::executeSearch(std::string_view text)
{
    // The parser reads a bare name with blanks as the database names its fields.
    auto parsed =
        search::parseSearch(text, [this](std::string_view name) { return fieldIndex(name).has_value(); });
    if (auto* error = std::get_if<search::SyntaxError>(&parsed))
        return fail(kKivResult_ImproperFormat, error->message, "search: " + error->message);
    const auto& query = std::get<search::Query>(parsed);
    SqlSearch sql;
    std::string message;
    const auto lookup = [this](std::string_view name) { return fieldIndex(name); };
    if (const uint32_t code = translateSearch(query, lookup, myTable->dialect(), sql, message);
        code != kKivResult_Success)
    {
        if (code == kKivResult_NotFound)
            return fieldNotFound(message);
        if (code == kKivResult_NotIndexed)
            return fail(code, message,
                        "search: the long text field " + quoteValue(message) + " cannot be ordered");
        return fail(code, message, "search: " + message);
    }
    const auto started = std::chrono::steady_clock::now();
    const uint32_t code = guarded(
        [&]() -> uint32_t
        {
            myTable->prepareSearch(query);
            myResults.start(myTable->query(sql));
            mySearchActive = true;
            return kKivResult_Success;
        });
    if (myEvents.searched)
        myEvents.searched(std::chrono::steady_clock::now() - started);
    return code;
}

void Database::ensureResults()
{
    // Without a search, every record as it is now.
    if (!mySearchActive || !myResults.hasResults())
        myResults.start(myTable->query(SqlSearch()));
}

uint32_t Database::resultCount(uint32_t& count)
{
    if (!mySearchActive)
        return recordCount(count);
    count = uint32_t(std::min<size_t>(myResults.count(), UINT32_MAX));
    return kKivResult_Success;
}

uint32_t Database::moveFirst()
{
    return guarded(
        [&]()
        {
            ensureResults();
            const uint32_t code = myResults.moveFirst();
            if (code == kKivResult_Success)
                myRecord = Record(); // until the record is read
            return code;
        });
}

uint32_t Database::moveLast()
{
    return guarded(
        [&]()
        {
            ensureResults();
            return myResults.moveLast(myLoader);
        });
}

uint32_t Database::moveNext()
{
    if (!myResults.positioned())
        return moveFirst();
    return guarded([&]() { return myResults.moveNext(myLoader); });
}

uint32_t Database::movePrevious()
{
    if (!myResults.positioned())
        return moveLast();
    return guarded([&]() { return myResults.movePrevious(myLoader); });
}

uint32_t Database::jump(uint32_t offset)
{
    return guarded(
        [&]()
        {
            ensureResults();
            return myResults.jump(offset, myLoader);
        });
}

uint32_t Database::moveTo(const InputValue& uniqueID)
{
    return withRowsOf(uniqueID,
                      [&](const std::vector<RowKey>& rows)
                      {
                          ensureResults();
                          if (myResults.moveToKey(rows.front(), myLoader))
                              return uint32_t(kKivResult_Success);
                          return fail(result::kRecordNotFound,
                                      "The record is not among the results of the current search.");
                      });
}

uint32_t Database::exportRecords(std::string_view file, std::string_view fieldList, uint32_t& count)
{
    std::filesystem::path target;
    std::string why;
    if (const uint32_t code = myFiles.resolve(file, target, why); code != kKivResult_Success)
        return fail(code, why, "export: " + why);
    std::vector<size_t> columns;
    const auto lookup = [this](std::string_view name) { return fieldIndex(name); };
    if (const auto unknown = resolveFieldList(fieldList, fields().size(), lookup, columns))
        return fieldNotFound(*unknown);
    uint32_t written = 0;
    std::string fileError;
    const uint32_t code = writeFileInPlace(
        target, myFiles.shownName(target),
        [&](std::ostream& out) -> uint32_t
        {
            std::vector<std::string> row;
            for (const size_t column : columns)
                row.push_back(fields()[column].name);
            writeCsvRow(out, row);
            return guarded(
                [&]() -> uint32_t
                {
                    ensureResults();
                    std::vector<FieldValue> values;
                    for (const RowKey& key : myResults.keys())
                    {
                        if (!myTable->readRow(key, values))
                            continue;
                        row.clear();
                        for (const size_t column : columns)
                            row.push_back(valueAsText(fields()[column], values[column]));
                        writeCsvRow(out, row);
                        ++written;
                    }
                    return kKivResult_Success;
                });
        },
        fileError);
    if (code != kKivResult_Success)
        return code == result::kFileError && !fileError.empty() ? fail(code, fileError) : code;
    count = written;
    myMessage.clear();
    // 'MEOF': every record up to the end of the results was written; the editor counts only
    // this answer as a finished export.
    return kKivResult_EndOfFile;
}

namespace
{
std::string valueCountProblem(size_t values, size_t fields)
{
    return ": " + std::to_string(values) + " values, but the header names " + std::to_string(fields) +
           " fields.";
}
} // namespace

struct Database::ImportFile
{
    std::filesystem::path source;
    std::ifstream in;
    CsvReader reader{in};
    std::vector<std::string> header;
};

uint32_t Database::openImportFile(std::string_view file, ImportFile& import)
{
    std::string why;
    if (const uint32_t code = myFiles.resolve(file, import.source, why); code != kKivResult_Success)
        return fail(code, why, "import: " + why);
    import.in.open(import.source, std::ios::binary);
    if (!import.in)
        return fail(result::kFileError,
                    "The import file " + quoteValue(myFiles.shownName(import.source)) + " cannot be opened.");
    if (!import.reader.readRow(import.header))
        return fail(result::kImportFailed,
                    import.reader.error().empty()
                        ? "The import file is empty: it needs a header row naming the fields."
                        : import.reader.error());
    return kKivResult_Success;
}

uint32_t Database::resolveColumns(const ImportFile& import, std::vector<size_t>& columns, std::string& why)
{
    return resolveImportHeader(
        import.header, [this](std::string_view name) { return fieldIndex(name); },
        [this](size_t index) { return fields()[index].name; }, name(), columns, why);
}

uint32_t Database::importRecords(std::string_view file, uint32_t& count)
{
    ImportFile import;
    if (const uint32_t code = openImportFile(file, import); code != kKivResult_Success)
        return code;
    std::string why;
    std::vector<size_t> columns;
    const auto resolveHeader = [&]() { return resolveColumns(import, columns, why); };
    uint32_t imported = 0;
    if (resolveHeader() == kKivResult_Success)
    {
        if (const uint32_t code = importRows(import.reader, columns, imported); code != kKivResult_Success)
            return code;
    }
    else
    {
        if (!mayCreateImportFields())
            return fail(result::kImportFailed, why);
        // A database that has no fields yet takes its fields from the file.
        std::vector<std::string> created;
        if (const uint32_t code = createImportFields(import.source, import.header, created);
            code != kKivResult_Success)
            return code;
        uint32_t code = resolveHeader() == kKivResult_Success ? uint32_t(kKivResult_Success)
                                                              : fail(result::kImportFailed, why);
        if (code == kKivResult_Success)
        {
            std::ifstream again(import.source, std::ios::binary);
            CsvReader rows(again);
            std::vector<std::string> skipped;
            if (!again || !rows.readRow(skipped))
                code = fail(result::kFileError, "The import file " +
                                                    quoteValue(myFiles.shownName(import.source)) +
                                                    " cannot be read again.");
            else
                code = importRows(rows, columns, imported);
        }
        if (code != kKivResult_Success)
        {
            // The import brings nothing in, fields included.
            const std::string reason = myMessage;
            removeFields(created);
            myMessage = reason;
            return code;
        }
    }
    clearSearch();
    count = imported;
    myMessage.clear();
    if (myEvents.changed)
    {
        AuditEntry entry = changeOf(AuditAction::Imported);
        entry.file = myFiles.shownName(import.source);
        entry.count = imported;
        myEvents.changed(entry);
    }
    return kKivResult_Success;
}

bool Database::mayCreateImportFields() const
{
    // Only a database without fields of its own, such as the one the editor just made.
    const auto id = myTable->uniqueIDIndex();
    for (size_t i = 0; i < fields().size(); ++i)
        if (std::optional<size_t>(i) != id &&
            compareFolded(fields()[i].name, KIV_DEFAULT_UNIQUE_ID_FIELD) != 0)
            return false;
    return true;
}

uint32_t Database::createImportFields(const std::filesystem::path& source,
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
        const std::string where = "Row 1, column " + std::to_string(i + 1) + ": ";
        if (auto why = checkFieldName(name); !why.empty())
            return fail(result::kImportFailed,
                        where + "the header " + quoteValue(header[i]) + " cannot become a field. " + why);
        for (const auto& other : newFields)
            if (compareFolded(other.name, name) == 0)
                return fail(result::kImportFailed, where + "the field " + name +
                                                       " is named twice (also in column " +
                                                       std::to_string(other.column + 1) + ").");
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
        if (const uint32_t code = addField(field.name, uint32_t(type) << 16); code != kKivResult_Success)
        {
            const std::string reason = myMessage;
            removeFields(created);
            return fail(result::kImportFailed, "Row 1, column " + std::to_string(field.column + 1) +
                                                   ": the field " + field.name +
                                                   " cannot be created: " + reason);
        }
        created.push_back(field.name);
    }
    return kKivResult_Success;
}

void Database::removeFields(const std::vector<std::string>& names)
{
    for (const auto& name : names)
        deleteField(name);
}

uint32_t Database::importRows(CsvReader& reader, const std::vector<size_t>& columns, uint32_t& count)
{
    std::string where;
    const uint32_t code = guarded(
        [&]() -> uint32_t
        {
            myResults.complete();
            // One transaction: a bad row imports nothing.
            auto transaction = myTable->begin();
            bool explicitIDs = false;
            std::vector<std::string> cells;
            while (reader.readRow(cells))
            {
                where = "Row " + std::to_string(reader.rowNumber()) + " (line " +
                        std::to_string(reader.rowStartLine()) + ")";
                if (cells.size() == 1 && cells[0].empty() && columns.size() > 1)
                    continue; // a blank line
                std::vector<FieldValue> values = defaultValues();
                std::vector<bool> given(fields().size(), false);
                if (const std::string problem = rowProblem(cells, columns, values, given); !problem.empty())
                    return fail(result::kImportFailed, where + problem);
                for (const size_t column : columns)
                    explicitIDs = explicitIDs || (given[column] && fields()[column].autoUnique());
                myTable->insertRow(values, given);
                ++count;
            }
            if (!reader.error().empty())
                return fail(result::kImportFailed, reader.error());
            if (explicitIDs)
                myTable->afterImportedIDs();
            transaction->commit();
            return kKivResult_Success;
        });
    if (code == kKivResult_Success || code == result::kImportFailed || code == result::kConnectionLost)
        return code;
    return fail(result::kImportFailed, (where.empty() ? "" : where + ": ") + myMessage);
}

std::string Database::rowProblem(const std::vector<std::string>& cells, const std::vector<size_t>& columns,
                                 std::vector<FieldValue>& values, std::vector<bool>& given) const
{
    if (cells.size() != columns.size())
        return valueCountProblem(cells.size(), columns.size());
    for (size_t i = 0; i < columns.size(); ++i)
    {
        const FieldDefinition& field = fields()[columns[i]];
        if (field.autoUnique() && trimBlanks(cells[i]).empty())
            continue; // assigned like any added record
        std::string why;
        if (convert(columns[i], std::string_view(cells[i]), values[columns[i]], why) != kKivResult_Success)
            return ", field " + field.name + ": " + quoteValue(cells[i]) + " " + why;
        given[columns[i]] = true;
    }
    return {};
}

uint32_t Database::checkImport(std::string_view file, std::vector<std::string>& problems, uint32_t& rows)
{
    ImportFile import;
    if (const uint32_t code = openImportFile(file, import); code != kKivResult_Success)
        return code;
    std::vector<size_t> columns;
    std::string why;
    // A database without fields of its own takes them from the header; its values then only
    // need to be as many as the header's columns.
    const bool fieldsFromHeader = resolveColumns(import, columns, why) != kKivResult_Success;
    if (fieldsFromHeader && !mayCreateImportFields())
        problems.push_back("line 1: " + why);
    rows = 0;
    std::vector<std::string> cells;
    while (import.reader.readRow(cells))
    {
        ++rows;
        if (cells.size() == 1 && cells[0].empty() && import.header.size() > 1)
            continue; // a blank line
        const std::string where = "line " + std::to_string(import.reader.rowStartLine());
        std::vector<FieldValue> values = defaultValues();
        std::vector<bool> given(fields().size(), false);
        if (fieldsFromHeader && cells.size() != import.header.size())
            problems.push_back(where + ": " + std::to_string(cells.size()) +
                               " values, but the header names " + std::to_string(import.header.size()) +
                               " fields.");
        else if (!fieldsFromHeader)
            if (const std::string problem = rowProblem(cells, columns, values, given); !problem.empty())
                problems.push_back(where + problem);
    }
    if (!import.reader.error().empty())
        problems.push_back(import.reader.error());
    myMessage.clear();
    return kKivResult_Success;
}

uint32_t Database::addIndex(std::string_view first, std::string_view second)
{
    const auto a = fieldIndex(first);
    if (!a)
        return fieldNotFound(first);
    const auto b = fieldIndex(second);
    if (!b)
        return fieldNotFound(second);
    if (*a == *b)
        return fail(kKivResult_InvalidValue, "An index on two fields needs two different fields.");
    return guarded(
        [&]() -> uint32_t
        {
            myTable->addIndex(*a, *b);
            myMessage.clear();
            return kKivResult_Success;
        });
}

uint32_t Database::listIndexes(std::vector<std::vector<std::string>>& indexes)
{
    return guarded(
        [&]() -> uint32_t
        {
            indexes.clear();
            for (const auto& positions : myTable->indexes())
            {
                std::vector<std::string> names;
                for (const size_t position : positions)
                    names.push_back(fields()[position].name);
                indexes.push_back(std::move(names));
            }
            return kKivResult_Success;
        });
}

} // namespace kiv::db
