// The administration page's sections on changes: "Latest changes", the newest entries of the
// region's audit log for each database, so an administrator sees who changed what without
// opening the file; and "Recycle bin", what was deleted, when and by whom, with buttons that
// put a deletion, one record of it, or a database back.
#pragma once

#include "admin/AdminSection.h"
#include "services/RequestContext.h"

#include <string>

namespace kiv
{

std::string renderRecentChanges(RequestContext& request);
std::string renderRecycleBin(RequestContext& request);
// The post of a restore button (the site checked the login and the post's origin): what was
// restored, or why not (400).
AdminNotice restoreFromTrash(RequestContext& request);

} // namespace kiv
