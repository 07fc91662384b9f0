// ODBC data sources behind the database callback: what 'MIni' calls when a tag names a data
// source. Tables are the databases, columns the fields; the connection comes from the worker's
// pool and goes back to it when the session and its handles are done with it.
#pragma once

#include "DatabaseBackend.h"

#include <filesystem>
#include <memory>
#include <string>

namespace kiv::db::odbc
{

struct DataSourceSettings
{
    std::string dataSource; // a name in odbc.ini
    std::string user;
    std::string password;
    std::filesystem::path fileFolder; // where relative export and import paths lead
    bool scrollableCursors = true;    // false: always the keyed fallback
};

// 0, or 'MNoO' with the driver manager's or driver's explanation.
uint32_t connectDataSource(const DataSourceSettings& settings, std::unique_ptr<DatabaseBackend>& backend,
                           std::string& message);

} // namespace kiv::db::odbc
