// Pieces every editor form is made of: the self-posting form, headers, hidden inputs, button
// rows, localized words, HTML encoding of stored and posted text, and error reporting.
#include "DatabaseModule.h"
#include "EditDatabaseInternal.h"
#include "KivGlue.h"
#include "KivGlueDB.h"
#include "KivStringUtility.h"
#include "ModifyDBShared.h"

const char* const kEditDBColor_Navigation = "#0000ff";
const char* const kEditDBColor_Transfer = "#ff9900";
const char* const kEditDBColor_Delete = "#ff0000";
const char* const kEditDBColor_View = "#009900";
const char* const kEditDBColor_Create = "#ffcc33";

const char* const kEditDBHint_ContactAdministrator =
    "Contact the system administrator and report this problem.";

namespace
{
const unsigned char kEditDBFloatPrecision = 6;
}

unsigned long EditDB_GetLanguage(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    return KivGlueGetDefaultLanguage(processingInfo_i);
}

KivString EditDB_GetLocalizedString(const unsigned int& identifier_i, const unsigned long& language_i)
{
    if (databaseLocalization == nullptr)
        return KivString();
    return databaseLocalization->GetString(identifier_i, language_i, true);
}

KivString EditDB_HTML(const KivString& text_i)
{
    return KivStringUtility::GetHTMLEncodedString(text_i);
}

KivString EditDB_Quoted(const KivString& name_i)
{
    return ModifyDB_Quoted(EditDB_HTML(name_i));
}

KivString EditDB_GetErrorDetail(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                const unsigned int& database_i)
{
    KivString text = KivGlueDBGetErrorInfo(processingInfo_i, database_i);
    if (text.IsEmpty())
        return text;
    return KivString("\r\n<p>") + EditDB_HTML(text);
}

void EditDB_ReportError(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivString& headline_i,
                        const KivString& hint_i)
{
    ModifyDB_ReportError(processingInfo_i, headline_i, hint_i, true);
}

KivString EditDB_GetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivStringID& name_i,
                                 const char* default_i)
{
    KivString value;
    KivGlueGetTagParameter(processingInfo_i, name_i, 0, value, KivString(default_i));
    return value;
}

KivString EditDB_GetHeaderColor(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    return EditDB_GetTagParameter(processingInfo_i, kEditDBParameter_HeaderColor, "#cccccc");
}

bool EditDB_GetPostArgument(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivString& name_i,
                            KivString& value_io, const char* default_i, const unsigned int& index_i)
{
    return KivGlueGetPostArgument(processingInfo_i, name_i, index_i, value_io, KivString(default_i));
}

unsigned int EditDB_GetActionID(const KivString& label_i)
{
    KivString key("EditDB_Action_");
    key += label_i;
    return KivStringID::CalculateID(key, 0);
}

KivString EditDB_Decimal(const unsigned int& value_i)
{
    return KivStringUtility::GetStringRepresentation(value_i, 10, 1);
}

KivString EditDB_CountAvailable(const unsigned int& count_i, const char* noun_i)
{
    KivString text = EditDB_Decimal(count_i);
    text += " ";
    text += noun_i;
    if (count_i != 1)
        text += "s";
    text += " Available";
    return text;
}

void EditDB_AppendFormStart(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io)
{
    output_io += "\r\n<form method=\"post\" action=\"";
    output_io += EditDB_HTML(KivGlueGetCGIEnvironmentVariable(processingInfo_i, "SCRIPT_NAME"));
    output_io += "\">";
}

void EditDB_AppendFormEnd(KivString& output_io)
{
    output_io += "\r\n</form>";
}

void EditDB_AppendHeader(KivString& output_io, const KivString& title_i, const KivString& right_i)
{
    output_io += "\r\n<table width=\"100%\" border=\"0\" cellspacing=\"0\" cellpadding=\"2\">"
                 "\r\n<tr><td align=\"left\"><font size=\"+2\"><strong>";
    output_io += title_i;
    output_io += "</strong></font></td><td align=\"right\">";
    output_io += right_i;
    output_io += "</td></tr>\r\n</table>\r\n<hr>";
}

void EditDB_AppendHidden(KivString& output_io, const KivString& name_i, const KivString& value_i)
{
    output_io += "\r\n<input type=\"hidden\" name=\"";
    output_io += EditDB_HTML(name_i);
    output_io += "\" value=\"";
    output_io += EditDB_HTML(value_i);
    output_io += "\">";
}

void EditDB_AppendButtonRowStart(KivString& output_io)
{
    output_io += "\r\n<table border=\"0\" cellspacing=\"2\" cellpadding=\"4\">\r\n<tr>";
}

void EditDB_AppendButtonRowEnd(KivString& output_io)
{
    output_io += "\r\n</tr>\r\n</table>";
}

void EditDB_AppendActionButton(KivString& output_io, const unsigned int& action_i,
                               const unsigned long& language_i, const char* color_i)
{
    // The label is the editor's own text, already in HTML form ("&gt;&gt;"): the browser shows
    // and posts ">>", which maps to the same action as the entity spelling.
    output_io += "\r\n<td bgcolor=\"";
    output_io += color_i;
    output_io += "\"><input type=\"submit\" name=\"";
    output_io += kEditDBPostArgument_Action;
    output_io += "\" value=\"";
    output_io += EditDB_GetLocalizedString(action_i, language_i);
    output_io += "\"></td>";
}

