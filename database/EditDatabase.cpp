// The kivEditDatabase tag: one request of the administration interface. The posted button
// label names the action; the editor performs at most one database operation and renders the
// one form that follows it. Nothing is kept between requests: the forms carry the database,
// the record on screen and the search criteria forward themselves.
#include "EditDatabaseInternal.h"
#include "KivGlue.h"
#include "KivGlueDB.h"
#include "ModifyDBShared.h"
#include "TagProcessors.h"

namespace
{

const char* const kEditDBOpenHint =
    "The database may be locked for exclusive use.  Try again in a few moments.";
const char* const kEditDBExclusiveOpenHint =
    "The database may be open for reading by multiple users.  Try again in a few moments.";

// What one request works with.
struct EditDB_Request
{
    _KIVAPI_ModuleProcessingInfo* info;
    KivString& output;
    unsigned long language;
    bool usesODBC;
    KivString uniqueIDFieldName;
    unsigned int action;
    KivString databaseName;
    unsigned int database;
    bool databaseOpen;
};

bool EditDB_IsConfirmedLiterally(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    KivString confirmation;
    return EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_Confirmation, confirmation, "No") &&
           confirmation == "Yes";
}

KivString EditDB_GetRecordID(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const char* default_i)
{
    KivString recordID;
    EditDB_GetPostArgument(processingInfo_i, kEditDBPostArgument_RecordID, recordID, default_i);
    return recordID;
}

// The record navigation rows find their place again: every record, then the one on screen.
unsigned int EditDB_PositionOnID(EditDB_Request& request_io, const KivString& recordID_i)
{
    unsigned int result = KivGlueDBExecuteSearch(request_io.info, request_io.database, KivString());
    if (result == 0)
        result = KivGlueDBMoveToRecord(request_io.info, request_io.database, recordID_i);
    return result;
}

unsigned int EditDB_Display(EditDB_Request& request_io)
{
    return EditDB_RecordDisplayForm(request_io.info, request_io.output, request_io.database,
                                    request_io.uniqueIDFieldName);
}

// A move that finds no record keeps the current one on screen.
unsigned int EditDB_DisplayAfterMove(EditDB_Request& request_io, const unsigned int& moveResult_i,
                                     const unsigned int& noRecord_i)
{
    if (moveResult_i != 0 && moveResult_i != noRecord_i)
        return moveResult_i;
    return EditDB_Display(request_io);
}

unsigned int EditDB_DeleteRecordAction(EditDB_Request& request_io)
{
    _KIVAPI_ModuleProcessingInfo* info = request_io.info;
    const unsigned int& database = request_io.database;
    KivString recordID = EditDB_GetRecordID(info, "0");
    KivString confirmation;
    if (!EditDB_GetPostArgument(info, kEditDBPostArgument_Confirmation, confirmation, "No"))
        return EditDB_Display(request_io);

    unsigned int result = EditDB_PositionOnID(request_io, recordID);
    if (result != 0)
        return result;
    if (confirmation != "Yes")
        return EditDB_Display(request_io);

    result = KivGlueDBDeleteRecord(info, database, recordID);
    if (result != 0)
    {
        EditDB_ReportError(info,
                           KivString("The database system was unable to delete a record from the ") +
                               EditDB_Quoted(request_io.databaseName) + " database." +
                               EditDB_GetErrorDetail(info, database),
                           kEditDBHint_ContactAdministrator);
        return result;
    }
    // Show the record that took the deleted one's place, else the new last one; with none
    // left the search form follows.
    if (KivGlueDBMoveNextRecord(info, database) != 0)
    {
        result = KivGlueDBExecuteSearch(info, database, KivString());
        if (result == 0)
            result = KivGlueDBMoveLastRecord(info, database);
        if (result != 0)
            return EditDB_RecordSearchForm(info, request_io.output, database);
    }
    return EditDB_Display(request_io);
}

unsigned int EditDB_ImportAction(EditDB_Request& request_io)
{
    _KIVAPI_ModuleProcessingInfo* info = request_io.info;
    // A database without fields takes its fields from the file, which needs it to itself.
    if (KivGlueDBGetFieldCount(info, request_io.database) == 0)
    {
        KivGlueDBCloseDatabase(info, request_io.database);
        unsigned int result = KivGlueDBOpenDatabase(info, request_io.databaseName, kKivOpenMode_Exclusive,
                                                    request_io.database, request_io.uniqueIDFieldName);
        if (result != 0)
        {
            request_io.databaseOpen = false;
            EditDB_ReportError(info,
                               KivString("The database system was unable to open the ") +
                                   EditDB_Quoted(request_io.databaseName) +
                                   " database for exclusive access." +
                                   EditDB_GetErrorDetail(info, request_io.database),
                               kEditDBExclusiveOpenHint);
            return result;
        }
    }
    unsigned int result = EditDB_ImportRecords(info, request_io.database);
    if (result != 0)
        return result;
    return EditDB_RecordSearchForm(info, request_io.output, request_io.database);
}

