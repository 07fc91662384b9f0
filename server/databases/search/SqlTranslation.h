// Turns a parsed search into the WHERE and ORDER BY parts of an SQL query, once for every
// store: field lookups, the comparison each field type allows, the checks of the values and
// the messages that name what is wrong. A store supplies its dialect: how a column is named,
// how its text and numbers are compared. Every value is a bound parameter, so nothing a
// search says is ever SQL text.
#pragma once

#include "FieldTypes.h"
#include "search/SearchLanguage.h"

#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace kiv::db
{

// A value bound to a query parameter, and what the store should take it as.
struct SqlBinding
{
    enum class As
    {
        Plain,     // the value's own kind
        Decimal,   // an exact decimal number, as text
        FieldValue // a value of the field `field` (a data source binds it in the column's type)
    };
    // Each kind of value is stored where it is known: a binding assigned after default
    // construction makes GCC suspect the variant's copy reads it uninitialised.
    explicit SqlBinding(int64_t integer, As kind = As::Plain, size_t ofField = 0)
        : value(integer), as(kind), field(ofField)
    {
    }
    explicit SqlBinding(double real) : value(real) {}
    explicit SqlBinding(std::string text, As kind = As::Plain) : value(std::move(text)), as(kind) {}

    std::variant<int64_t, double, std::string> value;
    As as = As::Plain;
    size_t field = 0;
};

struct SqlSearch
{
    std::string where; // empty: every record
    // "column ASC, column DESC": empty without ORDER BY; the store adds its own tie-breaker.
    std::string orderBy;
    std::vector<SqlBinding> bindings;
};

// Binds a value and answers its placeholder.
using SqlBinder = std::function<std::string(SqlBinding)>;

// How one store writes the parts of a condition. `field` is the index of the field among the
// database's fields.
class SqlDialect
{
public:
    virtual ~SqlDialect() = default;
    // The field's name for messages, and the native type whose comparisons its values take.
    virtual const std::string& fieldName(size_t field) const = 0;
    virtual FieldType classOf(size_t field) const = 0;
    // The column, as ORDER BY and the number comparisons name it.
    virtual std::string column(size_t field) const = 0;
    // Text fields: the value compared with a bound text by "=", "<>", "<", ... .
    virtual std::string compareText(size_t field, const char* symbol, const std::string& parameter) const = 0;
    // CONTAINS and BEGINSWITH on the text of any field's value.
    virtual std::string matchText(size_t field, bool contains, const std::string& text,
                                  const SqlBinder& bind) const = 0;
    // Integer, UInteger and Float fields (a missing value counts as 0).
    virtual std::string compareNumber(size_t field, const char* symbol,
                                      const std::string& parameter) const = 0;
    // Boolean fields: whether the value is true (a missing value counts as false).
    virtual std::string isTrue(size_t field, const SqlBinder& bind) const = 0;
};

// 0, or 'MNtF' (message: the field's name), 'MIFt' (message: what is wrong and where) or
// 'MIdx' (message: the name of a long text field the search orders by).
uint32_t translateSearch(const search::Query& query, const FieldIndexLookup& lookup,
                         const SqlDialect& dialect, SqlSearch& sql, std::string& message);

} // namespace kiv::db
