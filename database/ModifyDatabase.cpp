// The kivModifyDatabase tag: one operation per tag occurrence, chosen by its "mode" parameter,
// and the database and field operations. The record operations live in ModifyDBRecords.cpp.
#include "TagProcessors.h"

#include "KivGlue.h"
#include "KivGlueDB.h"
#include "KivStringUtility.h"
#include "ModifyDBShared.h"
#include "ModifyDBWorkers.h"
#include "SearchModifyConstants.h"

namespace
{

// Type words of listFields and addField, by type code 1 to 7.
const char* const kModifyDBTypeNames[] = {"Boolean", "Integer", "UInteger", "Float",
                                          "Number",  "Text",    "LongText"};
const unsigned int kModifyDBTypeCount = 7;

const KivStringID* const kModifyDBTypeIDs[] = {&kModifyDBFieldType_Boolean,  &kModifyDBFieldType_Integer,
                                               &kModifyDBFieldType_UInteger, &kModifyDBFieldType_Float,
                                               &kModifyDBFieldType_Number,   &kModifyDBFieldType_Text,
                                               &kModifyDBFieldType_LongText};

// ODBC type codes are looked up with bits 16-24 of the field word as they stand.
const unsigned int kModifyDBODBCTypeMask = 0x1FF0000;

KivString ModifyDB_GetDatabaseReference(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                        const unsigned int& database_i)
{
    return ModifyDB_Quoted(KivGlueDBGetDatabaseName(processingInfo_i, database_i));
}

// The type word of listFields: the host's own type names, the data source's names for ODBC
// types, "unknown type" for anything else.
KivString ModifyDB_GetTypeWord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                               const unsigned int& fieldInfoWord_i)
{
    const unsigned int typeCode = (fieldInfoWord_i & kKivFieldTypeMask) >> kKivFieldTypeShift;
    if (typeCode >= 1 && typeCode <= kModifyDBTypeCount)
        return KivString(kModifyDBTypeNames[typeCode - 1]);
    if ((typeCode >= 0x41 && typeCode <= 0x4C) || (typeCode >= 0x81 && typeCode <= 0x8A))
    {
        KivString typeName;
        unsigned int type = 0;
        if (KivGlueDBGetODBCFieldTypeInfo(processingInfo_i, fieldInfoWord_i & kModifyDBODBCTypeMask, typeName,
                                          type) == 0)
            return typeName;
    }
    return KivString("unknown type");
}

// Whether the comma-separated database list names the database. This is a substring test on
// the whole list, so part of a name counts as existing.
bool ModifyDB_ListContains(const KivString& list_i, const KivString& databaseName_i)
{
    return list_i.Contains(databaseName_i, kKivString_CaseInsensitive);
}

unsigned int ModifyDB_CreateOrDeleteDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                             const KivString& databaseName_i, const bool& create_i)
{
    KivString list;
    unsigned int result = ModifyDB_ListDatabases(processingInfo_i, list);
    if (result != 0)
        return result;
    const KivString name = ModifyDB_Quoted(databaseName_i);
    if (create_i && ModifyDB_ListContains(list, databaseName_i))
    {
        KivGlueSetErrorInformation(processingInfo_i,
                                   "Cannot create database " + name + " as it already exists.",
                                   "Make sure the database does not exist before trying to create it.");
        return kKivResult_OpenFailed;
    }
    if (!create_i && !ModifyDB_ListContains(list, databaseName_i))
    {
        KivGlueSetErrorInformation(processingInfo_i,
                                   "Cannot delete database " + name + " as it does not exist.",
                                   "Make sure the database exists before trying to delete it.");
        return kKivResult_OpenFailed;
    }
    result = create_i ? KivGlueDBCreateDatabase(processingInfo_i, databaseName_i)
                      : KivGlueDBDeleteDatabase(processingInfo_i, databaseName_i);
    if (result == 0)
        ModifyDB_SetResult(processingInfo_i, "_DatabaseName", databaseName_i);
    return result;
}

