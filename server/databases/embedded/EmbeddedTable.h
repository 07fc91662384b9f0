// One open database of the embedded store: the steps of Store.h over one SQLite file. Rows
// are named by their row id; a search's matches are counted once and their row ids read a
// window at a time, each window in the same snapshot as a check that no one changed the file
// since the count. The open holds its open-mode lock until it ends.
#pragma once

#include "Store.h"
#include "embedded/DatabaseLock.h"
#include "embedded/EmbeddedStore.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace kiv::db
{

class EmbeddedTable : public Table, private SqlDialect
{
public:
    EmbeddedTable(std::string name, std::filesystem::path file, DatabaseLock lock,
                  std::unique_ptr<StoreConnection> connection, std::string uniqueIDFieldName,
                  const StoreOptions& options);
    ~EmbeddedTable() override;

    const std::string& name() const override { return myName; }
    const std::vector<FieldDefinition>& fields() const override { return myConnection->fields(); }
    std::optional<size_t> fieldIndex(std::string_view name) const override;
    std::optional<size_t> uniqueIDIndex() const override;
    const FieldDefinition* conversionOf(size_t index) const override { return &fields()[index]; }

    std::string takeSchemaLock() override;
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

    const SqlDialect& dialect() const override { return *this; }
    std::unique_ptr<ResultQuery> query(const SqlSearch& search) override;
    void prepareSearch(const search::Query& query) override;
    void addIndex(size_t first, size_t second) override;
    std::vector<std::vector<size_t>> indexes() override;

    uint32_t failureOf(const std::exception& error, std::string& message) override;

private:
    // The dialect: columns by their generated names, text compared through the field's
    // collation (KIVNOCASE unless the field is case-sensitive).
    const std::string& fieldName(size_t field) const override { return fields()[field].name; }
    FieldType classOf(size_t field) const override { return fields()[field].type(); }
    std::string column(size_t field) const override { return fields()[field].column; }
    std::string compareText(size_t field, const char* symbol, const std::string& parameter) const override;
    std::string matchText(size_t field, bool contains, const std::string& text,
                          const SqlBinder& bind) const override;
    std::string compareNumber(size_t field, const char* symbol, const std::string& parameter) const override;
    std::string isTrue(size_t field, const SqlBinder& bind) const override;

    std::string fieldOfConstraint(const std::string& sqliteMessage) const;

    std::string myName;
    std::filesystem::path myFile;
    DatabaseLock myLock;
    std::unique_ptr<StoreConnection> myConnection;
    std::string myUniqueIDFieldName;
    StoreOptions myOptions;
    // A connection that saw the file refuse writes or fail to read is closed at the end,
    // not pooled, so the next request opens the file afresh.
    bool myConnectionFailed = false;
};

} // namespace kiv::db
