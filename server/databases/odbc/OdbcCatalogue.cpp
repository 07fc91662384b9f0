// A data source as the service's catalogue: its tables, its types and its capabilities.
#include "odbc/OdbcCatalogue.h"

#include "NameRules.h"
#include "ServiceCodes.h"
#include "odbc/OdbcConnectionPool.h"
#include "odbc/OdbcTable.h"

#include <algorithm>

namespace kiv::db::odbc
{

namespace
{
class OdbcCatalogue : public Catalogue
{
public:
    OdbcCatalogue(std::shared_ptr<ConnectionLease> lease, DataSourceSettings settings)
        : myLease(std::move(lease)), mySettings(std::move(settings))
    {
    }

    uint32_t createDatabase(const std::string& name, std::string& message) override
    {
        return createTable(name, KIV_DEFAULT_UNIQUE_ID_FIELD, message);
    }

    uint32_t deleteDatabase(const std::string& name, std::string& message) override
    {
        return guarded(message,
                       [&]() -> uint32_t
                       {
                           const auto stored = resolve(name);
                           if (!stored)
                           {
                               message = "No database named \"" + name + "\" exists.";
                               return result::kDatabaseNotFound;
                           }
                           Statement drop(myLease->connection());
                           drop.execute("DROP TABLE " + quote(*stored));
                           return kKivResult_Success;
                       });
    }

    uint32_t listDatabases(std::vector<std::string>& names, std::string& message) override
    {
        return guarded(message,
                       [&]() -> uint32_t
                       {
                           names = tables();
                           return kKivResult_Success;
                       });
    }

    uint32_t openDatabase(const OpenRequest& request, std::unique_ptr<Table>& table,
                          std::string& message) override
    {
        return guarded(message,
                       [&]() -> uint32_t
                       {
                           auto stored = resolve(request.name);
                           if (!stored && request.createIfMissing)
                           {
                               const std::string idName = request.uniqueIDFieldName.empty()
                                                              ? KIV_DEFAULT_UNIQUE_ID_FIELD
                                                              : request.uniqueIDFieldName;
                               if (const uint32_t code = createTable(request.name, idName, message);
                                   code != kKivResult_Success && code != result::kDatabaseExists)
                                   return code;
                               stored = resolve(request.name);
                           }
                           if (!stored)
                           {
                               message = "No database named \"" + request.name + "\" exists.";
                               return result::kDatabaseNotFound;
                           }
                           auto opened = std::make_unique<OdbcTable>(myLease, *stored);
                           opened->load(request.uniqueIDFieldName);
                           table = std::move(opened);
                           return kKivResult_Success;
                       });
    }

    uint32_t supportFlags() override { return myLease->traits().supportFlags; }
    uint32_t cursorFlags() override { return myLease->traits().cursorFlags; }
    size_t typeCount() override { return myLease->traits().types.size(); }

    bool typeAt(size_t index, TypeDescription& type) override
    {
        const auto& types = myLease->traits().types;
        if (index >= types.size())
            return false;
        type = {types[index].name, types[index].typeWord};
        return true;
    }

    bool typeOfWord(uint32_t typeBits, TypeDescription& type) override
    {
        // The type bits 16-24: the type byte and the auto-unique bit, which picks among the
        // driver's types of one SQL type the one that hands out values.
        const uint8_t typeByte = uint8_t(typeBits > 0xFFFF ? (typeBits >> 16) & 0xFF : typeBits & 0xFF);
        const bool autoUnique = typeBits & kKivFieldFlag_AutoUnique;
        const TypeInfo* chosen = nullptr;
        for (const auto& info : myLease->traits().types)
            if (typeByteOf(info.sqlType) == typeByte &&
                (!chosen || (info.autoUnique == autoUnique && chosen->autoUnique != autoUnique)))
                chosen = &info;
        if (chosen)
        {
            type = {chosen->name, chosen->typeWord};
            return true;
        }
        // A column's type the driver does not list (PostgreSQL's NUMERIC, say) has its SQL name.
        const auto sqlType = sqlTypeOf(typeByte);
        if (!sqlType || standardTypeName(*sqlType).empty())
            return false;
        type = {std::string(standardTypeName(*sqlType)), uint32_t(typeByte) << 16};
        return true;
    }

