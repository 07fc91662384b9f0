// The embedded store behind the backend interface.
#include "EmbeddedBackend.h"

#include "DatabaseResultCodes.h"
#include "EmbeddedDatabase.h"

namespace kiv::db
{

EmbeddedBackend::EmbeddedBackend(std::filesystem::path dataFolder, StoreOptions options)
    : myCatalogue(std::move(dataFolder), options)
{
}

uint32_t EmbeddedBackend::createDatabase(const std::string& name, std::string& message)
{
    return myCatalogue.create(name, message);
}

uint32_t EmbeddedBackend::deleteDatabase(const std::string& name, std::string& message)
{
    return myCatalogue.remove(name, message);
}

uint32_t EmbeddedBackend::listDatabases(std::vector<std::string>& names, std::string&)
{
    names = myCatalogue.list();
    return result::kSuccess;
}

uint32_t EmbeddedBackend::openDatabase(const OpenRequest& request, std::unique_ptr<OpenDatabase>& database,
                                       std::string& message)
{
    std::unique_ptr<EmbeddedDatabase> opened;
    const uint32_t code = EmbeddedDatabase::open(myCatalogue, request, opened, message);
    if (code == result::kSuccess)
        database = std::move(opened);
    return code;
}

bool EmbeddedBackend::typeAt(size_t index, TypeDescription& type)
{
    return index < typeCount() && typeOfWord(uint32_t(index + 1), type);
}

bool EmbeddedBackend::typeOfWord(uint32_t typeBits, TypeDescription& type)
{
    // Sent as the type word's bits 16-24, or as the plain code.
    const uint32_t code = typeBits > 0xFFFF ? (typeBits >> 16) & 0x1FF : typeBits;
    if (code < 1 || code > typeCount())
        return false;
    type.name = std::string(fieldTypeName(FieldType(code)));
    type.typeWord = code << 16;
    return true;
}

bool EmbeddedBackend::typeNamed(std::string_view name, TypeDescription& type)
{
    const auto found = fieldTypeByName(trimBlanks(name));
    if (!found)
        return false;
    type.name = std::string(fieldTypeName(*found));
    type.typeWord = uint32_t(*found) << 16;
    return true;
}

} // namespace kiv::db
