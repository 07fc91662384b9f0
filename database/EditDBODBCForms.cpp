// The editor's report of the ODBC driver's capabilities, and the forms that ask for the file
// of a record export or import.
#include "EditDatabaseInternal.h"
#include "KivGlue.h"
#include "KivGlueDB.h"
#include "ModifyDBShared.h"

#include <initializer_list>

namespace
{

enum EditDB_FlagWord
{
    kEditDBFlags_Section,
    kEditDBFlags_Support,
    kEditDBFlags_Cursor
};

struct EditDB_CapabilityRow
{
    EditDB_FlagWord flagWord;
    bool indented;
    const char* label;
    const char* sql;
    unsigned int bit;
};

// "Create Database" labels the DROP TABLE row too, and "Add Unique Field" shares its bit: the
// driver reports both through the same capability.
const EditDB_CapabilityRow kEditDBCapabilityRows[] = {
    {kEditDBFlags_Section, false, "Database/Field Management", "", 0},
    {kEditDBFlags_Support, false, "List Databases", "SQLTables", 32},
    {kEditDBFlags_Support, false, "List Fields", "SQLColumns", 64},
    {kEditDBFlags_Support, false, "Create Database", "CREATE TABLE ...", 1},
    {kEditDBFlags_Support, false, "Create Database", "DROP TABLE ...", 2},
    {kEditDBFlags_Support, false, "Add Field", "ALTER TABLE ... ADD COLUMN ...", 4},
    {kEditDBFlags_Support, false, "Add Unique Field", "ALTER TABLE ... ADD COLUMN ... CONSTRAINT ...", 2},
    {kEditDBFlags_Support, false, "Delete Field", "ALTER TABLE ... DROP COLUMN ...", 8},
    {kEditDBFlags_Section, false, "Record Iteration", "", 0},
    {kEditDBFlags_Cursor, false, "Forward Only Cursor", "SQLFetch/SQLFetchScroll", 4096},
    {kEditDBFlags_Cursor, true, "Move Next", "SQLFetch/SQLFetchScroll", 8192},
    {kEditDBFlags_Cursor, false, "Static Cursor", "SQLFetchScroll", 1},
    {kEditDBFlags_Cursor, true, "Move Next", "SQLFetchScroll", 2},
    {kEditDBFlags_Cursor, true, "Move Absolute", "SQLFetchScroll", 4},
    {kEditDBFlags_Cursor, true, "Move Relative", "SQLFetchScroll", 8},
    {kEditDBFlags_Cursor, false, "Keyset Driven Cursor", "SQLFetchScroll", 16},
    {kEditDBFlags_Cursor, true, "Move Next", "SQLFetchScroll", 32},
    {kEditDBFlags_Cursor, true, "Move Absolute", "SQLFetchScroll", 64},
    {kEditDBFlags_Cursor, true, "Move Relative", "SQLFetchScroll", 128},
    {kEditDBFlags_Cursor, false, "Dynamic", "SQLFetchScroll", 256},
    {kEditDBFlags_Cursor, true, "Move Next", "SQLFetchScroll", 512},
    {kEditDBFlags_Cursor, true, "Move Absolute", "SQLFetchScroll", 1024},
    {kEditDBFlags_Cursor, true, "Move Relative", "SQLFetchScroll", 2048},
    {kEditDBFlags_Section, false, "Other Information", "", 0},
    {kEditDBFlags_Support, false, "Get Any Field", "SQLGetData", 256},
    {kEditDBFlags_Support, false, "Get Any Field Order", "SQLGetData", 1024},
    {kEditDBFlags_Support, false, "Get Bound Field", "SQLGetData", 512},
    {kEditDBFlags_Support, false, "Count Records", "SELECT Count(*) FROM ...", 2048},
};

void EditDB_AppendPaddedCell(KivString& output_io, const KivString& html_i)
{
    output_io += "<td>&nbsp;";
    output_io += html_i;
    output_io += "&nbsp;</td>";
}

void EditDB_AppendHeaderRow(KivString& output_io, const KivString& headerColor_i,
                            std::initializer_list<const char*> labels_i)
{
    output_io += "\r\n<tr>";
    for (const char* label : labels_i)
    {
        output_io += "<th bgcolor=\"";
        output_io += EditDB_HTML(headerColor_i);
        output_io += "\">&nbsp;";
        output_io += label;
        output_io += "&nbsp;</th>";
    }
    output_io += "</tr>";
}

void EditDB_AppendCapabilityRows(KivString& output_io, const unsigned int& supportFlags_i,
                                 const unsigned int& cursorFlags_i)
{
    for (const EditDB_CapabilityRow& row : kEditDBCapabilityRows)
    {
        if (row.flagWord == kEditDBFlags_Section)
        {
            output_io += "\r\n<tr><td colspan=\"3\"><strong>";
            output_io += row.label;
            output_io += "</strong></td></tr>";
            continue;
        }
        const unsigned int flags = row.flagWord == kEditDBFlags_Support ? supportFlags_i : cursorFlags_i;
        KivString label(row.indented ? "&nbsp;&nbsp;&nbsp;&nbsp;" : "");
        label += row.label;
        output_io += "\r\n<tr>";
        EditDB_AppendPaddedCell(output_io, label);
        EditDB_AppendPaddedCell(output_io, row.sql);
        EditDB_AppendPaddedCell(output_io, (flags & row.bit) != 0 ? "Yes" : "No");
        output_io += "</tr>";
    }
}

void EditDB_AppendFieldTypeRows(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io)
{
    const unsigned int count = KivGlueDBGetODBCFieldTypeCount(processingInfo_i);
    for (unsigned int index = 0; index < count; ++index)
    {
        KivString typeName;
        unsigned int descriptor = 0;
        if (KivGlueDBGetODBCFieldTypeInfoByIndex(processingInfo_i, index, typeName, descriptor) != 0)
            continue;
        KivString flags;
        if (descriptor & kKivFieldFlag_CaseSensitive)
            flags += "Case-sensitive ";
        if (descriptor & kKivFieldFlag_AutoUnique)
            flags += "Auto-unique ";
        output_io += "\r\n<tr>";
        EditDB_AppendPaddedCell(output_io, EditDB_HTML(typeName));
        EditDB_AppendPaddedCell(output_io, EditDB_GetSQLTypeName(descriptor));
        EditDB_AppendPaddedCell(output_io, EditDB_Decimal(descriptor & kKivFieldLengthMask));
        EditDB_AppendPaddedCell(output_io, flags);
        output_io += "</tr>";
    }
}

// The buttons under the export and import forms.
void EditDB_AppendTransferButtons(KivString& output_io, const unsigned int& transferAction_i,
                                  const unsigned long& language_i)
{
    EditDB_AppendButtonRowStart(output_io);
    EditDB_AppendActionButton(output_io, transferAction_i, language_i, kEditDBColor_Transfer);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_ShowRecordSearch, language_i, kEditDBColor_View);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MoveFirstRecord, language_i,
                              kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MoveLastRecord, language_i,
                              kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_AddRecord, language_i, kEditDBColor_Create);
    EditDB_AppendButtonRowEnd(output_io);
}

