// The kivSearchDatabase tag through the fake host: paging figures and result variables, the
// result limit, criteria from every value source, and every failure the tag reports.
#include "DatabaseModule.h"
#include "FakeDatabase.h"
#include "TagProcessors.h"

#include <gtest/gtest.h>

#include <string>

using namespace kivtest;

namespace
{
const uint32_t kMissingParameter = KIV_FOURCC('M', 'M', 'R', 'P');
const uint32_t kInvalidParameterValue = KIV_FOURCC('M', 'I', 'P', 'V');
const uint32_t kHostFailure = KIV_FOURCC('M', 'U', 'n', 'k');
const char* const kStandardHint = "Contact the system administrator and report this problem.";

class SearchDatabaseTest : public ::testing::Test
{
protected:
    FakeHost host;
    KivString output;

    void SetUp() override
    {
        host.tagName = "kivSearchDatabase";
        UseTagDatabaseBehaviour(host);
    }

    // A database "numbers" whose records hold N = 1 .. count.
    FakeDatabase& AddNumbers(int count_i)
    {
        FakeDatabase& numbers = host.db.AddDatabase("numbers", {{"N", kUIntegerField}, {"Name", kTextField}});
        for (int n = 1; n <= count_i; ++n)
            numbers.AddRecord({{"N", std::to_string(n)}, {"Name", "n" + std::to_string(n)}});
        return numbers;
    }

    // A paged search of "numbers" that lists N.
    void ScriptPagedSearch(const std::string& page_i, const std::string& perPage_i)
    {
        host.AddTagParameter("databaseName", "numbers");
        host.AddTagParameter("resultVariableName", "r");
        if (!page_i.empty())
            host.AddTagParameter("page", page_i);
        if (!perPage_i.empty())
            host.AddTagParameter("resultsPerPage", perPage_i);
        host.tagBody = "&kivDBField(N);,";
    }

    unsigned int Run()
    {
        output.Empty();
        return ProcessSearchDatabase(host.Info(), output);
    }
    std::string Output() const { return std::string(output.GetCStringAccess(), output.GetLength()); }
    std::string Variable(const std::string& suffix_i) const
    {
        return host.pageVariables.Get("r" + suffix_i, "?");
    }
    std::string Figures() const
    {
        std::string figures;
        for (const char* suffix :
             {"_ResultCount", "_FirstIndex", "_LastIndex", "_PrevPage", "_Page", "_NextPage", "_LastPage"})
            figures += Variable(suffix) + " ";
        return figures;
    }
    std::string Criteria() const { return host.LastCall(kKivDB_ExecuteSearch, kDatabase).text; }
    size_t Count(uint32_t selector_i) const { return host.CountCalls(selector_i, kDatabase); }
};

// ---------------------------------------------------------------------------------------------
// Paging

TEST_F(SearchDatabaseTest, FirstMiddleAndLastPageOf45ResultsAt20APage)
{
    AddNumbers(45);
    ScriptPagedSearch("1", "20");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Figures(), "45 1 20 0 1 2 3 ");
    EXPECT_EQ(Output(), "1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,");

    host.tagParameters.Set("page", "2");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Figures(), "45 21 40 1 2 3 3 ");
    EXPECT_EQ(Output(), "21,22,23,24,25,26,27,28,29,30,31,32,33,34,35,36,37,38,39,40,");
    EXPECT_EQ(host.LastCall(kKivDB_Jump, kDatabase).word8, 20u);

    host.tagParameters.Set("page", "3");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Figures(), "45 41 45 2 3 0 3 ");
    EXPECT_EQ(Output(), "41,42,43,44,45,");
}

TEST_F(SearchDatabaseTest, ZeroResultsGiveEmptyOutputAndZeroFigures)
{
    AddNumbers(0);
    ScriptPagedSearch("1", "20");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "");
    EXPECT_EQ(Figures(), "0 0 0 0 1 0 0 ");
    EXPECT_EQ(Count(kKivDB_MoveFirstRecord), 0u);
    // The database is still closed and the service ended.
    EXPECT_EQ(Count(kKivDB_CloseDatabase), 1u);
    EXPECT_EQ(Count(kKivDB_Terminate), 1u);
}