// Step 10: the action on the open database and the form that follows it.
unsigned int EditDB_PerformAction(EditDB_Request& request_io)
{
    _KIVAPI_ModuleProcessingInfo* info = request_io.info;
    KivString& output = request_io.output;
    const unsigned int action = request_io.action;
    const unsigned int& database = request_io.database;
    unsigned int result = 0;

    if (action == kEditDB_ID_Action_ManageFields)
        return EditDB_FieldListForm(info, output, database, request_io.usesODBC);
    if (action == kEditDB_ID_Action_AddField)
    {
        result = EditDB_AddField(info, database);
        return result != 0 ? result : EditDB_FieldListForm(info, output, database, request_io.usesODBC);
    }
    if (action == kEditDB_ID_Action_VerifyDeleteField)
        return EditDB_VerifyDeleteFieldForm(info, output, database);
    if (action == kEditDB_ID_Action_DeleteField)
    {
        // The field confirmation posts the literal "Yes" in every language.
        if (EditDB_IsConfirmedLiterally(info))
        {
            result = EditDB_DeleteField(info, database);
            if (result != 0)
                return result;
        }
        return EditDB_FieldListForm(info, output, database, request_io.usesODBC);
    }
    if (action == kEditDB_ID_Action_ManageRecords || action == kEditDB_ID_Action_ShowRecordSearch)
        return EditDB_RecordSearchForm(info, output, database);
    if (action == kEditDB_ID_Action_MoveFirstRecord || action == kEditDB_ID_Action_MoveLastRecord)
    {
        result = KivGlueDBExecuteSearch(info, database, KivString());
        if (result == 0)
            result = action == kEditDB_ID_Action_MoveFirstRecord ? KivGlueDBMoveFirstRecord(info, database)
                                                                 : KivGlueDBMoveLastRecord(info, database);
        return result != 0 ? result : EditDB_Display(request_io);
    }
    if (action == kEditDB_ID_Action_MovePrevRecord || action == kEditDB_ID_Action_MovePrevRecordAlt)
    {
        result = EditDB_PositionOnID(request_io, EditDB_GetRecordID(info, "0"));
        if (result != 0)
            return result;
        return EditDB_DisplayAfterMove(request_io, KivGlueDBMovePrevRecord(info, database),
                                       kKivResult_BeginningOfFile);
    }
    if (action == kEditDB_ID_Action_MoveNextRecord || action == kEditDB_ID_Action_MoveNextRecordAlt)
    {
        result = EditDB_PositionOnID(request_io, EditDB_GetRecordID(info, "0"));
        if (result != 0)
            return result;
        return EditDB_DisplayAfterMove(request_io, KivGlueDBMoveNextRecord(info, database),
                                       kKivResult_EndOfFile);
    }
    if (action == kEditDB_ID_Action_AddRecord)
        return EditDB_BlankRecordForm(info, output, database, false);
    if (action == kEditDB_ID_Action_SubmitRecord)
    {
        result = EditDB_AddRecord(info, database);
        return result != 0 ? result : EditDB_BlankRecordForm(info, output, database, true);
    }
    if (action == kEditDB_ID_Action_DuplicateRecord)
    {
        result = EditDB_DuplicateRecord(info, database);
        if (result == 0)
            result = EditDB_PositionOnID(request_io, EditDB_GetRecordID(info, "0"));
        return result != 0 ? result : EditDB_Display(request_io);
    }
    if (action == kEditDB_ID_Action_ModifyRecord || action == kEditDB_ID_Action_ModifyMoveNextRecord ||
        action == kEditDB_ID_Action_ModifyMoveNextRecordAlt)
    {
        result = EditDB_PositionOnID(request_io, EditDB_GetRecordID(info, "0"));
        if (result == 0)
            result = EditDB_UpdateRecord(info, database);
        if (result != 0)
            return result;
        if (action == kEditDB_ID_Action_ModifyRecord)
            return EditDB_Display(request_io);
        return EditDB_DisplayAfterMove(request_io, KivGlueDBMoveNextRecord(info, database),
                                       kKivResult_EndOfFile);
    }
    if (action == kEditDB_ID_Action_VerifyDeleteRecord)
        return EditDB_VerifyDeleteRecordForm(info, output, database);
    if (action == kEditDB_ID_Action_DeleteRecord)
        return EditDB_DeleteRecordAction(request_io);
    if (action == kEditDB_ID_Action_VerifyDeleteAllRecords)
        return EditDB_VerifyDeleteAllRecordsForm(info, output, database);
    if (action == kEditDB_ID_Action_DeleteAllRecords)
    {
        if (EditDB_IsConfirmedLiterally(info))
        {
            result = KivGlueDBDeleteAllRecords(info, database);
            if (result != 0)
            {
                EditDB_ReportError(
                    info,
                    KivString("The database system was unable to delete all records from the ") +
                        EditDB_Quoted(request_io.databaseName) + " database." +
                        EditDB_GetErrorDetail(info, database),
                    kEditDBHint_ContactAdministrator);
                return result;
            }
        }
        return EditDB_RecordSearchForm(info, output, database);
    }
    if (action == kEditDB_ID_Action_SearchRecords || action == kEditDB_ID_Action_MoveNextPage ||
        action == kEditDB_ID_Action_MovePrevPage)
    {
        result = EditDB_SearchRecords(info, database);
        if (result != 0 && result != kKivResult_BeginningOfFile && result != kKivResult_EndOfFile)
            return result;
        return EditDB_SearchResultsForm(info, output, database, request_io.uniqueIDFieldName);
    }
    if (action == kEditDB_ID_Action_ViewRecord)
    {
        KivString recordID = EditDB_GetRecordID(info, "none");
        if (recordID == "none")
            return EditDB_RecordSearchForm(info, output, database);
        result = EditDB_PositionOnID(request_io, recordID);
        return result != 0 ? result : EditDB_Display(request_io);
    }
    if (action == kEditDB_ID_Action_GetImportFilename)
        return EditDB_ImportFilenameForm(info, output, database);
    if (action == kEditDB_ID_Action_ImportRecords)
        return EditDB_ImportAction(request_io);
    if (action == kEditDB_ID_Action_GetExportFilename)
        return EditDB_ExportFilenameForm(info, output, database);
    if (action == kEditDB_ID_Action_ExportRecords)
    {
        result = EditDB_SearchRecords(info, database);
        if (result != 0 && result != kKivResult_BeginningOfFile && result != kKivResult_EndOfFile)
            return result;
        result = EditDB_ExportRecords(info, database);
        return result != 0 ? result : EditDB_RecordSearchForm(info, output, database);
    }
    // "Modify Field" has a label but no handler of its own, and lands here too.
    output += "Unexpected state!";
    return EditDB_DatabaseListForm(info, output, request_io.usesODBC);
}

