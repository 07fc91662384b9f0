// Describing a data source's tables, and the schema generation the worker processes share.
#include "odbc/OdbcMetadata.h"

#include "KivModuleInterface.h"
#include "NameRules.h"
#include "odbc/OdbcConnectionPool.h"
#include "odbc/OdbcTypes.h"

#include <sys/mman.h>

#include <algorithm>

namespace kiv::db::odbc
{

namespace
{
bool isCharacterType(SQLSMALLINT sqlType)
{
    return sqlType == SQL_CHAR || sqlType == SQL_VARCHAR || sqlType == SQL_WCHAR || sqlType == SQL_WVARCHAR ||
           sqlType == SQL_NUMERIC || sqlType == SQL_DECIMAL;
}

// One counter in memory shared with every process forked after it was made: made while the
// server starts, before its workers exist. Without such memory it counts for this process.
class SharedCounter
{
public:
    SharedCounter()
    {
        void* page =
            ::mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (page != MAP_FAILED)
            myCounter = static_cast<uint64_t*>(page); // zero-filled
    }
    ~SharedCounter()
    {
        if (myCounter != &myLocal)
            ::munmap(myCounter, sizeof(uint64_t));
    }
    SharedCounter(const SharedCounter&) = delete;
    SharedCounter& operator=(const SharedCounter&) = delete;

    uint64_t load() const { return __atomic_load_n(myCounter, __ATOMIC_ACQUIRE); }
    uint64_t advance() { return __atomic_add_fetch(myCounter, 1, __ATOMIC_ACQ_REL); }

private:
    uint64_t myLocal = 0;
    uint64_t* myCounter = &myLocal;
};

SharedCounter theSchemaGeneration; // constructed before main, so before any fork

std::vector<Column> describeColumns(const Connection& connection, const std::string& quotedTable)
{
    Statement describe(connection);
    describe.execute("SELECT * FROM " + quotedTable + " WHERE 1 = 0");
    std::vector<Column> columns;
    const SQLSMALLINT count = describe.columnCount();
    for (SQLUSMALLINT i = 1; i <= SQLUSMALLINT(count); ++i)
    {
        SQLCHAR name[256] = {};
        SQLSMALLINT nameLength = 0, nullable = 0;
        Column column;
        describe.check(SQLDescribeCol(describe.get(), i, name, sizeof name, &nameLength, &column.sqlType,
                                      &column.size, &column.digits, &nullable),
                       "Describing a column");
        SQLLEN autoUnique = 0, caseSensitive = 0;
        SQLColAttribute(describe.get(), i, SQL_DESC_AUTO_UNIQUE_VALUE, nullptr, 0, nullptr, &autoUnique);
        SQLColAttribute(describe.get(), i, SQL_DESC_CASE_SENSITIVE, nullptr, 0, nullptr, &caseSensitive);
        column.field.name = reinterpret_cast<char*>(name);
        column.field.column = column.field.name;
        column.valueClass = valueClassOf(column.sqlType);
        const uint32_t length =
            isCharacterType(column.sqlType) ? uint32_t(std::min<SQLULEN>(column.size, 0xFFFF)) : 0;
        column.field.typeWord = (uint32_t(typeByteOf(column.sqlType)) << 16) | length |
                                (autoUnique == SQL_TRUE ? kKivFieldFlag_AutoUnique : 0) |
                                (caseSensitive == SQL_TRUE ? kKivFieldFlag_CaseSensitive : 0);
        const FieldType valueClass = column.classOrText();
        column.conversion.name = column.field.name;
        column.conversion.typeWord =
            (uint32_t(valueClass) << 16) | (valueClass == FieldType::Text ? length : 0);
        columns.push_back(std::move(column));
    }
    return columns;
}

// Indexes: a unique index makes its columns unique, any index indexed.
void markIndexedColumns(const Connection& connection, const SourceTraits& traits, std::string table,
                        std::vector<Column>& columns)
{
    Statement statistics(connection);
    statistics.check(SQLStatistics(statistics.get(), nullptr, 0, nullptr, 0,
                                   reinterpret_cast<SQLCHAR*>(table.data()), SQLSMALLINT(table.size()),
                                   SQL_INDEX_ALL, SQL_QUICK),
                     "Listing the table's indexes");
    while (statistics.fetch())
    {
        const bool nonUnique = statistics.integer(4).value_or(1) != 0;
        const std::string indexName = statistics.text(6).value_or("");
        const auto type = statistics.integer(7).value_or(SQL_TABLE_STAT);
        statistics.integer(8);
        const std::string columnName = statistics.text(9).value_or("");
        if (type == SQL_TABLE_STAT)
            continue;
        for (auto& column : columns)
        {
            if (column.field.column != columnName)
                continue;
            column.field.typeWord |= kKivFieldFlag_Indexed | (nonUnique ? 0 : kKivFieldFlag_Unique);
            // SQLite hands out the values of an INTEGER PRIMARY KEY itself; its driver does not
            // say so, but names the key's index this way.
            if (traits.dialect == Dialect::SQLite && !nonUnique && column.sqlType == SQL_INTEGER &&
                indexName.rfind("sqlite_autoindex", 0) == 0)
                column.field.typeWord |= kKivFieldFlag_AutoUnique;
        }
    }
}
} // namespace

TableDescription describeTable(const Connection& connection, const SourceTraits& traits,
                               const std::string& table)
{
    TableDescription description;
    description.name = table;
    description.columns = describeColumns(connection, quoteIdentifier(traits, table));
    markIndexedColumns(connection, traits, table, description.columns);
    for (const auto& column : description.columns)
        description.fields.push_back(column.field);
    return description;
}

std::vector<std::string> listTables(const Connection& connection)
{
    Statement list(connection);
    char tableType[] = "TABLE";
    char everything[] = "%";
    list.check(SQLTables(list.get(), nullptr, 0, nullptr, 0, reinterpret_cast<SQLCHAR*>(everything), SQL_NTS,
                         reinterpret_cast<SQLCHAR*>(tableType), SQL_NTS),
               "Listing the tables");
    std::vector<std::string> names;
    while (list.fetch())
    {
        list.text(1);
        list.text(2);
        const std::string name = list.text(3).value_or("");
        if (name.empty() || name.rfind("sqlite_", 0) == 0)
            continue; // SQLite's own bookkeeping
        if (std::none_of(names.begin(), names.end(), [&](const std::string& known) { return known == name; }))
            names.push_back(name);
    }
    std::sort(names.begin(), names.end(),
              [](const std::string& a, const std::string& b) { return compareFolded(a, b) < 0; });
    return names;
}

uint64_t schemaGeneration()
{
    return theSchemaGeneration.load();
}

uint64_t advanceSchemaGeneration()
{
    return theSchemaGeneration.advance();
}

} // namespace kiv::db::odbc
