// The editor's database list and field manager: the forms that choose, create and remove a
// database, and those that add and delete its fields.
#include "EditDatabaseInternal.h"
#include "KivGlue.h"
#include "KivGlueDB.h"
#include "KivStringUtility.h"
#include "ModifyDBShared.h"
#include "TKivArray.h"

namespace
{

const char* const kEditDBFieldNameHint =
    "Make sure that the post argument carrying the field's name is being posted.";

// The module keeps databases of its own ("__KIVDB__name__"); administrators see them only when
// the page asks for them.
bool EditDB_IsInternalDatabase(const KivString& name_i)
{
    return name_i.BeginsWith("__KIVDB__") && name_i.EndsWith("__");
}

TKivArray<KivString> EditDB_GetListedDatabases(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    const bool showInternal =
        EditDB_GetTagParameter(processingInfo_i, kEditDBParameter_ShowKivDatabases, "no")
            .CompareTo("yes", kKivString_CaseInsensitive) == kKivCompare_Equal;
    TKivArray<KivString> names(nullptr);
    const unsigned int count = KivGlueDBGetDatabaseCount(processingInfo_i);
    for (unsigned int index = 0; index < count; ++index)
    {
        KivString name;
        if (KivGlueDBGetDatabaseNameByIndex(processingInfo_i, index, name) != 0)
            continue;
        if (showInternal || !EditDB_IsInternalDatabase(name))
            names.Append(name);
    }
    return names;
}

KivString EditDB_GetPostedFieldName(_KIVAPI_ModuleProcessingInfo* processingInfo_i, bool& posted_io)
{
    KivString fieldName;
    posted_io = EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_FieldName, fieldName);
    return fieldName;
}

void EditDB_AppendLabelledRow(KivString& output_io, const KivString& headerColor_i, const char* label_i)
{
    output_io += "\r\n<tr><td bgcolor=\"";
    output_io += EditDB_HTML(headerColor_i);
    output_io += "\"><strong>";
    output_io += label_i;
    output_io += "</strong></td><td>";
}

void EditDB_AppendYesNoRadios(KivString& output_io, const KivString& name_i, const char* yesValue_i,
                              const char* noValue_i)
{
    EditDB_AppendRadio(output_io, name_i, yesValue_i, false);
    output_io += " Yes ";
    EditDB_AppendRadio(output_io, name_i, noValue_i, true);
    output_io += " No</td></tr>";
}

void EditDB_AppendTypeOption(KivString& output_io, const KivString& value_i, const KivString& text_i,
                             const bool& selected_i)
{
    output_io += "\r\n<option value=\"";
    output_io += EditDB_HTML(value_i);
    output_io += selected_i ? "\" selected>" : "\">";
    output_io += EditDB_HTML(text_i);
    output_io += "</option>";
}

// The types a new field can have: the host's own, or those the ODBC driver reports.
void EditDB_AppendTypeSelect(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                             const bool& usesODBC_i)
{
    output_io += "<select name=\"";
    output_io += kEditDBPostArgument_FieldType;
    output_io += "\">";
    if (!usesODBC_i)
    {
        EditDB_AppendTypeOption(output_io, "boolean", "True/False (Boolean)", false);
        EditDB_AppendTypeOption(output_io, "integer", "Whole Number (Integer)", false);
        EditDB_AppendTypeOption(output_io, "uinteger", "Positive Number (Unsigned Integer)", false);
        EditDB_AppendTypeOption(output_io, "number", "Decimal Number (Multi-Precision Float)", false);
        EditDB_AppendTypeOption(output_io, "text", "Text (Max Size: 250)", true);
        EditDB_AppendTypeOption(output_io, "longtext", "Long Text (NO Order, NO Unique)", false);
    }
    else
    {
        const unsigned int count = KivGlueDBGetODBCFieldTypeCount(processingInfo_i);
        for (unsigned int index = 0; index < count; ++index)
        {
            KivString typeName;
            unsigned int descriptor = 0;
            if (KivGlueDBGetODBCFieldTypeInfoByIndex(processingInfo_i, index, typeName, descriptor) != 0)
                continue;
            KivString text(typeName);
            if ((descriptor & kKivFieldLengthMask) != 0)
                text += KivString(" (Max Size: ") + EditDB_Decimal(descriptor & kKivFieldLengthMask) + ")";
            if (descriptor & kKivFieldFlag_CaseSensitive)
                text += " - Case-sensitive";
            if (descriptor & kKivFieldFlag_AutoUnique)
                text += " - Auto-unique";
            EditDB_AppendTypeOption(output_io, typeName, text, false);
        }
    }
    output_io += "\r\n</select></td></tr>";
}