TEST_F(SearchDatabaseTest, PagePastTheLastShowsNothingButDescribesTheWholeResult)
{
    AddNumbers(45);
    ScriptPagedSearch("5", "20");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "");
    EXPECT_EQ(Variable("_ResultCount"), "45");
    EXPECT_EQ(Variable("_PrevPage"), "4");
    EXPECT_EQ(Variable("_Page"), "5");
    EXPECT_EQ(Variable("_NextPage"), "0");
    EXPECT_EQ(Variable("_LastPage"), "3");
    EXPECT_EQ(Count(kKivDB_GetFieldInfoByName), 0u) << "no record may be rendered";
}

TEST_F(SearchDatabaseTest, AFailedJumpShowsNoRecord)
{
    AddNumbers(45);
    ScriptPagedSearch("2", "20");
    host.FailDatabase(kKivDB_Jump, KIV_FOURCC('M', 'E', 'O', 'F'));
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "") << "the cursor still stands on page 1";
    EXPECT_EQ(Variable("_ResultCount"), "45");
}

TEST_F(SearchDatabaseTest, PageAndRecordsPerPageBelowOneFallBack)
{
    AddNumbers(30);
    ScriptPagedSearch("0", "0");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_Page"), "1");
    EXPECT_EQ(Variable("_LastIndex"), "25");
    EXPECT_EQ(Variable("_LastPage"), "2");

    host.tagParameters.Set("page", "-3");
    host.tagParameters.Set("resultsPerPage", "-1");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_Page"), "1");
    EXPECT_EQ(Variable("_PrevPage"), "0");
    EXPECT_EQ(Variable("_LastIndex"), "25");
}

TEST_F(SearchDatabaseTest, TheLargestPageNumberDoesNotWrapTheFigures)
{
    AddNumbers(45);
    ScriptPagedSearch("2147483647", "20");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "");
    EXPECT_EQ(Figures(), "45 42949672921 42949672920 2147483646 2147483647 0 3 ");
    EXPECT_EQ(Count(kKivDB_GetFieldInfoByName), 0u) << "no record may be rendered";
}

TEST_F(SearchDatabaseTest, EmptyOrAbsentPagingParametersUseTheDefaults)
{
    AddNumbers(30);
    ScriptPagedSearch("", "");
    host.AddTagParameter("page", "");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_Page"), "1");
    EXPECT_EQ(Variable("_LastIndex"), "25");
    EXPECT_EQ(Variable("_NextPage"), "2");
}

TEST_F(SearchDatabaseTest, TheStoredResultLimitCapsRecordsPerPage)
{
    AddNumbers(150);
    ScriptPagedSearch("1", "500");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_LastIndex"), "100") << "default limit";
    EXPECT_EQ(Variable("_LastPage"), "2");

    host.preferences["kivSearchDatabasePref_MaxResults"] = "10";
    host.tagParameters.Set("page", "2");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "11,12,13,14,15,16,17,18,19,20,");
    EXPECT_EQ(Variable("_LastPage"), "15");
    const FakeCall& preference = host.LastCall(kKivServer_GetPreference);
    EXPECT_EQ(preference.text, "kivSearchDatabasePref_MaxResults");

    // The form control's name is not the preference key.
    host.preferences.erase("kivSearchDatabasePref_MaxResults");
    host.preferences["maxResults"] = "5";
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_LastIndex"), "150");
}

TEST_F(SearchDatabaseTest, AStoredLimitBelowOneCountsAsTheDefault)
{
    AddNumbers(150);
    ScriptPagedSearch("1", "500");
    host.preferences["kivSearchDatabasePref_MaxResults"] = "-5";
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_LastIndex"), "100");
}

TEST_F(SearchDatabaseTest, WithoutAResultVariableNoPageVariableIsSet)
{
    AddNumbers(3);
    host.AddTagParameter("databaseName", "numbers");
    host.AddTagParameter("resultVariableName", "");
    host.tagBody = "&kivDBField(N);";
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "123");
    EXPECT_EQ(host.CountCalls(kKivServer_SetPageVariable), 0u);
}

