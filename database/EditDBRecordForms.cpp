// The editor's record manager: the search criteria form and the search it runs, the paged
// results, one record's display, the blank record form, the deletion confirmations, and the
// operations that add, duplicate and update a record from the posted values.
#include "EditDatabaseInternal.h"
#include "KivGlue.h"
#include "KivGlueDB.h"
#include "KivNumber.h"
#include "KivStringUtility.h"
#include "KivTokenizedString.h"
#include "ModifyDBShared.h"
#include "TKivArray.h"

namespace
{

const char* const kEditDBNoOrderField = "nokivsearchfieldselected";
// Multi-valued arguments are read up to this many values.
const unsigned int kEditDBMaxArgumentValues = 512;
const unsigned int kEditDBDefaultResultsPerPage = 25;
const unsigned int kEditDBMaxResultsPerPage = 100;
// Long values in the results list are cut so that one record stays one row.
const unsigned int kEditDBResultCellLimit = 25;
const unsigned int kEditDBResultCellKept = 22;

struct EditDB_Field
{
    KivString name;
    unsigned int descriptor = 0;
};

unsigned int EditDB_GetType(const unsigned int& descriptor_i)
{
    return (descriptor_i & kKivFieldTypeMask) >> kKivFieldTypeShift;
}

// The database's fields in index order; false when one of them cannot be described.
bool EditDB_GetFields(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i,
                      TKivArray<EditDB_Field>& fields_io)
{
    const unsigned int count = KivGlueDBGetFieldCount(processingInfo_i, database_i);
    for (unsigned int index = 0; index < count; ++index)
    {
        EditDB_Field field;
        if (KivGlueDBGetFieldInfo(processingInfo_i, database_i, index, field.name, field.descriptor) != 0)
            return false;
        fields_io.Append(field);
    }
    return true;
}

KivString EditDB_GetDatabaseName(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                 const unsigned int& database_i)
{
    return KivGlueDBGetDatabaseName(processingInfo_i, database_i);
}

bool EditDB_IsAdvancedSearch(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    return EditDB_GetTagParameter(processingInfo_i, kEditDBParameter_AdvancedSearch, "off")
               .CompareTo("on", kKivString_CaseInsensitive) == kKivCompare_Equal;
}

// Every value of a multi-valued post argument (checkboxes).
TKivArray<KivString> EditDB_GetPostedValues(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                            const KivString& name_i)
{
    TKivArray<KivString> values(nullptr);
    for (unsigned int index = 0; index < kEditDBMaxArgumentValues; ++index)
    {
        KivString value;
        if (!EditDB_GetPostArgument(processingInfo_i, name_i, value, "", index))
            break;
        values.Append(value);
    }
    return values;
}

bool EditDB_Contains(const TKivArray<KivString>& values_i, const KivString& value_i)
{
    for (unsigned int index = 0; index < values_i.GetElementCount(); ++index)
        if (values_i[index] == value_i)
            return true;
    return false;
}

void EditDB_AppendTableHeaderCell(KivString& output_io, const KivString& headerColor_i,
                                  const KivString& html_i)
{
    output_io += "<th bgcolor=\"";
    output_io += EditDB_HTML(headerColor_i);
    output_io += "\">";
    output_io += html_i;
    output_io += "</th>";
}

void EditDB_AppendTextArea(KivString& output_io, const KivString& name_i, const KivString& value_i,
                           const unsigned int& rows_i)
{
    output_io += "<textarea name=\"";
    output_io += EditDB_HTML(name_i);
    output_io += "\" cols=\"30\" rows=\"";
    output_io += EditDB_Decimal(rows_i);
    output_io += "\" wrap=\"soft\">";
    output_io += EditDB_HTML(value_i);
    output_io += "</textarea>";
}

enum EditDB_BooleanChoice
{
    kEditDBBoolean_Unset, // a blank record: neither answer chosen
    kEditDBBoolean_False,
    kEditDBBoolean_True,
    kEditDBBoolean_Ignore // search criteria: a third answer, chosen
};

// The input that edits (or searches) a field's value, named by the field.
void EditDB_AppendValueInput(KivString& output_io, const EditDB_Field& field_i, const KivString& value_i,
                             const EditDB_BooleanChoice& boolean_i)
{
    switch (ModifyDB_GetValueClass(field_i.descriptor))
    {
    case kModifyDBValueClass_Boolean:
        EditDB_AppendRadio(output_io, field_i.name, "true", boolean_i == kEditDBBoolean_True);
        output_io += " True ";
        EditDB_AppendRadio(output_io, field_i.name, "false", boolean_i == kEditDBBoolean_False);
        output_io += " False";
        if (boolean_i == kEditDBBoolean_Ignore)
        {
            output_io += " ";
            EditDB_AppendRadio(output_io, field_i.name, KivString(), true);
            output_io += " Ignore";
        }
        break;
    case kModifyDBValueClass_Text:
        EditDB_AppendTextArea(output_io, field_i.name, value_i, 2);
        break;
    case kModifyDBValueClass_LongText:
        EditDB_AppendTextArea(output_io, field_i.name, value_i, 3);
        break;
    case kModifyDBValueClass_Integer:
    case kModifyDBValueClass_UInteger:
    case kModifyDBValueClass_Float:
    case kModifyDBValueClass_Number:
        EditDB_AppendTextInput(output_io, field_i.name, value_i, 30, 0);
        break;
    default:
        output_io += "(Unsupported field type)";
        break;
    }
}

// The type cell of the record forms: the type, then its flags on lines of their own.
KivString EditDB_GetTypeCell(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& descriptor_i)
{
    const unsigned int length = descriptor_i & kKivFieldLengthMask;
    KivString cell;
    switch (EditDB_GetType(descriptor_i))
    {
    case kKivFieldType_Number:
        cell = KivString("number, ") + EditDB_Decimal(length);
        break;
    case kKivFieldType_Text:
        cell = KivString("text") + EditDB_Decimal(length);
        break;
    default:
        cell = EditDB_HTML(EditDB_GetTypeWord(processingInfo_i, descriptor_i));
        break;
    }
    if (descriptor_i & kKivFieldFlag_AutoUnique)
        cell += "<br>auto-unique";
    if (descriptor_i & kKivFieldFlag_Indexed)
        cell += "<br>indexed";
    if (descriptor_i & kKivFieldFlag_Unique)
        cell += "<br><font color=\"#ff0000\">unique</font>";
    return cell;
}

// The Field, Type, Value table of the record display and the blank record form.
void EditDB_AppendRecordTable(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                              const unsigned int& database_i, const TKivArray<EditDB_Field>& fields_i,
                              const bool& withValues_i)
{
    const KivString headerColor = EditDB_GetHeaderColor(processingInfo_i);
    output_io += "\r\n<table border=\"1\" cellspacing=\"0\" cellpadding=\"3\">\r\n<tr>";
    EditDB_AppendTableHeaderCell(output_io, headerColor, "Field");
    EditDB_AppendTableHeaderCell(output_io, headerColor, "Type");
    EditDB_AppendTableHeaderCell(output_io, headerColor, "Value");
    output_io += "</tr>";
    for (unsigned int index = 0; index < fields_i.GetElementCount(); ++index)
    {
        const EditDB_Field& field = fields_i[index];
        KivString value;
        EditDB_BooleanChoice choice = kEditDBBoolean_Unset;
        if (withValues_i && ModifyDB_GetValueClass(field.descriptor) != kModifyDBValueClass_Unsupported)
        {
            value = EditDB_GetFieldValueText(processingInfo_i, database_i, field.name, field.descriptor);
            choice = value == "1" ? kEditDBBoolean_True : kEditDBBoolean_False;
        }
        output_io += "\r\n<tr><td bgcolor=\"";
        output_io += EditDB_HTML(headerColor);
        output_io += "\"><strong>";
        output_io += EditDB_HTML(field.name);
        output_io += "</strong></td><td align=\"center\">";
        output_io += EditDB_GetTypeCell(processingInfo_i, field.descriptor);
        output_io += "</td><td>";
        EditDB_AppendValueInput(output_io, field, value, choice);
        output_io += "</td></tr>";
    }
    output_io += "\r\n</table>";
}

void EditDB_AppendSecondButtonRow(KivString& output_io, const unsigned long& language_i,
                                  const bool& withDelete_i)
{
    EditDB_AppendButtonRowStart(output_io);
    if (withDelete_i)
        EditDB_AppendActionButton(output_io, kEditDB_ID_Action_VerifyDeleteRecord, language_i,
                                  kEditDBColor_Delete);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_VerifyDeleteAllRecords, language_i,
                              kEditDBColor_Delete);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_GetImportFilename, language_i,
                              kEditDBColor_Transfer);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_GetExportFilename, language_i,
                              kEditDBColor_Transfer);
    EditDB_AppendButtonRowEnd(output_io);
}

