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
            handle = openSampleDatabase(*client, table);
    }
    uint32_t handle = 0;
};

TEST_P(OdbcRecordsTest, FieldsBecomeColumnsWithSqlTypeWords)
{
    EXPECT_EQ(client->fieldCount(handle), 10u);
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
        ASSERT_EQ(client->fieldInfo(handle, expected.name, typeWord), 0u) << expected.name;
        EXPECT_EQ((typeWord >> 16) & 0xFF, expected.typeByte) << expected.name;
    }
    uint32_t name = 0;
    ASSERT_EQ(client->fieldInfo(handle, "(name)", name), 0u) << "parenthesised, any case";
    EXPECT_EQ(name & 0xFFFF, 40u) << "the length";
    EXPECT_TRUE(name & 0x02000000) << "indexed";
    EXPECT_FALSE(name & 0x04000000);

    std::string firstName;
    uint32_t firstType = 0;
    ASSERT_EQ(client->fieldInfoByIndex(handle, 0, firstName, firstType), 0u);
    EXPECT_EQ(firstName, "KIVIDFIELD");
}

TEST_P(OdbcRecordsTest, UniqueFieldsRefuseDuplicatesWithTheDriversMessage)
{
    ASSERT_EQ(client->call(kKivDB_Terminate), 0u);
    ASSERT_EQ(client->initialize(source() + ",kiv,"), 0u);
    ASSERT_EQ(client->open(table, 3, handle), 0u);
    ASSERT_EQ(client->addField(handle, "Email", 0x04060040), 0u);
    uint32_t typeWord = 0;
    ASSERT_EQ(client->fieldInfo(handle, "Email", typeWord), 0u);
    EXPECT_TRUE(typeWord & 0x04000000);
    ASSERT_EQ(client->addRecord(handle, {{"Email", "a@example.org"}}), 0u);
    EXPECT_EQ(client->addRecord(handle, {{"Email", "a@example.org"}}), result::kDuplicateValue)
        << client->errorInfo(handle).text;
    EXPECT_FALSE(client->errorInfo(handle).text.empty());
    EXPECT_EQ(client->recordCount(handle), 1u);
}

TEST_P(OdbcRecordsTest, ValuesRoundTripByKind)
{
    ASSERT_EQ(client->simple(kKivDB_CreateRecord, handle), 0u);
    EXPECT_EQ(client->setText(handle, "Name", "Zo\xEB O'Brien"), 0u);
    EXPECT_EQ(client->setText(handle, "Price", "1234567.25"), 0u);
    EXPECT_EQ(client->setInt(handle, "Qty", -42), 0u);
    EXPECT_EQ(client->setUInt(handle, "Stock", 4000000000u), 0u);
    EXPECT_EQ(client->setDouble(handle, "Weight", 0.1), 0u);
    EXPECT_EQ(client->setText(handle, "Active", "yes"), 0u);
    EXPECT_EQ(client->setText(handle, "Notes", std::string(5000, 'n')), 0u);
    ASSERT_EQ(client->simple(kKivDB_AddRecord, handle), 0u) << client->errorInfo(handle).text;

    uint32_t id = 0;
    ASSERT_EQ(client->getUInt(handle, "KIVIDFIELD", id), 0u) << "the added record is the current one";
    EXPECT_GT(id, 0u);
    ASSERT_EQ(client->moveToUInt(handle, id), 0u);
    EXPECT_EQ(client->getText(handle, "Name").text, "Zo\xEB O'Brien");
    double price = 0;
    ASSERT_EQ(client->getDouble(handle, "Price", price), 0u);
    EXPECT_DOUBLE_EQ(price, 1234567.25);
    int32_t qty = 0;
    ASSERT_EQ(client->getInt(handle, "Qty", qty), 0u);
    EXPECT_EQ(qty, -42);
    uint32_t stock = 0;
    ASSERT_EQ(client->getUInt(handle, "Stock", stock), 0u);
    EXPECT_EQ(stock, 4000000000u);
    double weight = 0;
    ASSERT_EQ(client->getDouble(handle, "Weight", weight), 0u);
    EXPECT_DOUBLE_EQ(weight, 0.1);
    EXPECT_EQ(client->getText(handle, "Active").text, "1");
    const auto notes = client->getText(handle, "Notes");
    EXPECT_EQ(notes.text.size(), 5000u);
    EXPECT_EQ(notes.calls, 2) << "read again with the size the service asked for";
    EXPECT_EQ(client->getText(handle, "City").text, "") << "not set";
}

TEST_P(OdbcRecordsTest, ValuesThatDoNotFitAreRefusedBeforeReachingTheServer)
{
    ASSERT_EQ(client->simple(kKivDB_CreateRecord, handle), 0u);
    EXPECT_EQ(client->setText(handle, "Qty", "twelve"), result::kTypeMismatch);
    EXPECT_NE(client->errorInfo(handle).text.find("Qty"), std::string::npos);
    EXPECT_EQ(client->setText(handle, "Name", std::string(41, 'x')), result::kValueTooLong);
    EXPECT_EQ(client->setText(handle, "Missing", "x"), result::kFieldNotFound);
    EXPECT_EQ(client->errorInfo(handle).text, "Missing");
}

