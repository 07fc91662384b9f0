// The kivEditDatabase tag: the database administration interface.
#include "TagProcessors.h"

unsigned int ProcessEditDatabase(_KIVAPI_ModuleProcessingInfo* /*processingInfo_i*/, KivString& /*output_io*/)
{
    return 0;
}

void EditDB_Initialize() {}

void EditDB_RegisterLocalizedStrings() {}
