// The administration page's "Latest changes" section: the newest entries of the region's audit
// log for each database, so an administrator sees who changed what without opening the file.
#pragma once

#include "services/RequestContext.h"

#include <string>

namespace kiv
{

std::string renderRecentChanges(RequestContext& request);

} // namespace kiv