void EditDB_AppendDisplayButtons(KivString& output_io, const unsigned long& language_i)
{
    EditDB_AppendButtonRowStart(output_io);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_ShowRecordSearch, language_i, kEditDBColor_View);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MoveFirstRecord, language_i,
                              kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MovePrevRecord, language_i,
                              kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MoveNextRecord, language_i,
                              kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MoveLastRecord, language_i,
                              kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_ModifyRecord, language_i, kEditDBColor_Create);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_ModifyMoveNextRecord, language_i,
                              kEditDBColor_Create);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_AddRecord, language_i, kEditDBColor_Create);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_DuplicateRecord, language_i, kEditDBColor_Create);
    EditDB_AppendButtonRowEnd(output_io);
    EditDB_AppendSecondButtonRow(output_io, language_i, true);
}

unsigned int EditDB_ReportNoUniqueIDField(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                          const unsigned int& database_i, const unsigned int& result_i)
{
    EditDB_ReportError(processingInfo_i,
                       KivString("No unique ID field could be found in the ") +
                           EditDB_Quoted(EditDB_GetDatabaseName(processingInfo_i, database_i)) + " database.",
                       "Make sure the database has a unique ID field.");
    return result_i;
}

// A search criterion's value as the search text needs it for the field's type.
KivString EditDB_GetCriterionText(const unsigned int& descriptor_i, const KivString& value_i)
{
    switch (EditDB_GetType(descriptor_i))
    {
    case 0x01: // boolean
    case 0x87: // SQL_BIT
        return value_i == "true" ? "1" : "0";
    case 0x06: // text
    case 0x07: // long text
    case 0x41: // SQL_CHAR
    case 0x4C: // SQL_VARCHAR
    case 0x81: // SQL_LONGVARCHAR
    // Numbers go in as typed. Their quotes are doubled all the same: a valid number has none,
    // and an invalid one must not end the quoted value early.
    case 0x02: // integer
    case 0x03: // unsigned integer
    case 0x04: // float
    case 0x05: // number
    case 0x42: // SQL_NUMERIC
    case 0x43: // SQL_DECIMAL
    case 0x44: // SQL_INTEGER
    case 0x45: // SQL_SMALLINT
    case 0x46: // SQL_FLOAT
    case 0x47: // SQL_REAL
    case 0x48: // SQL_DOUBLE
    case 0x85: // SQL_BIGINT
    case 0x86: // SQL_TINYINT
    {
        KivString text(value_i);
        text.ReplaceAll('\'', KivString("''"), 0);
        return text;
    }
    default:
        // Dates, times, binaries, wide characters: no text form yet, the quotes stay empty.
        return KivString();
    }
}

