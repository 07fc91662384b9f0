// The editor in French and Spanish: localized words and sentences as Latin-1 bytes, English
// action labels that map back to their actions, and the database deletion that accepts the
// localized "Yes".
#include "EditorBrowser.h"

#include <gtest/gtest.h>

namespace
{

using kivtest::EditorSession;

TEST(EditDatabaseLanguage, FrenchListUsesLatin1WordsAndEnglishButtons)
{
    EditorSession session(kKivHostLanguage_French);
    session.host.db.AddDatabase("people");
    session.Post({});
    EXPECT_TRUE(session.Shows("Bases de donn\xE9"
                              "es:"))
        << session.page;
    EXPECT_TRUE(session.Shows("1 Base de donn\xE9"
                              "es Disponible"));
    EXPECT_TRUE(session.Shows("<strong>Choisissez une base de donn\xE9"
                              "es:</strong>"));
    EXPECT_TRUE(session.Shows("<strong>Ou, entrez au nom pour une nouvelle base de donn\xE9"
                              "es</strong> (s'il n'existe pas, il sera cr\xE9\xE9):"));
    EXPECT_EQ(session.forms[0].Buttons(),
              (std::vector<std::string>{"Fields", "Records", "Import", "Remove"}));
}

TEST(EditDatabaseLanguage, FrenchOuiDeletesADatabaseAndNonKeepsIt)
{
    EditorSession session(kKivHostLanguage_French);
    session.host.db.AddDatabase("people");
    session.host.db.AddDatabase("orders");
    session.Post({});
    session.Click("Remove", {{"kivEditDatabase_SelectedDatabase", "people"}});
    EXPECT_TRUE(session.Shows("Are you sure you want to delete the people database?"));
    EXPECT_TRUE(session.Shows("2 Databases Available"));
    const kivtest::Form& confirm = session.forms[0];
    EXPECT_EQ(confirm.Values("kivEditDatabase_Confirmation", "submit"),
              (std::vector<std::string>{"Oui", "Non"}));
    EXPECT_EQ(confirm.Find("kivEditDatabase_Action", "hidden")->value, "DeleteDatabase");

    session.Click("Non", {}, "kivEditDatabase_Confirmation");
    EXPECT_NE(session.host.db.Find("people"), nullptr);
    EXPECT_TRUE(session.Shows("2 Bases de donn\xE9"
                              "es Disponibles"));

    session.Click("Remove", {{"kivEditDatabase_SelectedDatabase", "people"}});
    session.Click("Oui", {}, "kivEditDatabase_Confirmation");
    EXPECT_EQ(session.result, 0u);
    EXPECT_EQ(session.host.db.Find("people"), nullptr);
    EXPECT_TRUE(session.Shows("1 Base de donn\xE9"
                              "es Disponible"));

    // The English word is not the French page's answer.
    session.Post({{"kivEditDatabase_Name", "orders"},
                  {"kivEditDatabase_Action", "DeleteDatabase"},
                  {"kivEditDatabase_Confirmation", "Yes"}});
    EXPECT_NE(session.host.db.Find("orders"), nullptr);
}

TEST(EditDatabaseLanguage, SpanishAsksSiAndFallsBackToEnglishWhereItHasNoText)
{
    EditorSession session(kKivHostLanguage_Spanish);
    session.Post({});
    EXPECT_TRUE(session.Shows("Bases de datos:"));
    EXPECT_TRUE(session.Shows("0 Bases de datos Disponibles"));
    EXPECT_TRUE(session.Shows("No databases were found."));
    EXPECT_TRUE(
        session.Shows("<strong>Entre en nombre para una base de datos nueva</strong> (si esto no existe, "
                      "esto ser\xE1 creado):"));

    session.host.db.AddDatabase("people");
    session.Post({});
    EXPECT_TRUE(session.Shows("1 Base de datos Disponibles"));
    session.Click("Remove", {{"kivEditDatabase_SelectedDatabase", "people"}});
    EXPECT_EQ(session.forms[0].Values("kivEditDatabase_Confirmation", "submit"),
              (std::vector<std::string>{"Si", "No"}));
    session.Click("Si", {}, "kivEditDatabase_Confirmation");
    EXPECT_EQ(session.host.db.Find("people"), nullptr);
}

TEST(EditDatabaseLanguage, FieldAndRecordConfirmationsStayLiteralInFrench)
{
    EditorSession session(kKivHostLanguage_French);
    session.Post({});
    session.Click("Fields", {{"kivEditDatabase_Name", "people"}});
    session.Click("Add Field", {{"kivEditDatabase_FieldName", "Name"}});
    session.Click("Delete Field", {{"kivEditDatabase_FieldName", "Name"}});
    EXPECT_EQ(session.forms[0].Values("kivEditDatabase_Confirmation", "submit"),
              (std::vector<std::string>{"Yes", "No"}));
    session.Click("Yes", {}, "kivEditDatabase_Confirmation");
    EXPECT_EQ(session.host.db.Find("people")->fields.size(), 1u); // only the identifier field is left

    // Record pages keep the English labels, which map back to their actions.
    session.Click("Records");
    session.Click("New");
    session.Click("Submit Record");
    EXPECT_EQ(session.result, 0u) << session.host.errorHeadline;
    session.Click("First");
    EXPECT_TRUE(session.forms[0].HasButton("Save &gt;&gt;") || session.forms[0].HasButton("Save >>"));
    // The all-records deletion compares with the literal word: "Oui" deletes nothing.
    session.Post({{"kivEditDatabase_Name", "people"},
                  {"kivEditDatabase_Action", "DeleteAllRecords"},
                  {"kivEditDatabase_Confirmation", "Oui"}});
    EXPECT_EQ(session.host.db.Find("people")->records.size(), 1u);
    EXPECT_TRUE(session.Shows("Record Search (people):"));
    session.Click("Delete All");
    session.Click("Yes", {}, "kivEditDatabase_Confirmation");
    EXPECT_EQ(session.host.db.Find("people")->records.size(), 0u);
}

} // namespace
