// Databases and fields through the callback: create, list, open, delete; names that could
// escape the data folder; fields of every native type with their flags; the size protocol.
#include "ServiceClient.h"

namespace kiv::db::testing
{
namespace
{

class DatabaseCatalogueTest : public ::testing::Test
{
protected:
    DataFolder folder;
    ServiceClient client{folder.path()};
};

TEST_F(DatabaseCatalogueTest, CreatedDatabasesAreListedSortedWithoutRegardToCase)
{
    EXPECT_EQ(client.createDatabase("orders"), 0u);
    EXPECT_EQ(client.createDatabase("People"), 0u);
    EXPECT_EQ(client.createDatabase("A rather long database name (2024)"), 0u);
    EXPECT_EQ(client.databaseNames(),
              (std::vector<std::string>{"A rather long database name (2024)", "orders", "People"}));
    EXPECT_EQ(client.createDatabase("Orders"), result::kDatabaseExists);
    EXPECT_EQ(client.deleteDatabase("ORDERS"), 0u);
    EXPECT_EQ(client.databaseNames(),
              (std::vector<std::string>{"A rather long database name (2024)", "People"}));
    EXPECT_EQ(client.deleteDatabase("orders"), result::kDatabaseNotFound);
}

TEST_F(DatabaseCatalogueTest, NewDatabaseHasTheUniqueIDField)
{
    uint32_t handle = 0;
    ASSERT_EQ(client.createDatabase("Shop"), 0u);
    ASSERT_EQ(client.open("shop", 2, handle), 0u);
    EXPECT_NE(handle, 0u);
    uint32_t type = 0;
    EXPECT_EQ(client.fieldInfo(handle, "KIVIDFIELD", type), 0u);
    EXPECT_EQ(type, 0x07030000u); // UInteger, auto-unique, indexed, unique
    EXPECT_EQ(client.fieldCount(handle), 1u);
    std::string name;
    EXPECT_EQ(client.fieldInfoByIndex(handle, 0, name, type), 0u);
    EXPECT_EQ(name, "KIVIDFIELD");
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
                                              "name;DROP TABLE"};
    for (const auto& name : hostile)
    {
        EXPECT_EQ(client.createDatabase(name), result::kInvalidName) << name;
        uint32_t handle = 0;
        ServiceClient editor(folder.path(), "kivEditDatabase");
        EXPECT_EQ(editor.open(name, 2, handle), result::kInvalidName) << name;
        EXPECT_FALSE(editor.errorInfo(result::kInvalidName).text.empty());
    }
    // A name with an embedded NUL: the length says more than the zero-terminated text.
    std::string withNul("good\0../../bad", 14);
    uint32_t size = uint32_t(withNul.size() + 1);
    EXPECT_EQ(client.call(kKivDB_CreateDatabase, nullptr, withNul.data(), &size), result::kInvalidName);
    EXPECT_TRUE(client.databaseNames().empty());
    EXPECT_FALSE(std::filesystem::exists(folder.path().parent_path() / "outside.kivdb"));
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_EQ(entry.path().filename(), ".kivlocks");
}

TEST_F(DatabaseCatalogueTest, OnlyTheEditorCreatesADatabaseByOpeningIt)
{
    uint32_t handle = 77;
    EXPECT_EQ(client.open("Missing", 2, handle), result::kDatabaseNotFound);
    EXPECT_EQ(handle, 77u); // the handle is written only on success
    ServiceClient search(folder.path(), "kivSearchDatabase");
    EXPECT_EQ(search.open("Missing", 2, handle), result::kDatabaseNotFound);
    EXPECT_EQ(client.databaseCount(), 0u);

    ServiceClient editor(folder.path(), "KIVEDITDATABASE");
    EXPECT_EQ(editor.open("Missing", 2, handle), 0u);
    EXPECT_EQ(client.databaseNames(), std::vector<std::string>{"Missing"});
}

TEST_F(DatabaseCatalogueTest, DatabaseNameByHandleAndIndexUseTheRetry)
{
    const std::string longName = "Inventory of the north-east warehouse";
    ASSERT_EQ(client.createDatabase(longName), 0u);
    uint32_t handle = 0;
    ASSERT_EQ(client.open(longName, 2, handle), 0u);
    std::vector<char> buffer(8);
    uint32_t room = 8;
    ASSERT_EQ(client.call(kKivDB_GetDatabaseName, &handle, buffer.data(), &room), result::kBufferTooSmall);
    EXPECT_EQ(room, longName.size() + 1);
    buffer.resize(room);
    ASSERT_EQ(client.call(kKivDB_GetDatabaseName, &handle, buffer.data(), &room), 0u);
    EXPECT_EQ(room, longName.size());
    EXPECT_EQ(std::string(buffer.data()), longName);
    EXPECT_EQ(client.databaseNames(), std::vector<std::string>{longName});
}

TEST_F(DatabaseCatalogueTest, FieldsOfTheSevenTypesKeepTheirTypeWords)
{
    const uint32_t handle = openSampleDatabase(client, "Shop");
    EXPECT_EQ(client.fieldCount(handle), 10u);
    const std::vector<std::pair<std::string, uint32_t>> expected = {
        {"KIVIDFIELD", 0x07030000}, {"Name", 0x02060028},  {"City", 0x00060000},   {"Price", 0x02050000},
        {"Qty", 0x00020000},        {"Stock", 0x00030000}, {"Weight", 0x00040000}, {"Active", 0x00010000},
        {"Notes", 0x00070000},      {"Code", 0x08060000}};
    for (uint32_t index = 0; index < expected.size(); ++index)
    {
        std::string name;
        uint32_t type = 0;
        ASSERT_EQ(client.fieldInfoByIndex(handle, index, name, type), 0u);
        EXPECT_EQ(name, expected[index].first);
        EXPECT_EQ(type, expected[index].second) << name;
    }
    std::string name;
    uint32_t type = 0;
    EXPECT_EQ(client.fieldInfoByIndex(handle, 10, name, type), result::kFieldNotFound);
}

TEST_F(DatabaseCatalogueTest, FieldLookupIgnoresCaseAndOnePairOfParentheses)
{
    const uint32_t handle = openSampleDatabase(client, "Shop");
    uint32_t type = 0;
    EXPECT_EQ(client.fieldInfo(handle, "city", type), 0u);
    EXPECT_EQ(type, 0x00060000u);
    EXPECT_EQ(client.fieldInfo(handle, "(City)", type), 0u);
    EXPECT_EQ(type, 0x00060000u);
    EXPECT_EQ(client.fieldInfo(handle, "((City))", type), result::kFieldNotFound);
    EXPECT_EQ(type, 0u);
    EXPECT_EQ(client.fieldInfo(handle, "Town", type), result::kFieldNotFound);
    EXPECT_EQ(client.errorInfo(handle).text, "Town"); // the handle's message names the field
}

TEST_F(DatabaseCatalogueTest, FieldChangesNeedTheExclusiveOpen)
{
    ASSERT_EQ(client.createDatabase("Shop"), 0u);
    uint32_t handle = 0;
    ASSERT_EQ(client.open("Shop", 2, handle), 0u);
    EXPECT_EQ(client.addField(handle, "Name", 0x00060000), result::kLocked);
    ASSERT_EQ(client.close(handle), 0u);
    ASSERT_EQ(client.open("Shop", 3, handle), 0u);
    EXPECT_EQ(client.addField(handle, "Name", 0x00060000), 0u);
    EXPECT_EQ(client.errorInfo(handle).text, "Name"); // what the module publishes as the new field's name
    EXPECT_EQ(client.addField(handle, "NAME", 0x00070000), result::kFieldExists);
    EXPECT_EQ(client.addField(handle, "bad name", 0x00060000), result::kInvalidName);
    EXPECT_EQ(client.addField(handle, "Odd", 0x00000000), result::kInvalidArgument); // no type
    EXPECT_EQ(client.addField(handle, "Odd", 0x01060000), result::kInvalidArgument); // auto-unique text
    EXPECT_EQ(client.addField(handle, "Odd", 0x00480000), result::kInvalidArgument); // an ODBC type
    EXPECT_EQ(client.deleteField(handle, "KIVIDFIELD"), result::kProtectedField);
    EXPECT_EQ(client.deleteField(handle, "name"), 0u);
    EXPECT_EQ(client.deleteField(handle, "name"), result::kFieldNotFound);
    EXPECT_EQ(client.fieldCount(handle), 1u);
}

TEST_F(DatabaseCatalogueTest, FieldsAddedToFilledDatabasesGetDefaultsAndAutoValues)
{
    uint32_t handle = openSampleDatabase(client, "Shop");
    ASSERT_EQ(client.addRecord(handle, {{"Name", "a"}}), 0u);
    ASSERT_EQ(client.addRecord(handle, {{"Name", "b"}}), 0u);
    EXPECT_EQ(client.addField(handle, "Serial", 0x07030000), 0u);
    EXPECT_EQ(client.addField(handle, "Tag", 0x04060000), result::kDuplicateValue); // both records hold ''
    EXPECT_EQ(client.column(handle, "", "Serial"), (std::vector<std::string>{"1", "2"}));
    ASSERT_EQ(client.addRecord(handle, {{"Name", "c"}}), 0u);
    EXPECT_EQ(client.column(handle, "Name = 'c'", "Serial"), std::vector<std::string>{"3"});
}

TEST_F(DatabaseCatalogueTest, TypeInformationSelectorsDescribeTheNativeTypes)
{
    uint32_t count = 0;
    EXPECT_EQ(client.call(kKivDB_GetODBCFieldTypeCount, nullptr, nullptr, nullptr, nullptr, nullptr, &count),
              0u);
    EXPECT_EQ(count, 7u);
    uint32_t code = 0x00050000; // bits 16-24 as the module sends them
    uint32_t type = 0;
    char buffer[32];
    uint32_t room = sizeof buffer;
    EXPECT_EQ(client.call(kKivDB_GetODBCFieldTypeInfo, &code, buffer, &room, nullptr, nullptr, &type), 0u);
    EXPECT_EQ(std::string(buffer, room), "Number");
    EXPECT_EQ(type, 0x00050000u);
    uint32_t index = 6;
    room = sizeof buffer;
    EXPECT_EQ(client.call(kKivDB_GetODBCFieldTypeByIndex, &index, buffer, &room, nullptr, nullptr, &type),
              0u);
    EXPECT_EQ(std::string(buffer, room), "LongText");
    char name[] = "text";
    uint32_t nameSize = 5;
    EXPECT_EQ(client.call(kKivDB_GetODBCFieldTypeByName, nullptr, name, &nameSize, nullptr, nullptr, &type),
              0u);
    EXPECT_EQ(type, 0x00060000u);
    uint32_t flags = 99;
    EXPECT_EQ(client.call(kKivDB_GetODBCSupportFlags, nullptr, nullptr, nullptr, nullptr, nullptr, &flags),
              0u);
    EXPECT_EQ(flags, 0u);
}

TEST_F(DatabaseCatalogueTest, ErrorInfoExplainsCodesAndHandles)
{
    for (const uint32_t code :
         {result::kFieldNotFound, result::kImproperFormat, result::kLocked, result::kDatabaseNotFound,
          result::kTypeMismatch, result::kDuplicateValue, result::kImportFailed, result::kEndOfFile})
        EXPECT_FALSE(describeResult(code).empty()) << formatResultCode(code);
    const TextAnswer locked = client.errorInfo(result::kLocked);
    EXPECT_EQ(locked.code, 0u);
    EXPECT_EQ(locked.text, describeResult(result::kLocked));
    EXPECT_EQ(locked.calls, 1);
    // The last failure of the session gives its own, more precise text.
    EXPECT_EQ(client.createDatabase("a/b"), result::kInvalidName);
    EXPECT_NE(client.errorInfo(result::kInvalidName).text.find("letters"), std::string::npos);
    EXPECT_EQ(client.errorInfo(fourCharCode("Zzzz")).text, "");
}

TEST_F(DatabaseCatalogueTest, CallsWithoutTheirArgumentsAreRefusedNotCrashed)
{
    uint32_t bogus = 4242;
    EXPECT_EQ(client.call(kKivDB_CloseDatabase, &bogus), result::kInvalidHandle);
    EXPECT_EQ(client.call(kKivDB_MoveFirstRecord, nullptr), result::kInvalidArgument);
    EXPECT_EQ(client.call(kKivDB_CreateDatabase), result::kInvalidArgument);
    EXPECT_EQ(client.call(kKivDB_OpenDatabase), result::kInvalidArgument);
    EXPECT_EQ(client.call(fourCharCode("Nope")), result::kUnknownFunction);
    const uint32_t handle = openSampleDatabase(client, "Shop");
    uint32_t h = handle;
    EXPECT_EQ(client.call(kKivDB_SetFieldValue, &h), result::kInvalidArgument);
    EXPECT_EQ(client.call(kKivDB_GetFieldValue, &h), result::kInvalidArgument);
    EXPECT_EQ(client.call(kKivDB_Export, &h), result::kInvalidArgument);
    EXPECT_EQ(client.call(kKivDB_Jump, &h), result::kInvalidArgument);
    EXPECT_EQ(client.call(kKivDB_Terminate), 0u);
    EXPECT_EQ(client.call(kKivDB_MoveFirstRecord, &h), result::kInvalidHandle); // terminate closed it
}

TEST_F(DatabaseCatalogueTest, InitializeChoosesTheEmbeddedStoreOrRefusesAnUnknownDataSource)
{
    char embedded[] = ",,";
    uint32_t size = sizeof embedded;
    EXPECT_EQ(client.call(kKivDB_Initialize, nullptr, embedded, &size), 0u);
    char odbc[] = "Sales,admin,secret";
    size = sizeof odbc;
    EXPECT_EQ(client.call(kKivDB_Initialize, nullptr, odbc, &size), result::kODBCUnavailable);
}

} // namespace
} // namespace kiv::db::testing
