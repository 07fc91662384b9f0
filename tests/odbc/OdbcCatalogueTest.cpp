// Tables as databases, the driver's types and capabilities, the names of column types the
// driver does not list, and what connecting to a data source does.
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

std::vector<std::string> namesOf(DatabaseService& service)
{
    std::vector<std::string> names;
    EXPECT_EQ(service.listDatabases(names), 0u) << service.lastFailure().line;
    return names;
}

using OdbcCatalogueTest = OdbcTest;

TEST_P(OdbcCatalogueTest, CreatedTablesAreListedOpenedAndDroppedWhateverTheCase)
{
    ASSERT_EQ(service->createDatabase(table), 0u) << service->lastFailure().line;
    EXPECT_TRUE(contains(namesOf(*service), table));
    EXPECT_EQ(service->createDatabase(table), result::kDatabaseExists);

    std::string shouted = table;
    std::transform(shouted.begin(), shouted.end(), shouted.begin(), ::toupper);
    Database& db = open(*service, shouted);
    EXPECT_EQ(db.name(), table); // the stored spelling
    uint32_t typeWord = 0;
    ASSERT_EQ(db.fieldInfo(KIV_DEFAULT_UNIQUE_ID_FIELD, typeWord), 0u);
    EXPECT_EQ(typeWord & 0xFF0000, 0x440000u) << "an SQL INTEGER";
    EXPECT_TRUE(typeWord & kKivFieldFlag_AutoUnique) << "the data source hands out the IDs";
    EXPECT_TRUE(typeWord & kKivFieldFlag_Unique);
    service->disconnect();
    ASSERT_EQ(service->connect(source(), "kiv", ""), 0u);

    EXPECT_EQ(service->deleteDatabase(table), 0u);
    EXPECT_FALSE(contains(namesOf(*service), table));
    EXPECT_EQ(service->deleteDatabase(table), result::kDatabaseNotFound);
}

TEST_P(OdbcCatalogueTest, OnlyAnOpenThatMayCreateCreatesAMissingTable)
{
    DatabaseHandle handle = 0;
    EXPECT_EQ(service->openDatabase(table, OpenMode::Shared, OpenIntent::MustExist, "", handle),
              result::kDatabaseNotFound);
    EXPECT_EQ(service->lastFailure().line.rfind("no database named \"", 0), 0u)
        << service->lastFailure().line;
    EXPECT_FALSE(contains(namesOf(*service), table));
    Database& db = open(*service, table, OpenMode::Shared, "PersonID", OpenIntent::CreateIfMissing);
    uint32_t typeWord = 0;
    EXPECT_EQ(db.fieldInfo("PersonID", typeWord), 0u) << "named by the open";
    EXPECT_TRUE(typeWord & kKivFieldFlag_AutoUnique);
}

TEST_P(OdbcCatalogueTest, NamesThatCouldEscapeQuotingAreRefusedOrQuoted)
{
    EXPECT_EQ(service->createDatabase("a/b"), result::kInvalidName);
    EXPECT_EQ(service->createDatabase(""), result::kInvalidName);
    EXPECT_EQ(service->createDatabase(table + "\"x"), result::kInvalidName) << "the quote character";
    // Blanks and apostrophes stand inside the quoted identifier.
    const std::string awkward = table + " it's";
    runDirectly(source(), "DROP TABLE IF EXISTS \"" + awkward + "\"");
    ASSERT_EQ(service->createDatabase(awkward), 0u) << service->lastFailure().line;
    EXPECT_TRUE(contains(namesOf(*service), awkward));
    Database& db = open(*service, awkward, OpenMode::Exclusive);
    EXPECT_EQ(db.addField("Name", 0x60010), 0u) << db.message();
    service->disconnect();
    ASSERT_EQ(service->connect(source(), "kiv", ""), 0u);
    EXPECT_EQ(service->deleteDatabase(awkward), 0u);
}

