// Records and typed values: what each value kind becomes in each field type, exact numbers,
// the record buffer's life cycle, and deletion by unique ID with every key kind.
#include "ServiceTesting.h"

#include <cmath>

namespace kiv::db::testing
{
namespace
{

class RecordValuesTest : public ::testing::Test
{
protected:
    // Closes the exclusive open of the setup and opens the database again in another mode.
    Database& reopen(OpenMode mode = OpenMode::Shared)
    {
        service.disconnect();
        return open(service, "Shop", mode);
    }

    DataFolder folder;
    DatabaseService service{environmentIn(folder.path())};
    Database& db = openSampleDatabase(service, "Shop");
};

TEST_F(RecordValuesTest, AddedRecordIsCurrentAndGetsTheNextUniqueID)
{
    ASSERT_EQ(addRecord(db, {{"Name", "Widget"}}), 0u);
    EXPECT_EQ(text(db, "KIVIDFIELD"), "1");
    ASSERT_EQ(addRecord(db, {{"Name", "Gadget"}, {"KIVIDFIELD", "1"}}),
              0u); // a posted ID is ignored
    EXPECT_EQ(text(db, "KIVIDFIELD"), "2");
    EXPECT_EQ(recordCount(db), 2u);
    EXPECT_EQ(db.addRecord(), result::kNoCurrentRecord); // already added
}

TEST_F(RecordValuesTest, ValueKindsConvertToTheFieldType)
{
    ASSERT_EQ(db.createRecord(), 0u);
    EXPECT_EQ(db.setValue("Qty", std::string_view(" 42 ")), 0u);
    EXPECT_EQ(db.setValue("Stock", double(7.0)), 0u);
    EXPECT_EQ(db.setValue("Weight", int32_t(-3)), 0u);
    EXPECT_EQ(db.setValue("Active", std::string_view("Yes")), 0u);
    EXPECT_EQ(db.setValue("Notes", uint32_t(12)), 0u);
    EXPECT_EQ(db.setValue("Price", double(0.1)), 0u);
    ASSERT_EQ(db.addRecord(), 0u);
    EXPECT_EQ(text(db, "Qty"), "42");
    EXPECT_EQ(text(db, "Stock"), "7");
    EXPECT_EQ(text(db, "Weight"), "-3");
    EXPECT_EQ(text(db, "Active"), "1");
    EXPECT_EQ(text(db, "Notes"), "12");
    EXPECT_EQ(text(db, "Price"), "0.1");
}

TEST_F(RecordValuesTest, ValuesThatDoNotFitAreRefusedWithAReason)
{
    ASSERT_EQ(db.createRecord(), 0u);
    EXPECT_EQ(db.setValue("Qty", std::string_view("12abc")), result::kTypeMismatch);
    EXPECT_NE(db.message().find("Qty"), std::string::npos);
    EXPECT_EQ(db.setValue("Qty", std::string_view("2.5")), result::kTypeMismatch);
    EXPECT_EQ(db.setValue("Qty", std::string_view("3000000000")), result::kTypeMismatch);
    EXPECT_EQ(db.setValue("Stock", int32_t(-1)), result::kTypeMismatch);
    EXPECT_EQ(db.setValue("Active", std::string_view("perhaps")), result::kTypeMismatch);
    EXPECT_EQ(db.setValue("Price", std::string_view("1.2.3")), result::kTypeMismatch);
    EXPECT_EQ(db.setValue("Weight", double(std::nan(""))), result::kTypeMismatch);
    const std::string longName(41, 'x'); // longer than the field: kept whole, never cut
    EXPECT_EQ(db.setValue("Name", std::string_view(longName)), 0u);
    EXPECT_EQ(text(db, "Name"), longName);
    EXPECT_EQ(db.setValue("Nowhere", std::string_view("1")), kKivResult_NotFound);
    EXPECT_EQ(db.message(), "Nowhere");
}

TEST_F(RecordValuesTest, NumbersKeepTheirExactTextAndReadAsDouble)
{
    const std::string big = "12345678901234567890123456789012345678"; // 38 digits
    const std::string fraction = "-0.00000000000000000000000000000000000001";
    ASSERT_EQ(addRecord(db, {{"Name", "big"}, {"Price", big}}), 0u);
    ASSERT_EQ(addRecord(db, {{"Name", "tiny"}, {"Price", fraction}}), 0u);
    ASSERT_EQ(addRecord(db, {{"Name", "none"}}), 0u);
    EXPECT_EQ(column(db, "Name = 'big'", "Price"), std::vector<std::string>{big});
    EXPECT_EQ(column(db, "Name = 'tiny'", "Price"), std::vector<std::string>{fraction});
    double value = 0;
    ASSERT_EQ(db.executeSearch("Name = 'big'"), 0u);
    ASSERT_EQ(db.moveFirst(), 0u);
    const FieldDefinition* field = nullptr;
    const FieldValue* stored = nullptr;
    ASSERT_EQ(db.getValue("Price", field, stored), 0u);
    value = valueAsDouble(*stored).value_or(0);
    EXPECT_DOUBLE_EQ(value, 1.2345678901234568e37);
    // A number without a value reads as empty text and 0.
    EXPECT_EQ(column(db, "Name = 'none'", "Price"), std::vector<std::string>{""});
}

TEST_F(RecordValuesTest, UpdateWritesOnlyTheChangedFields)
{
    ASSERT_EQ(addRecord(db, {{"Name", "Widget"}, {"City", "Paris"}}), 0u);
    Database& shop = reopen();
    DatabaseService otherService(environmentIn(folder.path()));
    Database& other = open(otherService, "Shop");
    ASSERT_EQ(shop.moveTo(uint32_t(1)), 0u);
    ASSERT_EQ(other.moveTo(std::string_view("1")), 0u);
    ASSERT_EQ(shop.setValue("Name", std::string_view("Sprocket")), 0u);
    ASSERT_EQ(other.setValue("City", std::string_view("Lyon")), 0u);
    EXPECT_EQ(shop.updateRecord(), 0u);
    EXPECT_EQ(other.updateRecord(), 0u);
    EXPECT_EQ(column(shop, "", "Name"), std::vector<std::string>{"Sprocket"});
    EXPECT_EQ(column(shop, "", "City"), std::vector<std::string>{"Lyon"});
}

TEST_F(RecordValuesTest, UpdateNeedsACurrentRecordThatStillExists)
{
    EXPECT_EQ(db.updateRecord(), result::kNoCurrentRecord);
    EXPECT_EQ(text(db, "Qty"), "");
    EXPECT_NE(db.message().find("no current record"), std::string::npos);
    ASSERT_EQ(addRecord(db, {{"Name", "Widget"}}), 0u);
    ASSERT_EQ(db.moveTo(uint32_t(1)), 0u);
    ASSERT_EQ(db.deleteRecord(uint32_t(1)), 0u);
    ASSERT_EQ(db.setValue("Name", std::string_view("Ghost")), 0u);
    EXPECT_EQ(db.updateRecord(), result::kRecordNotFound);
}

TEST_F(RecordValuesTest, DeleteByUniqueIDAcceptsEveryKeyKind)
{
    for (int i = 0; i < 4; ++i)
        ASSERT_EQ(addRecord(db, {{"Name", "r" + std::to_string(i)}}), 0u);
    EXPECT_EQ(db.deleteRecord(std::string_view("1")), 0u);
    EXPECT_EQ(db.deleteRecord(uint32_t(2)), 0u);
    EXPECT_EQ(db.deleteRecord(int32_t(3)), 0u);
    EXPECT_EQ(db.deleteRecord(4.0), 0u);
    EXPECT_EQ(recordCount(db), 0u);
    EXPECT_EQ(db.deleteRecord(std::string_view("1")), result::kRecordNotFound);
    EXPECT_EQ(db.deleteRecord(std::string_view("one")), result::kRecordNotFound);
}

TEST_F(RecordValuesTest, UniqueIDsAreNeverReusedAndDeleteAllEmptiesTheDatabase)
{
    ASSERT_EQ(addRecord(db, {{"Name", "a"}}), 0u);
    ASSERT_EQ(addRecord(db, {{"Name", "b"}}), 0u);
    ASSERT_EQ(db.deleteAllRecords(), 0u);
    EXPECT_EQ(recordCount(db), 0u);
    EXPECT_EQ(db.moveFirst(), kKivResult_EndOfFile);
    ASSERT_EQ(addRecord(db, {{"Name", "c"}}), 0u);
    EXPECT_EQ(text(db, "KIVIDFIELD"), "3");
}

TEST_F(RecordValuesTest, UniqueFieldsRefuseDuplicatesNamingTheField)
{
    ASSERT_EQ(db.addField("Sku", 0x04060000), 0u);    // unique, case-insensitive text
    ASSERT_EQ(db.addField("Amount", 0x04050000), 0u); // unique number
    ASSERT_EQ(addRecord(db, {{"Sku", "ab-1"}, {"Amount", "1.50"}}), 0u);
    EXPECT_EQ(addRecord(db, {{"Sku", "AB-1"}, {"Amount", "2"}}), kKivResult_NotUnique);
    EXPECT_NE(db.message().find("Sku"), std::string::npos);
    EXPECT_EQ(addRecord(db, {{"Sku", "ab-2"}, {"Amount", "1.5"}}), kKivResult_NotUnique);
    EXPECT_NE(db.message().find("Amount"), std::string::npos);
    EXPECT_EQ(recordCount(db), 1u);
}

TEST_F(RecordValuesTest, ValuesSurviveClosingAndReopening)
{
    ASSERT_EQ(addRecord(db, {{"Name", "Widget"}, {"Price", "19.90"}, {"Weight", "0.25"}, {"Active", "true"}}),
              0u);
    service.disconnect();
    DatabaseService later(environmentIn(folder.path()));
    Database& shop = open(later, "SHOP");
    ASSERT_EQ(shop.moveFirst(), 0u);
    EXPECT_EQ(text(shop, "Price"), "19.90");
    EXPECT_EQ(text(shop, "Weight"), "0.25");
    EXPECT_EQ(text(shop, "Active"), "1");
}

} // namespace
} // namespace kiv::db::testing