// The type word with its length or size, then the flags: "text 64, indexed".
KivString EditDB_GetFieldDescription(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                     const unsigned int& descriptor_i)
{
    KivString description = EditDB_GetTypeWord(processingInfo_i, descriptor_i);
    const unsigned int type = (descriptor_i & kKivFieldTypeMask) >> kKivFieldTypeShift;
    const unsigned int length = descriptor_i & kKivFieldLengthMask;
    if (type == kKivFieldType_Text || (type >= kKivFieldType_ODBCPositive && length != 0))
        description += KivString(" ") + EditDB_Decimal(length);
    if (descriptor_i & kKivFieldFlag_Indexed)
        description += ", indexed";
    if (descriptor_i & kKivFieldFlag_Unique)
        description += ", unique";
    if (descriptor_i & kKivFieldFlag_AutoUnique)
        description += ", auto-unique";
    return description;
}

void EditDB_AppendFieldsHeader(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                               const unsigned int& database_i, const char* titleEnd_i)
{
    KivString title("Fields (");
    title += EditDB_HTML(KivGlueDBGetDatabaseName(processingInfo_i, database_i));
    title += titleEnd_i;
    EditDB_AppendHeader(output_io, title,
                        EditDB_CountAvailable(KivGlueDBGetFieldCount(processingInfo_i, database_i), "Field"));
}

void EditDB_AppendAddFieldForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                               const KivString& databaseName_i, const bool& usesODBC_i,
                               const unsigned long& language_i)
{
    const KivString headerColor = EditDB_GetHeaderColor(processingInfo_i);
    EditDB_AppendFormStart(processingInfo_i, output_io);
    output_io += "\r\n<p>Enter the name of the field to add:"
                 "\r\n<table border=\"1\" cellspacing=\"0\" cellpadding=\"3\">";
    EditDB_AppendLabelledRow(output_io, headerColor, "Name");
    EditDB_AppendTextInput(output_io, kEditDBPostArgument_FieldName, KivString(), 30, 0);
    output_io += "</td></tr>";
    EditDB_AppendLabelledRow(output_io, headerColor, "Type");
    EditDB_AppendTypeSelect(processingInfo_i, output_io, usesODBC_i);
    EditDB_AppendLabelledRow(output_io, headerColor, "Indexed");
    EditDB_AppendYesNoRadios(output_io, kEditDBPostArgument_FieldIndexed, "indexed", "notindexed");
    EditDB_AppendLabelledRow(output_io, headerColor, "Unique");
    EditDB_AppendYesNoRadios(output_io, kEditDBPostArgument_FieldUnique, "unique", "notunique");
    EditDB_AppendLabelledRow(output_io, headerColor, "Length/Prec");
    EditDB_AppendTextInput(output_io, kEditDBPostArgument_FieldLength, KivString(), 3, 3);
    output_io += " <font color=\"#999999\">(for text and mp number only)</font></td></tr>\r\n</table>";
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName, databaseName_i);
    EditDB_AppendButtonRowStart(output_io);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_AddField, language_i, kEditDBColor_Create);
    EditDB_AppendButtonRowEnd(output_io);
    EditDB_AppendFormEnd(output_io);
}

