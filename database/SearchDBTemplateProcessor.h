// The body of a kivSearchDatabase tag as a template: split into tokens once, then filled from
// the current record once per record, each "&kivDBField(Name);" placeholder replaced by the
// field's value.
#ifndef SEARCH_DB_TEMPLATE_PROCESSOR_H
#define SEARCH_DB_TEMPLATE_PROCESSOR_H

#include "KivModuleInterface.h"
#include "KivString.h"
#include "KivTagTokenizer.h"
#include "TKivDictionary.h"

class KivSearchDBTemplateProcessor : public KivTagTokenizer
{
public:
    explicit KivSearchDBTemplateProcessor(const KivString& templateText_i);
    ~KivSearchDBTemplateProcessor() override;

    // Appends the template, filled from the record under the cursor of `database_i`, to
    // `output_io`. `precision_i` maps lower-cased field names to the number of decimals of
    // their Float and Number values. The template itself is left unchanged, so one processor
    // serves every record. Returns the code of the last field lookup or template error.
    unsigned int RunTemplate(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const unsigned int& database_i,
                             KivString& output_io, TKivDictionary<KivString, unsigned int> precision_i);

private:
    // The field's value as text, by the value class of its type code.
    static KivString GetFieldText(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                  const unsigned int& database_i, const KivString& fieldName_i,
                                  const unsigned int& fieldInfoWord_i,
                                  const TKivDictionary<KivString, unsigned int>& precision_i);
};

#endif
