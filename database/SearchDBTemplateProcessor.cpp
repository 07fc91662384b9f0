// Filling the search template: placeholders are found token by token, looked up in the database
// and replaced by the field's value formatted by its type.
#include "SearchDBTemplateProcessor.h"

#include "KivGlue.h"
#include "KivGlueDB.h"
#include "KivNumber.h"
#include "KivStringUtility.h"
#include "ModifyDBShared.h"
#include "SearchModifyConstants.h"

namespace
{
// The marker's length: "&kivDBField" is 11 bytes.
unsigned int GetMarkerLength()
{
    return kSearchDB_FieldStart.GetLength();
}

// The precision for a field, if the dictionary has one. The documented placeholder form puts
// the name in parentheses ("(Price)"), while page authors write the bare name in
// "displayPrecision", so a parenthesised name falls back to the name without them.
bool FindPrecision(const TKivDictionary<KivString, unsigned int>& precision_i, const KivString& fieldName_i,
                   unsigned int& precision_io)
{
    KivString key(fieldName_i);
    key.ConvertToLowercase();
    if (precision_i.Find(key, precision_io))
        return true;
    if (key.GetLength() >= 2 && key.BeginsWith('(') && key.EndsWith(')'))
        return precision_i.Find(key.GetSubstring(1, key.GetLength() - 2), precision_io);
    return false;
}
} // namespace

KivSearchDBTemplateProcessor::KivSearchDBTemplateProcessor(const KivString& templateText_i)
    : KivTagTokenizer(false)
{
    KivStringStream stream(templateText_i);
    Process(stream);
}

KivSearchDBTemplateProcessor::~KivSearchDBTemplateProcessor() = default;

KivString
KivSearchDBTemplateProcessor::GetFieldText(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                           const unsigned int& database_i, const KivString& fieldName_i,
                                           const unsigned int& fieldInfoWord_i,
                                           const TKivDictionary<KivString, unsigned int>& precision_i)
{
    switch (ModifyDB_GetValueClass(fieldInfoWord_i))
    {
    case kModifyDBValueClass_Boolean:
        return KivGlueDBGetBooleanFieldValue(processingInfo_i, database_i, fieldName_i) ? KivString("True")
                                                                                        : KivString("False");
    case kModifyDBValueClass_Integer:
        return KivStringUtility::GetStringRepresentation(
            KivGlueDBGetIntegerFieldValue(processingInfo_i, database_i, fieldName_i), 10, 1);
    case kModifyDBValueClass_UInteger:
        return KivStringUtility::GetStringRepresentation(
            KivGlueDBGetUIntegerFieldValue(processingInfo_i, database_i, fieldName_i), 10, 1);
    case kModifyDBValueClass_Float:
    case kModifyDBValueClass_Number:
    {
        KivNumber number = KivGlueDBGetNumberFieldValue(processingInfo_i, database_i, fieldName_i);
        unsigned int precision = 0;
        if (FindPrecision(precision_i, fieldName_i, precision))
            return number.GetStringRepresentation(precision, true);
        return number.GetStringRepresentation();
    }
    case kModifyDBValueClass_Text:
        return KivGlueDBGetTextFieldValue(processingInfo_i, database_i, fieldName_i);
    case kModifyDBValueClass_LongText:
        return KivGlueDBGetLongTextFieldValue(processingInfo_i, database_i, fieldName_i);
    case kModifyDBValueClass_Unsupported:
        break;
    }
    return KivString("(Unsupported field type)");
}

unsigned int KivSearchDBTemplateProcessor::RunTemplate(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                                       const unsigned int& database_i, KivString& output_io,
                                                       TKivDictionary<KivString, unsigned int> precision_i)
{
    const unsigned int markerLength = GetMarkerLength();
    unsigned int result = 0;
    for (const TokenListEntry* entry = myFirstTokenInList; entry != nullptr; entry = entry->myNextEntry)
    {
        KivString working(entry->myToken.myText);
        unsigned int position = 0;
        unsigned int start = 0;
        while (working.Find(kSearchDB_FieldStart, position, 0xFFFFFFFF, kKivString_CaseInsensitive, start))
        {
            unsigned int end = 0;
            if (!working.Find(';', start + markerLength, 0xFFFFFFFF, 0, end))
            {
                KivGlueSetErrorInformation(
                    processingInfo_i,
                    "An Kiv database field placeholder was found but was missing its closing semicolon.",
                    "Make sure that all database field placeholders are formatted using the "
                    "&kivDBField(FieldName); syntax.");
                result = kKivResult_ImproperFormat;
                break;
            }

            // Everything between the marker and the semicolon, as written: blanks and any
            // parentheses are part of the name handed to the database.
            KivString fieldName = working.GetSubstring(start + markerLength, end - start - markerLength);
            unsigned int fieldInfoWord = 0;
            result = KivGlueDBGetFieldInfo(processingInfo_i, database_i, fieldName, fieldInfoWord);
            if (result == kKivResult_NotFound)
            {
                if (fieldName.IsEmpty())
                {
                    KivString headline("An empty fieldname was found in the following text: \r\n<p>\r\n");
                    headline += KivStringUtility::GetHTMLEncodedString(working);
                    KivGlueSetErrorInformation(processingInfo_i, headline,
                                               "Check your code for improper field placeholders.");
                    break;
                }
                // Not a field of this database: the text stays as the author wrote it.
                position = start + fieldName.GetLength() + markerLength + 1;
                result = 0;
                continue;
            }
            if (result != 0)
            {
                KivGlueSetErrorInformation(
                    processingInfo_i,
                    "The database system was unable to retrieve information about the " +
                        ModifyDB_Quoted(fieldName) + " field.",
                    "Check the database for improper field structure.");
                break;
            }

            KivString value =
                GetFieldText(processingInfo_i, database_i, fieldName, fieldInfoWord, precision_i);
            working.ReplaceSubstring(start, end - start + 1, value);
            // Continue after the value: text from the database is never taken for a placeholder.
            position = start + value.GetLength();
        }
        output_io += working;
    }
    return result;
}