// Fields can only change while the database is empty: this notice says how to get there.
void EditDB_AppendRecordsPresentNotice(KivString& output_io)
{
    output_io += "\r\n<hr>";
    output_io +=
        "\r\n\r\nKiv has detected records in the current database.  Fields cannot be added to a database ";
    output_io += "\r\nafter records have already been inserted.  If you wish to add a new field or fields, ";
    output_io += "\r\nexport your database to a text file.  Next, you must delete all of the records ";
    output_io +=
        "\r\nin the database.  Once that is done, return to this interface and add your new field or "
        "fields ";
    output_io +=
        "\r\nto the database.  After you have added all of your new fields, import the text file that ";
    output_io += "\r\nyou exported earlier.<p><hr>";
}

} // namespace

unsigned int EditDB_GetListedDatabaseCount(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    return EditDB_GetListedDatabases(processingInfo_i).GetElementCount();
}

unsigned int EditDB_DatabaseListForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                     const bool& usesODBC_i)
{
    const unsigned long language = EditDB_GetLanguage(processingInfo_i);
    const TKivArray<KivString> names = EditDB_GetListedDatabases(processingInfo_i);
    const unsigned int count = names.GetElementCount();

    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendHeader(output_io, EditDB_GetLocalizedString(kEditDB_ID_Word_Databases, language) + ":",
                        EditDB_Decimal(count) + " " +
                            EditDB_GetLocalizedString(count == 1 ? kEditDB_ID_String_DatabaseAvailable
                                                                 : kEditDB_ID_String_DatabasesAvailable,
                                                      language));
    if (count > 0)
    {
        output_io += "\r\n<p><strong>";
        output_io += EditDB_GetLocalizedString(kEditDB_ID_String_SelectDatabase, language);
        output_io += "</strong>";
        for (unsigned int index = 0; index < count; ++index)
        {
            output_io += index == 0 ? "\r\n" : "\r\n<br>";
            EditDB_AppendRadio(output_io, kEditDBPostArgument_SelectedDatabase, names[index], false);
            output_io += " ";
            output_io += EditDB_HTML(names[index]);
        }
    }
    else
    {
        output_io += "\r\n<p>";
        output_io += EditDB_GetLocalizedString(kEditDB_ID_String_NoDatabasesFound, language);
    }
    output_io += "\r\n<p>";
    output_io += EditDB_GetLocalizedString(
        count > 0 ? kEditDB_ID_String_OrEnterNewDB : kEditDB_ID_String_EnterNewDB, language);
    output_io += "\r\n<br>";
    // Choosing the empty entry of the list selects the typed name.
    if (count > 0)
    {
        EditDB_AppendRadio(output_io, kEditDBPostArgument_SelectedDatabase, KivString(), false);
        output_io += " ";
    }
    EditDB_AppendTextInput(output_io, kEditDBPostArgument_DatabaseName, KivString(), 30, 27);

    EditDB_AppendButtonRowStart(output_io);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_ManageFields, language, kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_ManageRecords, language, kEditDBColor_Navigation);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_GetImportFilename, language,
                              kEditDBColor_Transfer);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_VerifyDeleteDatabase, language,
                              kEditDBColor_Delete);
    if (usesODBC_i)
        EditDB_AppendActionButton(output_io, kEditDB_ID_Action_CheckODBC, language, kEditDBColor_View);
    EditDB_AppendButtonRowEnd(output_io);
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_VerifyDeleteDatabaseForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                             KivString& output_io, const KivString& databaseName_i)
{
    const unsigned long language = EditDB_GetLanguage(processingInfo_i);
    const unsigned int count = EditDB_GetListedDatabaseCount(processingInfo_i);

    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendHeader(output_io, "Verification:", EditDB_CountAvailable(count, "Database"));
    output_io += "\r\n<p>Are you sure you want to delete the ";
    output_io += EditDB_HTML(databaseName_i);
    output_io += " database?";
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName, databaseName_i);
    EditDB_AppendHidden(output_io, kEditDBPostArgument_Action, "DeleteDatabase");

    EditDB_AppendConfirmationButtons(output_io, EditDB_GetLocalizedString(kEditDB_ID_Word_Yes, language),
                                     EditDB_GetLocalizedString(kEditDB_ID_Word_No, language));
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_FieldListForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                  const unsigned int& database_i, const bool& usesODBC_i)
{
    const unsigned long language = EditDB_GetLanguage(processingInfo_i);
    const KivString databaseName = KivGlueDBGetDatabaseName(processingInfo_i, database_i);
    const unsigned int fieldCount = KivGlueDBGetFieldCount(processingInfo_i, database_i);
    const bool hasRecords = KivGlueDBGetRecordCount(processingInfo_i, database_i) > 0;

    EditDB_AppendFieldsHeader(processingInfo_i, output_io, database_i, "):");
    if (hasRecords)
        EditDB_AppendRecordsPresentNotice(output_io);
    else
        EditDB_AppendAddFieldForm(processingInfo_i, output_io, databaseName, usesODBC_i, language);

    // A database without fields has nothing to list: the add-field form stands alone.
    if (fieldCount == 0)
        return 0;
    EditDB_AppendFormStart(processingInfo_i, output_io);
    output_io += hasRecords ? "\r\n<p>Current fields:" : "\r\n<p>Or, select a field to delete:";
    for (unsigned int index = 0; index < fieldCount; ++index)
    {
        KivString fieldName;
        unsigned int descriptor = 0;
        if (KivGlueDBGetFieldInfo(processingInfo_i, database_i, index, fieldName, descriptor) != 0)
            continue;
        output_io += "\r\n<br>";
        // With records present fields cannot be deleted, so they are not offered.
        if (!hasRecords)
        {
            EditDB_AppendRadio(output_io, kEditDBPostArgument_FieldName, fieldName, false);
            output_io += " ";
        }
        output_io += EditDB_HTML(fieldName);
        output_io += " (<em>";
        output_io += EditDB_HTML(EditDB_GetFieldDescription(processingInfo_i, descriptor));
        output_io += " </em>)";
    }
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName, databaseName);
    EditDB_AppendButtonRowStart(output_io);
    if (!hasRecords)
        EditDB_AppendActionButton(output_io, kEditDB_ID_Action_VerifyDeleteField, language,
                                  kEditDBColor_Delete);
    EditDB_AppendActionButton(output_io, kEditDB_ID_Action_ManageRecords, language, kEditDBColor_Navigation);
    EditDB_AppendButtonRowEnd(output_io);
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_VerifyDeleteFieldForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                          KivString& output_io, const unsigned int& database_i)
{
    bool posted = false;
    const KivString fieldName = EditDB_GetPostedFieldName(processingInfo_i, posted);
    if (!posted)
    {
        EditDB_ReportError(processingInfo_i,
                           "The database system was unable to find the name of the field to be deleted.",
                           kEditDBFieldNameHint);
        return kKivResult_NotFound;
    }
    EditDB_AppendFormStart(processingInfo_i, output_io);
    EditDB_AppendFieldsHeader(processingInfo_i, output_io, database_i, ")");
    output_io += "\r\n<p>Are you sure you want to delete the ";
    output_io += EditDB_HTML(fieldName);
    output_io += " field?";
    EditDB_AppendHidden(output_io, kEditDBPostArgument_DatabaseName,
                        KivGlueDBGetDatabaseName(processingInfo_i, database_i));
    EditDB_AppendHidden(output_io, kEditDBPostArgument_FieldName, fieldName);
    EditDB_AppendHidden(output_io, kEditDBPostArgument_Action, "DeleteField");
    // Literal answers in every language: the deletion compares with the literal "Yes".
    EditDB_AppendConfirmationButtons(output_io, "Yes", "No");
    EditDB_AppendFormEnd(output_io);
    return 0;
}