// Step 8: the actions that need no open database. True when one of them handled the request.
bool EditDB_PerformListAction(EditDB_Request& request_io, unsigned int& result_io)
{
    _KIVAPI_ModuleProcessingInfo* info = request_io.info;
    const unsigned int action = request_io.action;
    if (action == kEditDB_ID_Action_CheckODBC)
    {
        result_io = EditDB_ODBCSupportForm(info, request_io.output);
        return true;
    }
    if (action == kEditDB_ID_Action_ShowDatabaseList || request_io.databaseName.IsEmpty())
    {
        result_io = EditDB_DatabaseListForm(info, request_io.output, request_io.usesODBC);
        return true;
    }
    if (action == kEditDB_ID_Action_VerifyDeleteDatabase)
    {
        result_io = EditDB_VerifyDeleteDatabaseForm(info, request_io.output, request_io.databaseName);
        return true;
    }
    if (action != kEditDB_ID_Action_DeleteDatabase)
        return false;

    // The database confirmation is the localized word: "Oui" on a French page.
    KivString confirmation;
    if (!EditDB_GetPostArgument(info, kEditDBPostArgument_Confirmation, confirmation, "No"))
        return true;
    if (confirmation == EditDB_GetLocalizedString(kEditDB_ID_Word_Yes, request_io.language))
    {
        result_io = KivGlueDBDeleteDatabase(info, request_io.databaseName);
        if (result_io != 0)
        {
            EditDB_ReportError(info,
                               KivString("The database system was unable to delete the ") +
                                   EditDB_Quoted(request_io.databaseName) + " database.",
                               kEditDBHint_ContactAdministrator);
            return true;
        }
    }
    result_io = EditDB_DatabaseListForm(info, request_io.output, request_io.usesODBC);
    return true;
}

