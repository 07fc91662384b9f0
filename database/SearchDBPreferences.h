// The search tag's part of the module preferences: the result limit's form controls and storing
// the posted limit. GetPreferencesHTML and SetPreferencesFromPostArguments (TagProcessors.h)
// include them.
#ifndef SEARCH_DB_PREFERENCES_H
#define SEARCH_DB_PREFERENCES_H

#include "KivModuleInterface.h"
#include "KivString.h"

KivString GetSearchDBPreferencesHTMLStream(_KIVAPI_ModuleProcessingInfo* processingInfo_i);
void SetSearchDBPreferences(_KIVAPI_ModuleProcessingInfo* processingInfo_i);

#endif