void EditDB_AppendConfirmationButtons(KivString& output_io, const KivString& yes_i, const KivString& no_i)
{
    const KivString* answers[] = {&yes_i, &no_i};
    const char* colors[] = {kEditDBColor_Delete, kEditDBColor_Navigation};
    EditDB_AppendButtonRowStart(output_io);
    for (unsigned int index = 0; index < 2; ++index)
    {
        output_io += "\r\n<td bgcolor=\"";
        output_io += colors[index];
        output_io += "\"><input type=\"submit\" name=\"";
        output_io += kEditDBPostArgument_Confirmation;
        output_io += "\" value=\"";
        output_io += *answers[index];
        output_io += "\"></td>";
    }
    EditDB_AppendButtonRowEnd(output_io);
}

void EditDB_AppendTextInput(KivString& output_io, const KivString& name_i, const KivString& value_i,
                            const unsigned int& size_i, const unsigned int& maxLength_i)
{
    output_io += "<input type=\"text\" name=\"";
    output_io += EditDB_HTML(name_i);
    output_io += "\" value=\"";
    output_io += EditDB_HTML(value_i);
    output_io += "\"";
    if (size_i != 0)
    {
        output_io += " size=\"";
        output_io += EditDB_Decimal(size_i);
        output_io += "\"";
    }
    if (maxLength_i != 0)
    {
        output_io += " maxlength=\"";
        output_io += EditDB_Decimal(maxLength_i);
        output_io += "\"";
    }
    output_io += ">";
}

void EditDB_AppendRadio(KivString& output_io, const KivString& name_i, const KivString& value_i,
                        const bool& checked_i)
{
    output_io += "<input type=\"radio\" name=\"";
    output_io += EditDB_HTML(name_i);
    output_io += "\" value=\"";
    output_io += EditDB_HTML(value_i);
    output_io += checked_i ? "\" checked>" : "\">";
}

void EditDB_AppendCheckbox(KivString& output_io, const KivString& name_i, const KivString& value_i)
{
    output_io += "<input type=\"checkbox\" name=\"";
    output_io += EditDB_HTML(name_i);
    output_io += "\" value=\"";
    output_io += EditDB_HTML(value_i);
    output_io += "\">";
}

void EditDB_AppendRecordsHeader(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                const unsigned int& database_i, const char* title_i, const char* titleEnd_i)
{
    KivString title(title_i);
    title += EditDB_HTML(KivGlueDBGetDatabaseName(processingInfo_i, database_i));
    title += titleEnd_i;
    EditDB_AppendHeader(
        output_io, title,
        EditDB_CountAvailable(KivGlueDBGetRecordCount(processingInfo_i, database_i), "Record"));
}

KivString EditDB_GetTypeWord(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& descriptor_i)
{
    switch ((descriptor_i & kKivFieldTypeMask) >> kKivFieldTypeShift)
    {
    case kKivFieldType_Boolean:
        return "boolean";
    case kKivFieldType_Integer:
        return "integer";
    case kKivFieldType_UInteger:
        return "uinteger";
    case kKivFieldType_Float:
        return "float";
    case kKivFieldType_Number:
        return "number";
    case kKivFieldType_Text:
        return "text";
    case kKivFieldType_LongText:
        return "long text";
    default:
        break;
    }
    // ODBC sources name their own types; the service is asked by the type bits.
    KivString typeName;
    unsigned int type = 0;
    if (KivGlueDBGetODBCFieldTypeInfo(processingInfo_i, descriptor_i & 0x1FF0000, typeName, type) == 0 &&
        typeName.IsNotEmpty())
        return typeName;
    return EditDB_GetSQLTypeName(descriptor_i);
}

KivString EditDB_GetFieldValueText(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                   const unsigned int& database_i, const KivString& fieldName_i,
                                   const unsigned int& descriptor_i)
{
    switch (ModifyDB_GetValueClass(descriptor_i))
    {
    case kModifyDBValueClass_Boolean:
        return KivGlueDBGetBooleanFieldValue(processingInfo_i, database_i, fieldName_i) ? "1" : "0";
    case kModifyDBValueClass_Integer:
        return KivStringUtility::GetStringRepresentation(
            KivGlueDBGetIntegerFieldValue(processingInfo_i, database_i, fieldName_i), 10, 1);
    case kModifyDBValueClass_UInteger:
        return EditDB_Decimal(KivGlueDBGetUIntegerFieldValue(processingInfo_i, database_i, fieldName_i));
    case kModifyDBValueClass_Float:
    {
        // Fixed decimals, without the padding and the trailing zeros a reader does not need.
        KivString text = KivStringUtility::GetStringRepresentation(
            KivGlueDBGetFloatFieldValue(processingInfo_i, database_i, fieldName_i), kEditDBFloatPrecision);
        text.TrimLeft(" ");
        if (text.Contains('.'))
        {
            text.TrimRight("0");
            text.TrimRight(".");
        }
        return text;
    }
    case kModifyDBValueClass_Number:
        return KivGlueDBGetNumberFieldValue(processingInfo_i, database_i, fieldName_i)
            .GetStringRepresentation();
    case kModifyDBValueClass_Text:
        return KivGlueDBGetTextFieldValue(processingInfo_i, database_i, fieldName_i);
    case kModifyDBValueClass_LongText:
        return KivGlueDBGetLongTextFieldValue(processingInfo_i, database_i, fieldName_i);
    default:
        return KivString();
    }
}