// " ORDER BY a, b DESC" from the three posted order fields and the Desc boxes.
void EditDB_AppendOrdering(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& search_io)
{
    KivString joined;
    const TKivArray<KivString> descValues =
        EditDB_GetPostedValues(processingInfo_i, kEditDBPostArgument_DescOrder);
    for (unsigned int index = 0; index < descValues.GetElementCount(); ++index)
    {
        if (index > 0)
            joined += ",";
        joined += descValues[index];
    }
    joined.TrimRight(",");
    TKivArray<KivString> descending(nullptr);
    if (joined.IsNotEmpty())
    {
        KivTokenizedString tokens(joined, ",", 0);
        for (unsigned int index = 0; index < tokens.GetTokenCount(); ++index)
            descending.Append(tokens.GetToken(index));
    }

    const KivString* orderArguments[] = {&kEditDBPostArgument_OrderField1, &kEditDBPostArgument_OrderField2,
                                         &kEditDBPostArgument_OrderField3};
    bool first = true;
    for (const KivString* argument : orderArguments)
    {
        KivString fieldName;
        if (!EditDB_GetPostArgument(processingInfo_i, *argument, fieldName) || fieldName.IsEmpty() ||
            fieldName == kEditDBNoOrderField)
            continue;
        search_io += first ? " ORDER BY " : ", ";
        first = false;
        search_io += fieldName;
        if (EditDB_Contains(descending, fieldName))
            search_io += " DESC";
    }
}

// What a results cell shows of a value: long ones cut to their first characters.
KivString EditDB_GetResultCell(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i,
                               const EditDB_Field& field_i)
{
    const ModifyDB_ValueClass valueClass = ModifyDB_GetValueClass(field_i.descriptor);
    if (valueClass == kModifyDBValueClass_Unsupported)
        return "&nbsp;";
    KivString value =
        EditDB_GetFieldValueText(processingInfo_i, database_i, field_i.name, field_i.descriptor);
    if (valueClass == kModifyDBValueClass_Boolean)
        return value == "1" ? "&nbsp;True" : "&nbsp;False";
    if (value.GetLength() > kEditDBResultCellLimit)
    {
        value = value.GetSubstring(0, kEditDBResultCellKept);
        value += "...";
    }
    return KivString("&nbsp;") + EditDB_HTML(value);
}