unsigned int EditDB_GetFieldDescriptor(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                       const KivString& typeName_i, const KivString& length_i,
                                       const KivString& indexed_i, const KivString& unique_i)
{
    int length = KivStringUtility::GetNumericalRepresentation(length_i, 10);
    unsigned int descriptor = (length < 0 ? 0u - (unsigned int)length : (unsigned int)length) & 0xFFFF;

    const KivStringID type(typeName_i, kKivStringID_CaseInsensitive);
    if (type == kEditDBFieldType_Boolean)
        descriptor += 0x10000;
    else if (type == kEditDBFieldType_Integer)
        descriptor += 0x20000;
    else if (type == kEditDBFieldType_UInteger)
        descriptor += 0x30000;
    else if (type == kEditDBFieldType_Float)
        descriptor += 0x40000;
    else if (type == kEditDBFieldType_Number)
        descriptor += 0x50000;
    else if (type == kEditDBFieldType_Text)
        descriptor += 0x60000;
    else if (type == kEditDBFieldType_LongText)
        descriptor += 0x70000;
    else
    {
        unsigned int odbcType = 0;
        if (KivGlueDBGetODBCFieldTypeInfoByName(processingInfo_i, typeName_i, odbcType) == 0)
            descriptor += odbcType & 0x1FF0000;
    }
    if (indexed_i == "indexed")
        descriptor |= kKivFieldFlag_Indexed;
    if (unique_i == "unique")
        descriptor |= kKivFieldFlag_Unique;
    return descriptor;
}

