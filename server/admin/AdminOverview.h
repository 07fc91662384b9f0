// The overview on the administration page: the region's databases with their records, size on
// disk and last change; the latest errors of the server log; and the backups in the region's
// backups folder, with a button that makes one the way `kiv-server db backup` does.
#pragma once

#include "admin/AdminSection.h"

#include <filesystem>
#include <string>
#include <vector>

namespace kiv
{

std::string renderDatabaseOverview(RequestContext& request);
std::string renderServerErrors(RequestContext& request);
std::string renderBackups(RequestContext& request);
// The "backup" action: every database of the region into a new folder of the backups folder.
AdminNotice makeBackup(RequestContext& request);

// The last `count` lines of a log file that report an error or a failure, oldest first. Reads
// the file backwards from its end, at most maxBytes of it.
std::vector<std::string> readLastErrorLines(const std::filesystem::path& log, size_t count,
                                            size_t maxBytes = 4 * 1024 * 1024);

} // namespace kiv
