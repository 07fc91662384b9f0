// The kivModifyDatabase tag through the fake host: every mode's service calls, results and
// result variables, the value-pairing walk with its deliberate differences, criteria building
// and the file-location rules of export and import.
#include "FakeDatabase.h"
#include "KivGlueDB.h"
#include "ModifyDBWorkers.h"
#include "TagProcessors.h"

#include <gtest/gtest.h>

#include <string>

using namespace kivtest;

namespace
{
const uint32_t kMissingParameter = KIV_FOURCC('M', 'M', 'R', 'P');
const uint32_t kOpenFailed = KIV_FOURCC('M', 'O', 'p', 'F');
const uint32_t kInvalidRequest = KIV_FOURCC('M', 'I', 'R', 'q');
const uint32_t kUnknown = KIV_FOURCC('M', 'U', 'n', 'k');
const uint32_t kInvalid = KIV_FOURCC('M', 'I', 'n', 'v');
const uint32_t kNotAuthorized = KIV_FOURCC('M', 'N', 'A', 'u');
const uint32_t kEndOfFile = KIV_FOURCC('M', 'E', 'O', 'F');
const char* const kStandardHint = "Contact the system administrator and report this problem.";

class ModifyDatabaseTest : public ::testing::Test
{
protected:
    FakeHost host;
    KivString output;

    void SetUp() override
    {
        host.tagName = "kivModifyDatabase";
        UseTagDatabaseBehaviour(host);
    }

    FakeDatabase& AddPeople()
    {
        FakeDatabase& people = host.db.AddDatabase("People", {{"KIVIDFIELD", kUniqueIDField},
                                                              {"Name", kTextField},
                                                              {"Age", kIntegerField},
                                                              {"City", kTextField},
                                                              {"Member", kBooleanField}});
        people.AddRecord({{"KIVIDFIELD", "1"}, {"Name", "Ann"}, {"Age", "41"}, {"City", "Paris"}});
        people.AddRecord({{"KIVIDFIELD", "2"}, {"Name", "Bob"}, {"Age", "35"}, {"City", "Rome"}});
        people.AddRecord({{"KIVIDFIELD", "3"}, {"Name", "Cy"}, {"Age", "29"}, {"City", "Paris"}});
        people.nextUniqueID = 4;
        return people;
    }

    // mode, databaseName and resultVariableName "r" (when a database is named).
    void Script(const std::string& mode_i, const std::string& database_i = "")
    {
        host.AddTagParameter("mode", mode_i);
        if (!database_i.empty())
            host.AddTagParameter("databaseName", database_i);
        host.AddTagParameter("resultVariableName", "r");
    }

    unsigned int Run()
    {
        output.Empty();
        return ProcessModifyDatabase(host.Info(), output);
    }
    std::string Output() const { return std::string(output.GetCStringAccess(), output.GetLength()); }
    std::string Variable(const std::string& suffix_i) const
    {
        return host.pageVariables.Get("r" + suffix_i, "?");
    }
    size_t Count(uint32_t selector_i) const { return host.CountCalls(selector_i, kDatabase); }
    const FakeCall& Last(uint32_t selector_i) const { return host.LastCall(selector_i, kDatabase); }
    std::string Criteria() const { return Last(kKivDB_ExecuteSearch).text; }
    std::string LogLine() const
    {
        return host.logLines.empty() ? std::string() : host.logLines.back().second;
    }
};

// ---------------------------------------------------------------------------------------------
// Start, mode and database checks

TEST_F(ModifyDatabaseTest, AMissingModeFailsAndStillEndsTheService)
{
    EXPECT_EQ(Run(), kMissingParameter);
    EXPECT_EQ(host.errorHeadline,
              "An &lt;kivModifyDatabase&gt; tag was found but it is missing its &quot;mode&quot; parameter.");
    EXPECT_EQ(Count(kKivDB_Terminate), 1u);
}

TEST_F(ModifyDatabaseTest, AFailedStartIsReportedAndTheServiceEnded)
{
    Script("listDatabases");
    host.FailDatabase(kKivDB_Initialize, kUnknown);
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(host.errorHeadline, "The database system failed to initialize.");
    EXPECT_EQ(host.errorHint, kStandardHint);
    EXPECT_EQ(LogLine(), "The database system failed to initialize.");
    EXPECT_EQ(Count(kKivDB_GetDatabaseCount), 0u);
    EXPECT_EQ(Count(kKivDB_Terminate), 1u);
}

TEST_F(ModifyDatabaseTest, ListDatabasesNeedsNoDatabaseName)
{
    host.db.AddDatabase("Orders");
    host.db.AddDatabase("People");
    host.AddTagParameter("MODE", "LISTdatabases");
    host.AddTagParameter("resultVariableName", "r");
    host.AddTagParameter("odbcDataSource", "dsn");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "Orders,People");
    EXPECT_EQ(Variable("_ResultCount"), "2");
    EXPECT_EQ(Last(kKivDB_Initialize).text, "dsn,,");
}

