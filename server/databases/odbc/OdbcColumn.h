// A column of a data source's table as a field: what the module sees (the type word with the
// SQL type) and what conversions its values go through (the native value class).
#pragma once

#include "FieldTypes.h"
#include "odbc/OdbcHandles.h"

#include <optional>

namespace kiv::db::odbc
{

struct Column
{
    FieldDefinition field; // name, quoted-free column name, type word as the module sees it
    SQLSMALLINT sqlType = SQL_VARCHAR;
    SQLULEN size = 0;
    SQLSMALLINT digits = 0;
    std::optional<FieldType> valueClass; // nullopt: values cannot be set (dates, binary data)
    FieldDefinition conversion;          // the native type word whose conversions apply

    FieldType classOrText() const { return valueClass.value_or(FieldType::Text); }
    // A bound parameter of this column's type.
    Parameter parameterOf(const FieldValue& value) const;
};

// The value a column holds, from its text as the driver gives it (nullopt: NULL).
FieldValue valueFromText(const Column& column, const std::optional<std::string>& text);

} // namespace kiv::db::odbc
