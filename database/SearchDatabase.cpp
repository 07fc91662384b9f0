// The kivSearchDatabase tag: searches one database, publishes the paging figures as page
// variables and repeats its body once for each record of the requested page of results.
#include "TagProcessors.h"

#include "KivGlue.h"
#include "KivGlueDB.h"
#include "KivStringUtility.h"
#include "KivTokenizedString.h"
#include "ModifyDBShared.h"
#include "SearchDBTemplateProcessor.h"
#include "SearchModifyConstants.h"
#include "TKivDictionary.h"

#include <algorithm>

namespace
{
const unsigned int kSearchDBDefaultRecordsPerPage = 25;
// More decimals than a number can hold would only pad the page with zeros.
const unsigned int kSearchDBMaximumPrecision = 100;
// Above this the page grows by doubling only; a page author's huge page size must not
// claim memory up front.
const KivUInt64 kSearchDBMaximumReservation = 64u * 1024u * 1024u;

typedef TKivDictionary<KivString, unsigned int> SearchDB_PrecisionDictionary;

// The criteria from the tag's key/value pairs. A value parameter belongs to the "keyFieldName"
// just before it; the database name and a search string may stand between them.
KivString SearchDB_BuildSearchString(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    const KivString noDefault;
    KivString criteria;
    KivString fieldName;
    KivStringID parameterName;
    KivString parameterValue;
    for (unsigned int index = 0;
         KivGlueGetTagParameterByIndex(processingInfo_i, index, parameterName, parameterValue); ++index)
    {
        const KivStringID name = ModifyDB_GetParameterID(parameterName);
        if (name == kSearchDBParameter_DatabaseName || name == kSearchDBParameter_SearchString)
            continue;
        if (name == kSearchDBParameter_FieldName)
        {
            fieldName = parameterValue;
            continue;
        }
        if (fieldName.IsNotEmpty())
        {
            if (name == kSearchDBParameter_FieldValue)
            {
                ModifyDB_AppendCondition(criteria, fieldName, parameterValue);
            }
            else if (name == kSearchDBParameter_PageVariableName)
            {
                KivString value;
                KivGlueGetPageVariable(processingInfo_i, parameterValue, value, noDefault);
                if (value.IsNotEmpty())
                    ModifyDB_AppendCondition(criteria, fieldName, value);
            }
            else if (name == kSearchDBParameter_PathArgumentName ||
                     name == kSearchDBParameter_PostArgumentName)
            {
                KivString value;
                if (name == kSearchDBParameter_PathArgumentName)
                    KivGlueGetPathArgument(processingInfo_i, parameterValue, 0, value, noDefault);
                else
                    KivGlueGetPostArgument(processingInfo_i, parameterValue, 0, value, noDefault);
                ModifyDB_AppendCondition(criteria, fieldName, value);
            }
        }
        fieldName.Empty();
    }
    ModifyDB_AppendOrdering(processingInfo_i, criteria, kSearchDBParameter_OrderByField,
                            kSearchDBParameter_ReverseOrder);
    criteria.Trim(kModifyDBBlanks);
    return criteria;
}

// Fills the precision dictionary from every "displayPrecision" occurrence. False, with the
// error information set, when one is not "fieldName,precision".
bool SearchDB_ReadPrecisions(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                             SearchDB_PrecisionDictionary& precision_io)
{
    KivString value;
    for (unsigned int index = 0; KivGlueGetTagParameter(processingInfo_i, kSearchDBParameter_DisplayPrecision,
                                                        index, value, KivString());
         ++index)
    {
        KivTokenizedString pieces(value, ",");
        if (pieces.GetTokenCount() != 2)
        {
            const KivString parameter = ModifyDB_Quoted(kSearchDBParameter_DisplayPrecision.GetString());
            KivGlueSetErrorInformation(
                processingInfo_i, "The " + parameter + " parameter was formatted incorrectly.",
                "Make sure that the " + parameter + " parameter is &quot;fieldName,precision&quot;");
            return false;
        }
        int precision = KivStringUtility::GetNumericalRepresentation(pieces[1], 10);
        if (precision < 0)
            precision = 0;
        if ((unsigned int)precision > kSearchDBMaximumPrecision)
            precision = kSearchDBMaximumPrecision;
        KivString fieldName = pieces[0];
        fieldName.Trim(kModifyDBBlanks);
        fieldName.ConvertToLowercase();
        precision_io.Add(fieldName, (unsigned int)precision);
    }
    return true;
}

// A positive number parameter; `default_i` when it is absent or empty, `low_i` when below 1.
unsigned int SearchDB_GetPositiveParameter(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                           const KivStringID& parameter_i, const unsigned int& default_i,
                                           const unsigned int& low_i)
{
    KivString text;
    if (!KivGlueGetTagParameter(processingInfo_i, parameter_i, 0, text, KivString()) || text.IsEmpty())
        return default_i;
    int value = KivStringUtility::GetNumericalRepresentation(text, 10);
    return value < 1 ? low_i : (unsigned int)value;
}

// The administrator's cap on the records of one page. A stored limit below 1 would show nothing
// at all, so it counts as the default.
unsigned int SearchDB_GetMaximumResults(_KIVAPI_ModuleProcessingInfo* processingInfo_i)
{
    KivString text;
    KivGlueGetPreference(processingInfo_i, kSearchDBPreference_MaxResults, text,
                         kSearchDBPreference_MaxResultsDefault);
    int value = KivStringUtility::GetNumericalRepresentation(text, 10);
    if (value < 1)
        value = KivStringUtility::GetNumericalRepresentation(kSearchDBPreference_MaxResultsDefault, 10);
    return (unsigned int)value;
}

// A paging figure as decimal text; the figures are computed in 64 bits so that a huge page
// number cannot wrap around.
KivString SearchDB_Figure(KivUInt64 value_i)
{
    if (value_i > 0xFFFFFFFFu)
    {
        KivString text;
        while (value_i > 0)
        {
            text.Prepend((char)('0' + value_i % 10));
            value_i /= 10;
        }
        return text;
    }
    return KivStringUtility::GetStringRepresentation((unsigned int)value_i, 10, 1);
}

void SearchDB_SetResultVariable(_KIVAPI_ModuleProcessingInfo* processingInfo_i, const KivString& prefix_i,
                                const char* suffix_i, KivUInt64 value_i)
{
    ModifyDB_SetResultVariable(processingInfo_i, prefix_i, suffix_i, SearchDB_Figure(value_i));
}

// Runs the searched database's part of the tag: everything between opening and closing it.
unsigned int SearchDB_SearchOpenDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo_i,
                                         const unsigned int& database_i, const KivString& databaseName_i,
                                         const KivString& criteria_i, KivString& output_io)
{
    SearchDB_PrecisionDictionary precision;
    if (!SearchDB_ReadPrecisions(processingInfo_i, precision))
        return kKivResult_InvalidParameterValue;

    const unsigned int page = SearchDB_GetPositiveParameter(processingInfo_i, kSearchDBParameter_Page, 1, 1);
    unsigned int perPage =
        SearchDB_GetPositiveParameter(processingInfo_i, kSearchDBParameter_RecordsPerPage,
                                      kSearchDBDefaultRecordsPerPage, kSearchDBDefaultRecordsPerPage);
    const unsigned int maximumResults = SearchDB_GetMaximumResults(processingInfo_i);
    if (perPage > maximumResults)
        perPage = maximumResults;

    unsigned int result = KivGlueDBExecuteSearch(processingInfo_i, database_i, criteria_i);
    if (result != 0)
    {
        ModifyDB_ReportError(processingInfo_i, "The database search failed due to an unexpected error.",
                             "Check the syntax of your search criteria and try the search again.", false);
        return result;
    }

    const KivUInt64 total = KivGlueDBGetResultCount(processingInfo_i, database_i);
    const KivUInt64 firstOfPage = (KivUInt64)(page - 1) * perPage; // records before the page
    KivString prefix;
    ModifyDB_GetResultVariablePrefix(processingInfo_i, kSearchDBParameter_ResultVariableName, prefix);
    SearchDB_SetResultVariable(processingInfo_i, prefix, "_ResultCount", total);
    SearchDB_SetResultVariable(processingInfo_i, prefix, "_FirstIndex", 0);
    SearchDB_SetResultVariable(processingInfo_i, prefix, "_LastIndex", 0);
    SearchDB_SetResultVariable(processingInfo_i, prefix, "_PrevPage", page < 2 ? 0 : page - 1);
    SearchDB_SetResultVariable(processingInfo_i, prefix, "_Page", page);
    SearchDB_SetResultVariable(processingInfo_i, prefix, "_NextPage",
                               (KivUInt64)page * perPage >= total ? 0 : (KivUInt64)page + 1);
    SearchDB_SetResultVariable(processingInfo_i, prefix, "_LastPage", (total + perPage - 1) / perPage);

    if (total == 0)
    {
        output_io.Empty();
        return 0;
    }

    result = KivGlueDBMoveFirstRecord(processingInfo_i, database_i);
    if (result == kKivResult_BeginningOfFile || result == kKivResult_EndOfFile)
        result = 0;
    if (result != 0)
    {
        ModifyDB_ReportError(processingInfo_i,
                             "The database system was unable to move to the first record in the " +
                                 ModifyDB_Quoted(databaseName_i) + " database.",
                             kModifyDBHint_ContactAdministrator, true);
        return result;
    }
    // A page past the last one has no first record to jump to: it shows nothing, while the
    // result variables still describe the whole result.
    bool pageReachable = firstOfPage < total;
    if (pageReachable && page > 1)
        pageReachable = KivGlueDBJump(processingInfo_i, database_i, (unsigned int)firstOfPage) == 0;
    SearchDB_SetResultVariable(processingInfo_i, prefix, "_FirstIndex", firstOfPage + 1);

    unsigned int shown = 0;
    if (pageReachable)
    {
        KivSearchDBTemplateProcessor processor(KivGlueGetTagBody(processingInfo_i));
        KivString record;
        // Strings grow 32 bytes at a time, so appending record after record would copy the
        // whole page once per record. Room for the page is reserved from the first record's
        // size and doubled when records turn out longer.
        const KivUInt64 recordsOnPage =
            std::min<KivUInt64>(perPage, total > firstOfPage ? total - firstOfPage : 0);
        KivUInt64 reserved = 0;
        while (shown < perPage)
        {
            record.Empty();
            result = processor.RunTemplate(processingInfo_i, database_i, record, precision);
            if (result != 0)
                break;
            const KivUInt64 needed = (KivUInt64)output_io.GetLength() + record.GetLength();
            if (needed > reserved)
            {
                KivUInt64 wanted = std::max<KivUInt64>(needed * 2, recordsOnPage * record.GetLength());
                wanted = std::min<KivUInt64>(wanted, kSearchDBMaximumReservation);
                if (wanted > needed)
                {
                    output_io.Reserve((unsigned int)wanted);
                    reserved = wanted;
                }
            }
            output_io += record;
            ++shown;
            if (KivGlueDBMoveNextRecord(processingInfo_i, database_i) != 0)
                break;
        }
    }
    SearchDB_SetResultVariable(processingInfo_i, prefix, "_LastIndex", firstOfPage + shown);
    return result;
}
} // namespace