void EditDB_AppendTransferIntroduction(KivString& output_io, const char* text_i, const unsigned int& action_i,
                                       const unsigned long& language_i)
{
    output_io += "\r\n<p><strong>";
    output_io += text_i;
    output_io += EditDB_GetLocalizedString(action_i, language_i);
    output_io += "&quot; button:</strong>";
}

void EditDB_AppendExportFieldRow(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                 const KivString& fieldName_i, const unsigned int& descriptor_i)
{
    const bool longText = ModifyDB_GetValueClass(descriptor_i) == kModifyDBValueClass_LongText;
    output_io += "\r\n<tr><td align=\"center\">";
    if (longText)
        output_io += "&nbsp;</td><td align=\"center\">&nbsp;";
    else
    {
        EditDB_AppendRadio(output_io, kEditDBPostArgument_OrderField1, fieldName_i, false);
        output_io += "</td><td align=\"center\">";
        EditDB_AppendCheckbox(output_io, kEditDBPostArgument_DescOrder, fieldName_i);
    }
    output_io += "</td><td align=\"center\">";
    EditDB_AppendTextInput(output_io, fieldName_i + "Pos", KivString(), 3, 3);
    output_io += "</td><td>";
    output_io += EditDB_HTML(fieldName_i);
    output_io += "</td><td><em>";
    output_io += EditDB_HTML(EditDB_GetTypeWord(processingInfo_i, descriptor_i));
    output_io += "</em></td><td align=\"center\">";
    bool flagged = false;
    if (descriptor_i & kKivFieldFlag_Indexed)
    {
        output_io += "indexed";
        flagged = true;
    }
    if (descriptor_i & kKivFieldFlag_Unique)
    {
        output_io += flagged ? "<br>" : "";
        output_io += "<font color=\"#ff0000\">unique</font>";
        flagged = true;
    }
    if (!flagged)
        output_io += "&nbsp;";
    output_io += "</td></tr>";
}

} // namespace