TEST_F(ModifyDatabaseTest, AnEmptyDatabaseListWritesNothing)
{
    Script("listDatabases");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "");
    EXPECT_EQ(Variable("_ResultCount"), "0");
}

TEST_F(ModifyDatabaseTest, AFailedListingLeavesTheOutputAlone)
{
    host.db.AddDatabase("Orders");
    Script("listDatabases");
    host.FailDatabase(kKivDB_GetDatabaseNameByIndex, kUnknown);
    output = "before";
    EXPECT_EQ(ProcessModifyDatabase(host.Info(), output), kUnknown);
    EXPECT_STREQ(output.GetCStringAccess(), "before");
    EXPECT_EQ(host.errorHeadline, "The database system was unable to return the list of databases.");
    EXPECT_EQ(host.errorHint, kStandardHint);
    EXPECT_TRUE(host.logLines.empty());
    EXPECT_EQ(Variable("_ResultCount"), "?");
}

TEST_F(ModifyDatabaseTest, CreateDatabaseRefusesANameContainedInTheList)
{
    host.db.AddDatabase("Orders");
    host.db.AddDatabase("People");
    Script("createDatabase", "order");
    EXPECT_EQ(Run(), kOpenFailed);
    EXPECT_EQ(host.errorHeadline, "Cannot create database &quot;order&quot; as it already exists.");
    EXPECT_EQ(host.errorHint, "Make sure the database does not exist before trying to create it.");
    EXPECT_TRUE(host.logLines.empty());
    EXPECT_EQ(Count(kKivDB_CreateDatabase), 0u);
}

TEST_F(ModifyDatabaseTest, CreateDatabaseSetsTheNameAndLeavesTheDatabaseCount)
{
    host.db.AddDatabase("Orders");
    Script("createDatabase", "Stock");
    EXPECT_EQ(Run(), 0u);
    EXPECT_NE(host.db.Find("Stock"), nullptr);
    EXPECT_EQ(Variable("_DatabaseName"), "Stock");
    EXPECT_EQ(Variable("_ResultCount"), "1") << "the count of databases listed before creating";
    EXPECT_EQ(Count(kKivDB_OpenDatabase), 0u);
}

TEST_F(ModifyDatabaseTest, DeleteDatabaseNeedsTheNameInTheList)
{
    host.db.AddDatabase("Orders");
    Script("deleteDatabase", "People");
    EXPECT_EQ(Run(), kOpenFailed);
    EXPECT_EQ(host.errorHeadline, "Cannot delete database &quot;People&quot; as it does not exist.");
    EXPECT_EQ(host.errorHint, "Make sure the database exists before trying to delete it.");

    host.tagParameters.Set("databaseName", "orders");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(host.db.Find("Orders"), nullptr);
    EXPECT_EQ(Variable("_DatabaseName"), "orders");
}

TEST_F(ModifyDatabaseTest, OtherModesNeedAnExistingDatabase)
{
    host.db.AddDatabase("Orders");
    Script("listFields", "People");
    EXPECT_EQ(Run(), kInvalidRequest);
    EXPECT_EQ(host.errorHeadline, "Cannot modify database as database &quot;People&quot; does not exist.");
    EXPECT_EQ(host.errorHint, "Make sure the database exists before trying to modify it.");
    EXPECT_EQ(Count(kKivDB_OpenDatabase), 0u);

    host.ClearCalls();
    host.tagParameters.items.clear();
    host.AddTagParameter("mode", "listFields");
    EXPECT_EQ(Run(), kMissingParameter);
    EXPECT_EQ(Count(kKivDB_Terminate), 1u);
}

TEST_F(ModifyDatabaseTest, StructuralModesOpenExclusivelyWithTheUniqueIDField)
{
    AddPeople();
    Script("addField", "People");
    host.AddTagParameter("fieldName", "Zip");
    host.AddTagParameter("fieldType", "Text");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Last(kKivDB_OpenDatabase).word8, 3u);
    EXPECT_EQ(Last(kKivDB_OpenDatabase).text2, "KIVIDFIELD");

    host.tagParameters.Set("mode", "listFields");
    host.AddTagParameter("uniqueIDFieldName", " \t ");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Last(kKivDB_OpenDatabase).word8, 2u);
    EXPECT_EQ(Last(kKivDB_OpenDatabase).text2, "KIVIDFIELD");

    host.tagParameters.Set("uniqueIDFieldName", " RowID ");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Last(kKivDB_OpenDatabase).text2, "RowID");
    EXPECT_EQ(Count(kKivDB_OpenDatabase), Count(kKivDB_CloseDatabase));
}

