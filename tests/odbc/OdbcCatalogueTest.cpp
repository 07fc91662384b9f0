// Tables as databases, the driver's types through 'MOFC', 'MOFI', 'MOFT' and 'MDFN', its
// capabilities through 'MOSF' and 'MOCF', and what 'MIni' does with a data source.
#include "OdbcTestSupport.h"

#include <algorithm>

namespace kiv::db::testing
{
namespace
{

bool contains(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

using OdbcCatalogueTest = OdbcTest;

TEST_P(OdbcCatalogueTest, CreatedTablesAreListedOpenedAndDropped)
{
    ASSERT_EQ(client->createDatabase(table), 0u) << client->errorInfo(result::kDataSourceError).text;
    EXPECT_TRUE(contains(client->databaseNames(), table));
    EXPECT_EQ(client->createDatabase(table), result::kDatabaseExists);

    uint32_t handle = 0;
    ASSERT_EQ(client->open(table, 2, handle), 0u);
    EXPECT_NE(handle, 0u);
    uint32_t typeWord = 0;
    ASSERT_EQ(client->fieldInfo(handle, "KIVIDFIELD", typeWord), 0u);
    EXPECT_EQ(typeWord & 0xFF0000, 0x440000u) << "an SQL INTEGER";
    EXPECT_TRUE(typeWord & 0x01000000) << "the data source hands out the IDs";
    EXPECT_TRUE(typeWord & 0x04000000) << "unique";
    EXPECT_EQ(client->close(handle), 0u);

    EXPECT_EQ(client->deleteDatabase(table), 0u);
    EXPECT_FALSE(contains(client->databaseNames(), table));
    EXPECT_EQ(client->deleteDatabase(table), result::kDatabaseNotFound);
}

TEST_P(OdbcCatalogueTest, NamesMatchWithoutRegardToCaseAndKeepTheirSpelling)
{
    ASSERT_EQ(client->createDatabase(table), 0u);
    uint32_t handle = 0;
    std::string shouted = table;
    std::transform(shouted.begin(), shouted.end(), shouted.begin(), ::toupper);
    ASSERT_EQ(client->open(shouted, 2, handle), 0u);
    std::string name;
    char buffer[128];
    uint32_t room = sizeof buffer;
    ASSERT_EQ(client->call(kKivDB_GetDatabaseName, &handle, buffer, &room), 0u);
    EXPECT_EQ(std::string(buffer, room), table);
}

TEST_P(OdbcCatalogueTest, OnlyTheEditorCreatesAMissingTableByOpeningIt)
{
    uint32_t handle = 0;
    EXPECT_EQ(client->open(table, 2, handle), result::kDatabaseNotFound);
    EXPECT_EQ(handle, 0u);
    EXPECT_FALSE(contains(client->databaseNames(), table));

    OdbcClient editor(folder.path(), source(), "kivEditDatabase");
    ASSERT_EQ(editor.open(table, 2, handle, "PersonID"), 0u);
    uint32_t typeWord = 0;
    EXPECT_EQ(editor.fieldInfo(handle, "PersonID", typeWord), 0u) << "named by the open";
    EXPECT_TRUE(typeWord & 0x01000000);
}

TEST_P(OdbcCatalogueTest, NamesThatCouldEscapeQuotingAreRefusedOrQuoted)
{
    EXPECT_EQ(client->createDatabase("a/b"), result::kInvalidName);
    EXPECT_EQ(client->createDatabase(""), result::kInvalidName);
    EXPECT_EQ(client->createDatabase(table + "\"x"), result::kInvalidName) << "the quote character";
    // Blanks and apostrophes stand inside the quoted identifier.
    const std::string awkward = table + " it's";
    runDirectly(source(), "DROP TABLE IF EXISTS \"" + awkward + "\"");
    ASSERT_EQ(client->createDatabase(awkward), 0u) << client->errorInfo(result::kDataSourceError).text;
    EXPECT_TRUE(contains(client->databaseNames(), awkward));
    uint32_t handle = 0;
    ASSERT_EQ(client->open(awkward, 3, handle), 0u);
    EXPECT_EQ(client->addField(handle, "Name", 0x60010), 0u) << client->errorInfo(handle).text;
    EXPECT_EQ(client->close(handle), 0u);
    EXPECT_EQ(client->deleteDatabase(awkward), 0u);
}

TEST_P(OdbcCatalogueTest, TypeListComesFromTheDriver)
{
    const uint32_t count = client->word(kKivDB_GetODBCFieldTypeCount);
    ASSERT_GT(count, 5u);
    bool sawVarchar = false;
    for (uint32_t index = 0; index < count; ++index)
    {
        std::string name;
        uint32_t typeWord = 0;
        ASSERT_EQ(client->typeInfo(kKivDB_GetODBCFieldTypeByIndex, index, name, typeWord), 0u);
        EXPECT_FALSE(name.empty());
        const uint32_t typeByte = (typeWord >> 16) & 0xFF;
        EXPECT_TRUE((typeByte >= 0x41 && typeByte <= 0x7F) || typeByte >= 0x81) << name;

        // By name and by the type bits (mask 0x1FF0000) the same type comes back.
        uint32_t byName = 0;
        ASSERT_EQ(client->typeByName(name, byName), 0u) << name;
        EXPECT_EQ(byName, typeWord) << name;
        std::string nameByCode;
        uint32_t byCode = 0;
        ASSERT_EQ(client->typeInfo(kKivDB_GetODBCFieldTypeInfo, typeWord & 0x1FF0000, nameByCode, byCode),
                  0u);
        EXPECT_EQ(byCode & 0x1FF0000, typeWord & 0x1FF0000) << name;
        if (typeByte == 0x4C)
        {
            sawVarchar = true;
            EXPECT_GT(typeWord & 0xFFFF, 0u) << "varchar takes a length";
        }
    }
    EXPECT_TRUE(sawVarchar);
    std::string name;
    uint32_t typeWord = 0;
    EXPECT_EQ(client->typeInfo(kKivDB_GetODBCFieldTypeByIndex, count, name, typeWord),
              result::kInvalidArgument);
}

TEST_P(OdbcCatalogueTest, EditorTypeNamesAndUnknownNames)
{
    uint32_t typeWord = 0;
    ASSERT_EQ(client->typeByName("sqlvarchar", typeWord), 0u);
    EXPECT_EQ(typeWord & 0xFF0000, 0x4C0000u);
    ASSERT_EQ(client->typeByName("SQLINTEGER", typeWord), 0u);
    EXPECT_EQ(typeWord & 0xFF0000, 0x440000u);
    EXPECT_EQ(client->typeByName("no such type", typeWord), result::kInvalidArgument);
}

TEST_P(OdbcCatalogueTest, CapabilityBitsFollowTheDriver)
{
    const uint32_t support = client->word(kKivDB_GetODBCSupportFlags);
    const uint32_t cursors = client->word(kKivDB_GetODBCCursorFlags);
    // Both drivers create and drop tables, list tables and columns, count and read any column.
    for (const uint32_t bit : {1u, 2u, 32u, 64u, 256u})
        EXPECT_TRUE(support & bit) << bit;
    // Both offer forward-only and static cursors that move absolutely.
    for (const uint32_t bit : {4096u, 8192u, 1u, 2u, 4u})
        EXPECT_TRUE(cursors & bit) << bit;
    if (isPostgres())
    {
        EXPECT_TRUE(support & 4) << "ALTER TABLE ... ADD COLUMN";
        EXPECT_TRUE(support & 8) << "ALTER TABLE ... DROP COLUMN";
        EXPECT_TRUE(support & 2048) << "COUNT";
        EXPECT_TRUE(cursors & 16) << "keyset-driven";
    }
    else
    {
        // The SQLite driver reports no ALTER TABLE forms and no keyset or dynamic cursors.
        EXPECT_FALSE(support & 4);
        EXPECT_FALSE(cursors & (16 | 256));
    }
}

TEST_P(OdbcCatalogueTest, TerminateReturnsToTheEmbeddedStore)
{
    ASSERT_EQ(client->createDatabase(table), 0u);
    EXPECT_EQ(client->call(kKivDB_Terminate), 0u);
    EXPECT_FALSE(contains(client->databaseNames(), table)) << "the data folder is empty";
    EXPECT_EQ(client->word(kKivDB_GetODBCFieldTypeCount), 7u);
    EXPECT_EQ(client->word(kKivDB_GetODBCSupportFlags), 0u);
    EXPECT_EQ(client->initialize(source() + ",kiv,"), 0u);
    EXPECT_TRUE(contains(client->databaseNames(), table));
    EXPECT_EQ(client->initialize(",,"), 0u);
    EXPECT_FALSE(contains(client->databaseNames(), table));
}

INSTANTIATE_TEST_SUITE_P(Drivers, OdbcCatalogueTest, ::testing::Values("KivSqlite", "KivPostgres"),
                         driverName);

TEST(OdbcInitializeTest, UnknownDataSourceIsRefusedWithTheDriverManagersWords)
{
    useFixtureConfiguration();
    DataFolder folder;
    OdbcClient client(folder.path(), "");
    EXPECT_EQ(client.initialize("NoSuchSource,kiv,secret"), result::kODBCUnavailable);
    const auto text = client.errorInfo(result::kODBCUnavailable).text;
    EXPECT_NE(text.find("NoSuchSource"), std::string::npos) << text;
    EXPECT_NE(text.find("IM002"), std::string::npos) << "the driver manager's diagnostic: " << text;
    // The session carries on with the embedded store.
    EXPECT_EQ(client.createDatabase("Local"), 0u);
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "Local.kivdb"));
}

TEST(OdbcInitializeTest, WrongPasswordNamesTheServersRefusal)
{
    useFixtureConfiguration();
    DataFolder folder;
    OdbcClient client(folder.path(), "");
    // The fixture's server trusts loopback users; an unknown user is refused by the server.
    EXPECT_EQ(client.initialize("KivPostgres,nobody_here,x"), result::kODBCUnavailable);
    EXPECT_NE(client.errorInfo(result::kODBCUnavailable).text.find("nobody_here"), std::string::npos);
}

} // namespace
} // namespace kiv::db::testing
