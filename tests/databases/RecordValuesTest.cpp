// Records and typed values: what each value kind becomes in each field type, exact numbers,
// the record buffer's life cycle, and deletion by unique ID with every key kind.
#include "ServiceClient.h"

#include <cmath>

namespace kiv::db::testing
{
namespace
{

class RecordValuesTest : public ::testing::Test
{
protected:
    DataFolder folder;
    ServiceClient client{folder.path()};
    uint32_t handle = openSampleDatabase(client, "Shop");
};

TEST_F(RecordValuesTest, AddedRecordIsCurrentAndGetsTheNextUniqueID)
{
    ASSERT_EQ(client.addRecord(handle, {{"Name", "Widget"}}), 0u);
    uint32_t id = 0;
    EXPECT_EQ(client.getUInt(handle, "KIVIDFIELD", id), 0u);
    EXPECT_EQ(id, 1u);
    ASSERT_EQ(client.addRecord(handle, {{"Name", "Gadget"}, {"KIVIDFIELD", "1"}}),
              0u); // a posted ID is ignored
    EXPECT_EQ(client.getText(handle, "KIVIDFIELD").text, "2");
    EXPECT_EQ(client.recordCount(handle), 2u);
    EXPECT_EQ(client.simple(kKivDB_AddRecord, handle), result::kNoCurrentRecord); // already added
}

TEST_F(RecordValuesTest, ValueKindsConvertToTheFieldType)
{
    ASSERT_EQ(client.simple(kKivDB_CreateRecord, handle), 0u);
    EXPECT_EQ(client.setText(handle, "Qty", " 42 "), 0u);
    EXPECT_EQ(client.setDouble(handle, "Stock", 7.0), 0u);
    EXPECT_EQ(client.setInt(handle, "Weight", -3), 0u);
    EXPECT_EQ(client.setText(handle, "Active", "Yes"), 0u);
    EXPECT_EQ(client.setUInt(handle, "Notes", 12), 0u);
    EXPECT_EQ(client.setDouble(handle, "Price", 0.1), 0u);
    ASSERT_EQ(client.simple(kKivDB_AddRecord, handle), 0u);
    int32_t qty = 0;
    EXPECT_EQ(client.getInt(handle, "Qty", qty), 0u);
    EXPECT_EQ(qty, 42);
    EXPECT_EQ(client.getText(handle, "Stock").text, "7");
    double weight = 0;
    EXPECT_EQ(client.getDouble(handle, "Weight", weight), 0u);
    EXPECT_EQ(weight, -3.0);
    uint32_t active = 0;
    EXPECT_EQ(client.getUInt(handle, "Active", active), 0u);
    EXPECT_EQ(active, 1u);
    EXPECT_EQ(client.getText(handle, "Active").text, "1");
    EXPECT_EQ(client.getText(handle, "Notes").text, "12");
    EXPECT_EQ(client.getText(handle, "Price").text, "0.1");
}

TEST_F(RecordValuesTest, ValuesThatDoNotFitAreRefusedWithAReason)
{
    ASSERT_EQ(client.simple(kKivDB_CreateRecord, handle), 0u);
    EXPECT_EQ(client.setText(handle, "Qty", "12abc"), result::kTypeMismatch);
    EXPECT_NE(client.errorInfo(handle).text.find("Qty"), std::string::npos);
    EXPECT_EQ(client.setText(handle, "Qty", "2.5"), result::kTypeMismatch);
    EXPECT_EQ(client.setText(handle, "Qty", "3000000000"), result::kTypeMismatch);
    EXPECT_EQ(client.setInt(handle, "Stock", -1), result::kTypeMismatch);
    EXPECT_EQ(client.setText(handle, "Active", "perhaps"), result::kTypeMismatch);
    EXPECT_EQ(client.setText(handle, "Price", "1.2.3"), result::kTypeMismatch);
    EXPECT_EQ(client.setDouble(handle, "Weight", std::nan("")), result::kTypeMismatch);
    EXPECT_EQ(client.setText(handle, "Name", std::string(41, 'x')), result::kValueTooLong);
    EXPECT_EQ(client.setText(handle, "Name", std::string(40, 'x')), 0u);
    EXPECT_EQ(client.setText(handle, "Nowhere", "1"), result::kFieldNotFound);
    EXPECT_EQ(client.errorInfo(handle).text, "Nowhere");
}

TEST_F(RecordValuesTest, NumbersKeepTheirExactTextAndReadAsDouble)
{
    const std::string big = "12345678901234567890123456789012345678"; // 38 digits
    const std::string fraction = "-0.00000000000000000000000000000000000001";
    ASSERT_EQ(client.addRecord(handle, {{"Name", "big"}, {"Price", big}}), 0u);
    ASSERT_EQ(client.addRecord(handle, {{"Name", "tiny"}, {"Price", fraction}}), 0u);
    ASSERT_EQ(client.addRecord(handle, {{"Name", "none"}}), 0u);
    EXPECT_EQ(client.column(handle, "Name = 'big'", "Price"), std::vector<std::string>{big});
    EXPECT_EQ(client.column(handle, "Name = 'tiny'", "Price"), std::vector<std::string>{fraction});
    double value = 0;
    ASSERT_EQ(client.search(handle, "Name = 'big'"), 0u);
    ASSERT_EQ(client.simple(kKivDB_MoveFirstRecord, handle), 0u);
    EXPECT_EQ(client.getDouble(handle, "Price", value), 0u);
    EXPECT_DOUBLE_EQ(value, 1.2345678901234568e37);
    // A number without a value reads as empty text and 0.
    EXPECT_EQ(client.column(handle, "Name = 'none'", "Price"), std::vector<std::string>{""});
}

TEST_F(RecordValuesTest, UpdateWritesOnlyTheChangedFields)
{
    ASSERT_EQ(client.addRecord(handle, {{"Name", "Widget"}, {"City", "Paris"}}), 0u);
    ServiceClient other(folder.path());
    uint32_t otherHandle = 0;
    ASSERT_EQ(client.close(handle), 0u);
    ASSERT_EQ(client.open("Shop", 2, handle), 0u);
    ASSERT_EQ(other.open("Shop", 2, otherHandle), 0u);
    ASSERT_EQ(client.moveToUInt(handle, 1), 0u);
    ASSERT_EQ(other.moveToText(otherHandle, "1"), 0u);
    ASSERT_EQ(client.setText(handle, "Name", "Sprocket"), 0u);
    ASSERT_EQ(other.setText(otherHandle, "City", "Lyon"), 0u);
    EXPECT_EQ(client.simple(kKivDB_UpdateRecord, handle), 0u);
    EXPECT_EQ(other.simple(kKivDB_UpdateRecord, otherHandle), 0u);
    EXPECT_EQ(client.column(handle, "", "Name"), std::vector<std::string>{"Sprocket"});
    EXPECT_EQ(client.column(handle, "", "City"), std::vector<std::string>{"Lyon"});
}

TEST_F(RecordValuesTest, UpdateNeedsACurrentRecordThatStillExists)
{
    EXPECT_EQ(client.simple(kKivDB_UpdateRecord, handle), result::kNoCurrentRecord);
    uint32_t value = 0;
    EXPECT_EQ(client.getUInt(handle, "Qty", value), result::kNoCurrentRecord);
    ASSERT_EQ(client.addRecord(handle, {{"Name", "Widget"}}), 0u);
    ASSERT_EQ(client.moveToUInt(handle, 1), 0u);
    ASSERT_EQ(client.deleteRecordByUInt(handle, 1), 0u);
    ASSERT_EQ(client.setText(handle, "Name", "Ghost"), 0u);
    EXPECT_EQ(client.simple(kKivDB_UpdateRecord, handle), result::kRecordNotFound);
}

TEST_F(RecordValuesTest, DeleteByUniqueIDAcceptsEveryKeyKind)
{
    for (int i = 0; i < 4; ++i)
        ASSERT_EQ(client.addRecord(handle, {{"Name", "r" + std::to_string(i)}}), 0u);
    EXPECT_EQ(client.deleteRecordByText(handle, "1"), 0u);
    EXPECT_EQ(client.deleteRecordByUInt(handle, 2), 0u);
    int32_t signedKey = 3;
    uint32_t size = 4;
    uint32_t kind = kKivValueKind_Int32;
    EXPECT_EQ(client.call(kKivDB_DeleteRecord, &handle, &signedKey, &size, nullptr, nullptr, &kind), 0u);
    double realKey = 4.0;
    size = 8;
    kind = kKivValueKind_Double;
    EXPECT_EQ(client.call(kKivDB_DeleteRecord, &handle, &realKey, &size, nullptr, nullptr, &kind), 0u);
    EXPECT_EQ(client.recordCount(handle), 0u);
    EXPECT_EQ(client.deleteRecordByText(handle, "1"), result::kRecordNotFound);
    EXPECT_EQ(client.deleteRecordByText(handle, "one"), result::kRecordNotFound);
}

TEST_F(RecordValuesTest, UniqueIDsAreNeverReusedAndDeleteAllEmptiesTheDatabase)
{
    ASSERT_EQ(client.addRecord(handle, {{"Name", "a"}}), 0u);
    ASSERT_EQ(client.addRecord(handle, {{"Name", "b"}}), 0u);
    ASSERT_EQ(client.simple(kKivDB_DeleteAllRecords, handle), 0u);
    EXPECT_EQ(client.recordCount(handle), 0u);
    EXPECT_EQ(client.simple(kKivDB_MoveFirstRecord, handle), result::kEndOfFile);
    ASSERT_EQ(client.addRecord(handle, {{"Name", "c"}}), 0u);
    EXPECT_EQ(client.getText(handle, "KIVIDFIELD").text, "3");
}

TEST_F(RecordValuesTest, UniqueFieldsRefuseDuplicatesNamingTheField)
{
    ASSERT_EQ(client.close(handle), 0u);
    ASSERT_EQ(client.open("Shop", 3, handle), 0u);
    ASSERT_EQ(client.addField(handle, "Sku", 0x04060000), 0u);    // unique, case-insensitive text
    ASSERT_EQ(client.addField(handle, "Amount", 0x04050000), 0u); // unique number
    ASSERT_EQ(client.addRecord(handle, {{"Sku", "ab-1"}, {"Amount", "1.50"}}), 0u);
    EXPECT_EQ(client.addRecord(handle, {{"Sku", "AB-1"}, {"Amount", "2"}}), result::kDuplicateValue);
    EXPECT_NE(client.errorInfo(handle).text.find("Sku"), std::string::npos);
    EXPECT_EQ(client.addRecord(handle, {{"Sku", "ab-2"}, {"Amount", "1.5"}}), result::kDuplicateValue);
    EXPECT_NE(client.errorInfo(handle).text.find("Amount"), std::string::npos);
    EXPECT_EQ(client.recordCount(handle), 1u);
}

TEST_F(RecordValuesTest, LongTextComesBackThroughTheRetry)
{
    std::string text;
    for (int i = 0; i < 500; ++i)
        text += "line " + std::to_string(i) + "\r\n";
    text += std::string("\xE9t\xE9 \xE0 la caf\xE9"); // Latin-1 bytes stay as they are
    ASSERT_EQ(client.addRecord(handle, {{"Notes", text}}), 0u);
    const TextAnswer answer = client.getText(handle, "Notes");
    EXPECT_EQ(answer.code, 0u);
    EXPECT_EQ(answer.calls, 2);
    EXPECT_EQ(answer.text, text);
    // A second 'MBtS' cannot happen: the size asked for is enough.
    std::vector<char> exact(text.size() + 1);
    uint32_t room = uint32_t(exact.size());
    uint32_t kind = kKivValueKind_Text;
    std::string field = "Notes";
    uint32_t fieldSize = 6;
    EXPECT_EQ(
        client.call(kKivDB_GetFieldValue, &handle, field.data(), &fieldSize, exact.data(), &room, &kind), 0u);
    EXPECT_EQ(room, text.size());
}

TEST_F(RecordValuesTest, ValuesSurviveClosingAndReopening)
{
    ASSERT_EQ(client.addRecord(
                  handle, {{"Name", "Widget"}, {"Price", "19.90"}, {"Weight", "0.25"}, {"Active", "true"}}),
              0u);
    ASSERT_EQ(client.close(handle), 0u);
    ServiceClient later(folder.path());
    ASSERT_EQ(later.open("SHOP", 2, handle), 0u);
    ASSERT_EQ(later.simple(kKivDB_MoveFirstRecord, handle), 0u);
    EXPECT_EQ(later.getText(handle, "Price").text, "19.90");
    EXPECT_EQ(later.getText(handle, "Weight").text, "0.25");
    EXPECT_EQ(later.getText(handle, "Active").text, "1");
}

} // namespace
} // namespace kiv::db::testing