// The criteria, order and page of this search, so that "Next" and "Prev" repeat it.
void EditDB_AppendSearchCarriedForward(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                       const TKivArray<EditDB_Field>& fields_i, const unsigned int& page_i,
                                       const unsigned int& perPage_i)
{
    KivString value;
    if (EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_SearchString, value))
        EditDB_AppendHidden(output_io, kEditDBPostArgument_SearchString, value);
    for (unsigned int index = 0; index < fields_i.GetElementCount(); ++index)
        if (EditDB_GetPostArgument(processingInfo_i, fields_i[index].name, value))
            EditDB_AppendHidden(output_io, fields_i[index].name, value);
    const KivString* orderArguments[] = {&kEditDBPostArgument_OrderField1, &kEditDBPostArgument_OrderField2,
                                         &kEditDBPostArgument_OrderField3};
    for (const KivString* argument : orderArguments)
        if (EditDB_GetPostArgument(processingInfo_i, *argument, value))
            EditDB_AppendHidden(output_io, *argument, value);
    const KivString* multiArguments[] = {&kEditDBPostArgument_DescOrder, &kEditDBPostArgument_Not};
    for (const KivString* argument : multiArguments)
    {
        const TKivArray<KivString> values = EditDB_GetPostedValues(processingInfo_i, *argument);
        for (unsigned int index = 0; index < values.GetElementCount(); ++index)
            EditDB_AppendHidden(output_io, *argument, values[index]);
    }
    EditDB_AppendHidden(output_io, kEditDBPostArgument_ResultsPage, EditDB_Decimal(page_i));
    EditDB_AppendHidden(output_io, kEditDBPostArgument_ResultsPerPage, EditDB_Decimal(perPage_i));
}

enum EditDB_RecordOperation
{
    kEditDBOperation_Add,
    kEditDBOperation_Duplicate,
    kEditDBOperation_Update
};

// Stores the posted values into the record being built or the current record. A value the
// host refuses does not stop the others.
void EditDB_StorePostedValues(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i,
                              const EditDB_RecordOperation& operation_i)
{
    const unsigned int count = KivGlueDBGetFieldCount(processingInfo_i, database_i);
    for (unsigned int index = 0; index < count; ++index)
    {
        KivString fieldName;
        unsigned int descriptor = 0;
        if (KivGlueDBGetFieldInfo(processingInfo_i, database_i, index, fieldName, descriptor) != 0)
            continue;
        // A copy gets an identifier of its own from the host, and a new record does unless one
        // was typed.
        const bool autoUnique = (descriptor & kKivFieldFlag_AutoUnique) != 0;
        if (autoUnique && operation_i == kEditDBOperation_Duplicate)
            continue;
        KivString value;
        if (!EditDB_GetPostArgument(processingInfo_i, fieldName, value))
            continue;
        if (autoUnique && operation_i == kEditDBOperation_Add && value.IsEmpty())
            continue;
        switch (ModifyDB_GetValueClass(descriptor))
        {
        case kModifyDBValueClass_Boolean:
            KivGlueDBSetBooleanFieldValue(processingInfo_i, database_i, fieldName, value == "true");
            break;
        case kModifyDBValueClass_Integer:
            KivGlueDBSetIntegerFieldValue(processingInfo_i, database_i, fieldName,
                                          KivStringUtility::GetNumericalRepresentation(value, 10));
            break;
        case kModifyDBValueClass_UInteger:
            KivGlueDBSetUIntegerFieldValue(
                processingInfo_i, database_i, fieldName,
                (unsigned int)KivStringUtility::GetNumericalRepresentation(value, 10));
            break;
        case kModifyDBValueClass_Float:
            KivGlueDBSetFloatFieldValue(processingInfo_i, database_i, fieldName,
                                        KivStringUtility::GetNumericalRepresentation(value));
            break;
        case kModifyDBValueClass_Number:
            KivGlueDBSetNumberFieldValue(processingInfo_i, database_i, fieldName, KivNumber(value));
            break;
        case kModifyDBValueClass_Text:
            KivGlueDBSetTextFieldValue(processingInfo_i, database_i, fieldName, value);
            break;
        case kModifyDBValueClass_LongText:
            KivGlueDBSetLongTextFieldValue(processingInfo_i, database_i, fieldName, value);
            break;
        default:
            break;
        }
    }
}

