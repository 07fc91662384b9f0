// The editor as an administrator uses it: from the empty database list through creating a
// database, adding fields and records, searching and paging, moving through records, saving,
// duplicating and deleting, to exporting and importing, each step posting what the previous
// page's form holds.
#include "EditorBrowser.h"

#include <gtest/gtest.h>

namespace
{

using kivtest::EditorSession;
using kivtest::FakeDatabase;

// The database list, then a new database "people" opened into its field manager.
void CreatePeople(EditorSession& session_io)
{
    session_io.Post({});
    ASSERT_TRUE(session_io.Shows("No databases were found.")) << session_io.page;
    session_io.Click("Fields", {{"kivEditDatabase_Name", "people"}});
    ASSERT_EQ(session_io.result, 0u) << session_io.host.errorHeadline;
}

void AddField(EditorSession& session_io, const std::string& name_i, const std::string& type_i,
              const std::string& length_i = "", bool indexed_i = false)
{
    session_io.Click("Add Field", {{"kivEditDatabase_FieldName", name_i},
                                   {"kivEditDatabase_FieldType", type_i},
                                   {"kivEditDatabase_FieldLength", length_i},
                                   {"kivEditDatabase_FieldIndexed", indexed_i ? "indexed" : "notindexed"}});
    ASSERT_EQ(session_io.result, 0u) << session_io.host.errorHeadline;
}

// people with Name (text 40, indexed), Age (integer), Member (boolean), Notes (long text).
void CreatePeopleWithFields(EditorSession& session_io)
{
    CreatePeople(session_io);
    AddField(session_io, "Name", "text", "40", true);
    AddField(session_io, "Age", "integer");
    AddField(session_io, "Member", "boolean");
    AddField(session_io, "Notes", "longtext");
}

void SubmitRecord(EditorSession& session_io, const std::string& name_i, const std::string& age_i,
                  const std::string& member_i)
{
    session_io.Click("Submit Record",
                     {{"Name", name_i}, {"Age", age_i}, {"Member", member_i}, {"Notes", "about " + name_i}});
    ASSERT_EQ(session_io.result, 0u) << session_io.host.errorHeadline;
    ASSERT_TRUE(session_io.Shows("Record successfully added.\r\n<br>")) << session_io.page;
}

std::string ShownName(const EditorSession& session_io)
{
    const kivtest::FormInput* name = session_io.FormWithButton("Save").Find("Name", "textarea");
    return name ? name->value : std::string("(none)");
}

TEST(EditDatabaseFlow, CreatesADatabaseAndItsFieldsFromTheList)
{
    EditorSession session;
    CreatePeople(session);
    ASSERT_NE(session.host.db.Find("people"), nullptr);
    EXPECT_EQ(session.host.LastCall(kKivDB_OpenDatabase, kivtest::kDatabase).word8, 3u); // exclusive
    EXPECT_TRUE(session.Shows("Fields (people):"));
    EXPECT_TRUE(session.Shows("Enter the name of the field to add:"));
    const kivtest::Form& addForm = session.FormWithButton("Add Field");
    ASSERT_NE(addForm.Find("kivEditDatabase_FieldType", "select"), nullptr);
    EXPECT_EQ(addForm.Find("kivEditDatabase_FieldType", "select")->value, "text"); // selected by default
    EXPECT_EQ(addForm.Find("kivEditDatabase_Name", "hidden")->value, "people");

    AddField(session, "Name", "text", "40", true);
    AddField(session, "Age", "integer", "-12");
    AddField(session, "Ratio", "float"); // not offered by the select, accepted all the same
    const FakeDatabase& people = *session.host.db.Find("people");
    ASSERT_EQ(people.fields.size(), 4u);
    EXPECT_EQ(people.fields[1].typeWord, 0x02060028u);
    EXPECT_EQ(people.fields[2].typeWord, 0x2000Cu);
    EXPECT_EQ(people.fields[3].typeWord, 0x40000u);
    EXPECT_TRUE(session.Shows("4 Fields Available"));
    EXPECT_TRUE(session.Shows("Or, select a field to delete:"));
    EXPECT_TRUE(session.Shows("Name (<em>text 40, indexed </em>)")) << session.page;

    // Delete Ratio: the confirmation posts the literal "Yes".
    session.Click("Delete Field", {{"kivEditDatabase_FieldName", "Ratio"}});
    EXPECT_TRUE(session.Shows("Are you sure you want to delete the Ratio field?"));
    session.Click("Yes", {}, "kivEditDatabase_Confirmation");
    EXPECT_EQ(session.result, 0u);
    EXPECT_EQ(people.fields.size(), 3u);

    // Back at the list, the database is offered and selecting it opens its records.
    session.Post({});
    EXPECT_TRUE(session.Shows("1 Database Available"));
    session.Click("Records", {{"kivEditDatabase_SelectedDatabase", "people"}});
    EXPECT_TRUE(session.Shows("Record Search (people):"));
    EXPECT_TRUE(session.Shows("There are no records in the &quot;people&quot; database."));
}

TEST(EditDatabaseFlow, AddsSearchesPagesAndViewsRecords)
{
    EditorSession session;
    CreatePeopleWithFields(session);
    session.Click("Records");
    session.Click("New");
    EXPECT_TRUE(
        session.Shows("Enter the new record information and select the &quot;Submit Record&quot; button:"));
    const char* names[] = {"Ann", "Bob", "Cy", "Di", "Ed"};
    for (int index = 0; index < 5; ++index)
        SubmitRecord(session, names[index], std::to_string(20 + index), index % 2 ? "true" : "false");
    const FakeDatabase& people = *session.host.db.Find("people");
    ASSERT_EQ(people.records.size(), 5u);
    EXPECT_EQ(people.records[1].at("Member"), "1");
    EXPECT_EQ(people.records[1].at("Age"), "21");
    EXPECT_EQ(people.records[4].at("KIVIDFIELD"), "5"); // numbered by the host

    // Search everything two to a page.
    session.Click("Search");
    session.Click("Search Now", {{"kivEditDatabase_ResultsPerPage", "2"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    EXPECT_EQ(session.host.LastCall(kKivDB_ExecuteSearch, kivtest::kDatabase).text, "");
    EXPECT_TRUE(session.Shows("Showing 1 - 2 of 5 results matching your search.\r\n<br>")) << session.page;
    EXPECT_FALSE(session.forms[0].HasButton("Prev"));
    session.Click("Next");
    EXPECT_TRUE(session.Shows("Showing 3 - 4 of 5 results")) << session.page;
    session.Click("Next");
    EXPECT_TRUE(session.Shows("Showing 5 - 5 of 5 results"));
    EXPECT_FALSE(session.forms[0].HasButton("Next"));
    session.Click("Prev");
    EXPECT_TRUE(session.Shows("Showing 3 - 4 of 5 results"));
    EXPECT_EQ(session.forms[0].Values("kivEditDatabase_RecordID", "radio"),
              (std::vector<std::string>{"3", "4"}));

    // A criterion with its order carried through the pages.
    session.Click("Search");
    session.Click(
        "Search Now",
        {{"Member", "true"}, {"kivEditDatabase_OrderField1", "Name"}, {"kivEditDatabase_Desc", "Name"}});
    EXPECT_EQ(session.host.LastCall(kKivDB_ExecuteSearch, kivtest::kDatabase).text,
              "Member = '1' ORDER BY Name DESC");
    EXPECT_TRUE(session.Shows("Showing 1 - 2 of 2 results"));
    EXPECT_EQ(session.forms[0].Find("Member", "hidden")->value, "true");

    // View the second of them (Bob, ID 2).
    session.Click("View", {{"kivEditDatabase_RecordID", "2"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    EXPECT_EQ(ShownName(session), "Bob");
    EXPECT_EQ(session.FormWithButton("Save").Find("kivEditDatabase_RecordID", "hidden")->value, "2");
    EXPECT_EQ(session.FormWithButton("Save").Find("Member", "radio")->checked, true);

    // View without choosing a record goes back to the search form.
    session.Click("Search");
    session.Click("Search Now");
    session.Click("View");
    EXPECT_TRUE(session.Shows("Record Search (people):"));
}

TEST(EditDatabaseFlow, MovesThroughRecordsAndStaysAtBothEnds)
{
    EditorSession session;
    CreatePeopleWithFields(session);
    session.Click("Records");
    session.Click("New");
    SubmitRecord(session, "Ann", "30", "false");
    SubmitRecord(session, "Bob", "31", "true");
    SubmitRecord(session, "Cy", "32", "false");

    session.Click("First");
    EXPECT_EQ(ShownName(session), "Ann");
    session.Click("<<"); // the browser posts the entity label as plain characters
    EXPECT_EQ(session.result, 0u);
    EXPECT_EQ(ShownName(session), "Ann");
    session.Click(">>");
    EXPECT_EQ(ShownName(session), "Bob");
    session.Post({{"kivEditDatabase_Name", "people"},
                  {"kivEditDatabase_RecordID", "2"},
                  {"kivEditDatabase_Action", "&gt;&gt;"}});
    EXPECT_EQ(ShownName(session), "Cy");
    session.Click(">>");
    EXPECT_EQ(session.result, 0u);
    EXPECT_EQ(ShownName(session), "Cy");
    session.Click("Last");
    EXPECT_EQ(ShownName(session), "Cy");

    // Save a change; "Save >>" saves and moves on.
    session.Click("First");
    session.Click("Save", {{"Name", "Anna"}, {"Age", "40"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    const FakeDatabase& people = *session.host.db.Find("people");
    EXPECT_EQ(people.records[0].at("Name"), "Anna");
    EXPECT_EQ(people.records[0].at("Age"), "40");
    EXPECT_EQ(ShownName(session), "Anna");
    session.Click("Save >>", {{"Notes", "changed"}});
    EXPECT_EQ(people.records[0].at("Notes"), "changed");
    EXPECT_EQ(ShownName(session), "Bob");

    // Duplicate Bob: a new record with its own identifier; Bob stays on screen.
    session.Click("Duplicate");
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    ASSERT_EQ(people.records.size(), 4u);
    EXPECT_EQ(people.records[3].at("Name"), "Bob");
    EXPECT_EQ(people.records[3].at("KIVIDFIELD"), "4");
    EXPECT_EQ(ShownName(session), "Bob");

    // Delete Bob after confirming: the next record takes his place.
    session.Click("Delete");
    EXPECT_TRUE(session.Shows("Are you sure you want to delete this record?"));
    EXPECT_EQ(session.FormWithButton("Yes").Find("kivEditDatabase_RecordID", "hidden")->value, "2");
    session.Click("Yes", {}, "kivEditDatabase_Confirmation");
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    EXPECT_EQ(people.records.size(), 3u);
    EXPECT_EQ(ShownName(session), "Cy");

    // Declining keeps the record.
    session.Click("Delete");
    session.Click("No", {}, "kivEditDatabase_Confirmation");
    EXPECT_EQ(people.records.size(), 3u);
    EXPECT_EQ(ShownName(session), "Cy");

    // Delete All, confirmed: the search form follows.
    session.Click("Delete All");
    EXPECT_TRUE(session.Shows("Are you sure you want to delete all of the records in the people database?"));
    session.Click("Yes", {}, "kivEditDatabase_Confirmation");
    EXPECT_EQ(people.records.size(), 0u);
    EXPECT_TRUE(session.Shows("There are no records in the &quot;people&quot; database."));
}

TEST(EditDatabaseFlow, DeletingTheOnlyRecordShowsTheSearchForm)
{
    EditorSession session;
    CreatePeopleWithFields(session);
    session.Click("Records");
    session.Click("New");
    SubmitRecord(session, "Ann", "30", "false");
    session.Click("First");
    session.Click("Delete");
    session.Click("Yes", {}, "kivEditDatabase_Confirmation");
    EXPECT_EQ(session.result, 0u);
    EXPECT_TRUE(session.Shows("Record Search (people):")) << session.page;
}

TEST(EditDatabaseFlow, ExportsWithPositionsAndImports)
{
    EditorSession session;
    CreatePeopleWithFields(session);
    session.Click("Records");
    session.Click("New");
    SubmitRecord(session, "Ann", "30", "false");
    session.host.db.exportResult = kKivResult_EndOfFile;

    session.Click("Export");
    EXPECT_TRUE(
        session.Shows("Enter the name of the export destination file and press the &quot;Export Now&quot; "
                      "button:"));
    const kivtest::Form& exportForm = session.FormWithButton("Export Now");
    for (const char* name : {"KIVIDFIELDPos", "NamePos", "AgePos", "MemberPos", "NotesPos"})
        EXPECT_NE(exportForm.Find(name, "text"), nullptr) << name;
    EXPECT_EQ(exportForm.Values("kivEditDatabase_OrderField1", "radio"),
              (std::vector<std::string>{"KIVIDFIELD", "Name", "Age", "Member", "nokivsearchfieldselected"}));

    session.Click("Export Now", {{"kivEditDatabase_ExportFilename", "  out/people.txt \r\n"},
                                 {"NamePos", "2"},
                                 {"AgePos", "1"},
                                 {"NotesPos", "x"},
                                 {"KIVIDFIELDPos", "X"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    const kivtest::FakeCall& exportCall = session.host.LastCall(kKivDB_Export, kivtest::kDatabase);
    EXPECT_EQ(exportCall.text, "out/people.txt");
    EXPECT_EQ(exportCall.text2, "Age,Name,KIVIDFIELD,Member,Notes");
    EXPECT_EQ(session.host.LastCall(kKivServer_VerifyRegionContainsFile).text, "out/people.txt");
    EXPECT_TRUE(session.Shows("Record Search (people):"));

    session.Click("Import");
    EXPECT_TRUE(
        session.Shows("Enter the name of the import file and press the &quot;Import Now&quot; button:"));
    session.Click("Import Now", {{"kivEditDatabase_ImportFilename", "in/people.txt"}});
    ASSERT_EQ(session.result, 0u) << session.host.errorHeadline;
    EXPECT_EQ(session.host.LastCall(kKivDB_Import, kivtest::kDatabase).text, "in/people.txt");
    EXPECT_TRUE(session.Shows("Record Search (people):"));
}

} // namespace
