// The administration page's sections on changes: "Latest changes", the newest entries of the
// region's audit log for each database, so an administrator sees who changed what without
// opening the file; and "Recycle bin", what was deleted, when and by whom, with buttons that
// put a deletion, one record of it, or a database back.
#pragma once

#include "services/RequestContext.h"

#include <string>

namespace kiv
{

std::string renderRecentChanges(RequestContext& request);
std::string renderRecycleBin(RequestContext& request);
// A post of a restore button (the site checked the login and the post's origin); false for
// any other post. `notice` says what was restored or why not; `status` 400 when refused.
bool handleRestorePost(RequestContext& request, std::string& notice, int& status);

} // namespace kiv
