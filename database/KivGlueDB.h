// The module's side of the host's database callback. Databases, fields, records, searches and
// cursors all belong to the host; each wrapper here is one database service.
//
// Conventions shared by all wrappers:
// - the per-call record comes first; `database_i` is a handle from KivGlueDBOpenDatabase;
// - a `KivUInt32` result is the host's code, unchanged: 0 for success, 'MBOF'/'MEOF' from
//   cursor moves for "no record", anything else a failure (KivGlueDBGetErrorInfo explains it);
// - output parameters are written only when the host succeeded (export and import counts are
//   always written, as the host may report them with 'MEOF'); counts read 0 on failure;
// - text outputs are retried once on 'MBtS' with the size the host wrote back;
// - value getters return a neutral value (0, false, empty) when the host fails.
#ifndef KIV_GLUE_DB_H
#define KIV_GLUE_DB_H

#include "KivModuleInterface.h"
#include "KivNumber.h"
#include "KivString.h"
#include "KivTypes.h"

// Type words of KivGlueDBAddField: the type byte shifted into bits 16-23.
constexpr unsigned int kKivGlueDBFieldType_Boolean = 0x10000;
constexpr unsigned int kKivGlueDBFieldType_Integer = 0x20000;
constexpr unsigned int kKivGlueDBFieldType_UInteger = 0x30000;
constexpr unsigned int kKivGlueDBFieldType_Float = 0x40000;
constexpr unsigned int kKivGlueDBFieldType_Number = 0x50000;
constexpr unsigned int kKivGlueDBFieldType_Text = 0x60000;
constexpr unsigned int kKivGlueDBFieldType_LongText = 0x70000;

// Session with the database system: the host's own databases when the data source is empty,
// otherwise the named ODBC data source.
KivUInt32 KivGlueDBInitialize(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& dataSource_i,
                              const KivString& userName_i, const KivString& password_i);
KivUInt32 KivGlueDBTerminate(_KIVAPI_ModuleProcessingInfo* processingInfo);

// ODBC capabilities, passed through as the host reports them.
unsigned int KivGlueDBGetODBCSupportFlags(_KIVAPI_ModuleProcessingInfo* processingInfo);
unsigned int KivGlueDBGetODBCCursorFlags(_KIVAPI_ModuleProcessingInfo* processingInfo);
KivUInt32 KivGlueDBGetODBCFieldTypeInfo(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& index_i, KivString& typeName_io,
                                        unsigned int& type_io);
KivUInt32 KivGlueDBGetODBCFieldTypeInfoByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                               const unsigned int& index_i, KivString& typeName_io,
                                               unsigned int& type_io);
KivUInt32 KivGlueDBGetODBCFieldTypeInfoByName(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                              const KivString& typeName_i, unsigned int& type_io);
unsigned int KivGlueDBGetODBCFieldTypeCount(_KIVAPI_ModuleProcessingInfo* processingInfo);

// The host's explanation of a failure code; empty when it has none.
KivString KivGlueDBGetErrorInfo(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                const unsigned int& errorCode_i);

// Databases.
KivUInt32 KivGlueDBCreateDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i);
// `mode_i` is the host's open mode (2 shared, 3 exclusive); `database_io` is written only on
// success. ODBC sources name the field that identifies a record in `uniqueIDFieldName_i`.
KivUInt32 KivGlueDBOpenDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i,
                                const unsigned int& mode_i, unsigned int& database_io,
                                const KivString& uniqueIDFieldName_i = KivString());
KivUInt32 KivGlueDBCloseDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                 const unsigned int& database_i);
KivString KivGlueDBGetDatabaseName(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i);
KivUInt32 KivGlueDBGetDatabaseNameByIndex(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                          const unsigned int& index_i, KivString& name_io);
KivUInt32 KivGlueDBDeleteDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo, const KivString& name_i);
unsigned int KivGlueDBGetDatabaseCount(_KIVAPI_ModuleProcessingInfo* processingInfo);

// Fields. A type word holds the text length in bits 0-15, the type in bits 16-23 and the
// kKivFieldFlag_... bits above.
KivUInt32 KivGlueDBAddField(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                            const KivString& name_i, const unsigned int& typeWord_i);
KivUInt32 KivGlueDBAddBooleanField(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i, const KivString& name_i);
KivUInt32 KivGlueDBAddIntegerField(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i, const KivString& name_i);
KivUInt32 KivGlueDBAddUIntegerField(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                    const unsigned int& database_i, const KivString& name_i);
KivUInt32 KivGlueDBAddFloatField(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                 const KivString& name_i);
// The length is cut to 16 bits: a text field holds at most 65535 bytes.
KivUInt32 KivGlueDBAddTextField(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const KivString& name_i, const unsigned int& length_i);
KivUInt32 KivGlueDBAddLongTextField(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                    const unsigned int& database_i, const KivString& name_i);
KivUInt32 KivGlueDBDeleteField(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                               const KivString& name_i);
// By name: the type word is 0 when the host fails.
KivUInt32 KivGlueDBGetFieldInfo(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const KivString& name_i, unsigned int& typeWord_io);
// By index: name and type word are written only on success.
KivUInt32 KivGlueDBGetFieldInfo(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const unsigned int& index_i, KivString& name_io, unsigned int& typeWord_io);
unsigned int KivGlueDBGetFieldCount(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                    const unsigned int& database_i);

