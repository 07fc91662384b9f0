// Turns a parsed search into the WHERE and ORDER BY parts of an SQLite query over the record
// table. Field names become the store's own column names after a lookup, and every value is a
// bound parameter, so nothing a search says is ever SQL text.
#pragma once

#include "FieldTypes.h"
#include "SearchLanguage.h"

#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace kiv::db
{

using SqlBinding = std::variant<int64_t, double, std::string>;

struct SqlSearch
{
    std::string where;   // empty: every record
    std::string orderBy; // always ends with the record's row id, so the order is total
    std::vector<SqlBinding> bindings;
};

using FieldLookup = std::function<const FieldDefinition*(std::string_view name)>;

// 0, or 'MNtF' (message: the field's name) or 'MIFt' (message: what is wrong and where).
uint32_t translateSearch(const search::Query& query, const FieldLookup& lookup, SqlSearch& sql,
                         std::string& message);

} // namespace kiv::db
