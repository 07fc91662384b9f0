// The editor's export and import requests. The database service writes and reads the file;
// the editor decides which file (inside the region, never onto a folder) and, for an export,
// which fields go out in which order.
#include "EditDatabaseInternal.h"
#include "KivFileSpecification.h"
#include "KivFileSystemItem.h"
#include "KivGlue.h"
#include "KivGlueDB.h"
#include "KivStringUtility.h"
#include "ModifyDBShared.h"
#include "TKivDictionary.h"

namespace
{

// Fields marked "X" follow every positioned field, in field order.
const unsigned int kEditDBFirstUnpositionedKey = 1000;

// The posted file name, trimmed and checked against the region; 0 when it can be used.
unsigned int EditDB_GetTransferPath(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                    const KivString& argument_i, const char* missing_i, const char* empty_i,
                                    const char* emptyHint_i, KivString& path_io)
{
    if (!EditDB_GetPostArgument(processingInfo_i, argument_i, path_io))
    {
        EditDB_ReportError(processingInfo_i, missing_i,
                           "Make sure that the post argument carrying the filename is being posted.");
        return kKivResult_NotFound;
    }
    path_io.Trim(kModifyDBBlanks);
    if (path_io.IsEmpty())
    {
        EditDB_ReportError(processingInfo_i, empty_i, emptyHint_i);
        return kKivResult_InvalidValue;
    }
    // The host reports its own refusal; it may also rewrite the path to where the file lives.
    if (!KivGlueVerifyRegionContainsFile(processingInfo_i, path_io))
        return kKivResult_NotAuthorized;
    return 0;
}

// The names of the fields to export, in their new order, joined by ",".
KivString EditDB_GetExportFieldList(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                    const unsigned int& database_i)
{
    TKivDictionary<unsigned int, KivString> order(nullptr, nullptr);
    unsigned int nextUnpositionedKey = kEditDBFirstUnpositionedKey;
    const unsigned int fieldCount = KivGlueDBGetFieldCount(processingInfo_i, database_i);
    for (unsigned int index = 0; index < fieldCount; ++index)
    {
        KivString fieldName;
        unsigned int descriptor = 0;
        if (KivGlueDBGetFieldInfo(processingInfo_i, database_i, index, fieldName, descriptor) != 0)
            continue;
        KivString position;
        if (!EditDB_GetPostArgument(processingInfo_i, fieldName + "Pos", position))
            continue;
        position.Trim(kModifyDBBlanks);
        // A browser posts the box even when left empty; such a field has no position of its
        // own and follows the positioned ones, as the form tells the administrator.
        if (position.IsEmpty() || position.Contains('X', kKivString_CaseInsensitive))
            order.Add(nextUnpositionedKey++, fieldName);
        else
            order.Add((unsigned int)KivStringUtility::GetNumericalRepresentation(position, 10), fieldName);
    }
    KivString fieldList;
    for (unsigned int element = 0; element < order.GetElementCount(); ++element)
    {
        unsigned int key = 0;
        KivString fieldName;
        order.GetElement(element, key, fieldName);
        fieldList += fieldName;
        fieldList += ",";
    }
    fieldList.Trim(",");
    return fieldList;
}

unsigned int EditDB_Export(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i)
{
    KivString path;
    unsigned int result = EditDB_GetTransferPath(
        processingInfo_i, kEditDBPostArgument_ExportFilename,
        "The database system was unable to find the filename to be used when exporting records.",
        "The database system was unable to export records due to an empty export filename.",
        "Enter a valid filename to hold the exported records.", path);
    if (result != 0)
        return result;

    const KivFileSpecification file(path);
    const KivFileSystemItem item(file);
    if (item.Exists() && item.IsAFolder())
    {
        EditDB_ReportError(
            processingInfo_i,
            "The requested export file cannot be created because a folder by that name already exists.",
            "Try again using a different export file name.");
        return kKivResult_OpenFailed;
    }

    const KivString fieldList = EditDB_GetExportFieldList(processingInfo_i, database_i);
    unsigned int count = 0;
    result =
        KivGlueDBExport(processingInfo_i, database_i, file.GetOperatingSystemPathname(), count, fieldList);
    // The service reports a finished export as the end of the records: only that is success,
    // and a plain 0 is reported as a failure although its code passes through.
    if (result == kKivResult_EndOfFile)
        return 0;
    EditDB_ReportError(processingInfo_i,
                       KivString("The database system was unable to export records from the ") +
                           EditDB_Quoted(KivGlueDBGetDatabaseName(processingInfo_i, database_i)) +
                           " database." + EditDB_GetErrorDetail(processingInfo_i, database_i),
                       kEditDBHint_ContactAdministrator);
    return result;
}

} // namespace

unsigned int EditDB_ExportRecords(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                  const unsigned int& database_i)
{
    try
    {
        return EditDB_Export(processingInfo_i, database_i);
    }
    catch (...)
    {
        EditDB_ReportError(processingInfo_i, "An unexpected error occurred due to a thrown exception.",
                           "Contact the system administrator and report the problem.");
        return kKivResult_UnknownError;
    }
}

unsigned int EditDB_ImportRecords(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                  const unsigned int& database_i)
{
    KivString path;
    unsigned int result = EditDB_GetTransferPath(
        processingInfo_i, kEditDBPostArgument_ImportFilename,
        "The database system was unable to find the filename to be used when importing records.",
        "The database system was unable to import records due to an empty import filename.",
        "Enter a valid filename to import records from.", path);
    if (result != 0)
        return result;

    const KivFileSpecification file(path);
    unsigned int count = 0;
    result = KivGlueDBImport(processingInfo_i, database_i, file.GetOperatingSystemPathname(), count);
    if (result != 0)
        EditDB_ReportError(processingInfo_i,
                           KivString("The database system was unable to import to the ") +
                               EditDB_Quoted(KivGlueDBGetDatabaseName(processingInfo_i, database_i)) +
                               " database." + EditDB_GetErrorDetail(processingInfo_i, database_i),
                           kEditDBHint_ContactAdministrator);
    return result;
}
