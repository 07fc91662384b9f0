// Databases and fields: create, list, open, delete; names that could escape the data folder;
// opens that create only when asked to; fields of every native type with their flags; the
// codes and explanations the service gives for each failure.
#include "ServiceTesting.h"

namespace kiv::db::testing
{
namespace
{

class DatabaseCatalogueTest : public ::testing::Test
{
protected:
    std::vector<std::string> names()
    {
        std::vector<std::string> list;
        EXPECT_EQ(service.listDatabases(list), 0u);
        return list;
    }

    DataFolder folder;
    DatabaseService service{environmentIn(folder.path())};
};

TEST_F(DatabaseCatalogueTest, CreatedDatabasesAreListedSortedWithoutRegardToCase)
{
    EXPECT_EQ(service.createDatabase("orders"), 0u);
    EXPECT_EQ(service.createDatabase("People"), 0u);
    EXPECT_EQ(service.createDatabase("A rather long database name (2024)"), 0u);
    EXPECT_EQ(names(), (std::vector<std::string>{"A rather long database name (2024)", "orders", "People"}));
    EXPECT_EQ(service.createDatabase("Orders"), result::kDatabaseExists);
    EXPECT_EQ(service.deleteDatabase("ORDERS"), 0u);
    EXPECT_EQ(names(), (std::vector<std::string>{"A rather long database name (2024)", "People"}));
    EXPECT_EQ(service.deleteDatabase("orders"), result::kDatabaseNotFound);
}

TEST_F(DatabaseCatalogueTest, NewDatabaseHasTheUniqueIDField)
{
    ASSERT_EQ(service.createDatabase("Shop"), 0u);
    Database& db = open(service, "shop");
    EXPECT_EQ(db.name(), "Shop"); // the stored spelling
    uint32_t type = 0;
    EXPECT_EQ(db.fieldInfo(KIV_DEFAULT_UNIQUE_ID_FIELD, type), 0u);
    EXPECT_EQ(type, 0x07030000u); // UInteger, auto-unique, indexed, unique
    ASSERT_EQ(db.fieldCount(), 1u);
    EXPECT_EQ(db.fieldAt(0)->name, KIV_DEFAULT_UNIQUE_ID_FIELD);
}

TEST_F(DatabaseCatalogueTest, NamesThatCouldLeaveTheDataFolderAreRefused)
{
    const std::vector<std::string> hostile = {"../outside",
                                              "a/b",
                                              "..",
                                              ".",
                                              ".hidden",
                                              "a\\b",
                                              "tab\there",
                                              "line\nbreak",
                                              "x..y",
                                              std::string(65, 'n'),
                                              "",
                                              " lead",
                                              "trail ",
                                              "comma,name",
                                              "/etc/passwd",
                                              "name;DROP TABLE",
                                              std::string("good\0../../bad", 14)};
    for (const auto& name : hostile)
    {
        EXPECT_EQ(service.createDatabase(name), result::kInvalidName) << name;
        DatabaseHandle handle = 0;
        EXPECT_EQ(service.openDatabase(name, OpenMode::Shared, OpenIntent::CreateIfMissing, "", handle),
                  result::kInvalidName)
            << name;
        EXPECT_EQ(service.errorText(result::kInvalidName).rfind("A database name", 0), 0u) << name;
    }
    EXPECT_TRUE(names().empty());
    EXPECT_FALSE(std::filesystem::exists(folder.path().parent_path() / "outside.kivdb"));
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_EQ(entry.path().filename(), ".kivlocks");
}

TEST_F(DatabaseCatalogueTest, OnlyAnOpenThatMayCreateCreatesAndAMissingNameListsTheOthers)
{
    ASSERT_EQ(service.createDatabase("Books"), 0u);
    ASSERT_EQ(service.createDatabase("People"), 0u);
    DatabaseHandle handle = 77;
    EXPECT_EQ(service.openDatabase("Bookz", OpenMode::Shared, OpenIntent::MustExist, "", handle),
              result::kDatabaseNotFound);
    EXPECT_EQ(handle, 77u); // the handle is written only on success
    EXPECT_EQ(service.lastFailure().line, "no database named \"Bookz\" (databases: Books, People)");
    EXPECT_EQ(service.errorText(result::kDatabaseNotFound), "No database named \"Bookz\" exists.");
    EXPECT_EQ(names().size(), 2u);
    EXPECT_EQ(service.openDatabase("Missing", OpenMode::Shared, OpenIntent::CreateIfMissing, "", handle), 0u);
    EXPECT_EQ(names(), (std::vector<std::string>{"Books", "Missing", "People"}));
}

TEST_F(DatabaseCatalogueTest, FieldsOfTheSevenTypesKeepTheirTypeWords)
{
    Database& db = openSampleDatabase(service, "Shop");
    const std::vector<std::pair<std::string, uint32_t>> expected = {
        {"KIVIDFIELD", 0x07030000}, {"Name", 0x02060028},  {"City", 0x00060000},   {"Price", 0x02050000},
        {"Qty", 0x00020000},        {"Stock", 0x00030000}, {"Weight", 0x00040000}, {"Active", 0x00010000},
        {"Notes", 0x00070000},      {"Code", 0x08060000}};
    ASSERT_EQ(db.fieldCount(), expected.size());
    for (uint32_t index = 0; index < expected.size(); ++index)
    {
        EXPECT_EQ(db.fieldAt(index)->name, expected[index].first);
        EXPECT_EQ(db.fieldAt(index)->typeWord, expected[index].second) << expected[index].first;
    }
    EXPECT_EQ(db.fieldAt(10), nullptr);
    // Lookups ignore case and one pair of parentheses; a miss names the field.
    uint32_t type = 0;
    EXPECT_EQ(db.fieldInfo("(city)", type), 0u);
    EXPECT_EQ(type, 0x00060000u);
    EXPECT_EQ(db.fieldInfo("((City))", type), kKivResult_NotFound);
    EXPECT_EQ(db.fieldInfo("Town", type), kKivResult_NotFound);
    EXPECT_EQ(db.message(), "Town");
    EXPECT_EQ(service.lastFailure().line, "no field \"Town\" in \"Shop\"");
}

TEST_F(DatabaseCatalogueTest, FieldChangesWaitForTheOtherOpensAndAnExistingFieldIsNotUnique)
{
    ASSERT_EQ(service.createDatabase("Shop"), 0u);
    Database& db = open(service, "Shop");
    DatabaseService other(environmentIn(folder.path()));
    open(other, "Shop");
    EXPECT_EQ(db.addField("Name", 0x00060000), result::kLocked); // someone else has it open
    other.disconnect();
    EXPECT_EQ(db.addField("Name", 0x00060000), 0u); // a shared open becomes exclusive for it
    EXPECT_EQ(db.message(), "Name");                // what the module publishes as the new field's name
    EXPECT_EQ(db.addField("NAME", 0x00070000), kKivResult_NotUnique);
    EXPECT_EQ(service.lastFailure().line, "the field \"NAME\" already exists in \"Shop\"");
    EXPECT_EQ(db.addField("bad name", 0x00060000), result::kInvalidName);
    EXPECT_EQ(db.addField("Odd", 0x00000000), result::kInvalidArgument); // no type
    EXPECT_EQ(db.addField("Odd", 0x01060000), result::kInvalidArgument); // auto-unique text
    EXPECT_EQ(db.addField("Odd", 0x00480000), result::kInvalidArgument); // an ODBC type
    EXPECT_EQ(db.deleteField("KIVIDFIELD"), result::kProtectedField);
    EXPECT_EQ(db.deleteField("name"), 0u);
    EXPECT_EQ(db.deleteField("name"), kKivResult_NotFound);
    EXPECT_EQ(db.fieldCount(), 1u);
}

TEST_F(DatabaseCatalogueTest, FieldsAddedToFilledDatabasesGetDefaultsAndAutoValues)
{
    Database& db = openSampleDatabase(service, "Shop");
    ASSERT_EQ(addRecord(db, {{"Name", "a"}}), 0u);
    ASSERT_EQ(addRecord(db, {{"Name", "b"}}), 0u);
    EXPECT_EQ(db.addField("Serial", 0x07030000), 0u);
    EXPECT_EQ(db.addField("Tag", 0x04060000), kKivResult_NotUnique); // both records hold ''
    EXPECT_EQ(column(db, "", "Serial"), (std::vector<std::string>{"1", "2"}));
    ASSERT_EQ(addRecord(db, {{"Name", "c"}}), 0u);
    EXPECT_EQ(column(db, "Name = 'c'", "Serial"), std::vector<std::string>{"3"});
}

TEST_F(DatabaseCatalogueTest, TheNativeTypesAreDescribedByCodeIndexAndName)
{
    EXPECT_EQ(service.typeCount(), 7u);
    TypeDescription type;
    ASSERT_TRUE(service.typeOfWord(0x00050000, type)); // bits 16-24 as the module sends them
    EXPECT_EQ(type.name, "Number");
    ASSERT_TRUE(service.typeAt(6, type));
    EXPECT_EQ(type.name, "LongText");
    EXPECT_EQ(service.typeNamed(" text ", type), 0u);
    EXPECT_EQ(type.typeWord, 0x00060000u);
    EXPECT_EQ(service.typeNamed("varchar", type), result::kInvalidArgument);
    EXPECT_EQ(service.supportFlags(), 0u);
    EXPECT_EQ(service.cursorFlags(), 0u);
}

TEST_F(DatabaseCatalogueTest, EveryCodeHasAnExplanationAndNoneIsASuccessText)
{
    for (const uint32_t code :
         {uint32_t(kKivResult_NotFound), uint32_t(kKivResult_ImproperFormat), uint32_t(kKivResult_NotIndexed),
          uint32_t(kKivResult_NotUnique), uint32_t(kKivResult_NotAuthorized), result::kLocked,
          result::kDatabaseNotFound, result::kTypeMismatch, result::kImportFailed,
          uint32_t(kKivResult_EndOfFile)})
        EXPECT_FALSE(describeResult(code).empty()) << formatResultCode(code);
    EXPECT_TRUE(describeResult(0).empty());
    EXPECT_EQ(service.errorText(0), "");
    EXPECT_EQ(service.errorText(fourCharCode("Zzzz")), "");
    // The last failure gives its own, more precise text; an unknown data source is refused.
    EXPECT_EQ(service.connect("Sales", "admin", "secret"), result::kODBCUnavailable);
    EXPECT_NE(service.errorText(result::kODBCUnavailable).find("Sales"), std::string::npos);
    EXPECT_FALSE(service.usesDataSource());
    EXPECT_EQ(service.connect("", "", ""), 0u);
    EXPECT_EQ(service.database(4242), nullptr);
    EXPECT_EQ(service.lastFailure().code, result::kInvalidHandle);
}

} // namespace
} // namespace kiv::db::testing
