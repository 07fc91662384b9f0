// Fields as columns and records through parameterized statements keyed by the unique ID, on
// both drivers: what the module sets is what it reads back, errors carry the driver's words.
#include "OdbcTestSupport.h"

namespace kiv::db::testing
{
namespace
{

class OdbcRecordsTest : public OdbcTest
{
protected:
    void SetUp() override
    {
        OdbcTest::SetUp();
        if (!HasFatalFailure())
            db = &openSampleDatabase(*service, table);
    }
    Database* db = nullptr;
};

TEST_P(OdbcRecordsTest, FieldsBecomeColumnsWithSqlTypeWords)
{
    EXPECT_EQ(db->fieldCount(), 10u);
    struct Expected
    {
        const char* name;
        uint32_t typeByte;
    };
    // Native types become SQL types: Text VARCHAR, Integer INTEGER, Boolean BIT, LongText
    // LONGVARCHAR (text on both servers), Float DOUBLE (FLOAT on PostgreSQL's float8).
    for (const Expected& expected :
         {Expected{"Name", 0x4C}, Expected{"Qty", 0x44}, Expected{"Active", 0x87}, Expected{"Notes", 0x81}})
    {
        uint32_t typeWord = 0;
        ASSERT_EQ(db->fieldInfo(expected.name, typeWord), 0u) << expected.name;
        EXPECT_EQ((typeWord >> 16) & 0xFF, expected.typeByte) << expected.name;
    }
    uint32_t name = 0;
    ASSERT_EQ(db->fieldInfo("(name)", name), 0u) << "parenthesised, any case";
    EXPECT_EQ(name & 0xFFFF, 40u) << "the length";
    EXPECT_TRUE(name & 0x02000000) << "indexed";
    EXPECT_FALSE(name & 0x04000000);
    EXPECT_EQ(db->fieldAt(0)->name, "KIVIDFIELD");
}

TEST_P(OdbcRecordsTest, UniqueFieldsRefuseDuplicatesWithTheDriversMessage)
{
    ASSERT_EQ(db->addField("Email", 0x04060040), 0u);
    uint32_t typeWord = 0;
    ASSERT_EQ(db->fieldInfo("Email", typeWord), 0u);
    EXPECT_TRUE(typeWord & 0x04000000);
    ASSERT_EQ(addRecord(*db, {{"Email", "a@example.org"}}), 0u);
    EXPECT_EQ(addRecord(*db, {{"Email", "a@example.org"}}), kKivResult_NotUnique) << db->message();
    EXPECT_FALSE(db->message().empty());
    EXPECT_EQ(recordCount(*db), 1u);
}

TEST_P(OdbcRecordsTest, ValuesRoundTripByKind)
{
    ASSERT_EQ(db->createRecord(), 0u);
    EXPECT_EQ(db->setValue("Name", std::string_view("Zo\xEB O'Brien")), 0u);
    EXPECT_EQ(db->setValue("Price", std::string_view("1234567.25")), 0u);
    EXPECT_EQ(db->setValue("Qty", int32_t(-42)), 0u);
    EXPECT_EQ(db->setValue("Stock", uint32_t(4000000000u)), 0u);
    EXPECT_EQ(db->setValue("Weight", double(0.1)), 0u);
    EXPECT_EQ(db->setValue("Active", std::string_view("yes")), 0u);
    EXPECT_EQ(db->setValue("Notes", std::string_view(std::string(5000, 'n'))), 0u);
    ASSERT_EQ(db->addRecord(), 0u) << db->message();

    const std::string id = text(*db, "KIVIDFIELD"); // the added record is the current one
    EXPECT_NE(id, "");
    ASSERT_EQ(db->moveTo(std::string_view(id)), 0u);
    EXPECT_EQ(text(*db, "Name"), "Zo\xEB O'Brien");
    EXPECT_EQ(std::stod(text(*db, "Price")), 1234567.25);
    EXPECT_EQ(text(*db, "Qty"), "-42");
    EXPECT_EQ(text(*db, "Stock"), "4000000000");
    EXPECT_DOUBLE_EQ(std::stod(text(*db, "Weight")), 0.1);
    EXPECT_EQ(text(*db, "Active"), "1");
    EXPECT_EQ(text(*db, "Notes").size(), 5000u);
    EXPECT_EQ(text(*db, "City"), "") << "not set";
}

TEST_P(OdbcRecordsTest, ValuesThatDoNotFitAreRefusedAndNoTextIsCutSilently)
{
    ASSERT_EQ(db->createRecord(), 0u);
    EXPECT_EQ(db->setValue("Qty", std::string_view("twelve")), result::kTypeMismatch);
    EXPECT_NE(db->message().find("Qty"), std::string::npos);
    EXPECT_EQ(db->setValue("Missing", std::string_view("x")), kKivResult_NotFound);
    EXPECT_EQ(db->message(), "Missing");
    // A text longer than its column goes to the data source whole: PostgreSQL refuses it
    // visibly, SQLite keeps it whole.
    const std::string longName(41, 'x');
    EXPECT_EQ(db->setValue("Name", std::string_view(longName)), 0u);
    if (isPostgres())
    {
        EXPECT_EQ(db->addRecord(), result::kValueTooLong);
        EXPECT_NE(db->message().find("22001"), std::string::npos) << db->message();
        EXPECT_EQ(recordCount(*db), 0u);
    }
    else
    {
        ASSERT_EQ(db->addRecord(), 0u);
        EXPECT_EQ(text(*db, "Name"), longName);
    }
}

TEST_P(OdbcRecordsTest, UpdateWritesOnlyChangedFieldsAndDeleteByKey)
{
    ASSERT_EQ(addRecord(*db, {{"Name", "Ada"}, {"City", "London"}}), 0u);
    const uint32_t id = uint32_t(std::stoul(text(*db, "KIVIDFIELD")));

    // Another request changes the city meanwhile; our update of the name keeps it.
    auto otherService = connectService(folder.path(), source());
    Database& other = open(*otherService, table);
    ASSERT_EQ(other.moveTo(id), 0u);
    ASSERT_EQ(other.setValue("City", std::string_view("Paris")), 0u);
    ASSERT_EQ(other.updateRecord(), 0u);

    ASSERT_EQ(db->moveTo(uint32_t(id)), 0u);
    ASSERT_EQ(db->setValue("Name", std::string_view("Ada L.")), 0u);
    ASSERT_EQ(db->updateRecord(), 0u);
    ASSERT_EQ(db->moveTo(uint32_t(id)), 0u);
    EXPECT_EQ(text(*db, "Name"), "Ada L.");

    EXPECT_EQ(db->deleteRecord(uint32_t(id)), 0u);
    EXPECT_EQ(recordCount(*db), 0u);
    EXPECT_EQ(db->deleteRecord(uint32_t(id)), result::kRecordNotFound);
    EXPECT_EQ(db->updateRecord(), result::kRecordNotFound) << "deleted meanwhile";
}

TEST_P(OdbcRecordsTest, DeleteAllAndTheProtectedUniqueID)
{
    for (const char* name : {"A", "B", "C"})
        ASSERT_EQ(addRecord(*db, {{"Name", name}}), 0u);
    EXPECT_EQ(recordCount(*db), 3u);
    EXPECT_EQ(db->deleteAllRecords(), 0u);
    EXPECT_EQ(recordCount(*db), 0u);
    EXPECT_EQ(db->deleteField("KIVIDFIELD"), result::kProtectedField);
}

TEST_P(OdbcRecordsTest, FieldsAreAddedAndDeletedWithAlterTable)
{
    ASSERT_EQ(db->deleteField("Code"), 0u) << db->message();
    EXPECT_EQ(db->fieldCount(), 9u);
    uint32_t typeWord = 0;
    EXPECT_EQ(db->fieldInfo("Code", typeWord), kKivResult_NotFound);
    EXPECT_EQ(db->deleteField("Name"), 0u) << "an indexed column goes with its index";
    EXPECT_EQ(db->addField("Name", 0x4C0000 | 20), 0u) << "an SQL type word";
    ASSERT_EQ(db->fieldInfo("Name", typeWord), 0u);
    EXPECT_EQ(typeWord & 0xFFFFFF, 0x4C0014u);
    EXPECT_EQ(db->message(), "Name") << "the message names the added field";
    EXPECT_EQ(db->addField("Name", 0x60000), kKivResult_NotUnique);
    EXPECT_EQ(db->addField("bad name", 0x60000), result::kInvalidName);
}

TEST_P(OdbcRecordsTest, AnotherUniqueIDFieldKeysTheRecords)
{
    const std::string keyed = tableFor(source(), "Keyed");
    runDirectly(source(),
                "CREATE TABLE \"" + keyed + "\" (\"Sku\" VARCHAR(10) PRIMARY KEY, \"Qty\" INTEGER)");
    db = &open(*service, keyed, OpenMode::Shared, "Sku");
    ASSERT_EQ(addRecord(*db, {{"Sku", "AB-1"}, {"Qty", "3"}}), 0u);
    ASSERT_EQ(addRecord(*db, {{"Sku", "AB-2"}, {"Qty", "4"}}), 0u);
    ASSERT_EQ(db->moveTo(std::string_view("AB-2")), 0u);
    EXPECT_EQ(text(*db, "Qty"), "4");
    EXPECT_EQ(db->deleteRecord(std::string_view("AB-1")), 0u);
    EXPECT_EQ(recordCount(*db), 1u);
}

INSTANTIATE_TEST_SUITE_P(Drivers, OdbcRecordsTest, ::testing::Values("KivSqlite", "KivPostgres"), driverName);

} // namespace
} // namespace kiv::db::testing
