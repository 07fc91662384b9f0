// The parts of the kivEditDatabase tag: the forms it renders, the operations it performs on
// the open database, and the small HTML and reporting helpers they share. Every form appends
// one self-posting HTML form to `output_io` and returns a four-character result code (0 for
// success); every operation reads its own post arguments.
#ifndef EDIT_DATABASE_INTERNAL_H
#define EDIT_DATABASE_INTERNAL_H

#include "EditDatabaseConstants.h"
#include "KivModuleInterface.h"
#include "KivString.h"
#include "KivTypes.h"

// --- Database and field forms ---
// The number of databases the list shows (the module's internal ones only on request).
unsigned int EditDB_GetListedDatabaseCount(_KIVAPI_ModuleProcessingInfo* processingInfo_i);
unsigned int EditDB_DatabaseListForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                     const bool& usesODBC_i);
unsigned int EditDB_VerifyDeleteDatabaseForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                             KivString& output_io, const KivString& databaseName_i);
unsigned int EditDB_FieldListForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                  const unsigned int& database_i, const bool& usesODBC_i);
unsigned int EditDB_VerifyDeleteFieldForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                          KivString& output_io, const unsigned int& database_i);
unsigned int EditDB_AddField(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i);
unsigned int EditDB_DeleteField(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                const unsigned int& database_i);

// The field descriptor that EditDB_AddField hands to the database service, from the posted
// type name, length, index and unique choices.
unsigned int EditDB_GetFieldDescriptor(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                       const KivString& typeName_i, const KivString& length_i,
                                       const KivString& indexed_i, const KivString& unique_i);

// --- Record forms ---
unsigned int EditDB_RecordSearchForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                     const unsigned int& database_i);
unsigned int EditDB_SearchResultsForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                      const unsigned int& database_i, const KivString& uniqueIDFieldName_i);
unsigned int EditDB_RecordDisplayForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                      const unsigned int& database_i, const KivString& uniqueIDFieldName_i);
unsigned int EditDB_BlankRecordForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                    const unsigned int& database_i, const bool& recordAdded_i);
unsigned int EditDB_VerifyDeleteRecordForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                           KivString& output_io, const unsigned int& database_i);
unsigned int EditDB_VerifyDeleteAllRecordsForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                               KivString& output_io, const unsigned int& database_i);

// Runs the posted search on the database; 0, 'MBOF' and 'MEOF' are success.
unsigned int EditDB_SearchRecords(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                  const unsigned int& database_i);
// The search text built from the posted criteria (without the advanced search string).
KivString EditDB_BuildSearchString(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                   const unsigned int& database_i);
unsigned int EditDB_AddRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i);
unsigned int EditDB_DuplicateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                    const unsigned int& database_i);
unsigned int EditDB_UpdateRecord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                 const unsigned int& database_i);

// --- ODBC report, export and import ---
unsigned int EditDB_ODBCSupportForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io);
unsigned int EditDB_ExportFilenameForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                       const unsigned int& database_i);
unsigned int EditDB_ImportFilenameForm(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                       const unsigned int& database_i);
unsigned int EditDB_ExportRecords(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                  const unsigned int& database_i);
unsigned int EditDB_ImportRecords(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                  const unsigned int& database_i);
// The SQL name of a field descriptor's type byte ("SQL_CHAR" ...), or "(unknown type)".
const char* EditDB_GetSQLTypeName(const unsigned int& descriptor_i);

// --- Shared helpers ---

// Button cell colours by the kind of action.
extern const char* const kEditDBColor_Navigation; // into a manager, record and page moves
extern const char* const kEditDBColor_Transfer;   // import and export
extern const char* const kEditDBColor_Delete;
extern const char* const kEditDBColor_View;   // search, view, the ODBC report
extern const char* const kEditDBColor_Create; // adding and saving

// The request's language and a localized text in it (English when the language has none).
unsigned long EditDB_GetLanguage(_KIVAPI_ModuleProcessingInfo* processingInfo_i);
KivString EditDB_GetLocalizedString(const unsigned int& identifier_i, const unsigned long& language_i);

// Text from a database or a post argument, safe inside page text and attribute values.
KivString EditDB_HTML(const KivString& text_i);
// A name as error messages show it: HTML-encoded, between "&quot;" entities.
KivString EditDB_Quoted(const KivString& name_i);
// "\r\n<p>" and the database service's error text, or nothing when it has none.
KivString EditDB_GetErrorDetail(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                const unsigned int& database_i);
// Every editor error goes to the error information and to the server log.
void EditDB_ReportError(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivString& headline_i,
                        const KivString& hint_i);
extern const char* const kEditDBHint_ContactAdministrator;

// A string parameter of the tag, with its default.
KivString EditDB_GetTagParameter(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivStringID& name_i,
                                 const char* default_i);
KivString EditDB_GetHeaderColor(_KIVAPI_ModuleProcessingInfo* processingInfo_i);
// A post argument with a default; true when it was posted.
bool EditDB_GetPostArgument(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivString& name_i,
                            KivString& value_io, const char* default_i = "", const unsigned int& index_i = 0);
// The action that a posted button label stands for.
unsigned int EditDB_GetActionID(const KivString& label_i);

// Decimal text of a count.
KivString EditDB_Decimal(const unsigned int& value_i);
// count + " " + noun + "s" unless the count is 1 + " Available": "3 Records Available".
KivString EditDB_CountAvailable(const unsigned int& count_i, const char* noun_i);

// Form pieces. The form posts to the page itself (the CGI variable "SCRIPT_NAME").
void EditDB_AppendFormStart(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io);
void EditDB_AppendFormEnd(KivString& output_io);
// A full-width table: the title (HTML) in a large font on the left, `right_i` (HTML) on the right.
void EditDB_AppendHeader(KivString& output_io, const KivString& title_i, const KivString& right_i);
void EditDB_AppendHidden(KivString& output_io, const KivString& name_i, const KivString& value_i);
void EditDB_AppendButtonRowStart(KivString& output_io);
void EditDB_AppendButtonRowEnd(KivString& output_io);
// A submit button named "kivEditDatabase_Action" whose label is the action's localized word.
void EditDB_AppendActionButton(KivString& output_io, const unsigned int& action_i,
                               const unsigned long& language_i, const char* color_i);
// The two answers of a deletion confirmation, submit buttons named
// "kivEditDatabase_Confirmation".
void EditDB_AppendConfirmationButtons(KivString& output_io, const KivString& yes_i, const KivString& no_i);
// A text input; `size_i` and `maxLength_i` are left out when 0.
void EditDB_AppendTextInput(KivString& output_io, const KivString& name_i, const KivString& value_i,
                            const unsigned int& size_i, const unsigned int& maxLength_i);
void EditDB_AppendRadio(KivString& output_io, const KivString& name_i, const KivString& value_i,
                        const bool& checked_i);
void EditDB_AppendCheckbox(KivString& output_io, const KivString& name_i, const KivString& value_i);

// "Records (name):" headers of the record forms and the field manager.
void EditDB_AppendRecordsHeader(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io,
                                const unsigned int& database_i, const char* title_i, const char* titleEnd_i);

// The type word of a field descriptor: "boolean", "integer", "uinteger", "float", "number",
// "text", "long text", or the ODBC type's name as the database service reports it.
KivString EditDB_GetTypeWord(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                             const unsigned int& descriptor_i);

// The value of a field of the current record as text, by the field's type: booleans "1"/"0".
KivString EditDB_GetFieldValueText(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                   const unsigned int& database_i, const KivString& fieldName_i,
                                   const unsigned int& descriptor_i);

#endif
