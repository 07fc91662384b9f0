// SQL type codes, value classes and the driver's capabilities.
#include "odbc/OdbcTypes.h"

#include "KivModuleInterface.h"

#include <algorithm>

namespace kiv::db::odbc
{

namespace
{
// ODBC 3 reports dates and times as 91-93; the type byte has room for the ODBC 2 codes only.
SQLSMALLINT verboseDateType(SQLSMALLINT sqlType)
{
    switch (sqlType)
    {
    case SQL_TYPE_DATE:
        return SQL_DATE;
    case SQL_TYPE_TIME:
        return SQL_TIME;
    case SQL_TYPE_TIMESTAMP:
        return SQL_TIMESTAMP;
    default:
        return sqlType;
    }
}

struct EditorName
{
    const char* name;
    SQLSMALLINT sqlType;
};
constexpr EditorName kEditorNames[] = {
    {"sqlchar", SQL_CHAR},
    {"sqlvarchar", SQL_VARCHAR},
    {"sqllongvarchar", SQL_LONGVARCHAR},
    {"sqlinteger", SQL_INTEGER},
    {"sqlbigint", SQL_BIGINT},
    {"sqlsmallint", SQL_SMALLINT},
    {"sqltinyint", SQL_TINYINT},
    {"sqlnumeric", SQL_NUMERIC},
    {"sqldecimal", SQL_DECIMAL},
    {"sqlfloat", SQL_FLOAT},
    {"sqlreal", SQL_REAL},
    {"sqldouble", SQL_DOUBLE},
    {"sqlbit", SQL_BIT},
    {"sqldatetime", SQL_DATETIME},
    {"sqltime", SQL_TIME},
    {"sqltimestamp", SQL_TIMESTAMP},
    {"sqlbinary", SQL_BINARY},
    {"sqlvarbinary", SQL_VARBINARY},
    {"sqllongvarbinary", SQL_LONGVARBINARY},
    {"sqlwchar", SQL_WCHAR},
    {"sqlwvarchar", SQL_WVARCHAR},
    {"sqlwlongvarchar", SQL_WLONGVARCHAR},
};

// One row of SQLGetTypeInfo; the statement is positioned on it.
std::optional<TypeInfo> readTypeRow(Statement& rows)
{
    TypeInfo info;
    info.name = rows.text(1).value_or("");
    const auto type = rows.integer(2);
    if (info.name.empty() || !type)
        return std::nullopt;
    info.sqlType = SQLSMALLINT(*type);
    const uint8_t typeByte = typeByteOf(info.sqlType);
    if (typeByte == 0)
        return std::nullopt;
    const auto size = rows.integer(3);
    info.createParams = rows.text(6).value_or("");
    const bool caseSensitive = rows.integer(8).value_or(0) != 0;
    info.autoUnique = rows.integer(12).value_or(0) != 0;
    // A size matters only where a column states one; fixed-size types show 0.
    uint32_t length = 0;
    if (!info.createParams.empty() && size && *size > 0)
        length = uint32_t(std::min<int64_t>(*size, 0xFFFF));
    info.typeWord = (uint32_t(typeByte) << 16) | length |
                    (caseSensitive ? uint32_t(kKivFieldFlag_CaseSensitive) : 0) |
                    (info.autoUnique ? uint32_t(kKivFieldFlag_AutoUnique) : 0);
    return info;
}
} // namespace

uint8_t typeByteOf(SQLSMALLINT sqlType)
{
    sqlType = verboseDateType(sqlType);
    if (sqlType >= 1 && sqlType <= 0x3F)
        return uint8_t(0x40 + sqlType);
    if (sqlType <= -1 && sqlType >= -0x7F)
        return uint8_t(0x80 - sqlType);
    return 0;
}

std::optional<SQLSMALLINT> sqlTypeOf(uint8_t typeByte)
{
    if (typeByte >= 0x41 && typeByte <= 0x7F)
        return SQLSMALLINT(typeByte - 0x40);
    if (typeByte >= 0x81)
        return SQLSMALLINT(-(typeByte - 0x80));
    return std::nullopt;
}

SQLSMALLINT sqlTypeForNative(FieldType type)
{
    switch (type)
    {
    case FieldType::Boolean:
        return SQL_BIT;
    case FieldType::Integer:
        return SQL_INTEGER;
    case FieldType::UInteger:
        return SQL_BIGINT; // 0 to 4294967295 needs more than a 32-bit signed column
    case FieldType::Float:
        return SQL_DOUBLE;
    case FieldType::Number:
        return SQL_NUMERIC;
    case FieldType::Text:
        return SQL_VARCHAR;
    case FieldType::LongText:
        return SQL_LONGVARCHAR;
    }
    return SQL_VARCHAR;
}

std::string_view standardTypeName(SQLSMALLINT sqlType)
{
    switch (verboseDateType(sqlType))
    {
    case SQL_CHAR:
        return "CHAR";
    case SQL_VARCHAR:
        return "VARCHAR";
    case SQL_LONGVARCHAR:
        return "LONGVARCHAR";
    case SQL_NUMERIC:
        return "NUMERIC";
    case SQL_DECIMAL:
        return "DECIMAL";
    case SQL_INTEGER:
        return "INTEGER";
    case SQL_SMALLINT:
        return "SMALLINT";
    case SQL_TINYINT:
        return "TINYINT";
    case SQL_BIGINT:
        return "BIGINT";
    case SQL_FLOAT:
        return "FLOAT";
    case SQL_REAL:
        return "REAL";
    case SQL_DOUBLE:
        return "DOUBLE";
    case SQL_BIT:
        return "BIT";
    case SQL_DATE:
        return "DATE";
    case SQL_TIME:
        return "TIME";
    case SQL_TIMESTAMP:
        return "TIMESTAMP";
    default:
        return {};
    }
}

std::optional<std::string> standardTypeDefinition(SQLSMALLINT sqlType, uint32_t length)
{
    switch (sqlType)
    {
    case SQL_NUMERIC:
    case SQL_DECIMAL:
        return std::string("NUMERIC");
    case SQL_VARCHAR:
        return "VARCHAR(" + std::to_string(length ? length : 255) + ")";
    case SQL_BIT:
        return std::string("BOOLEAN");
    default:
        return std::nullopt;
    }
}

std::optional<SQLSMALLINT> sqlTypeByEditorName(std::string_view name)
{
    for (const auto& entry : kEditorNames)
        if (compareFolded(entry.name, name) == 0)
            return entry.sqlType;
    return std::nullopt;
}

std::optional<FieldType> valueClassOf(SQLSMALLINT sqlType)
{
    switch (verboseDateType(sqlType))
    {
    case SQL_CHAR:
    case SQL_VARCHAR:
    case SQL_WCHAR:
    case SQL_WVARCHAR:
        return FieldType::Text;
    case SQL_LONGVARCHAR:
    case SQL_WLONGVARCHAR:
        return FieldType::LongText;
    case SQL_NUMERIC:
    case SQL_DECIMAL:
    case SQL_BIGINT:
        return FieldType::Number; // exact text in and out; 64-bit values do not fit an Integer
    case SQL_INTEGER:
    case SQL_SMALLINT:
    case SQL_TINYINT:
        return FieldType::Integer;
    case SQL_FLOAT:
    case SQL_REAL:
    case SQL_DOUBLE:
        return FieldType::Float;
    case SQL_BIT:
        return FieldType::Boolean;
    default:
        return std::nullopt;
    }
}

std::vector<TypeInfo> readTypeInfo(const Connection& connection)
{
    std::vector<TypeInfo> types;
    Statement rows(connection);
    rows.check(SQLGetTypeInfo(rows.get(), SQL_ALL_TYPES), "Listing the driver's types");
    while (rows.fetch())
    {
        auto info = readTypeRow(rows);
        if (!info)
            continue;
        // Drivers list some names twice (ODBC 2 and 3 codes of one date type); a name stands
        // for one type here, so that looking a type up by its name is unambiguous.
        const bool seen =
            std::any_of(types.begin(), types.end(),
                        [&](const TypeInfo& known) { return compareFolded(known.name, info->name) == 0; });
        if (!seen)
            types.push_back(std::move(*info));
    }
    return types;
}

uint32_t supportFlagsOf(const Connection& connection)
{
    uint32_t flags = 0;
    if (connection.infoWord(SQL_CREATE_TABLE) & SQL_CT_CREATE_TABLE)
        flags |= 1;
    if (connection.infoWord(SQL_DROP_TABLE) & SQL_DT_DROP_TABLE)
        flags |= 2;
    const uint32_t alter = connection.infoWord(SQL_ALTER_TABLE);
    if (alter & (SQL_AT_ADD_COLUMN | SQL_AT_ADD_COLUMN_SINGLE))
        flags |= 4;
    if (alter & (SQL_AT_DROP_COLUMN | SQL_AT_DROP_COLUMN_CASCADE | SQL_AT_DROP_COLUMN_RESTRICT |
                 SQL_AT_DROP_COLUMN_DEFAULT))
        flags |= 8;
    if (connection.hasFunction(SQL_API_SQLTABLES))
        flags |= 32;
    if (connection.hasFunction(SQL_API_SQLCOLUMNS))
        flags |= 64;
    const uint32_t getData = connection.infoWord(SQL_GETDATA_EXTENSIONS);
    if (connection.hasFunction(SQL_API_SQLGETDATA))
    {
        if (getData & SQL_GD_ANY_COLUMN)
            flags |= 256;
        if (getData & SQL_GD_BOUND)
            flags |= 512;
        if (getData & SQL_GD_ANY_ORDER)
            flags |= 1024;
    }
    const uint32_t aggregates = connection.infoWord(SQL_AGGREGATE_FUNCTIONS);
    if (aggregates & (SQL_AF_COUNT | SQL_AF_ALL))
        flags |= 2048;
    return flags;
}

uint32_t cursorFlagsOf(const Connection& connection)
{
    uint32_t flags = 0;
    const uint32_t options = connection.infoWord(SQL_SCROLL_OPTIONS);
    const auto movesOf = [](uint32_t attributes, uint32_t next, uint32_t absolute, uint32_t relative)
    {
        return ((attributes & SQL_CA1_NEXT) ? next : 0) | ((attributes & SQL_CA1_ABSOLUTE) ? absolute : 0) |
               ((attributes & SQL_CA1_RELATIVE) ? relative : 0);
    };
    const uint32_t forward = connection.infoWord(SQL_FORWARD_ONLY_CURSOR_ATTRIBUTES1);
    if ((options & SQL_SO_FORWARD_ONLY) || forward)
        flags |= 4096;
    if (forward & SQL_CA1_NEXT)
        flags |= 8192;
    if (options & SQL_SO_STATIC)
        flags |= 1 | movesOf(connection.infoWord(SQL_STATIC_CURSOR_ATTRIBUTES1), 2, 4, 8);
    if (options & SQL_SO_KEYSET_DRIVEN)
        flags |= 16 | movesOf(connection.infoWord(SQL_KEYSET_CURSOR_ATTRIBUTES1), 32, 64, 128);
    if (options & SQL_SO_DYNAMIC)
        flags |= 256 | movesOf(connection.infoWord(SQL_DYNAMIC_CURSOR_ATTRIBUTES1), 512, 1024, 2048);
    return flags;
}

} // namespace kiv::db::odbc
