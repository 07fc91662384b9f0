// The embedded store's catalogue and opens.
#include "embedded/EmbeddedCatalogue.h"

#include "NameRules.h"
#include "ServiceCodes.h"
#include "embedded/EmbeddedTable.h"

namespace kiv::db
{

EmbeddedCatalogue::EmbeddedCatalogue(std::filesystem::path dataFolder, StoreOptions options)
    : myFiles(std::move(dataFolder), options)
{
}

uint32_t EmbeddedCatalogue::createDatabase(const std::string& name, std::string& message)
{
    return myFiles.create(name, message);
}

uint32_t EmbeddedCatalogue::deleteDatabase(const std::string& name, std::string& message)
{
    return myFiles.remove(name, message);
}

uint32_t EmbeddedCatalogue::listDatabases(std::vector<std::string>& names, std::string&)
{
    names = myFiles.list();
    return kKivResult_Success;
}

uint32_t EmbeddedCatalogue::openDatabase(const OpenRequest& request, std::unique_ptr<Table>& table,
                                         std::string& message)
{
    if (message = checkDatabaseName(request.name); !message.empty())
        return result::kInvalidName;
    auto stored = myFiles.resolve(request.name);
    if (!stored && request.createIfMissing)
    {
        const uint32_t code = myFiles.create(request.name, message);
        if (code != kKivResult_Success && code != result::kDatabaseExists)
            return code;
        stored = myFiles.resolve(request.name);
    }
    if (!stored)
    {
        message = "No database named \"" + request.name + "\" exists.";
        return result::kDatabaseNotFound;
    }
    const auto mode = request.exclusive ? DatabaseLock::Mode::Exclusive : DatabaseLock::Mode::Shared;
    auto lock = DatabaseLock::acquire(myFiles.lockFileOf(*stored), mode, myFiles.options().lockWait);
    if (!lock)
    {
        message = "The database \"" + *stored + "\" is in use" +
                  (request.exclusive ? "" : " by someone who needs it for exclusive use") +
                  ". Try again in a few moments.";
        return result::kLocked;
    }
    const auto file = myFiles.fileOf(*stored);
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error))
    {
        message = "No database named \"" + request.name + "\" exists.";
        return result::kDatabaseNotFound;
    }
    try
    {
        auto connection = ConnectionPool::instance().acquire(file, myFiles.options());
        connection->refreshSchema();
        const std::string idName =
            request.uniqueIDFieldName.empty() ? KIV_DEFAULT_UNIQUE_ID_FIELD : request.uniqueIDFieldName;
        table = std::make_unique<EmbeddedTable>(*stored, file, std::move(*lock), std::move(connection),
                                                idName, myFiles.options());
        return kKivResult_Success;
    }
    catch (const SqliteError& failure)
    {
        return resultOfSqliteError(failure, message);
    }
}

bool EmbeddedCatalogue::typeAt(size_t index, TypeDescription& type)
{
    return index < typeCount() && typeOfWord(uint32_t(index + 1), type);
}

bool EmbeddedCatalogue::typeOfWord(uint32_t typeBits, TypeDescription& type)
{
    // Sent as the type word's bits 16-24, or as the plain code.
    const uint32_t code = typeBits > 0xFFFF ? (typeBits >> 16) & 0x1FF : typeBits;
    if (code < 1 || code > typeCount())
        return false;
    type.name = std::string(fieldTypeName(FieldType(code)));
    type.typeWord = code << 16;
    return true;
}

bool EmbeddedCatalogue::typeNamed(std::string_view name, TypeDescription& type)
{
    const auto found = fieldTypeByName(trimBlanks(name));
    if (!found)
        return false;
    type.name = std::string(fieldTypeName(*found));
    type.typeWord = uint32_t(*found) << 16;
    return true;
}

} // namespace kiv::db