unsigned int EditDB_CreateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                 const unsigned int& database_i, const EditDB_RecordOperation& operation_i)
{
    const bool duplicate = operation_i == kEditDBOperation_Duplicate;
    const KivString quotedName = EditDB_Quoted(EditDB_GetDatabaseName(processingInfo_i, database_i));
    unsigned int result = KivGlueDBCreateRecord(processingInfo_i, database_i);
    if (result != 0)
    {
        EditDB_ReportError(processingInfo_i,
                           KivString(duplicate
                                         ? "The database system was unable to duplicate a record in the "
                                         : "The database system was unable to create a record in the ") +
                               quotedName + " database.",
                           kEditDBHint_ContactAdministrator);
        return result;
    }
    EditDB_StorePostedValues(processingInfo_i, database_i, operation_i);
    result = KivGlueDBAddRecord(processingInfo_i, database_i);
    if (result != 0)
        EditDB_ReportError(
            processingInfo_i,
            KivString(duplicate ? "The database system was unable to duplicate the record in the "
                                : "The database system was unable to add a record to the ") +
                quotedName + " database." + EditDB_GetErrorDetail(processingInfo_i, database_i),
            kEditDBHint_ContactAdministrator);
    return result;
}

} // namespace

unsigned int EditDB_RecordSearchForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                     const unsigned int& database_i)
{
    const unsigned long language = EditDB_GetLanguage(processingInfo_i);
    const KivString databaseName = EditDB_GetDatabaseName(processingInfo_i, database_i);
    TKivArray<EditDB_Field> fields(nullptr);
    if (!EditDB_GetFields(processingInfo_i, database_i, fields))
    {
        EditDB_ReportError(processingInfo_i,
                           "The &quot;kivEditDatabase&quot; tag reached an undefined state in the "
                           "RecordSearchForm function.",
                           kEditDBHint_ContactAdministrator);
        return kKivResult_UnknownError;
    }
    const KivString headerColor = EditDB_GetHeaderColor(processingInfo_i);

    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendRecordsHeader(processingInfo_i, output_io, database_i, "Record Search (", "):");
    if (fields.GetElementCount() == 0)
    {
        output_io += "\r\n<p><em>There are no fields in the ";
        output_io += EditDB_Quoted(databaseName);
        output_io += " database.</em>";
    }
    else
    {
        output_io += "\r\n<p>Enter the criteria to search for:"
                     "\r\n<table border=\"1\" cellspacing=\"0\" cellpadding=\"3\">\r\n<tr>";
        const char* headings[] = {"Order", "Rev", "Field", "Type", "Not", "Value"};
        for (const char* heading : headings)
            EditDB_AppendTableHeaderCell(output_io, headerColor, heading);
        output_io += "</tr>";
        for (unsigned int index = 0; index < fields.GetElementCount(); ++index)
        {
            const EditDB_Field& field = fields[index];
            output_io += "\r\n<tr><td align=\"center\">";
            // Long text cannot be ordered.
            if (ModifyDB_GetValueClass(field.descriptor) == kModifyDBValueClass_LongText)
                output_io += "&nbsp;</td><td align=\"center\">&nbsp;";
            else
            {
                EditDB_AppendRadio(output_io, kEditDBPostArgument_OrderField1, field.name, false);
                output_io += "</td><td align=\"center\">";
                EditDB_AppendCheckbox(output_io, kEditDBPostArgument_DescOrder, field.name);
            }
            output_io += "</td><td bgcolor=\"";
            output_io += EditDB_HTML(headerColor);
            output_io += "\"><strong>";
            output_io += EditDB_HTML(field.name);
            output_io += "</strong></td><td><em>";
            output_io += EditDB_HTML(EditDB_GetTypeWord(processingInfo_i, field.descriptor));
            output_io += "</em></td><td align=\"center\">";
            EditDB_AppendCheckbox(output_io, kEditDBPostArgument_Not, field.name);
            output_io += "</td><td>";
            EditDB_AppendValueInput(output_io, field, KivString(), kEditDBBoolean_Ignore);
            output_io += "</td></tr>";
        }
        output_io += "\r\n<tr><td align=\"center\">";
        EditDB_AppendRadio(output_io, kEditDBPostArgument_OrderField1, kEditDBNoOrderField, true);
        output_io += "</td><td colspan=\"5\">";
        if (EditDB_IsAdvancedSearch(processingInfo_i))
            EditDB_AppendTextInput(output_io, kEditDBPostArgument_SearchString, KivString(), 50, 0);
        else
            output_io += "&nbsp;";
        output_io += "</td></tr>\r\n</table>";
    }
    // Even without criteria the search lists every record, a page at a time.
    output_io += "\r\n<p>Results per page: ";
    EditDB_AppendTextInput(output_io, kEditDBPostArgument_ResultsPerPage, "25", 7, 0);
    if (KivGlueDBGetRecordCount(processingInfo_i, database_i) == 0)
    {
        output_io += "\r\n<p><em>There are no records in the ";
        output_io += EditDB_Quoted(databaseName);
        output_io += " database.</em>";
    }
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName, databaseName);
    EditDB_AppendButtonRowStart(output_io);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_SearchRecords, language, kEditDBColor_View);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MoveFirstRecord, language,
                              kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MoveLastRecord, language, kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_AddRecord, language, kEditDBColor_Create);
    EditDB_AppendButtonRowEnd(output_io);
    EditDB_AppendSecondButtonRow(output_io, language, false);
    EditDB_AppendFormEnd(output_io);
    return 0;
}

