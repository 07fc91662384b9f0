// The module's entry: checks the host's per-call record, dispatches on the request code and
// sends the produced HTML back in one write. Every static constant of the module is defined
// in this one translation unit, so that they are constructed in a known order before the
// host's first call and destroyed together at unload.
#include "DatabaseModule.h"

#include "KivAssert.h"
#include "KivGlue.h"
#include "KivStringUtility.h"
#include "TagProcessors.h"

const KivString kKivDatabaseModuleName("Database Module");
const KivString kKivDatabaseModuleVersion("3.1.7");
const KivString kKivDatabaseModuleAuthor("Kiv Project");
const KivString kKivDatabaseModuleVersionTrackerURL("https://versions.example.org/kiv/database-module");

const KivTag kKivTagEditDatabase("kivEditDatabase");
const KivTag kKivTagModifyDatabase("kivModifyDatabase");
const KivTag kKivTagSearchDatabase("kivSearchDatabase");

#include "EditDatabaseConstants.inc"
#include "SearchModifyConstants.inc"

KivLocalizationManager* databaseLocalization = nullptr;

const KivDatabaseModuleHandlers kKivDatabaseModuleHandlers = {ProcessEditDatabase,
                                                              ProcessModifyDatabase,
                                                              ProcessSearchDatabase,
                                                              GetPreferencesHTML,
                                                              SetPreferencesFromPostArguments,
                                                              EditDB_Initialize,
                                                              EditDB_RegisterLocalizedStrings};

namespace
{

// Registers the module and its tags. Every registration is attempted, so that the host knows
// as much of the module as it accepts even when it refuses one part.
KivUInt32 InitializeModule(_KIVAPI_ModuleProcessingInfo* processingInfo,
                           const KivDatabaseModuleHandlers& handlers_i)
{
    handlers_i.editDBInitialize();
    if (databaseLocalization == nullptr)
        databaseLocalization = new KivLocalizationManager();

    bool registered = true;
    registered &= KivGlueRegisterModuleName(processingInfo, kKivDatabaseModuleName);
    registered &= KivGlueRegisterModuleVersion(processingInfo, kKivDatabaseModuleVersion);
    registered &= KivGlueRegisterModuleAuthor(processingInfo, kKivDatabaseModuleAuthor);
    registered &= KivGlueRegisterModuleVersionTrackerURL(processingInfo, kKivDatabaseModuleVersionTrackerURL);
    registered &= KivGlueRegisterForTag(processingInfo, kKivTagEditDatabase, kKivTagFlags_EditDatabase);
    registered &= KivGlueRegisterForTag(processingInfo, kKivTagModifyDatabase, kKivTagFlags_ModifyDatabase);
    registered &= KivGlueRegisterForTag(processingInfo, kKivTagSearchDatabase, kKivTagFlags_SearchDatabase);

    handlers_i.editDBRegisterLocalizedStrings();
    return registered ? kKivResult_Success : kKivResult_UnknownError;
}

// Runs the processor of the current tag unless the region switched the tag off.
KivUInt32 ProcessTag(_KIVAPI_ModuleProcessingInfo* processingInfo,
                     const KivDatabaseModuleHandlers& handlers_i, KivString& output_io)
{
    KivTag tag = KivGlueGetTag(processingInfo);
    KivString enabled;
    KivGlueGetPreference(processingInfo, tag.GetName(), enabled, "yes");
    if (enabled == "no")
        return kKivResult_Success;

    if (tag == kKivTagEditDatabase)
        return handlers_i.processEditDatabase(processingInfo, output_io);
    if (tag == kKivTagModifyDatabase)
        return handlers_i.processModifyDatabase(processingInfo, output_io);
    if (tag == kKivTagSearchDatabase)
        return handlers_i.processSearchDatabase(processingInfo, output_io);
    return kKivResult_Success;
}

void TerminateModule()
{
    delete databaseLocalization;
    databaseLocalization = nullptr;
}

} // namespace

KivUInt32 KivDatabaseModuleProcessRequest(_KIVAPI_ModuleProcessingInfo* processingInfo,
                                          const KivDatabaseModuleHandlers& handlers_i)
{
    KIV_ASSERT_NOT_NULL(processingInfo);
    KIV_ASSERT_NOT_NULL(processingInfo->connID_i);
    KIV_ASSERT_NOT_NULL(processingInfo->KivServerSupportFunction);
    KIV_ASSERT_NOT_NULL(processingInfo->KivDatabaseSupportFunction);

    KivString output;
    KivUInt32 result = kKivResult_Success;
    switch (processingInfo->requestCode)
    {
    case kKivRequest_Initialize:
        return InitializeModule(processingInfo, handlers_i);
    case kKivRequest_ProcessTag:
        result = ProcessTag(processingInfo, handlers_i, output);
        // A failing processor's output usually is its error message: it is sent all the same.
        KivGlueWriteToServer(processingInfo, output);
        return result;
    case kKivRequest_GetPreferences:
        output = handlers_i.getPreferencesHTML(processingInfo);
        KivGlueWriteToServer(processingInfo, output);
        return kKivResult_Success;
    case kKivRequest_SetPreferences:
        handlers_i.setPreferencesFromPostArguments(processingInfo);
        return kKivResult_Success;
    case kKivRequest_Terminate:
        TerminateModule();
        return kKivResult_Success;
    case kKivRequest_PerformAction:
    default:
        return kKivResult_UnknownFunction;
    }
}

extern "C" KIV_MODULE_EXPORT KivUInt32 ProcessKivRequest(_KIVAPI_ModuleProcessingInfo* processingInfo)
{
    return KivDatabaseModuleProcessRequest(processingInfo, kKivDatabaseModuleHandlers);
}

KivString KivUtilGetNormalizedString(const KivString& string_i)
{
    static const KivString ourUnderscore("_");
    static const KivString ourEmptyString;

    KivString normalized(string_i);
    normalized.ReplaceAll('\t', ourEmptyString, 0);
    normalized.ReplaceAll('\r', ourEmptyString, 0);
    normalized.ReplaceAll('\n', ourEmptyString, 0);
    normalized.ReplaceAll(' ', ourEmptyString, 0);
    normalized.ReplaceAll(',', ourUnderscore, 0);
    normalized.ReplaceAll('.', ourUnderscore, 0);
    normalized.ConvertToUppercase();
    KivStringUtility::URLEncode(normalized, false);
    return normalized;
}

KivString KivUtilGetModuleActionResponseString(const KivString& prefix_i, const KivString& name_i,
                                               const KivString& suffix_i)
{
    KivString firstWord(name_i);
    unsigned int space = 0;
    if (firstWord.Find(' ', 0, firstWord.GetLength(), 0, space))
        firstWord.RemoveSubstring(space, firstWord.GetLength() - space);

    KivString response(prefix_i);
    response += firstWord;
    response += suffix_i;
    response.ConvertToUppercase();
    response.ReplaceAll(' ', KivString(), 0);
    return KivStringUtility::GetURLEncodedString(response, false);
}
