// What the session needs from a kind of database, so that one slot decoder serves both the
// embedded store and ODBC data sources: a backend for the calls that name no open database
// (the catalogue, the type list, the driver's capabilities) and one object per open handle.
#pragma once

#include "FieldTypes.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::db
{

// One open database. Every operation answers a result code and leaves a message that 'MDEI'
// hands out for the handle.
class OpenDatabase
{
public:
    virtual ~OpenDatabase() = default;

    virtual const std::string& name() const = 0;
    virtual const std::string& message() const = 0;
    virtual void setMessage(std::string message) = 0;

    // Fields. Lookups ignore case and accept the name in one pair of parentheses: "(City)".
    virtual size_t fieldCount() const = 0;
    virtual const FieldDefinition* fieldAt(size_t index) const = 0;
    virtual const FieldDefinition* findField(std::string_view name) const = 0;
    virtual uint32_t addField(const std::string& name, uint32_t typeWord) = 0;
    virtual uint32_t deleteField(const std::string& name) = 0;

    // The record buffer: a new record, or the record under the cursor.
    virtual uint32_t createRecord() = 0;
    virtual uint32_t setValue(std::string_view fieldName, const InputValue& value) = 0;
    virtual uint32_t getValue(std::string_view fieldName, const FieldDefinition*& field,
                              const FieldValue*& value) = 0;
    virtual uint32_t addRecord() = 0;
    virtual uint32_t updateRecord() = 0;
    virtual uint32_t deleteRecord(const InputValue& uniqueID) = 0;
    virtual uint32_t deleteAllRecords() = 0;
    virtual uint32_t recordCount(uint32_t& count) = 0;

    // Searches and the cursor over their results; without a search, every record.
    virtual void clearSearch() = 0;
    virtual uint32_t executeSearch(std::string_view text) = 0;
    virtual uint32_t resultCount(uint32_t& count) = 0;
    virtual uint32_t moveFirst() = 0;
    virtual uint32_t moveLast() = 0;
    virtual uint32_t moveNext() = 0;
    virtual uint32_t movePrevious() = 0;
    virtual uint32_t jump(uint32_t offset) = 0;
    virtual uint32_t moveTo(const InputValue& uniqueID) = 0;

    virtual uint32_t exportRecords(const std::filesystem::path& file, std::string_view fieldList,
                                   uint32_t& count) = 0;
    virtual uint32_t importRecords(const std::filesystem::path& file, uint32_t& count) = 0;
};

struct OpenRequest
{
    std::string name;
    bool exclusive = false;
    std::string uniqueIDFieldName; // empty: KIVIDFIELD
    bool createIfMissing = false;
};

// A field type as 'MOFT', 'MOFI' and 'MDFN' describe it.
struct TypeDescription
{
    std::string name;
    uint32_t typeWord = 0;
};

class DatabaseBackend
{
public:
    virtual ~DatabaseBackend() = default;

    virtual uint32_t createDatabase(const std::string& name, std::string& message) = 0;
    virtual uint32_t deleteDatabase(const std::string& name, std::string& message) = 0;
    virtual uint32_t listDatabases(std::vector<std::string>& names, std::string& message) = 0;
    virtual uint32_t openDatabase(const OpenRequest& request, std::unique_ptr<OpenDatabase>& database,
                                  std::string& message) = 0;

    virtual uint32_t supportFlags() = 0;
    virtual uint32_t cursorFlags() = 0;
    virtual size_t typeCount() = 0;
    // By position in the type list, by the type bits of a type word (bits 16-24), by name.
    virtual bool typeAt(size_t index, TypeDescription& type) = 0;
    virtual bool typeOfWord(uint32_t typeBits, TypeDescription& type) = 0;
    virtual bool typeNamed(std::string_view name, TypeDescription& type) = 0;
};

} // namespace kiv::db