KivString EditDB_BuildSearchString(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                   const unsigned int& database_i)
{
    KivString search;
    const TKivArray<KivString> notValues = EditDB_GetPostedValues(processingInfo_i, kEditDBPostArgument_Not);
    const unsigned int count = KivGlueDBGetFieldCount(processingInfo_i, database_i);
    for (unsigned int index = 0; index < count; ++index)
    {
        KivString fieldName;
        unsigned int descriptor = 0;
        if (KivGlueDBGetFieldInfo(processingInfo_i, database_i, index, fieldName, descriptor) != 0)
            continue;
        // Every text area posts, and "Ignore" posts nothing: only a value takes part.
        KivString value;
        if (!EditDB_GetPostArgument(processingInfo_i, fieldName, value) || value.IsEmpty())
            continue;
        if (search.IsNotEmpty())
            search += " AND ";
        for (unsigned int notIndex = 0; notIndex < notValues.GetElementCount(); ++notIndex)
            if (notValues[notIndex] == fieldName)
                search += " NOT ";
        search += fieldName;
        search += " = '";
        search += EditDB_GetCriterionText(descriptor, value);
        search += "'";
    }
    EditDB_AppendOrdering(processingInfo_i, search);
    return search;
}

unsigned int EditDB_SearchRecords(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                  const unsigned int& database_i)
{
    KivGlueDBClearSearchResults(processingInfo_i, database_i);
    KivString search;
    if (!EditDB_IsAdvancedSearch(processingInfo_i) ||
        !EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_SearchString, search) ||
        search.IsEmpty())
        search = EditDB_BuildSearchString(processingInfo_i, database_i);

    const unsigned int result = KivGlueDBExecuteSearch(processingInfo_i, database_i, search);
    if (result == 0 || result == kKivResult_BeginningOfFile || result == kKivResult_EndOfFile)
        return result;

    const KivString errorText = EditDB_HTML(KivGlueDBGetErrorInfo(processingInfo_i, database_i));
    KivString headline("The database system was unable to search the &quot;");
    headline += EditDB_HTML(EditDB_GetDatabaseName(processingInfo_i, database_i));
    const char* hint = kEditDBHint_ContactAdministrator;
    if (result == kKivResult_NotIndexed)
    {
        headline +=
            KivString("&quot; database because the &quot;") + errorText + "&quot; field is not indexed.";
        hint = "Fields must be indexed to be searchable by the internal database system.";
    }
    else if (result == kKivResult_NotFound)
    {
        headline +=
            KivString("&quot; database because the &quot;") + errorText + "&quot; field could not be found.";
        hint = "Make sure the field exists in the database.";
    }
    else if (result == kKivResult_ImproperFormat)
    {
        headline += KivString("&quot; database because the following search information was improperly "
                              "formatted:<p>") +
                    errorText;
        hint = "Check the format of the search information.";
    }
    else
        headline += KivString("&quot; database.<p>") + errorText;
    EditDB_ReportError(processingInfo_i, headline, hint);
    return result;
}