unsigned int EditDB_AddField(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i)
{
    bool posted = false;
    const KivString fieldName = EditDB_GetPostedFieldName(processingInfo_i, posted);
    if (!posted)
    {
        EditDB_ReportError(processingInfo_i,
                           "The database system was unable to find the name of the field to be added.",
                           kEditDBFieldNameHint);
        return kKivResult_NotFound;
    }
    KivString typeName;
    if (!EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_FieldType, typeName))
    {
        EditDB_ReportError(processingInfo_i,
                           "The database system was unable to find the type of the field to be added.",
                           "Make sure that the post argument carrying the field's type is being posted.");
        return kKivResult_NotFound;
    }
    KivString length, indexed, unique;
    EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_FieldLength, length, "0");
    EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_FieldIndexed, indexed);
    EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_FieldUnique, unique);
    const unsigned int descriptor =
        EditDB_GetFieldDescriptor(processingInfo_i, typeName, length, indexed, unique);

    const unsigned int result = KivGlueDBAddField(processingInfo_i, database_i, fieldName, descriptor);
    if (result != 0)
    {
        KivString headline("The database system was unable to add the ");
        headline += EditDB_Quoted(fieldName);
        headline += " field to the ";
        headline += EditDB_Quoted(KivGlueDBGetDatabaseName(processingInfo_i, database_i));
        headline += " database.";
        if (result == kKivResult_NotUnique)
            headline += "  The field already exists.";
        headline += EditDB_GetErrorDetail(processingInfo_i, database_i);
        EditDB_ReportError(processingInfo_i, headline, "Make sure the field does not already exist.");
    }
    return result;
}

unsigned int EditDB_DeleteField(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                const unsigned int& database_i)
{
    bool posted = false;
    const KivString fieldName = EditDB_GetPostedFieldName(processingInfo_i, posted);
    if (!posted)
    {
        EditDB_ReportError(processingInfo_i,
                           "The database system was unable to find the name of the field to be deleted.",
                           kEditDBFieldNameHint);
        return kKivResult_NotFound;
    }
    const unsigned int result = KivGlueDBDeleteField(processingInfo_i, database_i, fieldName);
    if (result != 0)
    {
        KivString headline("The database system was unable to delete the ");
        headline += EditDB_Quoted(fieldName);
        headline += " field from the ";
        headline += EditDB_Quoted(KivGlueDBGetDatabaseName(processingInfo_i, database_i));
        headline += " database.";
        headline += EditDB_GetErrorDetail(processingInfo_i, database_i);
        EditDB_ReportError(processingInfo_i, headline,
                           "Make sure that you are not trying to delete a field while records exist.");
    }
    return result;
}
