// The editor's words, sentences and action labels: the identifiers of their keys and the texts
// registered for each language. The French and Spanish texts are ISO 8859-1 bytes, written as
// they stand into the page.
#include "DatabaseModule.h"
#include "EditDatabaseConstants.h"
#include "KivLocalizationManager.h"
#include "KivStringID.h"
#include "TagProcessors.h"

unsigned int kEditDB_ID_Word_Databases = 0;
unsigned int kEditDB_ID_Word_No = 0;
unsigned int kEditDB_ID_Word_Yes = 0;
unsigned int kEditDB_ID_String_DatabaseAvailable = 0;
unsigned int kEditDB_ID_String_DatabasesAvailable = 0;
unsigned int kEditDB_ID_String_NoDatabasesFound = 0;
unsigned int kEditDB_ID_String_EnterNewDB = 0;
unsigned int kEditDB_ID_String_OrEnterNewDB = 0;
unsigned int kEditDB_ID_String_SelectDatabase = 0;

unsigned int kEditDB_ID_Action_ShowDatabaseList = 0;
unsigned int kEditDB_ID_Action_CheckODBC = 0;
unsigned int kEditDB_ID_Action_VerifyDeleteDatabase = 0;
unsigned int kEditDB_ID_Action_DeleteDatabase = 0;
unsigned int kEditDB_ID_Action_ManageFields = 0;
unsigned int kEditDB_ID_Action_AddField = 0;
unsigned int kEditDB_ID_Action_ModifyField = 0;
unsigned int kEditDB_ID_Action_VerifyDeleteField = 0;
unsigned int kEditDB_ID_Action_DeleteField = 0;
unsigned int kEditDB_ID_Action_ManageRecords = 0;
unsigned int kEditDB_ID_Action_ShowRecordSearch = 0;
unsigned int kEditDB_ID_Action_SearchRecords = 0;
unsigned int kEditDB_ID_Action_AddRecord = 0;
unsigned int kEditDB_ID_Action_SubmitRecord = 0;
unsigned int kEditDB_ID_Action_ModifyRecord = 0;
unsigned int kEditDB_ID_Action_ModifyMoveNextRecord = 0;
unsigned int kEditDB_ID_Action_ModifyMoveNextRecordAlt = 0;
unsigned int kEditDB_ID_Action_VerifyDeleteRecord = 0;
unsigned int kEditDB_ID_Action_DeleteRecord = 0;
unsigned int kEditDB_ID_Action_VerifyDeleteAllRecords = 0;
unsigned int kEditDB_ID_Action_DeleteAllRecords = 0;
unsigned int kEditDB_ID_Action_ViewRecord = 0;
unsigned int kEditDB_ID_Action_GetImportFilename = 0;
unsigned int kEditDB_ID_Action_ImportRecords = 0;
unsigned int kEditDB_ID_Action_GetExportFilename = 0;
unsigned int kEditDB_ID_Action_ExportRecords = 0;
unsigned int kEditDB_ID_Action_MoveFirstRecord = 0;
unsigned int kEditDB_ID_Action_MoveLastRecord = 0;
unsigned int kEditDB_ID_Action_MoveNextRecord = 0;
unsigned int kEditDB_ID_Action_MoveNextRecordAlt = 0;
unsigned int kEditDB_ID_Action_MovePrevRecord = 0;
unsigned int kEditDB_ID_Action_MovePrevRecordAlt = 0;
unsigned int kEditDB_ID_Action_MoveNextPage = 0;
unsigned int kEditDB_ID_Action_MovePrevPage = 0;
unsigned int kEditDB_ID_Action_DuplicateRecord = 0;