TEST_F(SearchDatabaseTest, TheServiceStartsWithTheDataSourceAndOpensShared)
{
    AddNumbers(1);
    host.AddTagParameter("databaseName", "numbers");
    host.AddTagParameter("odbcDataSource", "dsn");
    host.AddTagParameter("odbcUsername", "user");
    host.AddTagParameter("odbcPassword", "secret");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(host.LastCall(kKivDB_Initialize, kDatabase).text, "dsn,user,secret");
    const FakeCall& open = host.LastCall(kKivDB_OpenDatabase, kDatabase);
    EXPECT_EQ(open.text, "numbers");
    EXPECT_EQ(open.word8, 2u);
    EXPECT_EQ(open.text2, "");
    std::vector<std::string> order;
    for (const std::string& selector : host.Selectors(kDatabase))
        if (selector == "MIni" || selector == "MDOp" || selector == "MSEc" || selector == "MDCl" ||
            selector == "MTrm")
            order.push_back(selector);
    EXPECT_EQ(order, (std::vector<std::string>{"MIni", "MDOp", "MSEc", "MDCl", "MTrm"}));
}

TEST_F(SearchDatabaseTest, TheEntryWritesAPageOfRecordsForATagCall)
{
    AddNumbers(45);
    ScriptPagedSearch("2", "20");
    host.tagName = "KIVsearchDATABASE";
    EXPECT_EQ(host.Request(&ProcessKivRequest, kKivRequest_ProcessTag), 0u);
    EXPECT_EQ(host.output, "21,22,23,24,25,26,27,28,29,30,31,32,33,34,35,36,37,38,39,40,");
    EXPECT_EQ(host.writeCount, 1u);
    EXPECT_EQ(Figures(), "45 21 40 1 2 3 3 ");
}

// ---------------------------------------------------------------------------------------------
// Criteria

TEST_F(SearchDatabaseTest, CriteriaComeFromEveryValueSourceWithQuotesDoubled)
{
    AddNumbers(1);
    host.AddTagParameter("keyFieldName", "A");
    host.AddTagParameter("fieldValue", "O'Hare");
    host.AddTagParameter("keyFieldName", "B");
    host.AddTagParameter("pageVariableName", "pv");
    host.AddTagParameter("keyFieldName", "C");
    host.AddTagParameter("pathArgumentName", "pa");
    host.AddTagParameter("keyFieldName", "D");
    host.AddTagParameter("postArgumentName", "po");
    host.AddTagParameter("databaseName", "numbers");
    host.pageVariables.Add("pv", "it's");
    host.pathArguments.Add("pa", "''");
    host.pathArguments.Add("pa", "second value is not used");
    host.postArguments.Add("po", "x' OR '1'='1");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), "A = 'O''Hare' AND B = 'it''s' AND C = '''''' AND D = 'x'' OR ''1''=''1'");
}

TEST_F(SearchDatabaseTest, APostedValueCannotWidenTheSearch)
{
    FakeDatabase& people = host.db.AddDatabase("people", {{"Name", kTextField}});
    people.AddRecord({{"Name", "Ann"}}).AddRecord({{"Name", "Bob"}});
    host.AddTagParameter("databaseName", "people");
    host.AddTagParameter("keyFieldName", "Name");
    host.AddTagParameter("postArgumentName", "who");
    host.AddTagParameter("resultVariableName", "r");
    host.postArguments.Add("who", "x' OR Name = 'Ann");
    host.tagBody = "&kivDBField(Name);";
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_ResultCount"), "0");
    EXPECT_EQ(Output(), "");

    host.postArguments.items.clear();
    host.postArguments.Add("who", "Bob");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "Bob");
}

TEST_F(SearchDatabaseTest, MissingValuesFollowEachSourcesRule)
{
    AddNumbers(1);
    host.AddTagParameter("databaseName", "numbers");
    host.AddTagParameter("keyFieldName", "A");
    host.AddTagParameter("pageVariableName", "missing");
    host.AddTagParameter("keyFieldName", "B");
    host.AddTagParameter("pageVariableName", "empty");
    host.AddTagParameter("keyFieldName", "C");
    host.AddTagParameter("pathArgumentName", "missing");
    host.AddTagParameter("keyFieldName", "D");
    host.AddTagParameter("postArgumentName", "missing");
    host.pageVariables.Add("empty", "");
    EXPECT_EQ(Run(), 0u);
    // An empty page variable adds nothing; a missing argument compares with the empty text.
    EXPECT_EQ(Criteria(), "C = '' AND D = ''");
}

