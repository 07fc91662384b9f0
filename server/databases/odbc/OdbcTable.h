// One table of a data source opened as a database: the steps of Store.h in the data source's
// SQL. Columns are the fields, as the pool's description of the table has them (read once per
// worker, OdbcMetadata); rows are named by the value of the unique-ID field chosen at the open
// (the field the open named, else KIVIDFIELD, else the first auto-unique column, else the
// first unique one). Text comparisons ignore case, as on the embedded store, unless the data
// source opted out and the driver reports the column as case-sensitive.
//
// A search costs the server two statements: COUNT(*) when it runs, and then one window of
// rows, every column of them, for where the cursor goes (LIMIT/OFFSET, or OFFSET ... FETCH);
// each is prepared once per connection and run again with other values.
#pragma once

#include "Store.h"
#include "odbc/OdbcColumn.h"
#include "odbc/OdbcConnectionPool.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kiv::db::odbc
{

class OdbcTable : public Table, private SqlDialect
{
public:
    OdbcTable(std::shared_ptr<ConnectionLease> lease, std::shared_ptr<const TableDescription> description,
              const std::string& uniqueIDFieldName);

    const std::string& name() const override { return myDescription->name; }
    const std::vector<FieldDefinition>& fields() const override { return myDescription->fields; }
    std::optional<size_t> fieldIndex(std::string_view name) const override;
    std::optional<size_t> uniqueIDIndex() const override { return myUniqueID; }
    const FieldDefinition* conversionOf(size_t index) const override;

    std::string takeSchemaLock() override { return {}; } // the data source guards its own tables
    void addField(const std::string& name, uint32_t typeWord) override;
    void deleteField(size_t index) override;

    bool readRow(const RowKey& key, std::vector<FieldValue>& values) override;
    RowKey insertRow(std::vector<FieldValue>& values, const std::vector<bool>& given) override;
    bool updateRow(const RowKey& key, const std::vector<size_t>& changed,
                   const std::vector<FieldValue>& values) override;
    std::vector<RowKey> rowsWithUniqueID(const FieldValue& uniqueID) override;
    void deleteRows(const std::vector<RowKey>& keys) override;
    void deleteAllRows() override;
    size_t rowCount() override;
    std::unique_ptr<StoreTransaction> begin() override;
    void afterImportedIDs() override;

    const SqlDialect& dialect() const override { return *this; }
    std::unique_ptr<ResultQuery> query(const SqlSearch& search) override;

    uint32_t failureOf(const std::exception& error, std::string& message) override;

    // For the table's queries: a count, and rows or keys read by a statement (its window
    // parameters last), in one round trip.
    size_t count(const std::string& sql, const std::vector<Parameter>& parameters);
    void readRows(const std::string& sql, std::vector<Parameter> parameters, std::vector<RowKey>& keys,
                  std::vector<std::vector<FieldValue>>* rows);
    // The window parameters in the order the data source's syntax takes them, and that syntax.
    void addWindow(std::string& sql, std::vector<Parameter>& parameters, size_t offset, size_t limit) const;

private:
    const std::string& fieldName(size_t field) const override { return fields()[field].name; }
    FieldType classOf(size_t field) const override { return columns()[field].classOrText(); }
    std::string column(size_t field) const override { return quote(fields()[field].column); }
    std::string compareText(size_t field, const char* symbol, const std::string& parameter) const override;
    std::string equalsText(size_t field, const std::string& parameter) const override;
    std::string matchText(size_t field, bool contains, const std::string& text,
                          const SqlBinder& bind) const override;
    std::string compareNumber(size_t field, const char* symbol, const std::string& parameter) const override;
    std::string isTrue(size_t field, const SqlBinder& bind) const override;

    const std::vector<Column>& columns() const { return myDescription->columns; }
    std::string quote(const std::string& identifier) const;
    std::string table() const { return quote(name()); }
    std::string textOf(size_t field) const;
    bool foldsCase(size_t field) const;
    const Column& uniqueIDColumn() const;
    std::string whereUniqueID() const;
    Parameter parameterOf(const SqlBinding& binding) const;
    std::vector<Parameter> parametersOf(const std::vector<SqlBinding>& bindings) const;
    // The columns a row is read with: "*", or the described columns by name.
    std::string selectList() const;
    // Throws when the statement's columns are not the ones described: the table changed.
    void checkColumns(Statement& statement);
    std::vector<FieldValue> rowValues(Statement& statement) const;
    void chooseUniqueID(const std::string& uniqueIDFieldName);
    void afterSchemaChange();

    std::shared_ptr<ConnectionLease> myLease;
    std::shared_ptr<const TableDescription> myDescription; // not changed by others while open
    std::optional<size_t> myUniqueID;
};

} // namespace kiv::db::odbc