TEST_F(ModifyDatabaseTest, AFailedOpenIsReportedAndLogged)
{
    AddPeople();
    Script("listFields", "People");
    host.FailDatabase(kKivDB_OpenDatabase, kUnknown);
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(host.errorHeadline, "The database system was unable to open the &quot;People&quot; database.");
    EXPECT_EQ(host.errorHint, "The database may be locked for exclusive use.  Try again in a few moments.");
    EXPECT_EQ(LogLine(), host.errorHeadline);
    EXPECT_EQ(Count(kKivDB_CloseDatabase), 0u);
}

TEST_F(ModifyDatabaseTest, AnUnknownModeOpensClosesAndSucceedsSilently)
{
    AddPeople();
    Script("purge", "People");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "");
    EXPECT_EQ(host.errorCount, 0u);
    EXPECT_EQ(Count(kKivDB_OpenDatabase), 1u);
    EXPECT_EQ(Count(kKivDB_CloseDatabase), 1u);
    EXPECT_EQ(host.db.Find("People")->records.size(), 3u);
}

// ---------------------------------------------------------------------------------------------
// Fields

TEST_F(ModifyDatabaseTest, ListFieldsDescribesNameTypeLengthAndFlags)
{
    host.db.odbcFieldTypes = {{"sqlint", 0}};
    host.db.AddDatabase("Goods", {{"Price", 0x02050000},
                                  {"Name", 0x00060040},
                                  {"Code", 0x06000000 | 0x440000 | 12},
                                  {"Odd", 0x00300000}});
    // 'MOFT' is asked with bits 16-24 of the field word as they stand.
    host.databaseHandler = [&](FakeDBRequest& request_io) -> uint32_t
    {
        if (request_io.Selector() == kKivDB_GetODBCFieldTypeInfo)
            return request_io.call.handle == 0x440000 ? request_io.WriteText("SQL_INTEGER") : kUnknown;
        return host.db.Handle(request_io);
    };
    Script("listFields", "Goods");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Output(), "Price.Number.0.X,Name.Text.64.,Code.SQL_INTEGER.12.XQ,Odd.unknown type.0.");
    EXPECT_EQ(Variable("_ResultCount"), "4");
}

TEST_F(ModifyDatabaseTest, AFailedFieldLookUpFailsTheFieldList)
{
    AddPeople();
    Script("listFields", "People");
    host.FailDatabase(kKivDB_GetFieldInfoByIndex, kUnknown);
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(Output(), "");
    EXPECT_EQ(
        host.errorHeadline,
        "The database system was unable to return the list of fields for the &quot;People&quot; database.");
    EXPECT_TRUE(host.logLines.empty());
    EXPECT_EQ(Variable("_ResultCount"), "1") << "the database count stays";
}

TEST_F(ModifyDatabaseTest, AddFieldBuildsTheFieldWord)
{
    struct Case
    {
        const char* type;
        const char* length;
        const char* flags; // null: no parameter
        uint32_t word;
    };
    const Case cases[] = {
        {"Text", "50", nullptr, 0x00060032},
        {"text", "-12", "", 0x0006000C},
        {"TEXT", "70000", "xq", 0x06061170},
        {"Boolean", "", "X", 0x02010000},
        {"Integer", "0", "q", 0x04020000},
        {"UInteger", "abc", "Z", 0x00030000},
        {"Float", "8", nullptr, 0x00040008},
        {"Number", "1,0", nullptr, 0x0005000A},
        {"LongText", "0", nullptr, 0x00070000},
        {"Whatever", "5", nullptr, 0x00000005},
        {"sqlvarchar", "20", "Q", 0x054C0014},
        // The most negative length has a magnitude too; its low 16 bits are 0.
        {"Text", "-2147483648", nullptr, 0x00060000},
    };
    host.db.odbcFieldTypes = {{"sqlvarchar", 0x014C0000}};
    for (const Case& testCase : cases)
    {
        host.db.AddDatabase("Stock");
        host.tagParameters.items.clear();
        Script("addField", "Stock");
        host.AddTagParameter("fieldName", "F");
        host.AddTagParameter("fieldType", testCase.type);
        if (*testCase.length)
            host.AddTagParameter("fieldLength", testCase.length);
        if (testCase.flags)
            host.AddTagParameter("fieldFlags", testCase.flags);
        EXPECT_EQ(Run(), 0u) << testCase.type;
        EXPECT_EQ(Last(kKivDB_AddField).word8, testCase.word) << testCase.type << " " << testCase.length;
        host.db.databases.erase("Stock");
    }
}

TEST_F(ModifyDatabaseTest, AddFieldReportsTheServicesTextAsTheFieldName)
{
    AddPeople();
    host.db.errorTexts[1] = "Zip added";
    Script("addField", "People");
    host.AddTagParameter("fieldName", "Zip");
    host.AddTagParameter("fieldType", "Text");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Last(kKivDB_GetErrorInfo).handle, 1u) << "asked with the database handle";
    EXPECT_EQ(Variable("_FieldName"), "Zip added");
    EXPECT_EQ(Variable("_ResultCount"), "1");
}

