// The record operations of the kivModifyDatabase tag: search criteria from the tag's
// parameters, field values from text, and adding, deleting, updating, exporting and importing
// records.
#include "KivGlue.h"
#include "KivGlueDB.h"
#include "KivNumber.h"
#include "KivStringUtility.h"
#include "ModifyDBShared.h"
#include "ModifyDBWorkers.h"
#include "SearchModifyConstants.h"

namespace
{
// Decimals of a Float unique ID written as text for deleteRecord.
const unsigned char kModifyDBFloatIDPrecision = 6;

KivString ModifyDB_GetDatabaseReference(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                        const unsigned int& database_i)
{
    return ModifyDB_Quoted(KivGlueDBGetDatabaseName(processingInfo_i, database_i));
}

// All values of a path or post argument, joined with ",", so that a multiple selection lands in
// one field.
KivString ModifyDB_GetJoinedArgument(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivString& name_i,
                                     const bool& post_i)
{
    KivString joined;
    KivString value;
    for (unsigned int index = 0;; ++index)
    {
        const bool found = post_i
                               ? KivGlueGetPostArgument(processingInfo_i, name_i, index, value, KivString())
                               : KivGlueGetPathArgument(processingInfo_i, name_i, index, value, KivString());
        if (!found)
            break;
        if (index > 0)
            joined += ",";
        joined += value;
    }
    return joined;
}

// The value of the unique-ID field of the current record as the text deleteRecord passes on.
KivString ModifyDB_GetIDText(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i,
                             const KivString& fieldName_i, const unsigned int& fieldInfoWord_i)
{
    switch (ModifyDB_GetValueClass(fieldInfoWord_i))
    {
    case kModifyDBValueClass_Boolean:
        return KivString(KivGlueDBGetBooleanFieldValue(processingInfo_i, database_i, fieldName_i) ? "1"
                                                                                                  : "0");
    case kModifyDBValueClass_Integer:
        return KivStringUtility::GetStringRepresentation(
            KivGlueDBGetIntegerFieldValue(processingInfo_i, database_i, fieldName_i), 10, 1);
    case kModifyDBValueClass_UInteger:
        return KivStringUtility::GetStringRepresentation(
            KivGlueDBGetUIntegerFieldValue(processingInfo_i, database_i, fieldName_i), 10, 1);
    case kModifyDBValueClass_Float:
        return KivStringUtility::GetStringRepresentation(
            KivGlueDBGetFloatFieldValue(processingInfo_i, database_i, fieldName_i),
            kModifyDBFloatIDPrecision);
    case kModifyDBValueClass_Number:
        return KivGlueDBGetNumberFieldValue(processingInfo_i, database_i, fieldName_i)
            .GetStringRepresentation();
    case kModifyDBValueClass_Text:
        return KivGlueDBGetTextFieldValue(processingInfo_i, database_i, fieldName_i);
    case kModifyDBValueClass_LongText:
        return KivGlueDBGetLongTextFieldValue(processingInfo_i, database_i, fieldName_i);
    case kModifyDBValueClass_Unsupported:
        break;
    }
    return KivString("(Unsupported field type)");
}

// Clears earlier results and runs the tag's criteria, reporting a failed search.
unsigned int ModifyDB_RunSearch(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                const unsigned int& database_i)
{
    const KivString criteria = ModifyDB_BuildSearchString(processingInfo_i);
    KivGlueDBClearSearchResults(processingInfo_i, database_i);
    unsigned int result = KivGlueDBExecuteSearch(processingInfo_i, database_i, criteria);
    if (result != 0)
        ModifyDB_ReportError(processingInfo_i, "The database search failed due to an unexpected error.",
                             "Check the syntax of your search criteria and try the search again.", false);
    return result;
}

// Moves to the first found record; "no record" answers are not failures here.
unsigned int ModifyDB_MoveToFirstFound(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                       const unsigned int& database_i)
{
    unsigned int result = KivGlueDBMoveFirstRecord(processingInfo_i, database_i);
    if (result == kKivResult_BeginningOfFile || result == kKivResult_EndOfFile)
        return 0;
    if (result != 0)
        ModifyDB_ReportError(processingInfo_i,
                             "The database system was unable to move to the first record in the " +
                                 ModifyDB_GetDatabaseReference(processingInfo_i, database_i) + " database.",
                             kModifyDBHint_ContactAdministrator, true);
    return result;
}

// The "fileLocation" parameter, trimmed and checked: 'MMRP' when missing, 'MInv' (with the
// messages given) when empty, 'MNAu' when the page may not reach it. The host may rewrite it.
unsigned int ModifyDB_GetFileLocation(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& path_io,
                                      const char* emptyHeadline_i, const char* emptyHint_i)
{
    if (!KivGlueGetRequiredTagParameter(processingInfo_i, kModifyDBParameter_FileLocation, 0, path_io))
        return kKivResult_MissingParameter;
    path_io.Trim(kModifyDBBlanks);
    if (path_io.IsEmpty())
    {
        KivGlueSetErrorInformation(processingInfo_i, emptyHeadline_i, emptyHint_i);
        return kKivResult_InvalidValue;
    }
    if (!KivGlueVerifyRegionContainsFile(processingInfo_i, path_io))
        return kKivResult_NotAuthorized;
    return 0;
}
} // namespace

