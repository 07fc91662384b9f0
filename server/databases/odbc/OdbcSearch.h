// Turns a parsed search into the WHERE and ORDER BY parts of a query on a data source's
// table. Field names must name columns and become the driver's quoted identifiers; every
// value is a bound parameter, so nothing a search says is ever SQL text.
#pragma once

#include "OdbcHandles.h"
#include "SearchLanguage.h"

#include <functional>
#include <string>
#include <vector>

namespace kiv::db::odbc
{

struct Column; // OdbcColumn.h

struct OdbcSearch
{
    std::string where;   // empty: every record
    std::string orderBy; // empty: the caller adds its own tie-breaker
    std::vector<Parameter> parameters;
};

using ColumnLookup = std::function<const Column*(std::string_view name)>;
using QuoteIdentifier = std::function<std::string(const std::string& name)>;

// 0, or 'MNtF' (message: the field's name) or 'MIFt' (message: what is wrong and where).
uint32_t translateSearch(const search::Query& query, const ColumnLookup& lookup, const QuoteIdentifier& quote,
                         OdbcSearch& sql, std::string& message);

} // namespace kiv::db::odbc