    bool typeNamed(std::string_view name, TypeDescription& type) override
    {
        for (const auto& info : myLease->traits().types)
            if (compareFolded(info.name, name) == 0)
            {
                type = {info.name, info.typeWord};
                return true;
            }
        // The editor's own names for SQL types: "sqlvarchar" and the like.
        if (const auto sqlType = sqlTypeByEditorName(name))
            return typeOfWord(uint32_t(typeByteOf(*sqlType)) << 16, type);
        return false;
    }

private:
    template <typename Operation> uint32_t guarded(std::string& message, Operation&& operation)
    {
        try
        {
            return operation();
        }
        catch (const OdbcError& error)
        {
            if (error.connectionLost())
            {
                myLease->markLost();
                message = "The connection to the data source " + mySettings.dataSource + " was lost (" +
                          error.what() + "). The next request connects again.";
                return result::kConnectionLost;
            }
            message = error.what();
            return result::kDataSourceError;
        }
    }

    std::string quote(const std::string& identifier) const
    {
        return quoteIdentifier(myLease->traits(), identifier);
    }

    std::vector<std::string> tables()
    {
        Statement list(myLease->connection());
        char tableType[] = "TABLE";
        char everything[] = "%";
        list.check(SQLTables(list.get(), nullptr, 0, nullptr, 0, reinterpret_cast<SQLCHAR*>(everything),
                             SQL_NTS, reinterpret_cast<SQLCHAR*>(tableType), SQL_NTS),
                   "Listing the tables");
        std::vector<std::string> names;
        while (list.fetch())
        {
            list.text(1);
            list.text(2);
            const std::string name = list.text(3).value_or("");
            if (name.empty() || name.rfind("sqlite_", 0) == 0)
                continue; // SQLite's own bookkeeping
            if (std::none_of(names.begin(), names.end(),
                             [&](const std::string& known) { return known == name; }))
                names.push_back(name);
        }
        std::sort(names.begin(), names.end(),
                  [](const std::string& a, const std::string& b) { return compareFolded(a, b) < 0; });
        return names;
    }

    std::optional<std::string> resolve(const std::string& name)
    {
        for (const auto& table : tables())
            if (compareFolded(table, name) == 0)
                return table;
        return std::nullopt;
    }

    // The unique ID column: an integer whose values the data source hands out.
    std::string uniqueIDDefinition() const
    {
        switch (myLease->traits().dialect)
        {
        case Dialect::SQLite:
            return "INTEGER PRIMARY KEY";
        case Dialect::PostgreSQL:
            return "SERIAL PRIMARY KEY";
        case Dialect::Other:
            break;
        }
        for (const auto& type : myLease->traits().types)
            if (type.autoUnique && (type.sqlType == SQL_INTEGER || type.sqlType == SQL_BIGINT))
                return type.name + " PRIMARY KEY";
        return "INTEGER GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY";
    }

    uint32_t createTable(const std::string& name, const std::string& uniqueID, std::string& message)
    {
        if (message = checkDatabaseName(name); !message.empty())
            return result::kInvalidName;
        if (message = checkFieldName(uniqueID); !message.empty())
            return result::kInvalidName;
        return guarded(message,
                       [&]() -> uint32_t
                       {
                           if (resolve(name))
                           {
                               message = "A database named \"" + name + "\" already exists.";
                               return result::kDatabaseExists;
                           }
                           Statement create(myLease->connection());
                           create.execute("CREATE TABLE " + quote(name) + " (" + quote(uniqueID) + " " +
                                          uniqueIDDefinition() + ")");
                           return kKivResult_Success;
                       });
    }

    std::shared_ptr<ConnectionLease> myLease;
    DataSourceSettings mySettings;
};
} // namespace

uint32_t connectDataSource(const DataSourceSettings& settings, std::unique_ptr<Catalogue>& catalogue,
                           std::string& message)
{
    try
    {
        catalogue = std::make_unique<OdbcCatalogue>(
            acquireConnection(settings.dataSource, settings.user, settings.password), settings);
        return kKivResult_Success;
    }
    catch (const OdbcError& error)
    {
        message = "The data source " + settings.dataSource + " cannot be reached: " + error.what();
        return result::kODBCUnavailable;
    }
}

} // namespace kiv::db::odbc
