// Online backups of a store's databases into one folder, as `kiv-server db backup` and the
// administration page's backup button make them: each database is copied while pages go on
// reading and writing it, and the folder is itself a data folder ("<name>.kivdb" files).
#pragma once

#include "DatabaseService.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace kiv::db
{

// Copies the databases named (every database when none is named) into folder, made if
// missing, calling copied after each one. Stops at the first failure: answers its code with
// the database in failedName (empty when the databases could not be listed); the service's
// last failure says why.
uint32_t backupDatabases(DatabaseService& service, std::vector<std::string> names,
                         const std::filesystem::path& folder,
                         const std::function<void(const std::string& name)>& copied, std::string& failedName);

} // namespace kiv::db