TEST_P(OdbcCatalogueTest, TypeListComesFromTheDriverAndNumericColumnsHaveTheirNames)
{
    const size_t count = service->typeCount();
    ASSERT_GT(count, 5u);
    bool sawVarchar = false;
    for (size_t index = 0; index < count; ++index)
    {
        TypeDescription type;
        ASSERT_TRUE(service->typeAt(index, type));
        EXPECT_FALSE(type.name.empty());
        const uint32_t typeByte = (type.typeWord >> 16) & 0xFF;
        EXPECT_TRUE((typeByte >= 0x41 && typeByte <= 0x7F) || typeByte >= 0x81) << type.name;
        // By name and by the type bits (mask 0x1FF0000) the same type comes back.
        TypeDescription byName, byCode;
        ASSERT_EQ(service->typeNamed(type.name, byName), 0u) << type.name;
        EXPECT_EQ(byName.typeWord, type.typeWord) << type.name;
        ASSERT_TRUE(service->typeOfWord(type.typeWord & 0x1FF0000, byCode));
        EXPECT_EQ(byCode.typeWord & 0x1FF0000, type.typeWord & 0x1FF0000) << type.name;
        if (typeByte == 0x4C)
        {
            sawVarchar = true;
            EXPECT_GT(type.typeWord & 0xFFFF, 0u) << "varchar takes a length";
        }
    }
    EXPECT_TRUE(sawVarchar);
    TypeDescription type;
    EXPECT_FALSE(service->typeAt(count, type));
    EXPECT_EQ(service->typeNamed("sqlvarchar", type), 0u); // the editor's own names
    EXPECT_EQ(type.typeWord & 0xFF0000, 0x4C0000u);
    EXPECT_EQ(service->typeNamed("SQLINTEGER", type), 0u);
    EXPECT_EQ(type.typeWord & 0xFF0000, 0x440000u);
    EXPECT_EQ(service->typeNamed("no such type", type), result::kInvalidArgument);

    // Columns of types the driver may not list still have their names, never "unknown type".
    runDirectly(source(), "CREATE TABLE \"" + table +
                              "\" (\"KIVIDFIELD\" INTEGER PRIMARY KEY, "
                              "\"Price\" NUMERIC(10,2), \"Rate\" DECIMAL(8,3))");
    Database& db = open(*service, table);
    for (const char* field : {"Price", "Rate"})
    {
        uint32_t typeWord = 0;
        ASSERT_EQ(db.fieldInfo(field, typeWord), 0u);
        ASSERT_TRUE(service->typeOfWord(typeWord & 0x1FF0000, type)) << field;
        EXPECT_FALSE(type.name.empty()) << field;
    }
}

TEST_P(OdbcCatalogueTest, CapabilityBitsFollowTheDriver)
{
    const uint32_t support = service->supportFlags();
    const uint32_t cursors = service->cursorFlags();
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

TEST_P(OdbcCatalogueTest, DisconnectingReturnsToTheEmbeddedStore)
{
    ASSERT_EQ(service->createDatabase(table), 0u);
    service->disconnect();
    EXPECT_FALSE(contains(namesOf(*service), table)) << "the data folder is empty";
    EXPECT_EQ(service->typeCount(), 7u);
    EXPECT_EQ(service->supportFlags(), 0u);
    EXPECT_EQ(service->connect(source(), "kiv", ""), 0u);
    EXPECT_TRUE(contains(namesOf(*service), table));
}

INSTANTIATE_TEST_SUITE_P(Drivers, OdbcCatalogueTest, ::testing::Values("KivSqlite", "KivPostgres"),
                         driverName);

TEST(OdbcConnectTest, AnUnknownDataSourceOrUserIsRefusedWithTheirOwnWords)
{
    useFixtureConfiguration();
    DataFolder folder;
    DatabaseService service(environmentIn(folder.path()));
    EXPECT_EQ(service.connect("NoSuchSource", "kiv", "secret"), result::kODBCUnavailable);
    const auto text = service.errorText(result::kODBCUnavailable);
    EXPECT_NE(text.find("NoSuchSource"), std::string::npos) << text;
    EXPECT_NE(text.find("IM002"), std::string::npos) << "the driver manager's diagnostic: " << text;
    EXPECT_EQ(service.lastFailure().line.rfind("data source \"NoSuchSource\": ", 0), 0u);
    // The service carries on with the embedded store.
    EXPECT_EQ(service.createDatabase("Local"), 0u);
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "Local.kivdb"));
    // The fixture's server trusts loopback users; an unknown user is refused by the server.
    EXPECT_EQ(service.connect("KivPostgres", "nobody_here", "x"), result::kODBCUnavailable);
    EXPECT_NE(service.errorText(result::kODBCUnavailable).find("nobody_here"), std::string::npos);
}

} // namespace
} // namespace kiv::db::testing