unsigned int EditDB_ProcessRequest(EditDB_Request& request_io)
{
    _KIVAPI_ModuleProcessingInfo* info = request_io.info;
    KivString label;
    if (!KivGlueGetPostArgument(info, kEditDBPostArgument_Action, 0, label, KivString()))
        label = EditDB_GetLocalizedString(kEditDB_ID_Action_ShowDatabaseList, request_io.language);
    request_io.action = EditDB_GetActionID(label);

    // A page that names its database opens straight into one of its managers.
    if (KivGlueGetTagParameter(info, kEditDBParameter_databaseName, 0, request_io.databaseName,
                               KivString()) &&
        request_io.action == kEditDB_ID_Action_ShowDatabaseList)
    {
        KivStringID mode;
        KivGlueGetTagParameter(info, kEditDBParameter_Mode, 0, mode, KivStringID());
        request_io.action = mode == kEditDBMode_ManageFields ? kEditDB_ID_Action_ManageFields
                                                             : kEditDB_ID_Action_ManageRecords;
    }
    if (request_io.databaseName.IsEmpty())
        EditDB_GetPostArgument(info, kEditDBPostArgument_SelectedDatabase, request_io.databaseName);
    if (request_io.databaseName.IsEmpty())
        EditDB_GetPostArgument(info, kEditDBPostArgument_DatabaseName, request_io.databaseName);

    unsigned int result = 0;
    if (EditDB_PerformListAction(request_io, result))
        return result;

    const unsigned int action = request_io.action;
    const bool structural =
        action == kEditDB_ID_Action_ManageFields || action == kEditDB_ID_Action_AddField ||
        action == kEditDB_ID_Action_VerifyDeleteField || action == kEditDB_ID_Action_DeleteField;
    result = KivGlueDBOpenDatabase(info, request_io.databaseName,
                                   structural ? kKivOpenMode_Exclusive : kKivOpenMode_Shared,
                                   request_io.database, request_io.uniqueIDFieldName);
    if (result != 0)
    {
        EditDB_ReportError(info,
                           KivString("The database system was unable to open the ") +
                               EditDB_Quoted(request_io.databaseName) + " database." +
                               EditDB_GetErrorDetail(info, request_io.database),
                           kEditDBOpenHint);
        return result;
    }
    request_io.databaseOpen = true;
    result = EditDB_PerformAction(request_io);
    // The import may have had to reopen the database, and a failed reopen leaves none open.
    if (request_io.databaseOpen)
        KivGlueDBCloseDatabase(info, request_io.database);
    return result;
}

} // namespace

unsigned int ProcessEditDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io)
{
    output_io += "\r\n<kivDoNotProcess>\r\n";
    EditDB_Request request{processingInfo_i,
                           output_io,
                           EditDB_GetLanguage(processingInfo_i),
                           false,
                           KivString(),
                           0,
                           KivString(),
                           0,
                           false};

    KivString dataSource = EditDB_GetTagParameter(processingInfo_i, kEditDBParameter_ODBCDataSource, "");
    KivString userName = EditDB_GetTagParameter(processingInfo_i, kEditDBParameter_ODBCUsername, "");
    KivString password = EditDB_GetTagParameter(processingInfo_i, kEditDBParameter_ODBCPassword, "");
    request.uniqueIDFieldName =
        EditDB_GetTagParameter(processingInfo_i, kEditDBParameter_UniqueIDFieldName, "");
    request.uniqueIDFieldName.Trim(kModifyDBBlanks);
    if (request.uniqueIDFieldName.IsEmpty())
        request.uniqueIDFieldName = KIV_DEFAULT_UNIQUE_ID_FIELD;
    request.usesODBC = dataSource.IsNotEmpty() && userName.IsNotEmpty();

    unsigned int result = KivGlueDBInitialize(processingInfo_i, dataSource, userName, password);
    if (result != 0)
        EditDB_ReportError(processingInfo_i, "The database system failed to initialize.",
                           kEditDBHint_ContactAdministrator);
    else
        result = EditDB_ProcessRequest(request);

    KivGlueDBTerminate(processingInfo_i);
    output_io += "\r\n</kivDoNotProcess>\r\n";
    return result;
}
