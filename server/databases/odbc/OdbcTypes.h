// How a data source's SQL types travel in the module's field type word, and what the driver
// can do, in the bits that the editor's capability report tests. The type byte carries SQL
// type n as 0x40 + n and -n as 0x80 + n; ODBC 3's date and time codes (91-93) travel as their
// ODBC 2 equivalents (9-11), which fit.
#pragma once

#include "FieldTypes.h"
#include "odbc/OdbcHandles.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::db::odbc
{

// The type byte for an SQL type, 0 when it has none.
uint8_t typeByteOf(SQLSMALLINT sqlType);
// The SQL type a type byte carries; nullopt for the native codes 1-7 and unknown bytes.
std::optional<SQLSMALLINT> sqlTypeOf(uint8_t typeByte);
// The SQL type that stands for one of the native types when a page asks for one ("Text").
SQLSMALLINT sqlTypeForNative(FieldType type);
// The names the editor offers for SQL types: "sqlchar" ... "sqlwlongvarchar".
std::optional<SQLSMALLINT> sqlTypeByEditorName(std::string_view name);

// The standard SQL name of a type ("NUMERIC", "DECIMAL", ...), for types the driver does not
// list; empty for types without one.
std::string_view standardTypeName(SQLSMALLINT sqlType);
// A column definition in standard SQL for drivers that list no type of that kind.
std::optional<std::string> standardTypeDefinition(SQLSMALLINT sqlType, uint32_t length);

// The native type whose conversions a column of that SQL type uses; nullopt when values of
// the type cannot be set (dates, times, binary data).
std::optional<FieldType> valueClassOf(SQLSMALLINT sqlType);

// One row of SQLGetTypeInfo.
struct TypeInfo
{
    std::string name;
    SQLSMALLINT sqlType = 0;
    uint32_t typeWord = 0;    // type byte, maximum size where the type takes one, flag bits
    std::string createParams; // "max length", "precision,scale", or empty
    bool autoUnique = false;
};

// The driver's types that the type word can carry, one per name, in the driver's order.
std::vector<TypeInfo> readTypeInfo(const Connection& connection);

// 'MOSF' and 'MOCF': what SQLGetInfo and SQLGetFunctions say, in the report's bits.
uint32_t supportFlagsOf(const Connection& connection);
uint32_t cursorFlagsOf(const Connection& connection);

} // namespace kiv::db::odbc
