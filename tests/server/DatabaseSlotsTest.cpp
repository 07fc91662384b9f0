// The database callback's slots, decoded by the one adapter: the size rule of every text
// output, value kinds in both directions, keys of every kind, the open intent the dispatcher
// sets, and calls that lack their arguments. Everything behind the adapter is tested through
// the typed service in tests/databases.
#include "ServiceCodes.h"
#include "abi/DatabaseSlots.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>

namespace kiv
{
namespace
{

namespace result = db::result;

class DatabaseSlots : public ::testing::Test
{
protected:
    DatabaseSlots()
    {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
    }
    ~DatabaseSlots() override { std::filesystem::remove_all(folder); }

    static db::ServiceEnvironment environment(const std::filesystem::path& data)
    {
        db::ServiceEnvironment settings;
        settings.dataFolder = data;
        settings.lockWait = std::chrono::milliseconds(0);
        return settings;
    }

    uint32_t call(uint32_t selector, void* a3 = nullptr, void* a4 = nullptr, void* a5 = nullptr,
                  void* a6 = nullptr, void* a7 = nullptr, void* a8 = nullptr)
    {
        return slots.call(selector, a3, a4, a5, a6, a7, a8);
    }
    uint32_t withText(uint32_t selector, uint32_t* handle, std::string text, uint32_t* word = nullptr)
    {
        uint32_t size = uint32_t(text.size() + 1);
        return call(selector, handle, text.data(), &size, nullptr, nullptr, word);
    }
    uint32_t open(const std::string& name, uint32_t mode, uint32_t& handle)
    {
        std::string text = name;
        uint32_t size = uint32_t(text.size() + 1);
        return call(kKivDB_OpenDatabase, &handle, text.data(), &size, nullptr, nullptr, &mode);
    }
    uint32_t setValue(uint32_t handle, std::string field, const void* value, uint32_t size, uint32_t kind)
    {
        uint32_t fieldSize = uint32_t(field.size() + 1);
        return call(kKivDB_SetFieldValue, &handle, field.data(), &fieldSize, const_cast<void*>(value), &size,
                    &kind);
    }
    uint32_t getValue(uint32_t handle, std::string field, void* value, uint32_t& size, uint32_t kind)
    {
        uint32_t fieldSize = uint32_t(field.size() + 1);
        return call(kKivDB_GetFieldValue, &handle, field.data(), &fieldSize, value, &size, &kind);
    }
    // A shop with a record: Name (Text 20), Qty (Integer), Notes (LongText).
    uint32_t openShop()
    {
        uint32_t handle = 0;
        EXPECT_EQ(withText(kKivDB_CreateDatabase, nullptr, "Shop"), 0u);
        EXPECT_EQ(open("Shop", kKivOpenMode_Exclusive, handle), 0u);
        for (auto [field, type] : {std::pair<const char*, uint32_t>{"Name", 0x00060014},
                                   {"Qty", 0x00020000},
                                   {"Notes", 0x00070000}})
            EXPECT_EQ(withText(kKivDB_AddField, &handle, field, &type), 0u);
        EXPECT_EQ(call(kKivDB_CreateRecord, &handle), 0u);
        EXPECT_EQ(call(kKivDB_AddRecord, &handle), 0u);
        return handle;
    }