const char* EditDB_GetSQLTypeName(const unsigned int& descriptor_i)
{
    switch (descriptor_i & kKivFieldTypeMask)
    {
    case 0x410000:
        return "SQL_CHAR";
    case 0x420000:
        return "SQL_NUMERIC";
    case 0x430000:
        return "SQL_DECIMAL";
    case 0x440000:
        return "SQL_INTEGER";
    case 0x450000:
        return "SQL_SMALLINT";
    case 0x460000:
        return "SQL_FLOAT";
    case 0x470000:
        return "SQL_REAL";
    case 0x480000:
        return "SQL_DOUBLE";
    case 0x490000:
        return "SQL_DATETIME";
    case 0x4A0000:
        return "SQL_TIME";
    case 0x4B0000:
        return "SQL_TIMESTAMP";
    case 0x4C0000:
        return "SQL_VARCHAR";
    case 0x810000:
        return "SQL_LONGVARCHAR";
    case 0x820000:
        return "SQL_BINARY";
    case 0x830000:
        return "SQL_VARBINARY";
    case 0x840000:
        return "SQL_LONGVARBINARY";
    case 0x850000:
        return "SQL_BIGINT";
    case 0x860000:
        return "SQL_TINYINT";
    case 0x870000:
        return "SQL_BIT";
    case 0x880000:
        return "SQL_WCHAR";
    case 0x890000:
        return "SQL_WVARCHAR";
    case 0x8A0000:
        return "SQL_WLONGVARCHAR";
    case 0x8B0000:
        return "SQL_GUID";
    default:
        return "(unknown type)";
    }
}

