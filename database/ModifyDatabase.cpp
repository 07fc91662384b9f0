// The kivModifyDatabase tag: one database operation per tag occurrence.
#include "KivModuleInterface.h"
#include "KivString.h"

unsigned int ProcessModifyDatabase(_KIVAPI_ModuleProcessingInfo* /*processingInfo_i*/,
                                   KivString& /*output_io*/)
{
    return 0;
}