TEST_F(ModifyDatabaseTest, AddFieldFailuresAndMissingParameters)
{
    AddPeople();
    Script("addField", "People");
    host.AddTagParameter("fieldName", "Name");
    EXPECT_EQ(Run(), kMissingParameter);
    EXPECT_EQ(
        host.errorHeadline,
        "An &lt;kivModifyDatabase&gt; tag was found but it is missing its &quot;fieldType&quot; parameter.");
    EXPECT_EQ(Count(kKivDB_CloseDatabase), 1u);

    host.AddTagParameter("fieldType", "Text");
    EXPECT_EQ(Run(), KIV_FOURCC('M', 'F', 'E', 'x'));
    EXPECT_EQ(host.errorHeadline, "The database system was unable to add the &quot;Name&quot; field to the "
                                  "&quot;People&quot; database.");
    EXPECT_EQ(host.errorHint, kStandardHint);
    EXPECT_EQ(LogLine(), host.errorHeadline);
    EXPECT_EQ(Variable("_FieldName"), "?");
}

TEST_F(ModifyDatabaseTest, DeleteFieldSetsTheFieldNameAsked)
{
    AddPeople();
    Script("deleteField", "People");
    host.AddTagParameter("fieldName", "City");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(host.db.Find("People")->FindField("City"), nullptr);
    EXPECT_EQ(Variable("_FieldName"), "City");
    EXPECT_EQ(Last(kKivDB_OpenDatabase).word8, 3u);

    EXPECT_EQ(Run(), kFakeNotFound);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to delete the &quot;City&quot; field from the "
              "&quot;People&quot; database.");
    EXPECT_EQ(LogLine(), host.errorHeadline);
}

// ---------------------------------------------------------------------------------------------
// Adding and updating records: the value-pairing walk

TEST_F(ModifyDatabaseTest, AddRecordPairsEachValueWithTheFieldNameBeforeIt)
{
    FakeDatabase& people = AddPeople();
    Script("addRecord", "People");
    host.AddTagParameter("fieldName", "Name");
    host.AddTagParameter("fieldValue", "Dee");
    host.AddTagParameter("fieldName", "City");
    host.AddTagParameter("postArgumentName", "cities");
    host.AddTagParameter("fieldName", "Age");
    host.AddTagParameter("odbcUsername", ""); // any other parameter ends the pair
    host.AddTagParameter("fieldValue", "99");
    host.AddTagParameter("fieldValue", "98"); // no field name any more
    host.AddTagParameter("fieldName", "Member");
    host.AddTagParameter("pathArgumentName", "member");
    host.postArguments.Add("cities", "Oslo");
    host.postArguments.Add("cities", "Bergen");
    host.pathArguments.Add("member", "Yes");
    EXPECT_EQ(Run(), 0u);
    ASSERT_EQ(people.records.size(), 4u);
    const auto& added = people.records.back();
    EXPECT_EQ(added.at("Name"), "Dee");
    EXPECT_EQ(added.at("City"), "Oslo,Bergen");
    EXPECT_EQ(added.count("Age"), 0u);
    EXPECT_EQ(added.at("Member"), "1");
    EXPECT_EQ(added.at("KIVIDFIELD"), "4");
    EXPECT_EQ(Variable("_ResultCount"), "1");
}

TEST_F(ModifyDatabaseTest, AddRecordLeavesAFieldWhosePageVariableIsMissing)
{
    FakeDatabase& people = AddPeople();
    Script("addRecord", "People");
    host.AddTagParameter("fieldName", "Name");
    host.AddTagParameter("pageVariableName", "missing");
    host.AddTagParameter("fieldName", "City");
    host.AddTagParameter("pageVariableName", "city");
    host.AddTagParameter("fieldName", "Age");
    host.AddTagParameter("pathArgumentName", "missing");
    host.pageVariables.Add("city", "Lyon");
    EXPECT_EQ(Run(), 0u);
    const auto& added = people.records.back();
    EXPECT_EQ(added.count("Name"), 0u);
    EXPECT_EQ(added.at("City"), "Lyon");
    EXPECT_EQ(added.at("Age"), "0") << "an argument with no value sets an empty text, 0 for numbers";
}

TEST_F(ModifyDatabaseTest, UpdateRecordEmptiesAFieldWhosePageVariableIsMissing)
{
    FakeDatabase& people = AddPeople();
    Script("updateRecord", "People");
    host.AddTagParameter("keyFieldName", "City");
    host.AddTagParameter("fieldValue", "Paris");
    host.AddTagParameter("fieldName", "Name");
    host.AddTagParameter("pageVariableName", "missing");
    host.AddTagParameter("fieldName", "Age");
    host.AddTagParameter("pageVariableName", "missing");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), "City = 'Paris'");
    EXPECT_EQ(Variable("_ResultCount"), "2");
    EXPECT_EQ(people.records[0].at("Name"), "");
    EXPECT_EQ(people.records[0].at("Age"), "0");
    EXPECT_EQ(people.records[1].at("Name"), "Bob");
    EXPECT_EQ(people.records[2].at("Name"), "");
    EXPECT_EQ(Count(kKivDB_ClearSearchResults), 1u);
}