TEST_F(SearchDatabaseTest, AValueBelongsToTheKeyFieldJustBeforeIt)
{
    AddNumbers(1);
    host.AddTagParameter("keyFieldName", "A");
    host.AddTagParameter("databaseName", "numbers"); // passed over: the pair holds
    host.AddTagParameter("fieldValue", "1");
    host.AddTagParameter("keyFieldName", "B");
    host.AddTagParameter("resultsPerPage", "5"); // any other parameter ends the pair
    host.AddTagParameter("fieldValue", "2");
    host.AddTagParameter("fieldValue", "3"); // no key field any more
    host.AddTagParameter("keyFieldName", "C");
    host.AddTagParameter("fieldValue", "4");
    host.AddTagParameter("fieldValue", "5");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), "A = '1' AND C = '4'");
}

TEST_F(SearchDatabaseTest, OrderingIsAppendedAndReversedOnlyByYes)
{
    AddNumbers(1);
    host.AddTagParameter("databaseName", "numbers");
    host.AddTagParameter("keyFieldName", "A");
    host.AddTagParameter("fieldValue", "1");
    host.AddTagParameter("orderByField", "Name");
    host.AddTagParameter("reverseOrder", "YES");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), "A = '1' ORDER BY Name DESC");

    host.tagParameters.Set("reverseOrder", "true");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), "A = '1' ORDER BY Name");
}

TEST_F(SearchDatabaseTest, OrderingAloneIsTrimmed)
{
    AddNumbers(1);
    host.AddTagParameter("databaseName", "numbers");
    host.AddTagParameter("orderByField", "Name");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), "ORDER BY Name");
}

TEST_F(SearchDatabaseTest, ASearchStringIsUsedAsWritten)
{
    AddNumbers(1);
    host.AddTagParameter("databaseName", "numbers");
    host.AddTagParameter("searchString", " N = '1' ");
    host.AddTagParameter("keyFieldName", "A");
    host.AddTagParameter("fieldValue", "1");
    host.AddTagParameter("orderByField", "Name");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), " N = '1' ");
}

// ---------------------------------------------------------------------------------------------
// Display precision

TEST_F(SearchDatabaseTest, DisplayPrecisionFormatsNumberAndFloatFields)
{
    FakeDatabase& prices = host.db.AddDatabase("prices", {{"Price", kNumberField}, {"Weight", kFloatField}});
    prices.AddRecord({{"Price", "3.14159"}, {"Weight", "2.5"}});
    host.AddTagParameter("databaseName", "prices");
    host.AddTagParameter("displayPrecision", " PRICE ,2");
    host.AddTagParameter("displayPrecision", "weight,3");
    host.tagBody = "&kivDBField(Price);|&kivDBField(Weight);";
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "3.14|2.500");
}

TEST_F(SearchDatabaseTest, MalformedDisplayPrecisionStopsBeforeTheSearch)
{
    for (const char* value : {"Price", "Price,2,3", ""})
    {
        FakeHost fresh;
        fresh.tagName = "kivSearchDatabase";
        fresh.db.AddDatabase("prices", {{"Price", kNumberField}});
        fresh.AddTagParameter("databaseName", "prices");
        fresh.AddTagParameter("displayPrecision", "Price,2");
        fresh.AddTagParameter("displayPrecision", value);
        KivString out;
        EXPECT_EQ(ProcessSearchDatabase(fresh.Info(), out), kInvalidParameterValue) << value;
        EXPECT_EQ(fresh.errorHeadline,
                  "The &quot;displayPrecision&quot; parameter was formatted incorrectly.");
        EXPECT_EQ(
            fresh.errorHint,
            "Make sure that the &quot;displayPrecision&quot; parameter is &quot;fieldName,precision&quot;");
        EXPECT_EQ(fresh.CountCalls(kKivDB_ExecuteSearch, kDatabase), 0u);
        EXPECT_EQ(fresh.CountCalls(kKivDB_CloseDatabase, kDatabase), 1u);
        EXPECT_EQ(fresh.CountCalls(kKivDB_Terminate, kDatabase), 1u);
    }
}

// ---------------------------------------------------------------------------------------------
// Failures

TEST_F(SearchDatabaseTest, AFailedStartIsReportedLoggedAndStillTerminated)
{
    AddNumbers(1);
    host.AddTagParameter("databaseName", "numbers");
    host.FailDatabase(kKivDB_Initialize, kHostFailure);
    EXPECT_EQ(Run(), kHostFailure);
    EXPECT_EQ(host.errorHeadline, "The database system failed to initialize.");
    EXPECT_EQ(host.errorHint, kStandardHint);
    ASSERT_EQ(host.logLines.size(), 1u);
    EXPECT_EQ(host.logLines[0].second, "The database system failed to initialize.");
    EXPECT_EQ(Count(kKivDB_OpenDatabase), 0u);
    EXPECT_EQ(Count(kKivDB_Terminate), 1u);
}

