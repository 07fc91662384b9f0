// The work behind the module's three tags and its preferences, called by the module entry.
// Each processor appends the HTML that replaces its tag to `output_io` and returns a
// four-character result code (0 for success); the entry sends the output even when the code
// is a failure, since it usually holds the error message for the page author.
#ifndef TAG_PROCESSORS_H
#define TAG_PROCESSORS_H

#include "KivModuleInterface.h"
#include "KivString.h"

// kivSearchDatabase: a page of search results, the tag body repeated once per record.
unsigned int ProcessSearchDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io);
// kivModifyDatabase: one change to a database, its fields or its records.
unsigned int ProcessModifyDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io);
// kivEditDatabase: the administration interface.
unsigned int ProcessEditDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io);

// The HTML of the module's preference controls, and storing what they post back.
KivString GetPreferencesHTML(_KIVAPI_ModuleProcessingInfo* processingInfo_i);
void SetPreferencesFromPostArguments(_KIVAPI_ModuleProcessingInfo* processingInfo_i);

// Editor set-up at initialisation: first the identifiers of its actions and texts, then, once
// the localization manager exists, its texts in every language.
void EditDB_Initialize();
void EditDB_RegisterLocalizedStrings();

#endif
