// Pieces shared by the search and modify tags (and the editor's record forms): the value class
// of a field's type code, search criteria conditions, result variables and error reporting.
#ifndef MODIFY_DB_SHARED_H
#define MODIFY_DB_SHARED_H

#include "KivModuleInterface.h"
#include "KivString.h"
#include "KivStringID.h"
#include "KivTypes.h"

// Result codes and open modes are the interface header's (kKivResult_..., kKivOpenMode_...).

// How a field's value is written and read, by the type code in bits 16-23 of its info word.
// ODBC types map onto the host's own classes; SQL DECIMAL is read as a Float and SQL BIGINT as a
// Number, which is how the database services deliver them.
enum ModifyDB_ValueClass
{
    kModifyDBValueClass_Unsupported,
    kModifyDBValueClass_Boolean,
    kModifyDBValueClass_Integer,
    kModifyDBValueClass_UInteger,
    kModifyDBValueClass_Float,
    kModifyDBValueClass_Number,
    kModifyDBValueClass_Text,
    kModifyDBValueClass_LongText
};
ModifyDB_ValueClass ModifyDB_GetValueClass(const unsigned int& fieldInfoWord_i);

// Appends `fieldName = 'value'` to search criteria, preceded by " AND " unless the criteria are
// empty. Every "'" of the value is doubled: values come from page visitors, and an undoubled
// quote would let them rewrite the search.
void ModifyDB_AppendCondition(KivString& criteria_io, const KivString& fieldName_i, const KivString& value_i);

// Appends " ORDER BY <field>" (and " DESC" when the reverse parameter is "yes" in any case) when
// the order parameter is present.
void ModifyDB_AppendOrdering(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& criteria_io,
                             const KivStringID& orderByParameter_i, const KivStringID& reverseParameter_i);

// The parameter's identifier as the tags compare it: case-insensitive, whatever identifier the
// host-call layer computed.
KivStringID ModifyDB_GetParameterID(const KivStringID& name_i);

// True, with the prefix in `prefix_io`, when the result-variable parameter is present and not
// empty.
bool ModifyDB_GetResultVariablePrefix(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                      const KivStringID& parameter_i, KivString& prefix_io);
// Sets the page variable prefix + suffix, when there is a prefix.
void ModifyDB_SetResultVariable(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivString& prefix_i,
                                const char* suffix_i, const KivString& value_i);

// Reads the tag's ODBC data source, user name and password (empty when absent) and starts the
// database service with them; a failure is reported and logged. Returns the service's code.
unsigned int ModifyDB_StartDatabaseService(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                           const KivStringID& dataSourceParameter_i,
                                           const KivStringID& userNameParameter_i,
                                           const KivStringID& passwordParameter_i);

// Sets the error information and, when `log_i`, writes the headline to the server log too.
void ModifyDB_ReportError(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivString& headline_i,
                          const KivString& hint_i, const bool& log_i);

// A name as it appears in the messages: between "&quot;" entities.
KivString ModifyDB_Quoted(const KivString& name_i);

// The hint of failures that only the administrator can look into.
extern const char* const kModifyDBHint_ContactAdministrator;

// Leading and trailing blanks as the tags trim them.
extern const char* const kModifyDBBlanks;

#endif