TEST_F(SearchDatabaseTest, AMissingDatabaseNameIsReportedByTheParameterLayer)
{
    EXPECT_EQ(Run(), kMissingParameter);
    EXPECT_EQ(host.errorHeadline, "An &lt;kivSearchDatabase&gt; tag was found but it is missing its "
                                  "&quot;databaseName&quot; parameter.");
    EXPECT_EQ(Count(kKivDB_OpenDatabase), 0u);
    EXPECT_EQ(Count(kKivDB_Terminate), 1u);
}

TEST_F(SearchDatabaseTest, AFailedOpenIsReportedAndLogged)
{
    host.AddTagParameter("databaseName", "nowhere");
    EXPECT_EQ(Run(), kFakeNotFound);
    EXPECT_EQ(host.errorHeadline, "The database system was unable to open the &quot;nowhere&quot; database.");
    EXPECT_EQ(host.errorHint, "The database may be locked for exclusive use.  Try again in a few moments.");
    EXPECT_EQ(host.logLines.size(), 1u);
    EXPECT_EQ(Count(kKivDB_CloseDatabase), 0u);
    EXPECT_EQ(Count(kKivDB_Terminate), 1u);
}

TEST_F(SearchDatabaseTest, AFailedSearchIsReportedWithoutLogging)
{
    AddNumbers(1);
    host.AddTagParameter("databaseName", "numbers");
    host.FailDatabase(kKivDB_ExecuteSearch, kHostFailure);
    EXPECT_EQ(Run(), kHostFailure);
    EXPECT_EQ(host.errorHeadline, "The database search failed due to an unexpected error.");
    EXPECT_EQ(host.errorHint, "Check the syntax of your search criteria and try the search again.");
    EXPECT_TRUE(host.logLines.empty());
    EXPECT_EQ(Count(kKivDB_CloseDatabase), 1u);
}

TEST_F(SearchDatabaseTest, AFailedMoveToTheFirstRecordIsReportedAndLogged)
{
    AddNumbers(3);
    host.AddTagParameter("databaseName", "numbers");
    host.AddTagParameter("resultVariableName", "r");
    host.FailDatabase(kKivDB_MoveFirstRecord, kHostFailure);
    EXPECT_EQ(Run(), kHostFailure);
    EXPECT_EQ(
        host.errorHeadline,
        "The database system was unable to move to the first record in the &quot;numbers&quot; database.");
    EXPECT_EQ(host.errorHint, kStandardHint);
    EXPECT_EQ(host.logLines.size(), 1u);
    EXPECT_EQ(Output(), "");
    EXPECT_EQ(Variable("_ResultCount"), "3");
    EXPECT_EQ(Count(kKivDB_CloseDatabase), 1u);
}

TEST_F(SearchDatabaseTest, NoRecordAtTheFirstMoveIsNotAFailure)
{
    AddNumbers(2);
    host.AddTagParameter("databaseName", "numbers");
    host.FailDatabase(kKivDB_MoveFirstRecord, KIV_FOURCC('M', 'B', 'O', 'F'));
    host.tagBody = "x";
    EXPECT_EQ(Run(), 0u);
    EXPECT_TRUE(host.errorHeadline.empty());
}

TEST_F(SearchDatabaseTest, ATemplateErrorEndsTheListAfterTheRecordsShown)
{
    AddNumbers(5);
    ScriptPagedSearch("1", "");
    int lookups = 0;
    auto inner = host.databaseHandler;
    host.databaseHandler = [&](FakeDBRequest& request_io) -> uint32_t
    {
        if (request_io.Selector() == kKivDB_GetFieldInfoByName && ++lookups == 3)
            return kHostFailure;
        return inner(request_io);
    };
    EXPECT_EQ(Run(), kHostFailure);
    EXPECT_EQ(Output(), "1,2,");
    EXPECT_EQ(Variable("_LastIndex"), "2");
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to retrieve information about the &quot;(N)&quot; field.");
}

} // namespace