TEST_F(ModifyDatabaseTest, FieldValuesAreSentByValueClass)
{
    host.db.AddDatabase("Kinds", {{"B", kBooleanField},
                                  {"I", kIntegerField},
                                  {"U", kUIntegerField},
                                  {"F", kFloatField},
                                  {"N", kNumberField},
                                  {"T", kTextField},
                                  {"L", kLongTextField},
                                  {"Big", 0x850000},   // SQL BIGINT: a Number
                                  {"Dec", 0x430000}}); // SQL DECIMAL: a Float
    Script("addRecord", "Kinds");
    for (const char* field : {"B", "I", "U", "F", "N", "T", "L", "Big", "Dec"})
    {
        host.AddTagParameter("fieldName", field);
        host.AddTagParameter("postArgumentName", field);
    }
    host.postArguments.Add("B", "on");
    host.postArguments.Add("I", "-1,234");
    host.postArguments.Add("U", "");
    host.postArguments.Add("F", "2.5e3");
    host.postArguments.Add("N", "12345678901234567890.125");
    host.postArguments.Add("T", " as is ");
    host.postArguments.Add("L", "");
    host.postArguments.Add("Big", "7");
    host.postArguments.Add("Dec", "0.5");
    EXPECT_EQ(Run(), 0u);
    std::map<std::string, std::pair<uint32_t, std::string>> sent;
    for (const FakeCall* call : host.CallsTo(kKivDB_SetFieldValue, kDatabase))
        sent[call->text] = {call->Kind(), call->text2};
    EXPECT_EQ(sent["B"], std::make_pair((uint32_t)kKivValueKind_UInt32, std::string("1")));
    EXPECT_EQ(sent["I"], std::make_pair((uint32_t)kKivValueKind_Int32, std::string("-1234")));
    EXPECT_EQ(sent["U"], std::make_pair((uint32_t)kKivValueKind_UInt32, std::string("0")));
    EXPECT_EQ(sent["F"], std::make_pair((uint32_t)kKivValueKind_Double, std::string("2500")));
    EXPECT_EQ(sent["N"],
              std::make_pair((uint32_t)kKivValueKind_Text, std::string("12345678901234567890.125")));
    EXPECT_EQ(sent["T"], std::make_pair((uint32_t)kKivValueKind_Text, std::string(" as is ")));
    EXPECT_EQ(sent["L"], std::make_pair((uint32_t)kKivValueKind_Text, std::string("")));
    EXPECT_EQ(sent["Big"].first, (uint32_t)kKivValueKind_Text);
    EXPECT_EQ(sent["Dec"], std::make_pair((uint32_t)kKivValueKind_Double, std::string("0.5")));
}

TEST_F(ModifyDatabaseTest, FieldsThatCannotBeSetDoNotStopTheRecord)
{
    FakeDatabase& people = AddPeople();
    people.AddField("Seen", kTimestampField);
    Script("addRecord", "People");
    host.AddTagParameter("fieldName", "Seen");
    host.AddTagParameter("fieldValue", "2020-01-01");
    host.AddTagParameter("fieldName", "Nope");
    host.AddTagParameter("fieldValue", "x");
    host.AddTagParameter("fieldName", "Name");
    host.AddTagParameter("fieldValue", "Eve");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(people.records.back().at("Name"), "Eve");
    EXPECT_EQ(people.records.back().count("Seen"), 0u);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to get information about the &quot;Nope&quot; "
              "field in the &quot;People&quot; database.");
    EXPECT_EQ(LogLine(), host.errorHeadline);
}

TEST_F(ModifyDatabaseTest, SetFieldValueRefusesUnsupportedTypesWithoutCallingTheDatabase)
{
    FakeDatabase& people = AddPeople();
    people.AddField("Seen", kTimestampField);
    unsigned int database = 0;
    ASSERT_EQ(KivGlueDBOpenDatabase(host.Info(), "People", 2, database), 0u);
    KivString value("2020-01-01");
    EXPECT_EQ(ModifyDB_SetFieldValue(host.Info(), database, "Seen", value), kUnknown);
    EXPECT_EQ(Count(kKivDB_SetFieldValue), 0u);

    KivString empty;
    EXPECT_EQ(ModifyDB_SetFieldValue(host.Info(), database, "Age", empty), 0u);
    EXPECT_STREQ(empty.GetCStringAccess(), "0") << "the caller sees the value that was sent";
}

