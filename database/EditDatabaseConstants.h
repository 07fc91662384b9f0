// Names of the editor tag's parameters, modes, post arguments and field types. They are
// defined in the module entry's translation unit (EditDatabaseConstants.inc) so that they are
// constructed together with the module's other static constants, before the host's first call.
#ifndef EDIT_DATABASE_CONSTANTS_H
#define EDIT_DATABASE_CONSTANTS_H

#include "KivString.h"
#include "KivStringID.h"

// kivEditDatabase parameters (identifiers ignore letter case, like the other tags').
extern const KivStringID kEditDBParameter_databaseName;
extern const KivStringID kEditDBParameter_Mode;
extern const KivStringID kEditDBParameter_ShowKivDatabases;
extern const KivStringID kEditDBParameter_MirrorButtons;
extern const KivStringID kEditDBParameter_ODBCDataSource;
extern const KivStringID kEditDBParameter_ODBCUsername;
extern const KivStringID kEditDBParameter_ODBCPassword;
extern const KivStringID kEditDBParameter_HeaderColor;
extern const KivStringID kEditDBParameter_AdvancedSearch;
extern const KivStringID kEditDBParameter_UniqueIDFieldName;

// Values of "mode": which manager the first request of a page opens.
extern const KivStringID kEditDBMode_ManageFields;
extern const KivStringID kEditDBMode_ManageOrders;
extern const KivStringID kEditDBMode_ManageRecords;

// Names of the inputs the editor's forms post back.
extern const KivString kEditDBPostArgument_Action;
extern const KivString kEditDBPostArgument_PrevAction;
extern const KivString kEditDBPostArgument_SelectedDatabase;
extern const KivString kEditDBPostArgument_DatabaseName;
extern const KivString kEditDBPostArgument_FieldName;
extern const KivString kEditDBPostArgument_FieldType;
extern const KivString kEditDBPostArgument_FieldIndexed;
extern const KivString kEditDBPostArgument_FieldUnique;
extern const KivString kEditDBPostArgument_FieldLength;
extern const KivString kEditDBPostArgument_Confirmation;
extern const KivString kEditDBPostArgument_OrderField1;
extern const KivString kEditDBPostArgument_OrderField2;
extern const KivString kEditDBPostArgument_OrderField3;
extern const KivString kEditDBPostArgument_RecordID;
extern const KivString kEditDBPostArgument_ExportFilename;
extern const KivString kEditDBPostArgument_ImportFilename;
extern const KivString kEditDBPostArgument_ResultsPage;
extern const KivString kEditDBPostArgument_ResultsPerPage;
extern const KivString kEditDBPostArgument_DescOrder;
extern const KivString kEditDBPostArgument_Not;
extern const KivString kEditDBPostArgument_SearchString;

// Field types the field manager's type select posts: the native types, then the ODBC type
// names the editor knows.
extern const KivStringID kEditDBFieldType_Boolean;
extern const KivStringID kEditDBFieldType_Integer;
extern const KivStringID kEditDBFieldType_UInteger;
extern const KivStringID kEditDBFieldType_Float;
extern const KivStringID kEditDBFieldType_Number;
extern const KivStringID kEditDBFieldType_Text;
extern const KivStringID kEditDBFieldType_LongText;
extern const KivStringID kEditDBFieldType_ODBCChar;
extern const KivStringID kEditDBFieldType_ODBCVarChar;
extern const KivStringID kEditDBFieldType_ODBCLongVarChar;
extern const KivStringID kEditDBFieldType_ODBCInteger;
extern const KivStringID kEditDBFieldType_ODBCBigInt;
extern const KivStringID kEditDBFieldType_ODBCSmallInt;
extern const KivStringID kEditDBFieldType_ODBCTinyInt;
extern const KivStringID kEditDBFieldType_ODBCNumeric;
extern const KivStringID kEditDBFieldType_ODBCDecimal;
extern const KivStringID kEditDBFieldType_ODBCFloat;
extern const KivStringID kEditDBFieldType_ODBCReal;
extern const KivStringID kEditDBFieldType_ODBCDouble;
extern const KivStringID kEditDBFieldType_ODBCBit;
extern const KivStringID kEditDBFieldType_ODBCDateTime;
extern const KivStringID kEditDBFieldType_ODBCTime;
extern const KivStringID kEditDBFieldType_ODBCTimestamp;
extern const KivStringID kEditDBFieldType_ODBCBinary;
extern const KivStringID kEditDBFieldType_ODBCVarBinary;
extern const KivStringID kEditDBFieldType_ODBCLongVarBinary;
extern const KivStringID kEditDBFieldType_ODBCWChar;
extern const KivStringID kEditDBFieldType_ODBCWVarChar;
extern const KivStringID kEditDBFieldType_ODBCWLongVarChar;