KivString ModifyDB_BuildSearchString(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    const KivString noDefault;
    KivString criteria;
    if (KivGlueGetTagParameter(processingInfo_i, kModifyDBParameter_SearchString, 0, criteria, noDefault))
        return criteria;

    KivString fieldName;
    KivStringID parameterName;
    KivString parameterValue;
    for (unsigned int index = 0;
         KivGlueGetTagParameterByIndex(processingInfo_i, index, parameterName, parameterValue); ++index)
    {
        const KivStringID name = ModifyDB_GetParameterID(parameterName);
        if (name == kModifyDBParameter_KeyFieldName)
        {
            fieldName = parameterValue;
            continue;
        }
        if (fieldName.IsNotEmpty())
        {
            KivString value;
            if (name == kModifyDBParameter_FieldValue)
                ModifyDB_AppendCondition(criteria, fieldName, parameterValue);
            else if (name == kModifyDBParameter_PageVariableName &&
                     KivGlueGetPageVariable(processingInfo_i, parameterValue, value, noDefault))
                ModifyDB_AppendCondition(criteria, fieldName, value);
            else if (name == kModifyDBParameter_PathArgumentName &&
                     KivGlueGetPathArgument(processingInfo_i, parameterValue, 0, value, noDefault))
                ModifyDB_AppendCondition(criteria, fieldName, value);
            else if (name == kModifyDBParameter_PostArgumentName &&
                     KivGlueGetPostArgument(processingInfo_i, parameterValue, 0, value, noDefault))
                ModifyDB_AppendCondition(criteria, fieldName, value);
        }
        // Any other parameter, and a value once used, ends the pair.
        fieldName.Empty();
    }
    ModifyDB_AppendOrdering(processingInfo_i, criteria, kModifyDBParameter_OrderByField,
                            kModifyDBParameter_ReverseOrder);
    criteria.Trim(kModifyDBBlanks);
    return criteria;
}

unsigned int ModifyDB_SetFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                    const unsigned int& database_i, const KivString& fieldName_i,
                                    KivString& value_io)
{
    unsigned int fieldInfoWord = 0;
    unsigned int result = KivGlueDBGetFieldInfo(processingInfo_i, database_i, fieldName_i, fieldInfoWord);
    if (result != 0)
    {
        ModifyDB_ReportError(processingInfo_i,
                             "The database system was unable to get information about the " +
                                 ModifyDB_Quoted(fieldName_i) + " field in the " +
                                 ModifyDB_GetDatabaseReference(processingInfo_i, database_i) + " database.",
                             kModifyDBHint_ContactAdministrator, true);
        return result;
    }

    const ModifyDB_ValueClass valueClass = ModifyDB_GetValueClass(fieldInfoWord);
    if ((valueClass == kModifyDBValueClass_Integer || valueClass == kModifyDBValueClass_UInteger ||
         valueClass == kModifyDBValueClass_Float) &&
        value_io.IsEmpty())
        value_io = "0";

    switch (valueClass)
    {
    case kModifyDBValueClass_Boolean:
        return KivGlueDBSetBooleanFieldValue(processingInfo_i, database_i, fieldName_i, (bool)value_io);
    case kModifyDBValueClass_Integer:
        return KivGlueDBSetIntegerFieldValue(processingInfo_i, database_i, fieldName_i,
                                             KivStringUtility::GetNumericalRepresentation(value_io, 10));
    case kModifyDBValueClass_UInteger:
        return KivGlueDBSetUIntegerFieldValue(
            processingInfo_i, database_i, fieldName_i,
            (unsigned int)KivStringUtility::GetNumericalRepresentation(value_io, 10));
    case kModifyDBValueClass_Float:
        return KivGlueDBSetFloatFieldValue(processingInfo_i, database_i, fieldName_i,
                                           KivStringUtility::GetNumericalRepresentation(value_io));
    case kModifyDBValueClass_Number:
        return KivGlueDBSetNumberFieldValue(processingInfo_i, database_i, fieldName_i, KivNumber(value_io));
    case kModifyDBValueClass_Text:
        return KivGlueDBSetTextFieldValue(processingInfo_i, database_i, fieldName_i, value_io);
    case kModifyDBValueClass_LongText:
        return KivGlueDBSetLongTextFieldValue(processingInfo_i, database_i, fieldName_i, value_io);
    case kModifyDBValueClass_Unsupported:
        break;
    }
    return kKivResult_UnknownError;
}

