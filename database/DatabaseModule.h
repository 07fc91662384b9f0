// The module's entry and its static constants. The host loads the library and calls
// ProcessKivRequest for everything it wants: initialisation, each tag occurrence, the
// preference controls, storing preferences and termination.
#ifndef DATABASE_MODULE_H
#define DATABASE_MODULE_H

#include "KivModuleInterface.h"
#include "KivLocalizationManager.h"
#include "KivString.h"
#include "KivTag.h"
#include "KivTypes.h"

#if defined(__GNUC__)
#define KIV_MODULE_EXPORT __attribute__((visibility("default")))
#else
#define KIV_MODULE_EXPORT
#endif

// The library's one exported symbol.
extern "C" KIV_MODULE_EXPORT KivUInt32 ProcessKivRequest(_KIVAPI_ModuleProcessingInfo* processingInfo);

// The functions the entry hands its work to. The library's entry always uses
// kKivDatabaseModuleHandlers; other tables let tests observe the entry's own duties (codes,
// output, order) around processors that behave as the test needs.
struct KivDatabaseModuleHandlers
{
    unsigned int (*processEditDatabase)(_KIVAPI_ModuleProcessingInfo*, KivString&);
    unsigned int (*processModifyDatabase)(_KIVAPI_ModuleProcessingInfo*, KivString&);
    unsigned int (*processSearchDatabase)(_KIVAPI_ModuleProcessingInfo*, KivString&);
    KivString (*getPreferencesHTML)(_KIVAPI_ModuleProcessingInfo*);
    void (*setPreferencesFromPostArguments)(_KIVAPI_ModuleProcessingInfo*);
    void (*editDBInitialize)();
    void (*editDBRegisterLocalizedStrings)();
};
extern const KivDatabaseModuleHandlers kKivDatabaseModuleHandlers;

// ProcessKivRequest with a chosen handler table.
KivUInt32 KivDatabaseModuleProcessRequest(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                          const KivDatabaseModuleHandlers& handlers_i);

// The module's texts in every language; created by 'MIni', deleted by 'MTrm', null otherwise.
extern KivLocalizationManager* databaseLocalization;

// Identity registered with the host.
extern const KivString kKivDatabaseModuleName;
extern const KivString kKivDatabaseModuleVersion;
extern const KivString kKivDatabaseModuleAuthor;
extern const KivString kKivDatabaseModuleVersionTrackerURL;

// The module's tags, compared without regard to letter case.
extern const KivTag kKivTagEditDatabase;
extern const KivTag kKivTagModifyDatabase;
extern const KivTag kKivTagSearchDatabase;

// Registration flags of the tags: the editor and the modify tag stand alone; the search tag
// encloses a body that the module reads raw as its result template.
constexpr unsigned int kKivTagFlags_EditDatabase = kKivTagFlag_Empty;
constexpr unsigned int kKivTagFlags_ModifyDatabase = kKivTagFlag_Empty;
constexpr unsigned int kKivTagFlags_SearchDatabase = kKivTagFlag_Container | kKivTagFlag_RawBody;

// A key built from free text: blanks (tab, CR, LF, space) removed, commas and full stops made
// "_", upper-cased, URL-encoded. " my.db, old" gives "MY_DB_OLD".
KivString KivUtilGetNormalizedString(const KivString& string_i);

// prefix + the name's first word + suffix, upper-cased, spaces removed, URL-encoded.
KivString KivUtilGetModuleActionResponseString(const KivString& prefix_i, const KivString& name_i,
                                               const KivString& suffix_i);

#endif