// Import into a database without fields needs it opened exclusively, so that the import can
// create the fields.
unsigned int ModifyDB_ImportReopening(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                      unsigned int& database_io, const KivString& databaseName_i)
{
    if (KivGlueDBGetFieldCount(processingInfo_i, database_io) == 0)
    {
        unsigned int result = KivGlueDBCloseDatabase(processingInfo_i, database_io);
        if (result != 0)
            return result;
        result = KivGlueDBOpenDatabase(processingInfo_i, databaseName_i, kKivOpenMode_Exclusive, database_io,
                                       KivString());
        if (result != 0)
        {
            ModifyDB_ReportError(processingInfo_i,
                                 "The database system was unable to open the " +
                                     ModifyDB_Quoted(databaseName_i) + " database for exclusive access.",
                                 kModifyDBHint_ContactAdministrator, true);
            return result;
        }
    }
    return ModifyDB_Import(processingInfo_i, database_io);
}

// Every mode that works inside one database: check that it exists, open it, run the mode's
// worker and close it again.
unsigned int ModifyDB_ModifyExistingDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                             const KivStringID& mode_i, const KivString& databaseName_i,
                                             const KivString& uniqueIDFieldName_i, KivString& output_io)
{
    KivString list;
    unsigned int result = ModifyDB_ListDatabases(processingInfo_i, list);
    if (result != 0)
        return result;
    if (!ModifyDB_ListContains(list, databaseName_i))
    {
        KivGlueSetErrorInformation(processingInfo_i,
                                   "Cannot modify database as database " + ModifyDB_Quoted(databaseName_i) +
                                       " does not exist.",
                                   "Make sure the database exists before trying to modify it.");
        return kKivResult_InvalidRequest;
    }

    const bool structural = mode_i == kModifyDBFunction_AddField || mode_i == kModifyDBFunction_DeleteField;
    unsigned int database = 0;
    result = KivGlueDBOpenDatabase(processingInfo_i, databaseName_i,
                                   structural ? kKivOpenMode_Exclusive : kKivOpenMode_Shared, database,
                                   uniqueIDFieldName_i);
    if (result != 0)
    {
        ModifyDB_ReportError(
            processingInfo_i,
            "The database system was unable to open the " + ModifyDB_Quoted(databaseName_i) + " database.",
            "The database may be locked for exclusive use.  Try again in a few moments.", true);
        return result;
    }

    if (mode_i == kModifyDBFunction_ListFields)
        result = ModifyDB_ListFields(processingInfo_i, output_io, database);
    else if (mode_i == kModifyDBFunction_AddField)
        result = ModifyDB_AddField(processingInfo_i, database);
    else if (mode_i == kModifyDBFunction_DeleteField)
        result = ModifyDB_DeleteField(processingInfo_i, database);
    else if (mode_i == kModifyDBFunction_AddRecord)
        result = ModifyDB_AddRecord(processingInfo_i, database);
    else if (mode_i == kModifyDBFunction_DeleteRecord)
        result = ModifyDB_DeleteRecord(processingInfo_i, database, uniqueIDFieldName_i);
    else if (mode_i == kModifyDBFunction_UpdateRecord)
        result = ModifyDB_UpdateRecord(processingInfo_i, database);
    else if (mode_i == kModifyDBFunction_Export)
        result = ModifyDB_Export(processingInfo_i, database);
    else if (mode_i == kModifyDBFunction_Import)
        result = ModifyDB_ImportReopening(processingInfo_i, database, databaseName_i);

    KivGlueDBCloseDatabase(processingInfo_i, database);
    return result;
}