TEST_F(ModifyDatabaseTest, AddRecordFailures)
{
    AddPeople();
    Script("addRecord", "People");
    host.FailDatabase(kKivDB_CreateRecord, kUnknown);
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to create a record in the &quot;People&quot; database.");
    EXPECT_EQ(Count(kKivDB_AddRecord), 0u);

    host.ClearFailures();
    host.FailDatabase(kKivDB_AddRecord, kUnknown);
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to add a record to the &quot;People&quot; database.");
    EXPECT_EQ(host.errorHint, kStandardHint);
    EXPECT_EQ(LogLine(), host.errorHeadline);
    EXPECT_EQ(Variable("_ResultCount"), "1") << "only the database count";
}

TEST_F(ModifyDatabaseTest, UpdateRecordWithNoMatchCountsZero)
{
    AddPeople();
    Script("updateRecord", "People");
    host.AddTagParameter("keyFieldName", "City");
    host.AddTagParameter("fieldValue", "Nowhere");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_ResultCount"), "0");
    EXPECT_EQ(Count(kKivDB_UpdateRecord), 0u);
}

TEST_F(ModifyDatabaseTest, UpdateRecordFailures)
{
    AddPeople();
    Script("updateRecord", "People");
    host.FailDatabase(kKivDB_UpdateRecord, kUnknown);
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to update a record to the &quot;People&quot; database.");
    EXPECT_EQ(Variable("_ResultCount"), "0");

    host.ClearFailures();
    host.FailDatabase(kKivDB_ExecuteSearch, kUnknown);
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(host.errorHeadline, "The database search failed due to an unexpected error.");
    EXPECT_EQ(host.errorHint, "Check the syntax of your search criteria and try the search again.");

    host.ClearFailures();
    host.pageVariables.items.clear();
    host.FailDatabase(kKivDB_MoveFirstRecord, kUnknown);
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(
        host.errorHeadline,
        "The database system was unable to move to the first record in the &quot;People&quot; database.");
    EXPECT_EQ(Variable("_ResultCount"), "1") << "no record count after a failed move";
}

// ---------------------------------------------------------------------------------------------
// Criteria

TEST_F(ModifyDatabaseTest, CriteriaFollowTheDocumentedExample)
{
    AddPeople();
    Script("deleteRecord", "People");
    host.AddTagParameter("keyFieldName", "City");
    host.AddTagParameter("fieldValue", "O'Hare");
    host.AddTagParameter("keyFieldName", "State");
    host.AddTagParameter("postArgumentName", "st");
    host.AddTagParameter("orderByField", "Name");
    host.AddTagParameter("reverseOrder", "yes");
    host.postArguments.Add("st", "IL");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), "City = 'O''Hare' AND State = 'IL' ORDER BY Name DESC");
}

TEST_F(ModifyDatabaseTest, CriteriaTakeOnlyExistingValuesAndDoubleEveryQuote)
{
    AddPeople();
    Script("deleteRecord", "People");
    host.AddTagParameter("keyFieldName", "A");
    host.AddTagParameter("pageVariableName", "missing");
    host.AddTagParameter("keyFieldName", "B");
    host.AddTagParameter("pathArgumentName", "missing");
    host.AddTagParameter("keyFieldName", "C");
    host.AddTagParameter("pageVariableName", "pv");
    host.AddTagParameter("keyFieldName", "D");
    host.AddTagParameter("pathArgumentName", "pa");
    host.AddTagParameter("keyFieldName", "E");
    host.AddTagParameter("postArgumentName", "po");
    host.pageVariables.Add("pv", "");
    host.pathArguments.Add("pa", "a'b");
    host.pathArguments.Add("pa", "ignored");
    host.postArguments.Add("po", "' OR ''='");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), "C = '' AND D = 'a''b' AND E = ''' OR ''''='''");
    EXPECT_EQ(Variable("_ResultCount"), "0") << "the posted value matched nothing";
    EXPECT_EQ(host.db.Find("People")->records.size(), 3u);
}

TEST_F(ModifyDatabaseTest, APostedValueCannotWidenADelete)
{
    FakeDatabase& people = AddPeople();
    Script("deleteRecord", "People");
    host.AddTagParameter("keyFieldName", "Name");
    host.AddTagParameter("postArgumentName", "who");
    host.postArguments.Add("who", "Nobody' OR City = 'Paris");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_ResultCount"), "0");
    EXPECT_EQ(people.records.size(), 3u);
}

TEST_F(ModifyDatabaseTest, AnInterveningParameterBreaksThePair)
{
    AddPeople();
    Script("deleteRecord", "People");
    host.AddTagParameter("keyFieldName", "A");
    host.AddTagParameter("orderByField", "X");
    host.AddTagParameter("fieldValue", "1");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), "ORDER BY X");
}

TEST_F(ModifyDatabaseTest, ASearchStringIsUsedUnchanged)
{
    AddPeople();
    Script("deleteRecord", "People");
    host.AddTagParameter("searchString", "Name = 'Bob' ");
    host.AddTagParameter("orderByField", "X");
    host.AddTagParameter("reverseOrder", "yes");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Criteria(), "Name = 'Bob' ");
}