// Identifiers of the editor's localized words, sentences and action labels, computed by
// EditDB_Initialize from their keys ("EditDB_Word_Yes", "EditDB_Action_Add Field", ...).
extern unsigned int kEditDB_ID_Word_Databases;
extern unsigned int kEditDB_ID_Word_No;
extern unsigned int kEditDB_ID_Word_Yes;
extern unsigned int kEditDB_ID_String_DatabaseAvailable;
extern unsigned int kEditDB_ID_String_DatabasesAvailable;
extern unsigned int kEditDB_ID_String_NoDatabasesFound;
extern unsigned int kEditDB_ID_String_EnterNewDB;
extern unsigned int kEditDB_ID_String_OrEnterNewDB;
extern unsigned int kEditDB_ID_String_SelectDatabase;

extern unsigned int kEditDB_ID_Action_ShowDatabaseList;
extern unsigned int kEditDB_ID_Action_CheckODBC;
extern unsigned int kEditDB_ID_Action_VerifyDeleteDatabase;
extern unsigned int kEditDB_ID_Action_DeleteDatabase;
extern unsigned int kEditDB_ID_Action_ManageFields;
extern unsigned int kEditDB_ID_Action_AddField;
extern unsigned int kEditDB_ID_Action_ModifyField;
extern unsigned int kEditDB_ID_Action_VerifyDeleteField;
extern unsigned int kEditDB_ID_Action_DeleteField;
extern unsigned int kEditDB_ID_Action_ManageRecords;
extern unsigned int kEditDB_ID_Action_ShowRecordSearch;
extern unsigned int kEditDB_ID_Action_SearchRecords;
extern unsigned int kEditDB_ID_Action_AddRecord;
extern unsigned int kEditDB_ID_Action_SubmitRecord;
extern unsigned int kEditDB_ID_Action_ModifyRecord;
extern unsigned int kEditDB_ID_Action_ModifyMoveNextRecord;
extern unsigned int kEditDB_ID_Action_ModifyMoveNextRecordAlt;
extern unsigned int kEditDB_ID_Action_VerifyDeleteRecord;
extern unsigned int kEditDB_ID_Action_DeleteRecord;
extern unsigned int kEditDB_ID_Action_VerifyDeleteAllRecords;
extern unsigned int kEditDB_ID_Action_DeleteAllRecords;
extern unsigned int kEditDB_ID_Action_ViewRecord;
extern unsigned int kEditDB_ID_Action_GetImportFilename;
extern unsigned int kEditDB_ID_Action_ImportRecords;
extern unsigned int kEditDB_ID_Action_GetExportFilename;
extern unsigned int kEditDB_ID_Action_ExportRecords;
extern unsigned int kEditDB_ID_Action_MoveFirstRecord;
extern unsigned int kEditDB_ID_Action_MoveLastRecord;
extern unsigned int kEditDB_ID_Action_MoveNextRecord;
extern unsigned int kEditDB_ID_Action_MoveNextRecordAlt;
extern unsigned int kEditDB_ID_Action_MovePrevRecord;
extern unsigned int kEditDB_ID_Action_MovePrevRecordAlt;
extern unsigned int kEditDB_ID_Action_MoveNextPage;
extern unsigned int kEditDB_ID_Action_MovePrevPage;
extern unsigned int kEditDB_ID_Action_DuplicateRecord;

#endif
