// The operations of the kivModifyDatabase tag, one function each, and the two routines they
// share: building search criteria from the tag's parameters and setting one field's value from
// text. Each takes the request record and, where it works on a database, the handle of the open
// database; each returns a four-character result code (0 for success) and reports failures
// through the error information.
#ifndef MODIFY_DB_WORKERS_H
#define MODIFY_DB_WORKERS_H

#include "KivModuleInterface.h"
#include "KivString.h"

// The names of all databases, comma-separated, into `list_io` (only on success).
unsigned int ModifyDB_ListDatabases(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& list_io);
// "Name.Type.Length.Flags" of every field, comma-separated, into `list_io` (only on success).
unsigned int ModifyDB_ListFields(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& list_io,
                                 const unsigned int& database_i);
unsigned int ModifyDB_AddField(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                               const unsigned int& database_i);
unsigned int ModifyDB_DeleteField(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                  const unsigned int& database_i);
unsigned int ModifyDB_AddRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                const unsigned int& database_i);
// Deletes every record the criteria find, each by the text of its unique-ID field.
unsigned int ModifyDB_DeleteRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                   const unsigned int& database_i, const KivString& uniqueIDFieldName_i);
unsigned int ModifyDB_UpdateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                   const unsigned int& database_i);
unsigned int ModifyDB_Export(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i);
unsigned int ModifyDB_Import(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i);

// The "searchString" parameter as written, or criteria built from "keyFieldName" and value
// pairs with "orderByField" and "reverseOrder"; values always have their quotes doubled.
KivString ModifyDB_BuildSearchString(_KIVAPI_ModuleProcessingInfo* processingInfo_i);

// Sets a field of the current record from text, converted by the field's value class. An empty
// value for an Integer, UInteger or Float field is replaced by "0". A field of an unsupported
// type returns 'MUnk' without calling the database.
unsigned int ModifyDB_SetFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                    const unsigned int& database_i, const KivString& fieldName_i,
                                    KivString& value_io);

// The value-pairing walk of addRecord (`isUpdate_i` false) and updateRecord (true): every
// "fieldName" parameter followed directly by a value parameter sets that field. Returns the
// last failure of a field setting, or 0.
unsigned int ModifyDB_SetFieldValuesFromParameters(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                                   const unsigned int& database_i, const bool& isUpdate_i);

// Sets the page variable named by "resultVariableName" and the suffix, when the tag names one.
void ModifyDB_SetResult(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const char* suffix_i,
                        const KivString& value_i);
void ModifyDB_SetResult(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const char* suffix_i,
                        const unsigned int& value_i);

#endif