unsigned int ModifyDB_SetFieldValuesFromParameters(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                                   const unsigned int& database_i, const bool& isUpdate_i)
{
    unsigned int lastFailure = 0;
    KivString fieldName;
    KivStringID parameterName;
    KivString parameterValue;
    for (unsigned int index = 0;
         KivGlueGetTagParameterByIndex(processingInfo_i, index, parameterName, parameterValue); ++index)
    {
        const KivStringID name = ModifyDB_GetParameterID(parameterName);
        if (name == kModifyDBParameter_FieldName)
        {
            fieldName = parameterValue;
            continue;
        }
        if (fieldName.IsNotEmpty())
        {
            bool setField = true;
            KivString value;
            if (name == kModifyDBParameter_FieldValue)
                value = parameterValue;
            else if (name == kModifyDBParameter_PageVariableName)
                // An update empties the field when the variable is missing; an addition leaves
                // the field to its default. Pages rely on both behaviours.
                setField = KivGlueGetPageVariable(processingInfo_i, parameterValue, value, KivString()) ||
                           isUpdate_i;
            else if (name == kModifyDBParameter_PathArgumentName)
                value = ModifyDB_GetJoinedArgument(processingInfo_i, parameterValue, false);
            else if (name == kModifyDBParameter_PostArgumentName)
                value = ModifyDB_GetJoinedArgument(processingInfo_i, parameterValue, true);
            else
                setField = false;
            if (setField)
            {
                unsigned int result = ModifyDB_SetFieldValue(processingInfo_i, database_i, fieldName, value);
                if (result != 0)
                    lastFailure = result;
            }
        }
        // Any other parameter, and a value once used, ends the pair.
        fieldName.Empty();
    }
    return lastFailure;
}

unsigned int ModifyDB_AddRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                const unsigned int& database_i)
{
    unsigned int result = KivGlueDBCreateRecord(processingInfo_i, database_i);
    if (result != 0)
    {
        ModifyDB_ReportError(processingInfo_i,
                             "The database system was unable to create a record in the " +
                                 ModifyDB_GetDatabaseReference(processingInfo_i, database_i) + " database.",
                             kModifyDBHint_ContactAdministrator, true);
        return result;
    }
    // A field that cannot be set does not keep the record from being added.
    ModifyDB_SetFieldValuesFromParameters(processingInfo_i, database_i, false);
    result = KivGlueDBAddRecord(processingInfo_i, database_i);
    if (result != 0)
    {
        ModifyDB_ReportError(processingInfo_i,
                             "The database system was unable to add a record to the " +
                                 ModifyDB_GetDatabaseReference(processingInfo_i, database_i) + " database.",
                             kModifyDBHint_ContactAdministrator, true);
        return result;
    }
    ModifyDB_SetResult(processingInfo_i, "_ResultCount", KivString("1"));
    return 0;
}

