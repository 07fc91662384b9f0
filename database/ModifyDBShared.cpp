// Pieces shared by the search and modify tags: value classes, criteria, result variables and
// error reporting.
#include "ModifyDBShared.h"

#include "KivGlue.h"
#include "KivGlueDB.h"

const char* const kModifyDBHint_ContactAdministrator =
    "Contact the system administrator and report this problem.";
const char* const kModifyDBBlanks = " \t\r\n";

ModifyDB_ValueClass ModifyDB_GetValueClass(const unsigned int& fieldInfoWord_i)
{
    switch ((fieldInfoWord_i & kKivFieldTypeMask) >> kKivFieldTypeShift)
    {
    case 0x01: // Boolean
    case 0x87: // SQL BIT
        return kModifyDBValueClass_Boolean;
    case 0x02: // Integer
    case 0x44: // SQL INTEGER
    case 0x45: // SQL SMALLINT
    case 0x86: // SQL TINYINT
        return kModifyDBValueClass_Integer;
    case 0x03:
        return kModifyDBValueClass_UInteger;
    case 0x04: // Float
    case 0x43: // SQL DECIMAL
    case 0x46: // SQL FLOAT
    case 0x47: // SQL REAL
    case 0x48: // SQL DOUBLE
        return kModifyDBValueClass_Float;
    case 0x05: // Number
    case 0x42: // SQL NUMERIC
    case 0x85: // SQL BIGINT
        return kModifyDBValueClass_Number;
    case 0x06: // Text
    case 0x41: // SQL CHAR
    case 0x4C: // SQL VARCHAR
        return kModifyDBValueClass_Text;
    case 0x07: // LongText
    case 0x81: // SQL LONGVARCHAR
        return kModifyDBValueClass_LongText;
    default: // dates and times, binaries, wide characters and anything unknown
        return kModifyDBValueClass_Unsupported;
    }
}

void ModifyDB_AppendCondition(KivString& criteria_io, const KivString& fieldName_i, const KivString& value_i)
{
    KivString quotedValue(value_i);
    quotedValue.ReplaceAll('\'', KivString("''"), 0);
    if (criteria_io.IsNotEmpty())
        criteria_io += " AND ";
    criteria_io += fieldName_i;
    criteria_io += " = '";
    criteria_io += quotedValue;
    criteria_io += "'";
}

void ModifyDB_AppendOrdering(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& criteria_io,
                             const KivStringID& orderByParameter_i, const KivStringID& reverseParameter_i)
{
    KivString orderByField;
    if (!KivGlueGetTagParameter(processingInfo_i, orderByParameter_i, 0, orderByField, KivString()))
        return;
    criteria_io += " ORDER BY ";
    criteria_io += orderByField;
    KivString reverseOrder;
    if (KivGlueGetTagParameter(processingInfo_i, reverseParameter_i, 0, reverseOrder, KivString()) &&
        reverseOrder.CompareTo("yes", kKivString_CaseInsensitive) == kKivCompare_Equal)
        criteria_io += " DESC";
}

KivStringID ModifyDB_GetParameterID(const KivStringID& name_i)
{
    return KivStringID(name_i, kKivStringID_CaseInsensitive);
}

bool ModifyDB_GetResultVariablePrefix(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                      const KivStringID& parameter_i, KivString& prefix_io)
{
    return KivGlueGetTagParameter(processingInfo_i, parameter_i, 0, prefix_io, KivString()) &&
           prefix_io.IsNotEmpty();
}

void ModifyDB_SetResultVariable(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivString& prefix_i,
                                const char* suffix_i, const KivString& value_i)
{
    if (prefix_i.IsEmpty())
        return;
    KivGlueSetPageVariable(processingInfo_i, prefix_i + suffix_i, value_i);
}

unsigned int ModifyDB_StartDatabaseService(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                           const KivStringID& dataSourceParameter_i,
                                           const KivStringID& userNameParameter_i,
                                           const KivStringID& passwordParameter_i)
{
    const KivString noDefault;
    KivString dataSource;
    KivString userName;
    KivString password;
    KivGlueGetTagParameter(processingInfo_i, dataSourceParameter_i, 0, dataSource, noDefault);
    KivGlueGetTagParameter(processingInfo_i, userNameParameter_i, 0, userName, noDefault);
    KivGlueGetTagParameter(processingInfo_i, passwordParameter_i, 0, password, noDefault);
    unsigned int result = KivGlueDBInitialize(processingInfo_i, dataSource, userName, password);
    if (result != 0)
        ModifyDB_ReportError(processingInfo_i, "The database system failed to initialize.",
                             kModifyDBHint_ContactAdministrator, true);
    return result;
}

void ModifyDB_ReportError(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivString& headline_i,
                          const KivString& hint_i, const bool& log_i)
{
    KivGlueSetErrorInformation(processingInfo_i, headline_i, hint_i);
    if (log_i)
        KivGlueAddErrorToServerLog(processingInfo_i, headline_i);
}

KivString ModifyDB_Quoted(const KivString& name_i)
{
    KivString quoted("&quot;");
    quoted += name_i;
    quoted += "&quot;";
    return quoted;
}