unsigned int ProcessSearchDatabase(_KIVAPI_ModuleProcessingInfo* processingInfo_i, KivString& output_io)
{
    unsigned int result =
        ModifyDB_StartDatabaseService(processingInfo_i, kSearchDBParameter_ODBCDataSource,
                                      kSearchDBParameter_ODBCUsername, kSearchDBParameter_ODBCPassword);
    if (result != 0)
    {
        KivGlueDBTerminate(processingInfo_i);
        return result;
    }

    KivString databaseName;
    if (!KivGlueGetRequiredTagParameter(processingInfo_i, kSearchDBParameter_DatabaseName, 0, databaseName))
    {
        KivGlueDBTerminate(processingInfo_i);
        return kKivResult_MissingParameter;
    }

    KivString criteria;
    if (!KivGlueGetTagParameter(processingInfo_i, kSearchDBParameter_SearchString, 0, criteria, KivString()))
        criteria = SearchDB_BuildSearchString(processingInfo_i);

    unsigned int database = 0;
    result =
        KivGlueDBOpenDatabase(processingInfo_i, databaseName, kKivOpenMode_Shared, database, KivString());
    if (result != 0)
    {
        ModifyDB_ReportError(
            processingInfo_i,
            "The database system was unable to open the " + ModifyDB_Quoted(databaseName) + " database.",
            "The database may be locked for exclusive use.  Try again in a few moments.", true);
        KivGlueDBTerminate(processingInfo_i);
        return result;
    }

    result = SearchDB_SearchOpenDatabase(processingInfo_i, database, databaseName, criteria, output_io);

    KivGlueDBCloseDatabase(processingInfo_i, database);
    KivGlueDBTerminate(processingInfo_i);
    return result;
}
