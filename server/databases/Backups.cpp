// Backups of several databases, shared by the shell and the administration page.
#include "Backups.h"

#include "ServiceCodes.h"

namespace kiv::db
{

uint32_t backupDatabases(DatabaseService& service, std::vector<std::string> names,
                         const std::filesystem::path& folder,
                         const std::function<void(const std::string& name)>& copied, std::string& failedName)
{
    failedName.clear();
    if (names.empty())
        if (const uint32_t code = service.listDatabases(names); code != kKivResult_Success)
            return code;
    for (const auto& name : names)
    {
        if (const uint32_t code = service.backupDatabase(name, folder); code != kKivResult_Success)
        {
            failedName = name;
            return code;
        }
        if (copied)
            copied(name);
    }
    return kKivResult_Success;
}

} // namespace kiv::db