TEST_F(ModifyDatabaseTest, ReverseOrderNeedsYesInAnyCase)
{
    for (const char* reverse : {"YES", "Yes", "no", "1", "true"})
    {
        host.tagParameters.items.clear();
        host.AddTagParameter("orderByField", "Name");
        host.AddTagParameter("reverseOrder", reverse);
        KivString criteria = ModifyDB_BuildSearchString(host.Info());
        const bool descending = std::string(reverse) == "YES" || std::string(reverse) == "Yes";
        EXPECT_STREQ(criteria.GetCStringAccess(), descending ? "ORDER BY Name DESC" : "ORDER BY Name")
            << reverse;
    }
}

// ---------------------------------------------------------------------------------------------
// Deleting records

TEST_F(ModifyDatabaseTest, DeleteRecordDeletesEveryMatchByItsUniqueID)
{
    FakeDatabase& people = AddPeople();
    Script("deleteRecord", "People");
    host.AddTagParameter("keyFieldName", "City");
    host.AddTagParameter("fieldValue", "Paris");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_ResultCount"), "2");
    ASSERT_EQ(people.records.size(), 1u);
    EXPECT_EQ(people.records[0].at("Name"), "Bob");
    auto deletes = host.CallsTo(kKivDB_DeleteRecord, kDatabase);
    ASSERT_EQ(deletes.size(), 2u);
    EXPECT_EQ(deletes[0]->text, "1");
    EXPECT_EQ(deletes[0]->Kind(), (uint32_t)kKivValueKind_Text);
    EXPECT_EQ(Count(kKivDB_ClearSearchResults), 1u);
}

TEST_F(ModifyDatabaseTest, DeleteRecordPassesTheIDAsTextByValueClass)
{
    host.db.AddDatabase("Stamps",
                        {{"Seen", kTimestampField}, {"Flag", kBooleanField}, {"Size", kFloatField}});
    host.db.Find("Stamps")->AddRecord({{"Seen", "x"}, {"Flag", "1"}, {"Size", "1.5"}});
    // Every delete fails, which ends the loop after one attempt.
    host.FailDatabase(kKivDB_DeleteRecord, kUnknown);
    for (const auto& expected : std::vector<std::pair<std::string, std::string>>{
             {"Seen", "(Unsupported field type)"}, {"Flag", "1"}, {"Size", "1.500000"}})
    {
        host.tagParameters.items.clear();
        Script("deleteRecord", "Stamps");
        host.AddTagParameter("uniqueIDFieldName", expected.first);
        EXPECT_EQ(Run(), kUnknown);
        EXPECT_EQ(Last(kKivDB_DeleteRecord).text, expected.second) << expected.first;
        EXPECT_EQ(host.errorHeadline,
                  "The database system was unable to delete a record to the &quot;Stamps&quot; database.");
        EXPECT_EQ(Variable("_ResultCount"), "0") << "set also after a failed delete";
    }
}

TEST_F(ModifyDatabaseTest, DeleteRecordWithoutTheUniqueIDField)
{
    AddPeople();
    Script("deleteRecord", "People");
    host.AddTagParameter("uniqueIDFieldName", "RowID");
    EXPECT_EQ(Run(), kFieldNotFound);
    EXPECT_EQ(host.errorHeadline, "No unique ID field could be found in the &quot;People&quot; database.");
    EXPECT_EQ(host.errorHint, "Make sure the database has a unique ID field.");
    EXPECT_EQ(LogLine(), host.errorHeadline);
    EXPECT_EQ(Variable("_ResultCount"), "1") << "only the database count";
}

TEST_F(ModifyDatabaseTest, DeleteRecordWithNothingFound)
{
    AddPeople();
    Script("deleteRecord", "People");
    host.AddTagParameter("searchString", "City = 'Nowhere'");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Variable("_ResultCount"), "0");
    EXPECT_EQ(Count(kKivDB_MoveFirstRecord), 0u);
}

// ---------------------------------------------------------------------------------------------
// Export and import

TEST_F(ModifyDatabaseTest, ExportSearchesWithoutClearingAndCountsTheExport)
{
    AddPeople();
    Script("export", "People");
    host.AddTagParameter("keyFieldName", "City");
    host.AddTagParameter("fieldValue", "Paris");
    host.AddTagParameter("fileLocation", "  out/people.csv \r\n");
    host.inOutAnswers[kKivServer_VerifyRegionContainsFile] = [](const std::string& path_i)
    { return "/region/" + path_i; };
    host.db.exportResult = kEndOfFile;
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Count(kKivDB_ClearSearchResults), 0u);
    EXPECT_EQ(host.LastCall(kKivServer_VerifyRegionContainsFile).text, "out/people.csv");
    const FakeCall& exported = Last(kKivDB_Export);
    EXPECT_EQ(exported.text, "/region/out/people.csv");
    EXPECT_EQ(exported.text2, "");
    EXPECT_EQ(Variable("_ResultCount"), "2");

    host.db.exportResult = 0;
    EXPECT_EQ(Run(), 0u);
}