unsigned int ModifyDB_DeleteRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                   const unsigned int& database_i, const KivString& uniqueIDFieldName_i)
{
    unsigned int result = ModifyDB_RunSearch(processingInfo_i, database_i);
    if (result != 0)
        return result;
    const unsigned int count = KivGlueDBGetResultCount(processingInfo_i, database_i);
    if (count > 0)
    {
        result = ModifyDB_MoveToFirstFound(processingInfo_i, database_i);
        if (result != 0)
            return result;
    }

    unsigned int deleted = 0;
    while (deleted < count)
    {
        unsigned int fieldInfoWord = 0;
        result = KivGlueDBGetFieldInfo(processingInfo_i, database_i, uniqueIDFieldName_i, fieldInfoWord);
        if (result != 0)
        {
            ModifyDB_ReportError(processingInfo_i,
                                 "No unique ID field could be found in the " +
                                     ModifyDB_GetDatabaseReference(processingInfo_i, database_i) +
                                     " database.",
                                 "Make sure the database has a unique ID field.", true);
            return result;
        }
        const KivString idText =
            ModifyDB_GetIDText(processingInfo_i, database_i, uniqueIDFieldName_i, fieldInfoWord);
        result = KivGlueDBDeleteRecord(processingInfo_i, database_i, idText);
        if (result != 0)
        {
            ModifyDB_ReportError(processingInfo_i,
                                 "The database system was unable to delete a record to the " +
                                     ModifyDB_GetDatabaseReference(processingInfo_i, database_i) +
                                     " database.",
                                 kModifyDBHint_ContactAdministrator, true);
            break;
        }
        ++deleted;
        if (KivGlueDBMoveNextRecord(processingInfo_i, database_i) != 0)
            break;
    }

    ModifyDB_SetResult(processingInfo_i, "_ResultCount", deleted);
    return result;
}

unsigned int ModifyDB_UpdateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                   const unsigned int& database_i)
{
    unsigned int result = ModifyDB_RunSearch(processingInfo_i, database_i);
    if (result != 0)
        return result;
    const unsigned int count = KivGlueDBGetResultCount(processingInfo_i, database_i);
    unsigned int updated = 0;
    if (count > 0)
    {
        result = ModifyDB_MoveToFirstFound(processingInfo_i, database_i);
        if (result != 0)
            return result;
    }
    while (updated < count)
    {
        ModifyDB_SetFieldValuesFromParameters(processingInfo_i, database_i, true);
        result = KivGlueDBUpdateRecord(processingInfo_i, database_i);
        if (result != 0)
        {
            ModifyDB_ReportError(processingInfo_i,
                                 "The database system was unable to update a record to the " +
                                     ModifyDB_GetDatabaseReference(processingInfo_i, database_i) +
                                     " database.",
                                 kModifyDBHint_ContactAdministrator, true);
            break;
        }
        ++updated;
        if (KivGlueDBMoveNextRecord(processingInfo_i, database_i) != 0)
            break;
    }

    ModifyDB_SetResult(processingInfo_i, "_ResultCount", updated);
    return result;
}

unsigned int ModifyDB_Export(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i)
{
    // Earlier results are not cleared first: the export takes the new search as it stands.
    const KivString criteria = ModifyDB_BuildSearchString(processingInfo_i);
    unsigned int result = KivGlueDBExecuteSearch(processingInfo_i, database_i, criteria);
    if (result != 0)
    {
        ModifyDB_ReportError(processingInfo_i,
                             "The database system was unable to search the " +
                                 ModifyDB_GetDatabaseReference(processingInfo_i, database_i) + " database.",
                             kModifyDBHint_ContactAdministrator, true);
        return result;
    }

    KivString path;
    result =
        ModifyDB_GetFileLocation(processingInfo_i, path,
                                 "The database system was unable to export records due to an empty export "
                                 "file location.",
                                 "Enter a valid file location to hold the exported records.");
    if (result != 0)
        return result;

    unsigned int count = 0;
    result = KivGlueDBExport(processingInfo_i, database_i, path, count, KivString());
    if (result == kKivResult_EndOfFile)
        result = 0;
    if (result != 0)
    {
        ModifyDB_ReportError(processingInfo_i,
                             "The database system was unable to export records from the " +
                                 ModifyDB_GetDatabaseReference(processingInfo_i, database_i) + " database.",
                             kModifyDBHint_ContactAdministrator, true);
        return result;
    }
    ModifyDB_SetResult(processingInfo_i, "_ResultCount", count);
    return 0;
}

unsigned int ModifyDB_Import(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i)
{
    KivString path;
    unsigned int result = ModifyDB_GetFileLocation(
        processingInfo_i, path,
        "The database system was unable to import records due to an empty import filename.",
        "Enter a valid filename to import records from.");
    if (result != 0)
        return result;

    unsigned int count = 0;
    result = KivGlueDBImport(processingInfo_i, database_i, path, count);
    if (result != 0)
    {
        ModifyDB_ReportError(processingInfo_i,
                             "The database system was unable to import to the " +
                                 ModifyDB_GetDatabaseReference(processingInfo_i, database_i) + " database.",
                             kModifyDBHint_ContactAdministrator, true);
        return result;
    }
    ModifyDB_SetResult(processingInfo_i, "_ResultCount", count);
    return 0;
}
