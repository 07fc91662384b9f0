// What a store without maintenance of its own answers to the shell's database commands.
#include "Store.h"

#include "ServiceCodes.h"

namespace kiv::db
{

namespace
{
constexpr const char* kNotHere = "This store's own server keeps its files; use its tools for that.";
constexpr const char* kNoTrash =
    "Only the embedded store keeps deleted records and databases; a data source's own server "
    "has its backups.";
} // namespace

void Table::addIndex(size_t, size_t)
{
    throw StoreError(kKivResult_UnknownFunction, kNotHere);
}

std::vector<std::vector<size_t>> Table::indexes()
{
    return {};
}

uint32_t Catalogue::checkDatabase(const std::string&, std::vector<std::string>&, std::string& message)
{
    message = kNotHere;
    return kKivResult_UnknownFunction;
}

uint32_t Catalogue::backupDatabase(const std::string&, const std::filesystem::path&, std::string& message)
{
    message = kNotHere;
    return kKivResult_UnknownFunction;
}

uint32_t Catalogue::restoreDatabase(const std::string&, const std::filesystem::path&, std::string& message)
{
    message = kNotHere;
    return kKivResult_UnknownFunction;
}

uint32_t Catalogue::listTrash(std::vector<TrashEntry>&, std::string& message)
{
    message = kNoTrash;
    return kKivResult_UnknownFunction;
}

uint32_t Catalogue::restoreTrash(const TrashRestore&, uint64_t&, std::string& message)
{
    message = kNoTrash;
    return kKivResult_UnknownFunction;
}

uint32_t Catalogue::emptyTrash(std::string& message)
{
    message = kNoTrash;
    return kKivResult_UnknownFunction;
}

} // namespace kiv::db
