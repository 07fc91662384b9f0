// What the layers of the server report while they serve: requests, tag calls, database
// timings, connections, throttled logins, worker restarts. The calls are cheap and safe from
// any thread; the reporting code knows nothing of how the numbers are shown. The numbers are
// kept for the whole server, master and workers together (see MetricsRegistry.h), so that
// whichever worker answers /kiv-status/metrics shows all of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>
#include <sys/types.h>

namespace kiv::metrics
{

using Duration = std::chrono::steady_clock::duration;

// A response sent: its region ("" when the connection layer answered before any region was
// chosen), its status and how long it took from the complete request to the response.
void countRequest(std::string_view region, int status, Duration took);
// A module tag run, with the module's result code ("0", or its four characters such as "MDNF").
void countTagCall(std::string_view tag, std::string_view result);
// A database opened or searched, by store ("embedded" or "odbc").
void observeDatabaseOpen(std::string_view store, Duration took);
void observeDatabaseSearch(std::string_view store, Duration took);
// A new embedded database connection, by the synchronous level it reads back ("full": commits
// survive a power loss; "normal": the region opted out with durable_commits = false).
void countStoreConnection(std::string_view synchronous);
// Open client connections of this process.
void connectionOpened();
void connectionClosed();
// A login answered 429 because its address or user is blocked, or delayed after failures.
void countThrottledLogin(bool refused);
// Master: a worker replaced after it died, a configuration reload applied or refused, and how
// many workers serve now.
void countWorkerRestart();
void countReload(bool applied);
void setWorkers(int count);
// Master: a worker has gone; what it counted stays, its open connections went with it.
void forgetProcess(pid_t pid);

} // namespace kiv::metrics