    std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("kiv-slots-" + std::to_string(::getpid()));
    db::DatabaseService service{environment(folder)};
    abi::DatabaseSlots slots{service};
};

TEST_F(DatabaseSlots, TextOutputsNeedTheirLengthPlusOneAndReportWhatTheyWrote)
{
    const std::string name = "Inventory of the north-east warehouse";
    uint32_t handle = 0;
    ASSERT_EQ(withText(kKivDB_CreateDatabase, nullptr, name), 0u);
    ASSERT_EQ(open(name, kKivOpenMode_Shared, handle), 0u);
    std::vector<char> buffer(name.size());
    uint32_t room = uint32_t(buffer.size());
    ASSERT_EQ(call(kKivDB_GetDatabaseName, &handle, buffer.data(), &room),
              uint32_t(kKivResult_BufferTooSmall));
    EXPECT_EQ(room, name.size() + 1);
    buffer.resize(room);
    ASSERT_EQ(call(kKivDB_GetDatabaseName, &handle, buffer.data(), &room), 0u);
    EXPECT_EQ(room, name.size());
    EXPECT_EQ(std::string(buffer.data()), name);
    // By index, the index word stays the index until the name fits, then becomes the type word.
    uint32_t index = 0;
    char small[4];
    room = sizeof small;
    EXPECT_EQ(call(kKivDB_GetFieldInfoByIndex, &handle, small, &room, nullptr, nullptr, &index),
              uint32_t(kKivResult_BufferTooSmall));
    EXPECT_EQ(index, 0u);
    std::vector<char> fieldName(room);
    EXPECT_EQ(call(kKivDB_GetFieldInfoByIndex, &handle, fieldName.data(), &room, nullptr, nullptr, &index),
              0u);
    EXPECT_EQ(std::string(fieldName.data()), KIV_DEFAULT_UNIQUE_ID_FIELD);
    EXPECT_EQ(index, 0x07030000u);
    uint32_t count = 0;
    room = uint32_t(buffer.size());
    EXPECT_EQ(call(kKivDB_GetDatabaseNameByIndex, &count, buffer.data(), &room), 0u);
    EXPECT_EQ(call(kKivDB_GetODBCFieldTypeCount, nullptr, nullptr, nullptr, nullptr, nullptr, &count), 0u);
    EXPECT_EQ(count, 7u);
}

TEST_F(DatabaseSlots, ValueKindsConvertBothWaysAndLongTextTakesTheRetry)
{
    const uint32_t handle = openShop();
    const int32_t qty = -42;
    EXPECT_EQ(setValue(handle, "Qty", &qty, 4, kKivValueKind_Int32), 0u);
    const double real = 7.0;
    EXPECT_EQ(setValue(handle, "Name", &real, 8, kKivValueKind_Double), 0u);
    std::string notes(500, 'n');
    EXPECT_EQ(setValue(handle, "Notes", notes.data(), uint32_t(notes.size() + 1), kKivValueKind_Text), 0u);
    EXPECT_EQ(setValue(handle, "Qty", &real, 4, kKivValueKind_Double), result::kInvalidArgument) << "8 bytes";
    uint32_t handleWord = handle;
    ASSERT_EQ(call(kKivDB_UpdateRecord, &handleWord), 0u);

    uint32_t size = 4;
    uint32_t unsignedQty = 0;
    EXPECT_EQ(getValue(handle, "Qty", &unsignedQty, size, kKivValueKind_UInt32), result::kTypeMismatch);
    int32_t signedQty = 0;
    EXPECT_EQ(getValue(handle, "Qty", &signedQty, size, kKivValueKind_Int32), 0u);
    EXPECT_EQ(signedQty, -42);
    double asDouble = 0;
    size = 8;
    EXPECT_EQ(getValue(handle, "Qty", &asDouble, size, kKivValueKind_Double), 0u);
    EXPECT_EQ(asDouble, -42.0);
    char text[64];
    size = sizeof text;
    EXPECT_EQ(getValue(handle, "Name", text, size, kKivValueKind_Text), 0u);
    EXPECT_EQ(std::string(text, size), "7");
    EXPECT_EQ(getValue(handle, "Notes", text, size, kKivValueKind_Text), uint32_t(kKivResult_BufferTooSmall));
    EXPECT_EQ(size, 501u);
    std::vector<char> larger(size);
    EXPECT_EQ(getValue(handle, "Notes", larger.data(), size, kKivValueKind_Text), 0u);
    EXPECT_EQ(std::string(larger.data(), size), notes);
    size = 64;
    EXPECT_EQ(getValue(handle, "Nowhere", text, size, kKivValueKind_Text), uint32_t(kKivResult_NotFound));
}

TEST_F(DatabaseSlots, KeysOfEveryKindFindTheRecord)
{
    uint32_t handle = openShop();
    ASSERT_EQ(call(kKivDB_CreateRecord, &handle), 0u);
    ASSERT_EQ(call(kKivDB_AddRecord, &handle), 0u);
    const int32_t signedKey = 2;
    uint32_t size = 4;
    uint32_t kind = kKivValueKind_Int32;
    EXPECT_EQ(
        call(kKivDB_MoveToRecord, &handle, const_cast<int32_t*>(&signedKey), &size, nullptr, nullptr, &kind),
        0u);
    double realKey = 1.0;
    size = 8;
    kind = kKivValueKind_Double;
    EXPECT_EQ(call(kKivDB_DeleteRecord, &handle, &realKey, &size, nullptr, nullptr, &kind), 0u);
    EXPECT_EQ(withText(kKivDB_DeleteRecord, &handle, "2"), 0u);
    EXPECT_EQ(withText(kKivDB_DeleteRecord, &handle, "2"), result::kRecordNotFound);
    uint32_t count = 9;
    EXPECT_EQ(call(kKivDB_GetRecordCount, &handle, nullptr, nullptr, nullptr, nullptr, &count), 0u);
    EXPECT_EQ(count, 0u);
}

TEST_F(DatabaseSlots, OpensCreateOnlyWithTheIntentTheDispatcherSet)
{
    uint32_t handle = 77;
    EXPECT_EQ(open("Missing", kKivOpenMode_Shared, handle), result::kDatabaseNotFound);
    EXPECT_EQ(handle, 77u) << "the handle is written only on success";
    slots.setOpenIntent(db::OpenIntent::CreateIfMissing);
    EXPECT_EQ(open("Missing", kKivOpenMode_Shared, handle), 0u);
    EXPECT_NE(handle, 77u);
    // The unique-ID field name travels in a6/a7; a length word of 0 is an empty name.
    std::string name = "Missing";
    uint32_t nameSize = uint32_t(name.size() + 1);
    char unique[] = "KIVIDFIELD";
    uint32_t uniqueSize = 0;
    uint32_t mode = kKivOpenMode_Shared;
    EXPECT_EQ(call(kKivDB_OpenDatabase, &handle, name.data(), &nameSize, unique, &uniqueSize, &mode), 0u);
}

TEST_F(DatabaseSlots, CallsWithoutTheirArgumentsAreRefusedNotCrashed)
{
    uint32_t bogus = 4242;
    EXPECT_EQ(call(kKivDB_CloseDatabase, &bogus), result::kInvalidHandle);
    EXPECT_EQ(call(kKivDB_MoveFirstRecord, nullptr), result::kInvalidArgument);
    EXPECT_EQ(call(kKivDB_CreateDatabase), result::kInvalidArgument);
    EXPECT_EQ(call(kKivDB_OpenDatabase), result::kInvalidArgument);
    EXPECT_EQ(call(kKivDB_GetErrorInfo), result::kInvalidArgument);
    EXPECT_EQ(call(db::fourCharCode("Nope")), uint32_t(kKivResult_UnknownFunction));
    uint32_t handle = openShop();
    EXPECT_EQ(call(kKivDB_SetFieldValue, &handle), result::kInvalidArgument);
    EXPECT_EQ(call(kKivDB_GetFieldValue, &handle), result::kInvalidArgument);
    EXPECT_EQ(call(kKivDB_Export, &handle), result::kInvalidArgument);
    EXPECT_EQ(call(kKivDB_Jump, &handle), result::kInvalidArgument);
    EXPECT_EQ(call(kKivDB_Terminate), 0u);
    EXPECT_EQ(call(kKivDB_MoveFirstRecord, &handle), result::kInvalidHandle) << "terminate closed it";
}

TEST_F(DatabaseSlots, InitializeAndErrorInfoSpeakForTheService)
{
    char embedded[] = ",,";
    uint32_t size = sizeof embedded;
    EXPECT_EQ(call(kKivDB_Initialize, nullptr, embedded, &size), 0u);
    char odbc[] = "Sales,admin,secret,with,commas";
    size = sizeof odbc;
    EXPECT_EQ(call(kKivDB_Initialize, nullptr, odbc, &size), result::kODBCUnavailable);
    uint32_t code = result::kODBCUnavailable;
    char text[512];
    size = sizeof text;
    EXPECT_EQ(call(kKivDB_GetErrorInfo, &code, text, &size), 0u);
    EXPECT_NE(std::string(text, size).find("Sales"), std::string::npos);
    code = 0;
    size = sizeof text;
    EXPECT_EQ(call(kKivDB_GetErrorInfo, &code, text, &size), 0u);
    EXPECT_EQ(size, 0u) << "a success has no detail";
}

} // namespace
} // namespace kiv