unsigned int EditDB_SearchResultsForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                      const unsigned int& database_i, const KivString& uniqueIDFieldName_i)
{
    const unsigned long language = EditDB_GetLanguage(processingInfo_i);
    unsigned int idDescriptor = 0;
    unsigned int result =
        KivGlueDBGetFieldInfo(processingInfo_i, database_i, uniqueIDFieldName_i, idDescriptor);
    if (result != 0)
        return EditDB_ReportNoUniqueIDField(processingInfo_i, database_i, result);
    TKivArray<EditDB_Field> fields(nullptr);
    EditDB_GetFields(processingInfo_i, database_i, fields);
    const KivString headerColor = EditDB_GetHeaderColor(processingInfo_i);

    KivString text;
    EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_ResultsPage, text, "1");
    int page = KivStringUtility::GetNumericalRepresentation(text, 10);
    KivString label;
    EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_Action, label);
    const unsigned int action = EditDB_GetActionID(label);
    if (action == kEditDB_ID_Action_MoveNextPage)
        ++page;
    else if (action == kEditDB_ID_Action_MovePrevPage)
        --page;
    if (page < 1)
        page = 1;
    EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_ResultsPerPage, text, "25");
    int perPageValue = KivStringUtility::GetNumericalRepresentation(text, 10);
    unsigned int perPage = perPageValue < 1 ? kEditDBDefaultResultsPerPage : (unsigned int)perPageValue;
    if (perPage > kEditDBMaxResultsPerPage)
        perPage = kEditDBMaxResultsPerPage;

    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendRecordsHeader(processingInfo_i, output_io, database_i, "Records (", "):");
    EditDB_AppendSearchCarriedForward(processingInfo_i, output_io, fields, (unsigned int)page, perPage);
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName,
                        EditDB_GetDatabaseName(processingInfo_i, database_i));

    const unsigned int total = KivGlueDBGetResultCount(processingInfo_i, database_i);
    const unsigned int skipped = ((unsigned int)page - 1) * perPage;
    bool found = KivGlueDBMoveFirstRecord(processingInfo_i, database_i) == 0;
    if (found && page > 1)
        found = KivGlueDBJump(processingInfo_i, database_i, skipped) == 0;
    unsigned int last = 0;
    if (!found)
        output_io += "\r\n<p><strong>No records found.</strong>";
    else
    {
        last = skipped + perPage < total ? skipped + perPage : total;
        output_io += "\r\n<p>Showing ";
        output_io += EditDB_Decimal(skipped + 1);
        output_io += " - ";
        output_io += EditDB_Decimal(last);
        output_io += " of ";
        output_io += EditDB_Decimal(total);
        output_io += " results matching your search.\r\n<br>Select the record you wish to view:"
                     "\r\n<table border=\"1\" cellspacing=\"0\" cellpadding=\"2\">\r\n<tr>";
        EditDB_AppendTableHeaderCell(output_io, headerColor, "&nbsp;");
        for (unsigned int index = 0; index < fields.GetElementCount(); ++index)
            EditDB_AppendTableHeaderCell(output_io, headerColor, EditDB_HTML(fields[index].name));
        output_io += "</tr>";
        for (unsigned int row = 0; row < perPage; ++row)
        {
            output_io += "\r\n<tr><td>";
            EditDB_AppendRadio(
                output_io, kEditDBPostArgument_RecordID,
                EditDB_GetFieldValueText(processingInfo_i, database_i, uniqueIDFieldName_i, idDescriptor),
                false);
            output_io += "</td>";
            for (unsigned int index = 0; index < fields.GetElementCount(); ++index)
            {
                output_io += "<td>";
                output_io += EditDB_GetResultCell(processingInfo_i, database_i, fields[index]);
                output_io += "</td>";
            }
            output_io += "</tr>";
            if (KivGlueDBMoveNextRecord(processingInfo_i, database_i) != 0)
                break;
        }
        output_io += "\r\n</table>";
    }

    EditDB_AppendButtonRowStart(output_io);
    if (found)
        EditDB_AppendActionButton(output_io, kEditDB_ID_Action_ViewRecord, language, kEditDBColor_View);
    if (page > 1)
        EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MovePrevPage, language,
                                  kEditDBColor_Navigation);
    if (found && last < total)
        EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MoveNextPage, language,
                                  kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_ShowRecordSearch, language, kEditDBColor_View);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_AddRecord, language, kEditDBColor_Create);
    EditDB_AppendButtonRowEnd(output_io);
    EditDB_AppendSecondButtonRow(output_io, language, false);
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_RecordDisplayForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                      const unsigned int& database_i, const KivString& uniqueIDFieldName_i)
{
    const unsigned long language = EditDB_GetLanguage(processingInfo_i);
    unsigned int idDescriptor = 0;
    unsigned int result =
        KivGlueDBGetFieldInfo(processingInfo_i, database_i, uniqueIDFieldName_i, idDescriptor);
    if (result != 0)
        return EditDB_ReportNoUniqueIDField(processingInfo_i, database_i, result);
    TKivArray<EditDB_Field> fields(nullptr);
    if (!EditDB_GetFields(processingInfo_i, database_i, fields))
    {
        EditDB_ReportError(processingInfo_i,
                           "The &quot;kivEditDatabase&quot; tag reached an undefined state during the "
                           "RecordDisplayForm function.",
                           kEditDBHint_ContactAdministrator);
        return kKivResult_UnknownError;
    }
    const bool mirrorButtons = EditDB_GetTagParameter(processingInfo_i, kEditDBParameter_MirrorButtons, "no")
                                   .CompareTo("yes", kKivString_CaseInsensitive) == kKivCompare_Equal;

    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendRecordsHeader(processingInfo_i, output_io, database_i, "Records (", "):");
    EditDB_AppendDisplayButtons(output_io, language);
    output_io += "\r\n<p>Make any changes and select the &quot;Save&quot; button:";
    EditDB_AppendRecordTable(processingInfo_i, output_io, database_i, fields, true);
    EditDB_AppendHidden(
        output_io, kEditDBPostArgument_RecordID,
        EditDB_GetFieldValueText(processingInfo_i, database_i, uniqueIDFieldName_i, idDescriptor));
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName,
                        EditDB_GetDatabaseName(processingInfo_i, database_i));
    if (mirrorButtons)
        EditDB_AppendDisplayButtons(output_io, language);
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_BlankRecordForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                    const unsigned int& database_i, const bool& recordAdded_i)
{
    const unsigned long language = EditDB_GetLanguage(processingInfo_i);
    TKivArray<EditDB_Field> fields(nullptr);
    if (!EditDB_GetFields(processingInfo_i, database_i, fields))
    {
        EditDB_ReportError(processingInfo_i,
                           "The &quot;kivEditDatabase&quot; tag reached an undefined state during the "
                           "BlankRecordForm function.",
                           kEditDBHint_ContactAdministrator);
        return kKivResult_UnknownError;
    }
    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendRecordsHeader(processingInfo_i, output_io, database_i, "Records (", "):");
    output_io += "\r\n<p>";
    if (recordAdded_i)
        output_io += "Record successfully added.\r\n<br>";
    output_io += "Enter the new record information and select the &quot;Submit Record&quot; button:";
    EditDB_AppendRecordTable(processingInfo_i, output_io, database_i, fields, false);
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName,
                        EditDB_GetDatabaseName(processingInfo_i, database_i));
    EditDB_AppendButtonRowStart(output_io);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_SubmitRecord, language, kEditDBColor_Create);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_ShowRecordSearch, language, kEditDBColor_View);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MoveFirstRecord, language,
                              kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_MoveLastRecord, language, kEditDBColor_Navigation);
    EditDB_AppendButtonRowEnd(output_io);
    EditDB_AppendSecondButtonRow(output_io, language, false);
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_VerifyDeleteRecordForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                           KivString& output_io, const unsigned int& database_i)
{
    KivString recordID;
    EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_RecordID, recordID, "0");
    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendRecordsHeader(processingInfo_i, output_io, database_i, "Records (", "):");
    output_io += "\r\n<p>Are you sure you want to delete this record?";
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName,
                        EditDB_GetDatabaseName(processingInfo_i, database_i));
    EditDB_AppendHidden(output_io, kEditDBPostArgument_RecordID, recordID);
    EditDB_AppendHidden(output_io, kEditDBPostArgument_Action, "DeleteRecord");
    EditDB_AppendConfirmationButtons(output_io, "Yes", "No");
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_VerifyDeleteAllRecordsForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                               KivString& output_io, const unsigned int& database_i)
{
    const KivString databaseName = EditDB_GetDatabaseName(processingInfo_i, database_i);
    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendRecordsHeader(processingInfo_i, output_io, database_i, "Records (", "):");
    output_io += "\r\n<p>Are you sure you want to delete all of the records in the ";
    output_io += EditDB_HTML(databaseName);
    output_io += " database?";
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName, databaseName);
    EditDB_AppendHidden(output_io, kEditDBPostArgument_Action, "DeleteAllRecords");
    EditDB_AppendConfirmationButtons(output_io, "Yes", "No");
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_AddRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i)
{
    return EditDB_CreateRecord(processingInfo_i, database_i, kEditDBOperation_Add);
}

unsigned int EditDB_DuplicateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                    const unsigned int& database_i)
{
    return EditDB_CreateRecord(processingInfo_i, database_i, kEditDBOperation_Duplicate);
}

unsigned int EditDB_UpdateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                 const unsigned int& database_i)
{
    EditDB_StorePostedValues(processingInfo_i, database_i, kEditDBOperation_Update);
    const unsigned int result = KivGlueDBUpdateRecord(processingInfo_i, database_i);
    if (result != 0)
        EditDB_ReportError(processingInfo_i,
                           KivString("The database system was unable to update a record in the ") +
                               EditDB_Quoted(EditDB_GetDatabaseName(processingInfo_i, database_i)) +
                               " database." + EditDB_GetErrorDetail(processingInfo_i, database_i),
                           kEditDBHint_ContactAdministrator);
    return result;
}
