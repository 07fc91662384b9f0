// One table of a data source opened as a database: the steps of Store.h in the data source's
// SQL. Columns are the fields; rows are named by the value of the unique-ID field chosen at
// the open (the field the open named, else KIVIDFIELD, else the first auto-unique column, else
// the first unique one). Text comparisons ignore case, as on the embedded store, unless the
// data source opted out and the driver reports the column as case-sensitive.
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
    OdbcTable(std::shared_ptr<ConnectionLease> lease, std::string table);
    // Reads the columns and indexes; throws OdbcError.
    void load(const std::string& uniqueIDFieldName);

    const std::string& name() const override { return myTable; }
    const std::vector<FieldDefinition>& fields() const override { return myFields; }
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

private:
    const std::string& fieldName(size_t field) const override { return myFields[field].name; }
    FieldType classOf(size_t field) const override { return myColumns[field].classOrText(); }
    std::string column(size_t field) const override { return quote(myFields[field].column); }
    std::string compareText(size_t field, const char* symbol, const std::string& parameter) const override;
    std::string matchText(size_t field, bool contains, const std::string& text,
                          const SqlBinder& bind) const override;
    std::string compareNumber(size_t field, const char* symbol, const std::string& parameter) const override;
    std::string isTrue(size_t field, const SqlBinder& bind) const override;

    std::string quote(const std::string& identifier) const;
    std::string table() const { return quote(myTable); }
    std::string columnList() const;
    std::string textOf(size_t field) const;
    bool foldsCase(size_t field) const;
    const Column& uniqueIDColumn() const;
    Parameter parameterOf(const SqlBinding& binding) const;
    std::vector<Parameter> parametersOf(const std::vector<SqlBinding>& bindings) const;
    void reload();

    std::shared_ptr<ConnectionLease> myLease;
    std::string myTable;
    std::vector<Column> myColumns;
    std::vector<FieldDefinition> myFields; // the columns' fields, as the service hands them out
    std::optional<size_t> myUniqueID;
};

} // namespace kiv::db::odbc