TEST_P(OdbcRecordsTest, UpdateWritesOnlyChangedFieldsAndDeleteByKey)
{
    ASSERT_EQ(client->addRecord(handle, {{"Name", "Ada"}, {"City", "London"}}), 0u);
    uint32_t id = 0;
    ASSERT_EQ(client->getUInt(handle, "KIVIDFIELD", id), 0u);

    // Another session changes the city meanwhile; our update of the name keeps it.
    OdbcClient other(folder.path(), source());
    uint32_t otherHandle = 0;
    ASSERT_EQ(other.open(table, 2, otherHandle), 0u);
    ASSERT_EQ(other.moveToUInt(otherHandle, id), 0u);
    ASSERT_EQ(other.setText(otherHandle, "City", "Paris"), 0u);
    ASSERT_EQ(other.simple(kKivDB_UpdateRecord, otherHandle), 0u);

    ASSERT_EQ(client->moveToUInt(handle, id), 0u);
    ASSERT_EQ(client->setText(handle, "Name", "Ada L."), 0u);
    ASSERT_EQ(client->simple(kKivDB_UpdateRecord, handle), 0u);
    ASSERT_EQ(client->moveToUInt(handle, id), 0u);
    EXPECT_EQ(client->getText(handle, "Name").text, "Ada L.");

    EXPECT_EQ(client->deleteRecordByUInt(handle, id), 0u);
    EXPECT_EQ(client->recordCount(handle), 0u);
    EXPECT_EQ(client->deleteRecordByUInt(handle, id), result::kRecordNotFound);
    EXPECT_EQ(client->simple(kKivDB_UpdateRecord, handle), result::kRecordNotFound) << "deleted meanwhile";
}

TEST_P(OdbcRecordsTest, DeleteAllAndTheProtectedUniqueID)
{
    for (const char* name : {"A", "B", "C"})
        ASSERT_EQ(client->addRecord(handle, {{"Name", name}}), 0u);
    EXPECT_EQ(client->recordCount(handle), 3u);
    EXPECT_EQ(client->simple(kKivDB_DeleteAllRecords, handle), 0u);
    EXPECT_EQ(client->recordCount(handle), 0u);
    EXPECT_EQ(client->deleteField(handle, "KIVIDFIELD"), result::kProtectedField);
}

TEST_P(OdbcRecordsTest, FieldsAreAddedAndDeletedWithAlterTable)
{
    ASSERT_EQ(client->deleteField(handle, "Code"), 0u) << client->errorInfo(handle).text;
    EXPECT_EQ(client->fieldCount(handle), 9u);
    uint32_t typeWord = 0;
    EXPECT_EQ(client->fieldInfo(handle, "Code", typeWord), result::kFieldNotFound);
    EXPECT_EQ(client->deleteField(handle, "Name"), 0u) << "an indexed column goes with its index";
    EXPECT_EQ(client->addField(handle, "Name", 0x4C0000 | 20), 0u) << "an SQL type word";
    ASSERT_EQ(client->fieldInfo(handle, "Name", typeWord), 0u);
    EXPECT_EQ(typeWord & 0xFFFFFF, 0x4C0014u);
    EXPECT_EQ(client->errorInfo(handle).text, "Name") << "the message names the added field";
    EXPECT_EQ(client->addField(handle, "Name", 0x60000), result::kFieldExists);
    EXPECT_EQ(client->addField(handle, "bad name", 0x60000), result::kInvalidName);
}

TEST_P(OdbcRecordsTest, AnotherUniqueIDFieldKeysTheRecords)
{
    ASSERT_EQ(client->close(handle), 0u);
    const std::string keyed = tableFor(source(), "Keyed");
    runDirectly(source(),
                "CREATE TABLE \"" + keyed + "\" (\"Sku\" VARCHAR(10) PRIMARY KEY, \"Qty\" INTEGER)");
    ASSERT_EQ(client->open(keyed, 2, handle, "Sku"), 0u);
    ASSERT_EQ(client->addRecord(handle, {{"Sku", "AB-1"}, {"Qty", "3"}}), 0u);
    ASSERT_EQ(client->addRecord(handle, {{"Sku", "AB-2"}, {"Qty", "4"}}), 0u);
    ASSERT_EQ(client->moveToText(handle, "AB-2"), 0u);
    EXPECT_EQ(client->getText(handle, "Qty").text, "4");
    EXPECT_EQ(client->deleteRecordByText(handle, "AB-1"), 0u);
    EXPECT_EQ(client->recordCount(handle), 1u);
}

INSTANTIATE_TEST_SUITE_P(Drivers, OdbcRecordsTest, ::testing::Values("KivSqlite", "KivPostgres"), driverName);

} // namespace
} // namespace kiv::db::testing