unsigned int ModifyDB_Dispatch(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io)
{
    KivString uniqueIDFieldName;
    KivGlueGetTagParameter(processingInfo_i, kModifyDBParameter_UniqueIDFieldName, 0, uniqueIDFieldName,
                           KivString());
    uniqueIDFieldName.Trim(kModifyDBBlanks);
    if (uniqueIDFieldName.IsEmpty())
        uniqueIDFieldName = KIV_DEFAULT_UNIQUE_ID_FIELD;

    KivString modeText;
    if (!KivGlueGetRequiredTagParameter(processingInfo_i, kModifyDBParameter_Function, 0, modeText))
        return kKivResult_MissingParameter;
    const KivStringID mode(modeText, kKivStringID_CaseInsensitive);
    if (mode == kModifyDBFunction_ListDatabases)
        return ModifyDB_ListDatabases(processingInfo_i, output_io);

    KivString databaseName;
    if (!KivGlueGetRequiredTagParameter(processingInfo_i, kModifyDBParameter_DatabaseName, 0, databaseName))
        return kKivResult_MissingParameter;
    if (mode == kModifyDBFunction_CreateDatabase)
        return ModifyDB_CreateOrDeleteDatabase(processingInfo_i, databaseName, true);
    if (mode == kModifyDBFunction_DeleteDatabase)
        return ModifyDB_CreateOrDeleteDatabase(processingInfo_i, databaseName, false);
    return ModifyDB_ModifyExistingDatabase(processingInfo_i, mode, databaseName, uniqueIDFieldName,
                                           output_io);
}
} // namespace

unsigned int ProcessModifyDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io)
{
    unsigned int result =
        ModifyDB_StartDatabaseService(processingInfo_i, kModifyDBParameter_ODBCDataSource,
                                      kModifyDBParameter_ODBCUsername, kModifyDBParameter_ODBCPassword);
    if (result == 0)
        result = ModifyDB_Dispatch(processingInfo_i, output_io);
    // The service is ended on every path, also after a failed start.
    KivGlueDBTerminate(processingInfo_i);
    return result;
}

void ModifyDB_SetResult(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const char* suffix_i,
                        const KivString& value_i)
{
    KivString prefix;
    if (ModifyDB_GetResultVariablePrefix(processingInfo_i, kModifyDBParameter_ResultVariableName, prefix))
        ModifyDB_SetResultVariable(processingInfo_i, prefix, suffix_i, value_i);
}

void ModifyDB_SetResult(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const char* suffix_i,
                        const unsigned int& value_i)
{
    ModifyDB_SetResult(processingInfo_i, suffix_i, KivStringUtility::GetStringRepresentation(value_i, 10, 1));
}

unsigned int ModifyDB_ListDatabases(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& list_io)
{
    const unsigned int count = KivGlueDBGetDatabaseCount(processingInfo_i);
    KivString list;
    for (unsigned int index = 0; index < count; ++index)
    {
        KivString name;
        unsigned int result = KivGlueDBGetDatabaseNameByIndex(processingInfo_i, index, name);
        if (result != 0)
        {
            ModifyDB_ReportError(processingInfo_i,
                                 "The database system was unable to return the list of databases.",
                                 kModifyDBHint_ContactAdministrator, false);
            return result;
        }
        list += name;
        list += ",";
    }
    list.TrimRight(',');
    list_io = list;
    ModifyDB_SetResult(processingInfo_i, "_ResultCount", count);
    return 0;
}

unsigned int ModifyDB_ListFields(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& list_io,
                                 const unsigned int& database_i)
{
    const unsigned int count = KivGlueDBGetFieldCount(processingInfo_i, database_i);
    KivString list;
    for (unsigned int index = 0; index < count; ++index)
    {
        KivString name;
        unsigned int fieldInfoWord = 0;
        unsigned int result = KivGlueDBGetFieldInfo(processingInfo_i, database_i, index, name, fieldInfoWord);
        if (result != 0)
        {
            ModifyDB_ReportError(processingInfo_i,
                                 "The database system was unable to return the list of fields for the " +
                                     ModifyDB_GetDatabaseReference(processingInfo_i, database_i) +
                                     " database.",
                                 kModifyDBHint_ContactAdministrator, false);
            return result;
        }
        list += name;
        list += ".";
        list += ModifyDB_GetTypeWord(processingInfo_i, fieldInfoWord);
        list += ".";
        list += KivStringUtility::GetStringRepresentation(fieldInfoWord & kKivFieldLengthMask, 10, 1);
        list += ".";
        if (fieldInfoWord & kKivFieldFlag_Indexed)
            list += "X";
        if (fieldInfoWord & kKivFieldFlag_Unique)
            list += "Q";
        list += ",";
    }
    list.TrimRight(',');
    list_io = list;
    ModifyDB_SetResult(processingInfo_i, "_ResultCount", count);
    return 0;
}

