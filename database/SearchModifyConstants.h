// Names of the search and modify tags' parameters, modes and field type words, the search
// template's placeholder marker and the search preference keys. They are defined once, in the
// module entry's translation unit (SearchModifyConstants.inc), so that they are constructed
// together with the module's other static constants.
#ifndef SEARCH_MODIFY_CONSTANTS_H
#define SEARCH_MODIFY_CONSTANTS_H

#include "KivString.h"
#include "KivStringID.h"

// kivSearchDatabase parameters (identifiers ignore letter case).
extern const KivStringID kSearchDBParameter_DatabaseName;
extern const KivStringID kSearchDBParameter_SearchString;
extern const KivStringID kSearchDBParameter_FieldName;
extern const KivStringID kSearchDBParameter_FieldValue;
extern const KivStringID kSearchDBParameter_PageVariableName;
extern const KivStringID kSearchDBParameter_PathArgumentName;
extern const KivStringID kSearchDBParameter_PostArgumentName;
extern const KivStringID kSearchDBParameter_OrderByField;
extern const KivStringID kSearchDBParameter_ReverseOrder;
extern const KivStringID kSearchDBParameter_RecordsPerPage;
extern const KivStringID kSearchDBParameter_Page;
extern const KivStringID kSearchDBParameter_ResultVariableName;
extern const KivStringID kSearchDBParameter_ODBCDataSource;
extern const KivStringID kSearchDBParameter_ODBCUsername;
extern const KivStringID kSearchDBParameter_ODBCPassword;
extern const KivStringID kSearchDBParameter_DisplayPrecision;

// The field placeholder marker of the search template, matched without regard to case.
extern const KivString kSearchDB_FieldStart;

// The result limit: its preference key, its form control (and post argument) and its default.
extern const KivString kSearchDBPreference_MaxResults;
extern const KivString kSearchDBPreferenceControl_MaxResults;
extern const KivString kSearchDBPreference_MaxResultsDefault;

// kivModifyDatabase parameters.
extern const KivStringID kModifyDBParameter_Function;
extern const KivStringID kModifyDBParameter_DatabaseName;
extern const KivStringID kModifyDBParameter_KeyFieldName;
extern const KivStringID kModifyDBParameter_FieldName;
extern const KivStringID kModifyDBParameter_FieldType;
extern const KivStringID kModifyDBParameter_FieldLength;
extern const KivStringID kModifyDBParameter_FieldFlags;
extern const KivStringID kModifyDBParameter_SearchString;
extern const KivStringID kModifyDBParameter_FieldValue;
extern const KivStringID kModifyDBParameter_PageVariableName;
extern const KivStringID kModifyDBParameter_PathArgumentName;
extern const KivStringID kModifyDBParameter_PostArgumentName;
extern const KivStringID kModifyDBParameter_FileLocation;
extern const KivStringID kModifyDBParameter_OrderByField;
extern const KivStringID kModifyDBParameter_ReverseOrder;
extern const KivStringID kModifyDBParameter_ResultVariableName;
extern const KivStringID kModifyDBParameter_ODBCDataSource;
extern const KivStringID kModifyDBParameter_ODBCUsername;
extern const KivStringID kModifyDBParameter_ODBCPassword;
extern const KivStringID kModifyDBParameter_UniqueIDFieldName;

// kivModifyDatabase modes (the "mode" parameter's values).
extern const KivStringID kModifyDBFunction_ListDatabases;
extern const KivStringID kModifyDBFunction_CreateDatabase;
extern const KivStringID kModifyDBFunction_DeleteDatabase;
extern const KivStringID kModifyDBFunction_ListFields;
extern const KivStringID kModifyDBFunction_AddField;
extern const KivStringID kModifyDBFunction_DeleteField;
extern const KivStringID kModifyDBFunction_AddRecord;
extern const KivStringID kModifyDBFunction_DeleteRecord;
extern const KivStringID kModifyDBFunction_UpdateRecord;
extern const KivStringID kModifyDBFunction_Export;
extern const KivStringID kModifyDBFunction_Import;

// Field type words of addField's "fieldType", in type-code order (1 to 7).
extern const KivStringID kModifyDBFieldType_Boolean;
extern const KivStringID kModifyDBFieldType_Integer;
extern const KivStringID kModifyDBFieldType_UInteger;
extern const KivStringID kModifyDBFieldType_Float;
extern const KivStringID kModifyDBFieldType_Number;
extern const KivStringID kModifyDBFieldType_Text;
extern const KivStringID kModifyDBFieldType_LongText;

#endif
