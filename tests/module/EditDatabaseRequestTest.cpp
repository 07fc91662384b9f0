// The editor's request rules and error paths: the first request of a page that names its
// database, actions without a database, the marker pair around every output, and the messages
// of failed initialisation, opens, additions, searches, exports and imports.
#include "EditorBrowser.h"
#include "KivFileSystemItem.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <unistd.h>

namespace
{

using kivtest::EditorSession;

const char* const kContactHint = "Contact the system administrator and report this problem.";

// A session on a page that names the "people" database, which holds Name (text 64) and the
// identifier field.
struct EditDatabaseNamedPage : public ::testing::Test
{
    EditorSession session;
    EditDatabaseNamedPage()
    {
        session.host.AddTagParameter("databaseName", "people");
        session.host.db.AddDatabase("people",
                                    {{"KIVIDFIELD", kivtest::kUniqueIDField}, {"Name", kivtest::kTextField}});
    }
    kivtest::FakeDatabase& People() { return *session.host.db.Find("people"); }
    // The service's explanation for whichever handle the next opens receive.
    void SetErrorText(const std::string& text_i)
    {
        for (uint32_t handle = 0; handle < 64; ++handle)
            session.host.db.errorTexts[handle] = text_i;
    }
};

TEST_F(EditDatabaseNamedPage, FirstRequestOpensTheRecordManagerOrTheFieldManager)
{
    session.Post({});
    EXPECT_TRUE(session.Shows("Record Search (people):"));
    EXPECT_EQ(session.host.LastCall(kKivDB_OpenDatabase, kivtest::kDatabase).word8, 2u);

    session.host.AddTagParameter("mode", "manageOrders");
    session.Post({});
    EXPECT_TRUE(session.Shows("Record Search (people):"));

    session.host.tagParameters.Set("mode", "manageFields");
    session.Post({});
    EXPECT_TRUE(session.Shows("Fields (people):"));
    EXPECT_EQ(session.host.LastCall(kKivDB_OpenDatabase, kivtest::kDatabase).word8, 3u);
    // Later requests follow their posted action.
    session.Click("Records");
    EXPECT_TRUE(session.Shows("Record Search (people):"));
}

TEST_F(EditDatabaseNamedPage, UniqueIDFieldNameIsTrimmedAndDefaulted)
{
    session.host.AddTagParameter("uniqueIDFieldName", " \t\r\n");
    session.Post({});
    EXPECT_EQ(session.host.LastCall(kKivDB_OpenDatabase, kivtest::kDatabase).text2, "KIVIDFIELD");
    session.host.tagParameters.Set("uniqueIDFieldName", "  Name ");
    session.Post({});
    EXPECT_EQ(session.host.LastCall(kKivDB_OpenDatabase, kivtest::kDatabase).text2, "Name");
}

TEST(EditDatabaseRequest, WithoutADatabaseEveryActionShowsTheListExceptODBC)
{
    EditorSession session;
    session.Post({{"kivEditDatabase_Action", "Records"}});
    EXPECT_TRUE(session.Shows("No databases were found."));
    EXPECT_TRUE(
        session.Shows("<strong>Enter the name for a new database</strong> (if it does not exist, it will "
                      "be created):"));
    EXPECT_EQ(session.host.CountCalls(kKivDB_OpenDatabase, kivtest::kDatabase), 0u);

    session.host.db.odbcSupportFlags = 32 | 2;
    session.host.db.odbcCursorFlags = 8192;
    session.host.db.odbcFieldTypes = {{"VARCHAR", 0x4C00FF | kKivFieldFlag_CaseSensitive},
                                      {"UUID", 0x8C0000}};
    session.Post({{"kivEditDatabase_Action", "ODBC"}});
    EXPECT_TRUE(session.Shows("<strong>ODBC Driver Reported Capabilites</strong>"));
    EXPECT_TRUE(session.Shows(
        "<td>&nbsp;List Databases&nbsp;</td><td>&nbsp;SQLTables&nbsp;</td><td>&nbsp;Yes&nbsp;</td>"));
    EXPECT_TRUE(session.Shows(
        "<td>&nbsp;Create Database&nbsp;</td><td>&nbsp;DROP TABLE ...&nbsp;</td><td>&nbsp;Yes"));
    EXPECT_TRUE(session.Shows("<td>&nbsp;Add Unique Field&nbsp;</td><td>&nbsp;ALTER TABLE ... ADD COLUMN ... "
                              "CONSTRAINT ...&nbsp;</td><td>&nbsp;Yes"));
    EXPECT_TRUE(
        session.Shows("<td>&nbsp;Add Field&nbsp;</td><td>&nbsp;ALTER TABLE ... ADD COLUMN ...&nbsp;</td>"
                      "<td>&nbsp;No"));
    EXPECT_TRUE(session.Shows("<td>&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;Move Next&nbsp;</td><td>&nbsp;SQLFetch/"
                              "SQLFetchScroll&nbsp;</td><td>&nbsp;Yes"));
    EXPECT_TRUE(
        session.Shows("<td>&nbsp;VARCHAR&nbsp;</td><td>&nbsp;SQL_VARCHAR&nbsp;</td><td>&nbsp;255&nbsp;</td>"
                      "<td>&nbsp;Case-sensitive &nbsp;</td>"));
    EXPECT_TRUE(session.Shows("<td>&nbsp;(unknown type)&nbsp;</td>"));
    ASSERT_EQ(session.forms.size(), 1u);
    EXPECT_EQ(session.forms[0].Values("Return", "submit"), (std::vector<std::string>{"Return"}));
    EXPECT_EQ(session.forms[0].Find("kivEditDatabase_Action"), nullptr);
}

TEST(EditDatabaseRequest, ListHidesInternalDatabasesUnlessAskedAndOffersODBC)
{
    EditorSession session;
    session.host.db.AddDatabase("__KIVDB__sessions__");
    session.host.db.AddDatabase("__KIVDB__open");
    session.host.db.AddDatabase("<b>bold</b>");
    session.Post({});
    EXPECT_TRUE(session.Shows("2 Databases Available"));
    EXPECT_FALSE(session.Shows("__KIVDB__sessions__"));
    EXPECT_EQ(session.forms[0].Values("kivEditDatabase_SelectedDatabase", "radio"),
              (std::vector<std::string>{"<b>bold</b>", "__KIVDB__open", ""}));
    EXPECT_TRUE(session.Shows("&lt;b&gt;bold&lt;/b&gt;"));
    EXPECT_FALSE(session.forms[0].HasButton("ODBC"));

    session.host.AddTagParameter("showKivDatabases", "YES");
    session.host.AddTagParameter("odbcDataSource", "dsn");
    session.host.AddTagParameter("odbcUsername", "me");
    session.host.AddTagParameter("odbcPassword", "secret");
    session.Post({});
    EXPECT_TRUE(session.Shows("3 Databases Available"));
    EXPECT_EQ(session.host.db.session, "dsn,me,secret");
    EXPECT_EQ(session.forms[0].Buttons(),
              (std::vector<std::string>{"Fields", "Records", "Import", "Remove", "ODBC"}));
}

TEST(EditDatabaseRequest, FailuresKeepTheMarkersAndReportTheirMessages)
{
    EditorSession session;
    session.host.FailDatabase(kKivDB_Initialize, KIV_FOURCC('M', 'N', 'o', 'D'));
    session.Post({});
    EXPECT_EQ(session.result, KIV_FOURCC('M', 'N', 'o', 'D'));
    EXPECT_EQ(session.page, "\r\n<kivDoNotProcess>\r\n\r\n</kivDoNotProcess>\r\n");
    EXPECT_EQ(session.host.errorHeadline, "The database system failed to initialize.");
    EXPECT_EQ(session.host.errorHint, kContactHint);
    EXPECT_EQ(session.host.CountCalls(kKivDB_Terminate, kivtest::kDatabase), 1u);
    ASSERT_FALSE(session.host.logLines.empty());
    EXPECT_EQ(session.host.logLines.back().second, "The database system failed to initialize.");

    session.host.ClearFailures();
    session.host.FailDatabase(kKivDB_OpenDatabase, KIV_FOURCC('M', 'L', 'c', 'k'));
    session.host.db.errorTexts[0] = "locked by <someone>";
    session.Post({{"kivEditDatabase_Name", "people"}, {"kivEditDatabase_Action", "Fields"}});
    EXPECT_EQ(session.result, KIV_FOURCC('M', 'L', 'c', 'k'));
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to open the &quot;people&quot; database."
              "\r\n<p>locked by &lt;someone&gt;");
    EXPECT_EQ(session.host.errorHint,
              "The database may be locked for exclusive use.  Try again in a few moments.");
    EXPECT_EQ(session.host.CountCalls(kKivDB_CloseDatabase, kivtest::kDatabase), 0u);
}