unsigned int EditDB_ODBCSupportForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io)
{
    const unsigned long language = EditDB_GetLanguage(processingInfo_i);
    const unsigned int supportFlags = KivGlueDBGetODBCSupportFlags(processingInfo_i);
    const unsigned int cursorFlags = KivGlueDBGetODBCCursorFlags(processingInfo_i);
    const KivString headerColor = EditDB_GetHeaderColor(processingInfo_i);
    const unsigned int count = EditDB_GetListedDatabaseCount(processingInfo_i);

    EditDB_AppendHeader(output_io, EditDB_GetLocalizedString(kEditDB_ID_Word_Databases, language) + ":",
                        EditDB_Decimal(count) + " " +
                            EditDB_GetLocalizedString(count == 1 ? kEditDB_ID_String_DatabaseAvailable
                                                                 : kEditDB_ID_String_DatabasesAvailable,
                                                      language));
    output_io += "\r\n<p><strong>ODBC Driver Reported Capabilites</strong>"
                 "\r\n<br>(Note: Not all capabilities are always properly reported)"
                 "\r\n<table border=\"1\" cellspacing=\"0\" cellpadding=\"2\">";
    EditDB_AppendHeaderRow(output_io, headerColor, {"Kiv Feature", "SQL", "Supported"});
    EditDB_AppendCapabilityRows(output_io, supportFlags, cursorFlags);
    output_io += "\r\n</table>";

    output_io +=
        "\r\n<p><strong>SQL Field Types</strong>"
        "\r\n<br>(Note: Max size is zero for types with standard implied sizes.  Kiv will truncate any "
        "lengths above 64kb)"
        "\r\n<table border=\"1\" cellspacing=\"0\" cellpadding=\"2\">";
    EditDB_AppendHeaderRow(output_io, headerColor, {"Field Type", "SQL Type", "Max Size", "Flags"});
    EditDB_AppendFieldTypeRows(processingInfo_i, output_io);
    output_io += "\r\n</table>";

    // No action is posted, so the next request shows the database list.
    EditDB_AppendFormStart(processingInfo_i, output_io);
    output_io += "\r\n<div align=\"center\"><input type=\"submit\" name=\"Return\" value=\"Return\"></div>";
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_ExportFilenameForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                       const unsigned int& database_i)
{
    const unsigned long language = EditDB_GetLanguage(processingInfo_i);
    const KivString headerColor = EditDB_GetHeaderColor(processingInfo_i);
    const unsigned int fieldCount = KivGlueDBGetFieldCount(processingInfo_i, database_i);

    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendRecordsHeader(processingInfo_i, output_io, database_i, "Records (", ")");
    EditDB_AppendTransferIntroduction(output_io,
                                      "Enter the name of the export destination file and press the &quot;",
                                      kEditDB_ID_Action_ExportRecords, language);
    output_io += "\r\n<p>Filename: ";
    EditDB_AppendTextInput(output_io, kEditDBPostArgument_ExportFilename, KivString(), 50, 0);
    output_io += "\r\n<p><strong>To change the position of the fields, specify a new numerical position";
    output_io +=
        " for each field.  Any fields without a specified position will be added to the end, maintaining the";
    output_io += " current order.  To remove a field from the export, place an &quot;X&quot; for its "
                 "position.</strong>";

    output_io += "\r\n<table border=\"1\" cellspacing=\"0\" cellpadding=\"2\">";
    EditDB_AppendHeaderRow(output_io, headerColor, {"Order", "Rev", "Position", "Field", "Type", "Options"});
    for (unsigned int index = 0; index < fieldCount; ++index)
    {
        KivString fieldName;
        unsigned int descriptor = 0;
        if (KivGlueDBGetFieldInfo(processingInfo_i, database_i, index, fieldName, descriptor) == 0)
            EditDB_AppendExportFieldRow(processingInfo_i, output_io, fieldName, descriptor);
    }
    output_io += "\r\n<tr><td align=\"center\">";
    EditDB_AppendRadio(output_io, kEditDBPostArgument_OrderField1, "nokivsearchfieldselected", true);
    output_io += "</td><td colspan=\"5\">";
    if (EditDB_GetTagParameter(processingInfo_i, kEditDBParameter_AdvancedSearch, "off")
            .CompareTo("on", kKivString_CaseInsensitive) == kKivCompare_Equal)
        EditDB_AppendTextInput(output_io, kEditDBPostArgument_SearchString, KivString(), 30, 0);
    else
        output_io += "&nbsp;";
    output_io += "</td></tr>\r\n</table>";

    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName,
                        KivGlueDBGetDatabaseName(processingInfo_i, database_i));
    EditDB_AppendTransferButtons(output_io, kEditDB_ID_Action_ExportRecords, language);
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_ImportFilenameForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                       const unsigned int& database_i)
{
    const unsigned long language = EditDB_GetLanguage(processingInfo_i);
    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendRecordsHeader(processingInfo_i, output_io, database_i, "Records (", ")");
    EditDB_AppendTransferIntroduction(output_io, "Enter the name of the import file and press the &quot;",
                                      kEditDB_ID_Action_ImportRecords, language);
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName,
                        KivGlueDBGetDatabaseName(processingInfo_i, database_i));
    output_io += "\r\n<p>Filename: ";
    EditDB_AppendTextInput(output_io, kEditDBPostArgument_ImportFilename, KivString(), 50, 0);
    EditDB_AppendTransferButtons(output_io, kEditDB_ID_Action_ImportRecords, language);
    EditDB_AppendFormEnd(output_io);
    return 0;
}
