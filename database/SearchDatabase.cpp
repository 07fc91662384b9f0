// The kivSearchDatabase tag: searches one database and repeats its body for each record of the
// requested page of results.
#include "KivModuleInterface.h"
#include "KivString.h"

unsigned int ProcessSearchDatabase(_KIVAPI_ModuleProcessingInfo* /*processingInfo_i*/,
                                   KivString& /*output_io*/)
{
    return 0;
}