TEST_F(EditDatabaseNamedPage, UnknownActionsAndModifyFieldShowTheListAfterUnexpectedState)
{
    session.Post({{"kivEditDatabase_Action", "Modify Field"}});
    EXPECT_TRUE(session.Shows("Unexpected state!\r\n<form")) << session.page;
    EXPECT_TRUE(session.Shows("1 Database Available"));
    EXPECT_EQ(session.host.CountCalls(kKivDB_CloseDatabase, kivtest::kDatabase), 1u);
    session.Post({{"kivEditDatabase_Action", "Frobnicate"}});
    EXPECT_TRUE(session.Shows("Unexpected state!"));
}

TEST_F(EditDatabaseNamedPage, DatabaseDeletionWithoutConfirmationRendersNothing)
{
    session.Post({{"kivEditDatabase_Action", "DeleteDatabase"}});
    EXPECT_EQ(session.page, "\r\n<kivDoNotProcess>\r\n\r\n</kivDoNotProcess>\r\n");
    EXPECT_NE(session.host.db.Find("people"), nullptr);

    session.host.FailDatabase(kKivDB_DeleteDatabase);
    session.Post({{"kivEditDatabase_Action", "DeleteDatabase"}, {"kivEditDatabase_Confirmation", "Yes"}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to delete the &quot;people&quot; database.");
    EXPECT_EQ(session.page, "\r\n<kivDoNotProcess>\r\n\r\n</kivDoNotProcess>\r\n");
}

TEST_F(EditDatabaseNamedPage, FieldManagerWithRecordsShowsTheNoticeAndNoDeletion)
{
    People().AddRecord({{"KIVIDFIELD", "1"}, {"Name", "Ann"}});
    session.Post({{"kivEditDatabase_Action", "Fields"}});
    EXPECT_TRUE(session.Shows(
        "<hr>\r\n\r\nKiv has detected records in the current database.  Fields cannot be added to a database "
        "\r\nafter records have already been inserted.  If you wish to add a new field or fields, "
        "\r\nexport your database to a text file.  Next, you must delete all of the records "
        "\r\nin the database.  Once that is done, return to this interface and add your new field or fields "
        "\r\nto the database.  After you have added all of your new fields, import the text file that "
        "\r\nyou exported earlier.<p><hr>"));
    EXPECT_TRUE(session.Shows("Current fields:"));
    EXPECT_FALSE(session.Shows("Add Field"));
    for (const auto& form : session.forms)
        EXPECT_FALSE(form.HasButton("Delete Field"));
    EXPECT_TRUE(session.Shows("Name (<em>text 64 </em>)"));
}

TEST_F(EditDatabaseNamedPage, FieldManagerWithoutFieldsShowsOnlyTheAddForm)
{
    People().fields.clear();
    session.Post({{"kivEditDatabase_Action", "Fields"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    EXPECT_TRUE(session.Shows("0 Fields Available"));
    ASSERT_EQ(session.forms.size(), 1u) << session.page;
    EXPECT_TRUE(session.forms[0].HasButton("Add Field"));
    EXPECT_FALSE(session.Shows("Or, select a field to delete:"));
    EXPECT_FALSE(session.Shows("Current fields:"));
}

TEST_F(EditDatabaseNamedPage, SearchFormWithoutFieldsStillAsksForResultsPerPage)
{
    People().fields.clear();
    session.Post({{"kivEditDatabase_Action", "Search"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    EXPECT_TRUE(session.Shows("<em>There are no fields in the &quot;people&quot; database.</em>"));
    EXPECT_FALSE(session.Shows("Enter the criteria to search for:"));
    const kivtest::FormInput* perPage = session.forms[0].Find("kivEditDatabase_ResultsPerPage", "text");
    ASSERT_NE(perPage, nullptr) << session.page;
    EXPECT_EQ(perPage->value, "25");
}

TEST_F(EditDatabaseNamedPage, FieldErrorsNameTheirCause)
{
    session.Post({{"kivEditDatabase_Action", "Add Field"}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to find the name of the field to be added.");
    EXPECT_EQ(session.host.errorHint,
              "Make sure that the post argument carrying the field's name is being posted.");
    session.Post({{"kivEditDatabase_Action", "Add Field"}, {"kivEditDatabase_FieldName", "Age"}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to find the type of the field to be added.");

    session.host.FailDatabase(kKivDB_AddField, KIV_FOURCC('M', 'U', 'n', 'q'));
    SetErrorText("duplicate column");
    session.Post({{"kivEditDatabase_Action", "Add Field"},
                  {"kivEditDatabase_FieldName", "Name"},
                  {"kivEditDatabase_FieldType", "text"}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to add the &quot;Name&quot; field to the &quot;people&quot; "
              "database.  The field already exists.\r\n<p>duplicate column");
    EXPECT_EQ(session.host.errorHint, "Make sure the field does not already exist.");
    EXPECT_FALSE(session.Shows("<form"));

    session.Post({{"kivEditDatabase_Action", "Delete Field"}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to find the name of the field to be deleted.");
    session.host.FailDatabase(kKivDB_DeleteField);
    session.Post({{"kivEditDatabase_Action", "DeleteField"},
                  {"kivEditDatabase_FieldName", "Name"},
                  {"kivEditDatabase_Confirmation", "Yes"}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to delete the &quot;Name&quot; field from "
              "the &quot;people&quot; database.\r\n<p>duplicate column");
    EXPECT_EQ(session.host.errorHint,
              "Make sure that you are not trying to delete a field while records exist.");
}

TEST_F(EditDatabaseNamedPage, ODBCTypeSelectListsTheDriversTypes)
{
    session.host.AddTagParameter("odbcDataSource", "dsn");
    session.host.AddTagParameter("odbcUsername", "me");
    session.host.db.odbcFieldTypes = {{"varchar", 0x4C00FF | kKivFieldFlag_CaseSensitive},
                                      {"serial", 0x440000 | kKivFieldFlag_AutoUnique}};
    session.Post({{"kivEditDatabase_Action", "Fields"}});
    EXPECT_TRUE(session.Shows("<option value=\"varchar\">varchar (Max Size: 255) - Case-sensitive</option>"));
    EXPECT_TRUE(session.Shows("<option value=\"serial\">serial - Auto-unique</option>"));
    session.Click("Add Field", {{"kivEditDatabase_FieldName", "Code"},
                                {"kivEditDatabase_FieldType", "varchar"},
                                {"kivEditDatabase_FieldLength", "20"},
                                {"kivEditDatabase_FieldUnique", "unique"}});
    EXPECT_EQ(People().fields.back().typeWord, 0x4C0014u | kKivFieldFlag_Unique);
}

TEST_F(EditDatabaseNamedPage, SearchStringDoublesQuotesNegatesAndOrders)
{
    People().AddField("Age", kivtest::kIntegerField);
    People().AddField("Member", kivtest::kBooleanField);
    People().AddField("Seen", kivtest::kTimestampField);
    session.Post({{"kivEditDatabase_Action", "Search Now"},
                  {"Name", "O'Hare"},
                  {"Age", "42"},
                  {"Member", ""}, // "Ignore"
                  {"Seen", "2020-01-01"},
                  {"kivEditDatabase_Not", "Age"},
                  {"kivEditDatabase_OrderField1", "Age"},
                  {"kivEditDatabase_OrderField2", "nokivsearchfieldselected"},
                  {"kivEditDatabase_OrderField3", "Name"},
                  {"kivEditDatabase_Desc", "Name"}});
    EXPECT_EQ(session.host.LastCall(kKivDB_ExecuteSearch, kivtest::kDatabase).text,
              "Name = 'O''Hare' AND  NOT Age = '42' AND Seen = '' ORDER BY Age, Name DESC");
    EXPECT_GE(session.host.CountCalls(kKivDB_ClearSearchResults, kivtest::kDatabase), 1u);

    session.Post({{"kivEditDatabase_Action", "Search Now"}, {"Member", "false"}, {"Age", "1' OR '1'='1"}});
    EXPECT_EQ(session.host.LastCall(kKivDB_ExecuteSearch, kivtest::kDatabase).text,
              "Age = '1'' OR ''1''=''1' AND Member = '0'");

    // The advanced search string runs as typed, only when the page allows it.
    session.Post({{"kivEditDatabase_Action", "Search Now"}, {"kivEditDatabase_SearchString", "Name = 'x'"}});
    EXPECT_EQ(session.host.LastCall(kKivDB_ExecuteSearch, kivtest::kDatabase).text, "");
    session.host.AddTagParameter("advancedSearch", "on");
    session.Post({{"kivEditDatabase_Action", "Search Now"},
                  {"kivEditDatabase_SearchString", "Name = 'x'"},
                  {"Name", "ignored"}});
    EXPECT_EQ(session.host.LastCall(kKivDB_ExecuteSearch, kivtest::kDatabase).text, "Name = 'x'");
}

TEST_F(EditDatabaseNamedPage, SearchFailuresAreExplainedByTheirCode)
{
    SetErrorText("Name");
    session.host.FailDatabase(kKivDB_ExecuteSearch, KIV_FOURCC('M', 'I', 'd', 'x'));
    session.Post({{"kivEditDatabase_Action", "Search Now"}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to search the &quot;people&quot; database "
              "because the &quot;Name&quot; field is not indexed.");
    EXPECT_EQ(session.host.errorHint,
              "Fields must be indexed to be searchable by the internal database system.");
    session.host.FailDatabase(kKivDB_ExecuteSearch, KIV_FOURCC('M', 'N', 't', 'F'));
    session.Post({{"kivEditDatabase_Action", "Next"}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to search the &quot;people&quot; database "
              "because the &quot;Name&quot; field could not be found.");
    session.host.FailDatabase(kKivDB_ExecuteSearch, KIV_FOURCC('M', 'I', 'F', 't'));
    session.Post({{"kivEditDatabase_Action", "Prev"}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to search the &quot;people&quot; database "
              "because the following search information was improperly formatted:<p>Name");
    EXPECT_EQ(session.host.errorHint, "Check the format of the search information.");
    session.host.FailDatabase(kKivDB_ExecuteSearch, kKivResult_UnknownError);
    session.Post({{"kivEditDatabase_Action", "Search Now"}});
    EXPECT_EQ(session.host.errorHeadline, "The database system was unable to search the &quot;people&quot; "
                                          "database.<p>Name");
    EXPECT_FALSE(session.Shows("<form"));
}

TEST_F(EditDatabaseNamedPage, ResultsCutLongValuesAndClampThePage)
{
    People().AddRecord({{"KIVIDFIELD", "1"}, {"Name", std::string(26, 'a')}});
    People().AddRecord({{"KIVIDFIELD", "2"}, {"Name", std::string(25, 'b')}});
    People().AddRecord({{"KIVIDFIELD", "3"}, {"Name", "<script>x</script>"}});
    session.Post({{"kivEditDatabase_Action", "Prev"},
                  {"kivEditDatabase_ResultsPage", "1"},
                  {"kivEditDatabase_ResultsPerPage", "500"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    EXPECT_TRUE(session.Shows("Showing 1 - 3 of 3 results"));
    EXPECT_TRUE(session.Shows("<td>&nbsp;" + std::string(22, 'a') + "...</td>"));
    EXPECT_TRUE(session.Shows("<td>&nbsp;" + std::string(25, 'b') + "</td>"));
    EXPECT_TRUE(session.Shows("&lt;script&gt;x&lt;/script&gt;"));
    EXPECT_FALSE(session.Shows("<script>"));
    EXPECT_EQ(session.forms[0].Find("kivEditDatabase_ResultsPerPage", "hidden")->value, "100");
    EXPECT_EQ(session.forms[0].Find("kivEditDatabase_ResultsPage", "hidden")->value, "1");

    session.Post({{"kivEditDatabase_Action", "Next"},
                  {"kivEditDatabase_ResultsPage", "1"},
                  {"kivEditDatabase_ResultsPerPage", "2"}});
    EXPECT_TRUE(session.Shows("Showing 3 - 3 of 3 results"));
    session.Post({{"kivEditDatabase_Action", "Next"},
                  {"kivEditDatabase_ResultsPage", "2"},
                  {"kivEditDatabase_ResultsPerPage", "2"}});
    EXPECT_TRUE(session.Shows("<strong>No records found.</strong>"));
}

TEST_F(EditDatabaseNamedPage, ResultsNeedTheUniqueIDField)
{
    session.host.AddTagParameter("uniqueIDFieldName", "ID");
    session.Post({{"kivEditDatabase_Action", "Search Now"}});
    EXPECT_EQ(session.host.errorHeadline,
              "No unique ID field could be found in the &quot;people&quot; database.");
    EXPECT_EQ(session.host.errorHint, "Make sure the database has a unique ID field.");
}

TEST_F(EditDatabaseNamedPage, StoredMarkupIsEncodedInTheRecordDisplay)
{
    People().AddRecord({{"KIVIDFIELD", "1"}, {"Name", "</textarea><script>alert(1)</script>\"'"}});
    session.host.AddTagParameter("mirrorButtons", "yes");
    session.Post({{"kivEditDatabase_Action", "First"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    EXPECT_FALSE(session.Shows("<script>"));
    EXPECT_EQ(session.FormWithButton("Save").Find("Name", "textarea")->value,
              "</textarea><script>alert(1)</script>\"'");
    EXPECT_TRUE(session.Shows("Make any changes and select the &quot;Save&quot; button:"));
    EXPECT_EQ(session.forms[0].Buttons().size(), 26u); // both rows, twice
}

TEST_F(EditDatabaseNamedPage, ExportAndImportRequestsCheckTheirFile)
{
    session.Post({{"kivEditDatabase_Action", "Export Now"}});
    EXPECT_EQ(session.result, KIV_FOURCC('M', 'N', 't', 'F'));
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to find the filename to be used when exporting records.");
    session.Post({{"kivEditDatabase_Action", "Export Now"}, {"kivEditDatabase_ExportFilename", " \t "}});
    EXPECT_EQ(session.result, KIV_FOURCC('M', 'I', 'n', 'v'));
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to export records due to an empty export filename.");
    EXPECT_EQ(session.host.errorHint, "Enter a valid filename to hold the exported records.");

    char folder[] = "/tmp/kiv-editor-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    session.Post({{"kivEditDatabase_Action", "Export Now"}, {"kivEditDatabase_ExportFilename", folder}});
    EXPECT_EQ(session.result, KIV_FOURCC('M', 'O', 'p', 'F'));
    EXPECT_EQ(session.host.errorHeadline,
              "The requested export file cannot be created because a folder by that name already exists.");
    EXPECT_EQ(session.host.CountCalls(kKivDB_Export, kivtest::kDatabase), 0u);
    rmdir(folder);

    // Only the end-of-records answer is a finished export.
    session.Post({{"kivEditDatabase_Action", "Export Now"}, {"kivEditDatabase_ExportFilename", "out.txt"}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to export records from the &quot;people&quot; database.");
    session.host.inOutAnswers[kKivServer_VerifyRegionContainsFile] = [](const std::string&) { return ""; };
    session.host.FailServer(kKivServer_VerifyRegionContainsFile);
    session.Post({{"kivEditDatabase_Action", "Export Now"}, {"kivEditDatabase_ExportFilename", "../x"}});
    EXPECT_EQ(session.result, KIV_FOURCC('M', 'N', 'A', 'u'));
    session.Post({{"kivEditDatabase_Action", "Import Now"}, {"kivEditDatabase_ImportFilename", "../x"}});
    EXPECT_EQ(session.result, KIV_FOURCC('M', 'N', 'A', 'u'));
    session.host.ClearFailures();

    session.Post({{"kivEditDatabase_Action", "Import Now"}, {"kivEditDatabase_ImportFilename", ""}});
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to import records due to an empty import filename.");
    session.host.FailDatabase(kKivDB_Import, KIV_FOURCC('M', 'B', 'a', 'd'));
    session.Post({{"kivEditDatabase_Action", "Import Now"}, {"kivEditDatabase_ImportFilename", "in.txt"}});
    EXPECT_EQ(session.result, KIV_FOURCC('M', 'B', 'a', 'd'));
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to import to the &quot;people&quot; database.");
}

TEST_F(EditDatabaseNamedPage, ExportCatchesAnExceptionAndSaysSo)
{
    auto previous = session.host.databaseHandler;
    session.host.databaseHandler = [previous](kivtest::FakeDBRequest& request_io) -> uint32_t
    {
        if (request_io.Selector() == kKivDB_Export)
            throw KivFileSystemItem::IsNotAFile("out.txt");
        return previous(request_io);
    };
    session.Post({{"kivEditDatabase_Action", "Export Now"}, {"kivEditDatabase_ExportFilename", "out.txt"}});
    EXPECT_EQ(session.result, (uint32_t)kKivResult_UnknownError);
    EXPECT_EQ(session.host.errorHeadline, "An unexpected error occurred due to a thrown exception.");
    EXPECT_EQ(session.host.errorHint, "Contact the system administrator and report the problem.");
    EXPECT_EQ(session.host.CountCalls(kKivDB_CloseDatabase, kivtest::kDatabase), 1u);
}

TEST_F(EditDatabaseNamedPage, ExportPositionsPutXFieldsLastAndLeaveOutUnpostedOnes)
{
    People().fields.clear();
    for (const char* name : {"Name", "City", "Zip", "State", "Phone"})
        People().AddField(name, kivtest::kTextField);
    session.host.db.exportResult = kKivResult_EndOfFile;
    session.Post({{"kivEditDatabase_Action", "Export Now"},
                  {"kivEditDatabase_ExportFilename", "out.txt"},
                  {"CityPos", "2"},
                  {"NamePos", " 1 "},
                  {"ZipPos", "X"},
                  {"StatePos", "x"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    EXPECT_EQ(session.host.LastCall(kKivDB_Export, kivtest::kDatabase).text2, "Name,City,Zip,State");
}

TEST_F(EditDatabaseNamedPage, ImportIntoADatabaseWithoutFieldsNeedsItExclusively)
{
    People().fields.clear();
    session.Post({{"kivEditDatabase_Action", "Import Now"}, {"kivEditDatabase_ImportFilename", "in.txt"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    auto opens = session.host.CallsTo(kKivDB_OpenDatabase, kivtest::kDatabase);
    ASSERT_EQ(opens.size(), 2u);
    EXPECT_EQ(opens[0]->word8, 2u);
    EXPECT_EQ(opens[1]->word8, 3u);
    EXPECT_EQ(session.host.CountCalls(kKivDB_CloseDatabase, kivtest::kDatabase), 2u);

    // Someone else holds it: the message names exclusive access, and nothing is closed twice.
    session.host.ClearCalls();
    int opened = 0;
    auto previous = session.host.databaseHandler;
    session.host.databaseHandler = [&opened, previous](kivtest::FakeDBRequest& request_io) -> uint32_t
    {
        if (request_io.Selector() == kKivDB_OpenDatabase && ++opened == 2)
            return KIV_FOURCC('M', 'L', 'c', 'k');
        return previous(request_io);
    };
    session.Post({{"kivEditDatabase_Action", "Import Now"}, {"kivEditDatabase_ImportFilename", "in.txt"}});
    EXPECT_EQ(session.result, KIV_FOURCC('M', 'L', 'c', 'k'));
    EXPECT_EQ(session.host.errorHeadline,
              "The database system was unable to open the &quot;people&quot; database for exclusive access.");
    EXPECT_EQ(session.host.errorHint,
              "The database may be open for reading by multiple users.  Try again in a few moments.");
    EXPECT_EQ(session.host.CountCalls(kKivDB_CloseDatabase, kivtest::kDatabase), 1u);
}

} // namespace