TEST_F(ModifyDatabaseTest, ExportFileLocationRules)
{
    AddPeople();
    Script("export", "People");
    EXPECT_EQ(Run(), kMissingParameter);
    EXPECT_EQ(host.errorHeadline, "An &lt;kivModifyDatabase&gt; tag was found but it is missing its "
                                  "&quot;fileLocation&quot; parameter.");

    host.AddTagParameter("fileLocation", " \t");
    EXPECT_EQ(Run(), kInvalid);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to export records due to an empty export file location.");
    EXPECT_EQ(host.errorHint, "Enter a valid file location to hold the exported records.");

    host.tagParameters.Set("fileLocation", "../../etc/passwd");
    host.FailServer(kKivServer_VerifyRegionContainsFile);
    const unsigned int errors = host.errorCount;
    EXPECT_EQ(Run(), kNotAuthorized);
    EXPECT_EQ(host.errorCount, errors) << "no message of the tag's own";
    EXPECT_EQ(Count(kKivDB_Export), 0u);
}

TEST_F(ModifyDatabaseTest, ExportFailures)
{
    AddPeople();
    Script("export", "People");
    host.AddTagParameter("fileLocation", "out.csv");
    host.db.exportResult = kUnknown;
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to export records from the &quot;People&quot; database.");
    EXPECT_EQ(LogLine(), host.errorHeadline);

    host.FailDatabase(kKivDB_ExecuteSearch, kUnknown);
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to search the &quot;People&quot; database.");
    EXPECT_EQ(host.errorHint, kStandardHint);
}

TEST_F(ModifyDatabaseTest, ImportIntoADatabaseWithoutFieldsReopensItExclusively)
{
    host.db.AddDatabase("Empty");
    host.db.importCount = 7;
    Script("import", "Empty");
    host.AddTagParameter("uniqueIDFieldName", "RowID");
    host.AddTagParameter("fileLocation", "in.csv");
    EXPECT_EQ(Run(), 0u);
    auto opens = host.CallsTo(kKivDB_OpenDatabase, kDatabase);
    ASSERT_EQ(opens.size(), 2u);
    EXPECT_EQ(opens[0]->word8, 2u);
    EXPECT_EQ(opens[0]->text2, "RowID");
    EXPECT_EQ(opens[1]->word8, 3u);
    EXPECT_EQ(opens[1]->text2, "");
    EXPECT_EQ(Last(kKivDB_Import).handle, 2u) << "into the reopened database";
    EXPECT_EQ(Last(kKivDB_Import).text, "in.csv");
    EXPECT_EQ(Variable("_ResultCount"), "7");
    EXPECT_TRUE(host.db.open.empty());
}

TEST_F(ModifyDatabaseTest, ImportIntoADatabaseWithFieldsUsesTheOrdinaryOpen)
{
    AddPeople();
    Script("import", "People");
    host.AddTagParameter("fileLocation", "in.csv");
    EXPECT_EQ(Run(), 0u);
    EXPECT_EQ(Count(kKivDB_OpenDatabase), 1u);
    EXPECT_EQ(Variable("_ResultCount"), "0");
}

TEST_F(ModifyDatabaseTest, ImportFailures)
{
    host.db.AddDatabase("Empty");
    Script("import", "Empty");
    host.AddTagParameter("fileLocation", "");
    EXPECT_EQ(Run(), kInvalid);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to import records due to an empty import filename.");
    EXPECT_EQ(host.errorHint, "Enter a valid filename to import records from.");

    host.tagParameters.Set("fileLocation", "elsewhere.csv");
    host.FailServer(kKivServer_VerifyRegionContainsFile);
    EXPECT_EQ(Run(), kNotAuthorized);

    host.ClearFailures();
    host.FailDatabase(kKivDB_Import, kUnknown);
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to import to the &quot;Empty&quot; database.");
    EXPECT_EQ(LogLine(), host.errorHeadline);

    // Reopening for exclusive access fails: reported, and the import is not attempted.
    host.ClearFailures();
    int opens = 0;
    host.databaseHandler = [&](FakeDBRequest& request_io) -> uint32_t
    {
        if (request_io.Selector() == kKivDB_OpenDatabase && ++opens == 2)
            return kUnknown;
        return host.db.Handle(request_io);
    };
    host.ClearCalls();
    EXPECT_EQ(Run(), kUnknown);
    EXPECT_EQ(host.errorHeadline,
              "The database system was unable to open the &quot;Empty&quot; database for exclusive access.");
    EXPECT_EQ(host.errorHint, kStandardHint);
    EXPECT_EQ(Count(kKivDB_Import), 0u);
}

} // namespace
