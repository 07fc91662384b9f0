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

// The parts every SQL translation of a search shares. The AND, OR and NOT structure of a
// condition: a chain of one operator becomes one flat parenthesised list (SQLite's parser has
// a small stack, and "a AND b AND c" must not nest as deep as the chain is long); `comparison`
// writes each comparison and may refuse it with a result code, which is handed back.
using ComparisonWriter = std::function<uint32_t(const search::Node& comparison, std::string& out)>;
uint32_t writeCondition(const search::Node& node, const ComparisonWriter& comparison, std::string& out);
// "=", "<>", "<", ">", "<=", ">=" (CONTAINS and BEGINSWITH have none).
const char* comparisonSymbol(search::Operator op);

// 0, or 'MNtF' (message: the field's name) or 'MIFt' (message: what is wrong and where).
uint32_t translateSearch(const search::Query& query, const FieldLookup& lookup, SqlSearch& sql,
                         std::string& message);

} // namespace kiv::db