unsigned int ModifyDB_AddField(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i)
{
    KivString fieldName;
    KivString fieldType;
    if (!KivGlueGetRequiredTagParameter(processingInfo_i, kModifyDBParameter_FieldName, 0, fieldName) ||
        !KivGlueGetRequiredTagParameter(processingInfo_i, kModifyDBParameter_FieldType, 0, fieldType))
        return kKivResult_MissingParameter;

    KivString lengthText;
    KivGlueGetTagParameter(processingInfo_i, kModifyDBParameter_FieldLength, 0, lengthText, KivString("0"));
    const int length = KivStringUtility::GetNumericalRepresentation(lengthText, 10);
    // The magnitude, computed unsigned so that the most negative integer has one too.
    const unsigned int magnitude = length < 0 ? 0u - (unsigned int)length : (unsigned int)length;
    unsigned int fieldInfoWord = magnitude & kKivFieldLengthMask;

    KivString flags;
    if (KivGlueGetTagParameter(processingInfo_i, kModifyDBParameter_FieldFlags, 0, flags, KivString()))
    {
        if (flags.Contains('X', kKivString_CaseInsensitive))
            fieldInfoWord |= kKivFieldFlag_Indexed;
        if (flags.Contains('Q', kKivString_CaseInsensitive))
            fieldInfoWord |= kKivFieldFlag_Unique;
    }

    const KivStringID typeID(fieldType, kKivStringID_CaseInsensitive);
    unsigned int typeCode = 0;
    for (unsigned int index = 0; index < kModifyDBTypeCount && typeCode == 0; ++index)
        if (typeID == *kModifyDBTypeIDs[index])
            typeCode = index + 1;
    if (typeCode != 0)
    {
        fieldInfoWord |= typeCode << kKivFieldTypeShift;
    }
    else
    {
        // A data source's own type name; an unknown one still adds the field, without type bits.
        unsigned int odbcType = 0;
        if (KivGlueDBGetODBCFieldTypeInfoByName(processingInfo_i, fieldType, odbcType) == 0)
            fieldInfoWord |= odbcType & kModifyDBODBCTypeMask;
    }

    unsigned int result = KivGlueDBAddField(processingInfo_i, database_i, fieldName, fieldInfoWord);
    if (result != 0)
    {
        ModifyDB_ReportError(processingInfo_i,
                             "The database system was unable to add the " + ModifyDB_Quoted(fieldName) +
                                 " field to the " +
                                 ModifyDB_GetDatabaseReference(processingInfo_i, database_i) + " database.",
                             kModifyDBHint_ContactAdministrator, true);
        return result;
    }
    // "_FieldName" carries what the database service reports after adding the field, not the
    // name asked for; pages written for this tag rely on that.
    ModifyDB_SetResult(processingInfo_i, "_FieldName", KivGlueDBGetErrorInfo(processingInfo_i, database_i));
    return 0;
}

unsigned int ModifyDB_DeleteField(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                  const unsigned int& database_i)
{
    KivString fieldName;
    if (!KivGlueGetRequiredTagParameter(processingInfo_i, kModifyDBParameter_FieldName, 0, fieldName))
        return kKivResult_MissingParameter;
    unsigned int result = KivGlueDBDeleteField(processingInfo_i, database_i, fieldName);
    if (result != 0)
    {
        ModifyDB_ReportError(processingInfo_i,
                             "The database system was unable to delete the " + ModifyDB_Quoted(fieldName) +
                                 " field from the " +
                                 ModifyDB_GetDatabaseReference(processingInfo_i, database_i) + " database.",
                             kModifyDBHint_ContactAdministrator, true);
        return result;
    }
    ModifyDB_SetResult(processingInfo_i, "_FieldName", fieldName);
    return 0;
}
