// The module's per-region preferences: the tag enable switches and the search result limit.
#include "KivModuleInterface.h"
#include "KivString.h"

KivString GetPreferencesHTML(_KIVAPI_ModuleProcessingInfo* /*processingInfo_i*/)
{
    return KivString();
}

void SetPreferencesFromPostArguments(_KIVAPI_ModuleProcessingInfo* /*processingInfo_i*/) {}