namespace
{

const unsigned long kEditDBLanguage_English = 0x01000000;
const unsigned long kEditDBLanguage_French = 0x02000000;
const unsigned long kEditDBLanguage_Spanish = 0x03000000;

struct EditDB_KeyedIdentifier
{
    unsigned int* identifier;
    const char* key;
};

// Words and sentences, in the order their identifiers are computed.
const EditDB_KeyedIdentifier kEditDBTextKeys[] = {
    {&kEditDB_ID_Word_Databases, "EditDB_Word_Databases"},
    {&kEditDB_ID_Word_No, "EditDB_Word_No"},
    {&kEditDB_ID_Word_Yes, "EditDB_Word_Yes"},
    {&kEditDB_ID_String_DatabaseAvailable, "EditDB_String_DatabaseAvailable"},
    {&kEditDB_ID_String_DatabasesAvailable, "EditDB_String_DatabasesAvailable"},
    {&kEditDB_ID_String_EnterNewDB, "EditDB_String_EnterNewDB"},
    {&kEditDB_ID_String_NoDatabasesFound, "EditDB_String_NoDatabasesFound"},
    {&kEditDB_ID_String_OrEnterNewDB, "EditDB_String_OrEnterNewDB"},
    {&kEditDB_ID_String_SelectDatabase, "EditDB_String_SelectDatabase"},
};

// The action words: each is its own English label and, behind "EditDB_Action_", its key. The
// browser posts the label back, so the same table maps a posted label to its action.
struct EditDB_ActionWord
{
    unsigned int* identifier;
    const char* word;
};

const EditDB_ActionWord kEditDBActionWords[] = {
    {&kEditDB_ID_Action_ShowDatabaseList, "ShowDatabaseList"},
    {&kEditDB_ID_Action_CheckODBC, "ODBC"},
    {&kEditDB_ID_Action_VerifyDeleteDatabase, "Remove"},
    {&kEditDB_ID_Action_DeleteDatabase, "DeleteDatabase"},
    {&kEditDB_ID_Action_ManageFields, "Fields"},
    {&kEditDB_ID_Action_AddField, "Add Field"},
    {&kEditDB_ID_Action_ModifyField, "Modify Field"},
    {&kEditDB_ID_Action_VerifyDeleteField, "Delete Field"},
    {&kEditDB_ID_Action_DeleteField, "DeleteField"},
    {&kEditDB_ID_Action_ManageRecords, "Records"},
    {&kEditDB_ID_Action_ShowRecordSearch, "Search"},
    {&kEditDB_ID_Action_SearchRecords, "Search Now"},
    {&kEditDB_ID_Action_AddRecord, "New"},
    {&kEditDB_ID_Action_SubmitRecord, "Submit Record"},
    {&kEditDB_ID_Action_ModifyRecord, "Save"},
    {&kEditDB_ID_Action_ModifyMoveNextRecord, "Save &gt;&gt;"},
    {&kEditDB_ID_Action_ModifyMoveNextRecordAlt, "Save >>"},
    {&kEditDB_ID_Action_VerifyDeleteRecord, "Delete"},
    {&kEditDB_ID_Action_DeleteRecord, "DeleteRecord"},
    {&kEditDB_ID_Action_VerifyDeleteAllRecords, "Delete All"},
    {&kEditDB_ID_Action_DeleteAllRecords, "DeleteAllRecords"},
    {&kEditDB_ID_Action_ViewRecord, "View"},
    {&kEditDB_ID_Action_GetImportFilename, "Import"},
    {&kEditDB_ID_Action_ImportRecords, "Import Now"},
    {&kEditDB_ID_Action_GetExportFilename, "Export"},
    {&kEditDB_ID_Action_ExportRecords, "Export Now"},
    {&kEditDB_ID_Action_MoveFirstRecord, "First"},
    {&kEditDB_ID_Action_MoveLastRecord, "Last"},
    {&kEditDB_ID_Action_MoveNextRecord, "&gt;&gt;"},
    {&kEditDB_ID_Action_MoveNextRecordAlt, ">>"},
    {&kEditDB_ID_Action_MovePrevRecord, "&lt;&lt;"},
    {&kEditDB_ID_Action_MovePrevRecordAlt, "<<"},
    {&kEditDB_ID_Action_MoveNextPage, "Next"},
    {&kEditDB_ID_Action_MovePrevPage, "Prev"},
    {&kEditDB_ID_Action_DuplicateRecord, "Duplicate"},
};

const char* const kEditDBActionKeyPrefix = "EditDB_Action_";

// One row of texts; a null text is not registered, so that look-ups fall back to English.
struct EditDB_LocalizedText
{
    const unsigned int* identifier;
    const char* english;
    const char* french;
    const char* spanish;
};

// Accented letters are Latin-1: 0xE9 e acute, 0xE1 a acute. Literals are split after an escape
// where a hexadecimal letter follows, so that the escape ends where it should.
const EditDB_LocalizedText kEditDBLocalizedTexts[] = {
    {&kEditDB_ID_Word_Databases, "Databases",
     "Bases de donn\xE9"
     "es",
     "Bases de datos"},
    {&kEditDB_ID_Word_No, "No", "Non", "No"},
    {&kEditDB_ID_Word_Yes, "Yes", "Oui", "Si"},
    {&kEditDB_ID_String_DatabaseAvailable, "Database Available",
     "Base de donn\xE9"
     "es Disponible",
     "Base de datos Disponibles"},
    {&kEditDB_ID_String_DatabasesAvailable, "Databases Available",
     "Bases de donn\xE9"
     "es Disponibles",
     "Bases de datos Disponibles"},
    {&kEditDB_ID_String_NoDatabasesFound, "No databases were found.", nullptr, nullptr},
    {&kEditDB_ID_String_EnterNewDB,
     "<strong>Enter the name for a new database</strong> (if it does not exist, it will be created):",
     "<strong>Entrez au nom pour une nouvelle base de donn\xE9"
     "es</strong> (s'il n'existe pas, il sera cr\xE9\xE9):",
     "<strong>Entre en nombre para una base de datos nueva</strong> (si esto no existe, esto ser\xE1 "
     "creado):"},
    {&kEditDB_ID_String_OrEnterNewDB,
     "<strong>Or, enter the name for a new database</strong> (if it does not exist, it will be created):",
     "<strong>Ou, entrez au nom pour une nouvelle base de donn\xE9"
     "es</strong> (s'il n'existe pas, il sera cr\xE9\xE9):",
     "<strong>O, entre en nombre para una base de datos nueva</strong> (si esto no existe, esto ser\xE1 "
     "creado):"},
    {&kEditDB_ID_String_SelectDatabase, "Select a database:",
     "Choisissez une base de donn\xE9"
     "es:",
     "Seleccione una base de datos:"},
};

void EditDB_Register(const unsigned int& identifier_i, const unsigned long& language_i, const char* text_i)
{
    if (text_i != nullptr)
        databaseLocalization->RegisterString(identifier_i, language_i, KivString(text_i));
}

} // namespace

void EditDB_Initialize()
{
    for (const EditDB_KeyedIdentifier& text : kEditDBTextKeys)
        *text.identifier = KivStringID::CalculateID(KivString(text.key), 0);
    for (const EditDB_ActionWord& action : kEditDBActionWords)
    {
        KivString key(kEditDBActionKeyPrefix);
        key += action.word;
        *action.identifier = KivStringID::CalculateID(key, 0);
    }
}

void EditDB_RegisterLocalizedStrings()
{
    if (databaseLocalization == nullptr)
        return;
    for (const EditDB_LocalizedText& text : kEditDBLocalizedTexts)
    {
        EditDB_Register(*text.identifier, kEditDBLanguage_English, text.english);
        EditDB_Register(*text.identifier, kEditDBLanguage_French, text.french);
        EditDB_Register(*text.identifier, kEditDBLanguage_Spanish, text.spanish);
    }
    // Action words are registered in English only: the posted label is mapped back through its
    // English key, so every language must show the English word.
    for (const EditDB_ActionWord& action : kEditDBActionWords)
        EditDB_Register(*action.identifier, kEditDBLanguage_English, action.word);
}
