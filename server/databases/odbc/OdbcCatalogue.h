// ODBC data sources as the service sees them: what 'MIni' connects to when a tag names a data
// source. Tables are the databases, columns the fields; the connection comes from the worker's
// pool and goes back to it when the service and its handles are done with it.
#pragma once

#include "Store.h"

#include <memory>
#include <string>

namespace kiv::db::odbc
{

struct DataSourceSettings
{
    std::string dataSource; // a name in odbc.ini
    std::string user;
    std::string password;
};

// 0, or 'MNoO' with the driver manager's or driver's explanation.
uint32_t connectDataSource(const DataSourceSettings& settings, std::unique_ptr<Catalogue>& catalogue,
                           std::string& message);

} // namespace kiv::db::odbc