KivUInt32 KivGlueDBSetLocking(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                              const unsigned int& lockMode_i);

// Records: CreateRecord starts a new record buffer that AddRecord stores; UpdateRecord stores
// the current record after its values were set.
KivUInt32 KivGlueDBCreateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i);
KivUInt32 KivGlueDBAddRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i);
KivUInt32 KivGlueDBUpdateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i);
KivUInt32 KivGlueDBDeleteRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const KivString& key_i);
KivUInt32 KivGlueDBDeleteRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const unsigned int& key_i);
KivUInt32 KivGlueDBDeleteRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const int& key_i);
KivUInt32 KivGlueDBDeleteRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const double& key_i);
KivUInt32 KivGlueDBDeleteAllRecords(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                    const unsigned int& database_i);
unsigned int KivGlueDBGetRecordCount(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                     const unsigned int& database_i);

// Field values of the current record.
KivUInt32 KivGlueDBSetBooleanFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& database_i, const KivString& fieldName_i,
                                        const bool& value_i);
KivUInt32 KivGlueDBSetIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& database_i, const KivString& fieldName_i,
                                        const int& value_i);
// These convert to a signed 32-bit integer first (doubles are truncated and saturated).
KivUInt32 KivGlueDBSetIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& database_i, const KivString& fieldName_i,
                                        const double& value_i);
KivUInt32 KivGlueDBSetIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& database_i, const KivString& fieldName_i,
                                        const unsigned int& value_i);
KivUInt32 KivGlueDBSetIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                        const unsigned int& database_i, const KivString& fieldName_i,
                                        const KivNumber& value_i);
KivUInt32 KivGlueDBSetUIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                         const unsigned int& database_i, const KivString& fieldName_i,
                                         const unsigned int& value_i);
KivUInt32 KivGlueDBSetFloatFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                      const unsigned int& database_i, const KivString& fieldName_i,
                                      const double& value_i);
// Number fields are sent as their exact decimal text.
KivUInt32 KivGlueDBSetNumberFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                       const unsigned int& database_i, const KivString& fieldName_i,
                                       const KivNumber& value_i);
KivUInt32 KivGlueDBSetTextFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                     const unsigned int& database_i, const KivString& fieldName_i,
                                     const KivString& value_i);
KivUInt32 KivGlueDBSetLongTextFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                         const unsigned int& database_i, const KivString& fieldName_i,
                                         const KivString& value_i);

bool KivGlueDBGetBooleanFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i, const KivString& fieldName_i);
int KivGlueDBGetIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                  const unsigned int& database_i, const KivString& fieldName_i);
unsigned int KivGlueDBGetUIntegerFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                            const unsigned int& database_i, const KivString& fieldName_i);
double KivGlueDBGetFloatFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i, const KivString& fieldName_i);
// Read as a double: number fields are exact on the way in and pass through a double on the
// way out. A failure gives an empty (null) number.
KivNumber KivGlueDBGetNumberFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                       const unsigned int& database_i, const KivString& fieldName_i);
KivString KivGlueDBGetTextFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                     const unsigned int& database_i, const KivString& fieldName_i);
KivString KivGlueDBGetLongTextFieldValue(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                         const unsigned int& database_i, const KivString& fieldName_i);

// Searches and the cursor over their results.
KivUInt32 KivGlueDBClearSearchResults(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                      const unsigned int& database_i);
KivUInt32 KivGlueDBExecuteSearch(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                 const KivString& search_i);
unsigned int KivGlueDBGetResultCount(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                     const unsigned int& database_i);
KivUInt32 KivGlueDBMoveFirstRecord(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                   const unsigned int& database_i);
KivUInt32 KivGlueDBMoveLastRecord(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                  const unsigned int& database_i);
KivUInt32 KivGlueDBMovePrevRecord(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                  const unsigned int& database_i);
KivUInt32 KivGlueDBMoveNextRecord(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                  const unsigned int& database_i);
KivUInt32 KivGlueDBMoveToRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const KivString& key_i);
KivUInt32 KivGlueDBMoveToRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const unsigned int& key_i);
KivUInt32 KivGlueDBMoveToRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const int& key_i);
KivUInt32 KivGlueDBMoveToRecord(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                                const double& key_i);
KivUInt32 KivGlueDBJump(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                        const unsigned int& position_i);

// Records to and from a file on the server, written and read by the host. `count_io` receives
// the number of records the host reports, whatever its code.
KivUInt32 KivGlueDBExport(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                          const KivString& path_i, unsigned int& count_io, const KivString& secondText_i);
KivUInt32 KivGlueDBImport(_KIVAPI_ModuleProcessingInfo* processingInfo, const unsigned int& database_i,
                          const KivString& path_i, unsigned int& count_io);

#endif
