// The database wrappers: the slots each one fills, the kinds and sizes of values, the type
// words of new fields, the capacities and retry of text answers, and the neutral values the
// caller gets when the host fails.
#include "FakeHost.h"
#include "KivGlueDB.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

using kivtest::FakeCall;
using kivtest::FakeHost;
using kivtest::kDatabase;

namespace
{

std::string Text(const KivString& string_i)
{
    return std::string(string_i.GetCStringAccess(), string_i.GetLength());
}

constexpr uint32_t kTextField50 = (kKivFieldType_Text << kKivFieldTypeShift) | 50 | kKivFieldFlag_Indexed;
constexpr uint32_t kNoRecord = kKivResult_EndOfFile;

class GlueDB : public ::testing::Test
{
protected:
    void SetUp() override
    {
        kivtest::FakeDatabase& people = host.db.AddDatabase("people", {{"Name", kTextField50},
                                                                       {"Age", 0x20000},
                                                                       {"Member", 0x10000},
                                                                       {"Height", 0x40000},
                                                                       {"Balance", 0x50000},
                                                                       {"Visits", 0x30000},
                                                                       {"Notes", 0x70000}});
        people.AddRecord({{"Name", "Ann"},
                          {"Age", "41"},
                          {"Member", "1"},
                          {"Height", "1.75"},
                          {"Balance", "123.45"},
                          {"Visits", "3000000000"},
                          {"Notes", std::string(100, 'n')}});
        people.AddRecord({{"Name", "Bob"}, {"Age", "-7"}, {"Member", "0"}});
        ASSERT_EQ(KivGlueDBOpenDatabase(Info(), "people", 2, database), 0u);
        host.ClearCalls();
    }

    _KIVAPI_ModuleProcessingInfo* Info() { return host.Info(); }
    const FakeCall& OnlyCall()
    {
        EXPECT_EQ(host.calls.size(), 1u);
        return host.calls.back();
    }
    void MoveToFirst() { ASSERT_EQ(KivGlueDBMoveFirstRecord(Info(), database), 0u); }

    FakeHost host;
    unsigned int database = 0;
};

} // namespace

TEST_F(GlueDB, InitializeJoinsTheSessionTextsWithCommas)
{
    EXPECT_EQ(KivGlueDBInitialize(Info(), "Sales", "clerk", "pw"), 0u);
    const FakeCall& call = OnlyCall();
    EXPECT_TRUE(call.database);
    EXPECT_EQ(call.selector, (uint32_t)kKivDB_Initialize);
    EXPECT_EQ(call.text, "Sales,clerk,pw");
    EXPECT_EQ(call.textLengthWord, 15u);
    EXPECT_TRUE(call.textTerminated);
    EXPECT_FALSE(call.hasHandle);
    EXPECT_FALSE(call.hasWord8);

    EXPECT_EQ(KivGlueDBInitialize(Info(), "", "", ""), 0u);
    EXPECT_EQ(host.db.session, ",,");
    EXPECT_EQ(KivGlueDBTerminate(Info()), 0u);
    const FakeCall& terminate = host.calls.back();
    for (void* slot : terminate.args)
        EXPECT_EQ(slot, nullptr);
}

TEST_F(GlueDB, OpenWritesTheHandleOnlyOnSuccess)
{
    unsigned int handle = 99;
    EXPECT_EQ(KivGlueDBOpenDatabase(Info(), "people", 3, handle, "Name"), 0u);
    EXPECT_NE(handle, 99u);
    const FakeCall& call = OnlyCall();
    EXPECT_EQ(call.handle, 0u) << "preset";
    EXPECT_EQ(call.text, "people");
    EXPECT_EQ(call.textLengthWord, 7u);
    EXPECT_EQ(call.text2, "Name");
    EXPECT_EQ(call.text2LengthWord, 5u);
    EXPECT_EQ(call.word8, 3u);

    unsigned int unchanged = 99;
    EXPECT_EQ(KivGlueDBOpenDatabase(Info(), "missing", 2, unchanged), kivtest::kFakeNotFound);
    EXPECT_EQ(unchanged, 99u);
    EXPECT_EQ(host.calls.back().text2LengthWord, 1u) << "an empty second text is still sent";
}

TEST_F(GlueDB, HandleOnlyCallsPassTheHostsCodeThrough)
{
    using HandleWrapper = KivUInt32 (*)(_KIVAPI_ModuleProcessingInfo*, const unsigned int&);
    const std::vector<std::pair<HandleWrapper, uint32_t>> wrappers = {
        {KivGlueDBCloseDatabase, kKivDB_CloseDatabase},
        {KivGlueDBCreateRecord, kKivDB_CreateRecord},
        {KivGlueDBAddRecord, kKivDB_AddRecord},
        {KivGlueDBUpdateRecord, kKivDB_UpdateRecord},
        {KivGlueDBDeleteAllRecords, kKivDB_DeleteAllRecords},
        {KivGlueDBClearSearchResults, kKivDB_ClearSearchResults},
        {KivGlueDBMoveFirstRecord, kKivDB_MoveFirstRecord},
        {KivGlueDBMoveLastRecord, kKivDB_MoveLastRecord},
        {KivGlueDBMovePrevRecord, kKivDB_MovePrevRecord},
        {KivGlueDBMoveNextRecord, kKivDB_MoveNextRecord},
    };
    for (const auto& wrapper : wrappers)
    {
        host.ClearCalls();
        host.FailDatabase(wrapper.second, kNoRecord);
        EXPECT_EQ(wrapper.first(Info(), database), kNoRecord);
        const FakeCall& call = OnlyCall();
        EXPECT_EQ(call.selector, wrapper.second);
        EXPECT_TRUE(call.hasHandle);
        EXPECT_EQ(call.handle, database);
        for (int slot = 1; slot < 6; ++slot)
            EXPECT_EQ(call.args[slot], nullptr) << call.Selector();
    }
}

TEST_F(GlueDB, NamedCallsSendTheNameAsText)
{
    EXPECT_EQ(KivGlueDBCreateDatabase(Info(), "orders"), 0u);
    EXPECT_EQ(KivGlueDBCreateDatabase(Info(), "orders"), KIV_FOURCC('M', 'O', 'p', 'F'));
    EXPECT_EQ(KivGlueDBDeleteDatabase(Info(), "orders"), 0u);
    EXPECT_EQ(KivGlueDBExecuteSearch(Info(), database, "Name = 'Ann'"), 0u);
    EXPECT_EQ(KivGlueDBDeleteField(Info(), database, "Notes"), 0u);
    EXPECT_EQ(host.Selectors(kDatabase), (std::vector<std::string>{"MDCr", "MDCr", "MDDl", "MSEc", "MFDl"}));
    EXPECT_FALSE(host.calls[0].hasHandle);
    EXPECT_EQ(host.calls[0].text, "orders");
    EXPECT_EQ(host.calls[0].textLengthWord, 7u);
    EXPECT_EQ(host.calls[3].handle, database);
    EXPECT_EQ(host.calls[3].text, "Name = 'Ann'");
    EXPECT_EQ(host.calls[4].text, "Notes");
}

TEST_F(GlueDB, CountsArePresetAndReadZeroWhenTheHostFails)
{
    host.db.odbcSupportFlags = 0x15;
    host.db.odbcCursorFlags = 0x3;
    host.db.odbcFieldTypes = {{"INTEGER", 0x44}, {"VARCHAR", 0x4C}};
    ASSERT_EQ(KivGlueDBExecuteSearch(Info(), database, "Age = 41"), 0u);
    host.ClearCalls();
    auto withHandle = [this](unsigned int (*wrapper)(_KIVAPI_ModuleProcessingInfo*, const unsigned int&))
    { return [this, wrapper]() { return wrapper(Info(), database); }; };
    auto withoutHandle = [this](unsigned int (*wrapper)(_KIVAPI_ModuleProcessingInfo*))
    { return [this, wrapper]() { return wrapper(Info()); }; };
    const std::vector<std::tuple<std::function<unsigned int()>, uint32_t, unsigned int, bool>> counts = {
        {withoutHandle(KivGlueDBGetDatabaseCount), kKivDB_GetDatabaseCount, 1, false},
        {withoutHandle(KivGlueDBGetODBCSupportFlags), kKivDB_GetODBCSupportFlags, 0x15, false},
        {withoutHandle(KivGlueDBGetODBCCursorFlags), kKivDB_GetODBCCursorFlags, 0x3, false},
        {withoutHandle(KivGlueDBGetODBCFieldTypeCount), kKivDB_GetODBCFieldTypeCount, 2, false},
        {withHandle(KivGlueDBGetFieldCount), kKivDB_GetFieldCount, 7, true},
        {withHandle(KivGlueDBGetRecordCount), kKivDB_GetRecordCount, 2, true},
        {withHandle(KivGlueDBGetResultCount), kKivDB_GetResultCount, 2, true},
    };
    for (const auto& count : counts)
    {
        host.ClearCalls();
        host.ClearFailures();
        EXPECT_EQ(std::get<0>(count)(), std::get<2>(count));
        const FakeCall& call = OnlyCall();
        EXPECT_EQ(call.selector, std::get<1>(count));
        EXPECT_EQ(call.hasHandle, std::get<3>(count)) << call.Selector();
        EXPECT_TRUE(call.hasWord8);
        EXPECT_EQ(call.word8, 0u) << call.Selector();
        host.FailDatabase(std::get<1>(count));
        EXPECT_EQ(std::get<0>(count)(), 0u) << call.Selector();
    }
}

TEST_F(GlueDB, NewFieldsCarryTheirTypeWords)
{
    using AddWrapper = KivUInt32 (*)(_KIVAPI_ModuleProcessingInfo*, const unsigned int&, const KivString&);
    const std::vector<std::pair<AddWrapper, uint32_t>> wrappers = {
        {KivGlueDBAddBooleanField, 0x10000},  {KivGlueDBAddIntegerField, 0x20000},
        {KivGlueDBAddUIntegerField, 0x30000}, {KivGlueDBAddFloatField, 0x40000},
        {KivGlueDBAddLongTextField, 0x70000},
    };
    int fieldNumber = 0;
    for (const auto& wrapper : wrappers)
    {
        std::string name = "Field" + std::to_string(fieldNumber++);
        EXPECT_EQ(wrapper.first(Info(), database, name.c_str()), 0u);
        const FakeCall& call = host.calls.back();
        EXPECT_EQ(call.selector, (uint32_t)kKivDB_AddField);
        EXPECT_EQ(call.handle, database);
        EXPECT_EQ(call.text, name);
        EXPECT_EQ(call.word8, wrapper.second);
    }
    EXPECT_EQ(KivGlueDBAddTextField(Info(), database, "Long", 70000), 0u);
    EXPECT_EQ(host.calls.back().word8, 0x60000u | 4464u);
    EXPECT_EQ(KivGlueDBAddTextField(Info(), database, "Short", 50), 0u);
    EXPECT_EQ(host.calls.back().word8, 0x60032u);
    EXPECT_EQ(KivGlueDBAddField(Info(), database, "Key", 0x01030000), 0u);
    EXPECT_EQ(host.calls.back().word8, 0x01030000u);
}

TEST_F(GlueDB, FieldInfoByNameAndByIndex)
{
    unsigned int typeWord = 1;
    EXPECT_EQ(KivGlueDBGetFieldInfo(Info(), database, "Name", typeWord), 0u);
    EXPECT_EQ(typeWord, 0x02060032u);
    EXPECT_EQ(host.calls.back().word8, 0u) << "preset";
    EXPECT_EQ(KivGlueDBGetFieldInfo(Info(), database, "Missing", typeWord), kivtest::kFakeNotFound);
    EXPECT_EQ(typeWord, 0u);

    KivString name("unchanged");
    typeWord = 1;
    EXPECT_EQ(KivGlueDBGetFieldInfo(Info(), database, 1u, name, typeWord), 0u);
    EXPECT_EQ(Text(name), "Age");
    EXPECT_EQ(typeWord, 0x20000u);
    const FakeCall& call = host.calls.back();
    EXPECT_EQ(call.selector, (uint32_t)kKivDB_GetFieldInfoByIndex);
    EXPECT_EQ(call.word8, 1u) << "the index goes in through the type word";
    EXPECT_EQ(call.capacity, 32u);

    name = "unchanged";
    typeWord = 1;
    EXPECT_NE(KivGlueDBGetFieldInfo(Info(), database, 20u, name, typeWord), 0u);
    EXPECT_EQ(Text(name), "unchanged");
    EXPECT_EQ(typeWord, 1u);
}

TEST_F(GlueDB, ValuesAreSentWithTheirKindAndSize)
{
    ASSERT_EQ(KivGlueDBCreateRecord(Info(), database), 0u);
    host.ClearCalls();
    EXPECT_EQ(KivGlueDBSetBooleanFieldValue(Info(), database, "Member", true), 0u);
    EXPECT_EQ(KivGlueDBSetIntegerFieldValue(Info(), database, "Age", -5), 0u);
    EXPECT_EQ(KivGlueDBSetIntegerFieldValue(Info(), database, "Age", 3.9), 0u);
    EXPECT_EQ(KivGlueDBSetIntegerFieldValue(Info(), database, "Age", 1e12), 0u);
    EXPECT_EQ(KivGlueDBSetIntegerFieldValue(Info(), database, "Age", 12u), 0u);
    EXPECT_EQ(KivGlueDBSetIntegerFieldValue(Info(), database, "Age", KivNumber("42")), 0u);
    EXPECT_EQ(KivGlueDBSetUIntegerFieldValue(Info(), database, "Visits", 4000000000u), 0u);
    EXPECT_EQ(KivGlueDBSetFloatFieldValue(Info(), database, "Height", 1.5), 0u);
    EXPECT_EQ(KivGlueDBSetNumberFieldValue(Info(), database, "Balance", KivNumber("123.45")), 0u);
    EXPECT_EQ(KivGlueDBSetTextFieldValue(Info(), database, "Name", "Cy"), 0u);
    EXPECT_EQ(KivGlueDBSetLongTextFieldValue(Info(), database, "Notes", "long"), 0u);

    using Sent = std::tuple<std::string, std::string, uint32_t, uint32_t>; // field, value, kind, size
    std::vector<Sent> sent;
    for (const FakeCall& call : host.calls)
    {
        EXPECT_EQ(call.selector, (uint32_t)kKivDB_SetFieldValue);
        EXPECT_EQ(call.handle, database);
        EXPECT_EQ(call.textLengthWord, call.text.size() + 1);
        uint32_t size = call.Kind() == kKivValueKind_Text ? call.text2LengthWord : call.valueSize;
        sent.emplace_back(call.text, call.text2, call.Kind(), size);
    }
    EXPECT_EQ(sent, (std::vector<Sent>{
                        Sent("Member", "1", kKivValueKind_UInt32, 4),
                        Sent("Age", "-5", kKivValueKind_Int32, 4),
                        Sent("Age", "3", kKivValueKind_Int32, 4),
                        Sent("Age", "2147483647", kKivValueKind_Int32, 4),
                        Sent("Age", "12", kKivValueKind_Int32, 4),
                        Sent("Age", "42", kKivValueKind_Int32, 4),
                        Sent("Visits", "4000000000", kKivValueKind_UInt32, 4),
                        Sent("Height", "1.5", kKivValueKind_Double, 8),
                        // Number fields go in as exact text.
                        Sent("Balance", "123.45", kKivValueKind_Text, 7),
                        Sent("Name", "Cy", kKivValueKind_Text, 3),
                        Sent("Notes", "long", kKivValueKind_Text, 5),
                    }));
    EXPECT_EQ(KivGlueDBSetBooleanFieldValue(Info(), database, "Member", false), 0u);
    EXPECT_EQ(host.calls.back().text2, "0");
}

TEST_F(GlueDB, ValuesAreReadInTheKindOfTheGetter)
{
    MoveToFirst();
    host.ClearCalls();
    EXPECT_TRUE(KivGlueDBGetBooleanFieldValue(Info(), database, "Member"));
    EXPECT_EQ(KivGlueDBGetIntegerFieldValue(Info(), database, "Age"), 41);
    EXPECT_EQ(KivGlueDBGetUIntegerFieldValue(Info(), database, "Visits"), 3000000000u);
    EXPECT_DOUBLE_EQ(KivGlueDBGetFloatFieldValue(Info(), database, "Height"), 1.75);
    EXPECT_EQ(Text(KivGlueDBGetTextFieldValue(Info(), database, "Name")), "Ann");
    std::vector<std::pair<uint32_t, uint32_t>> kinds;
    for (const FakeCall& call : host.calls)
    {
        EXPECT_EQ(call.selector, (uint32_t)kKivDB_GetFieldValue);
        kinds.emplace_back(call.Kind(), call.Kind() == kKivValueKind_Text ? call.capacity2 : call.valueSize);
    }
    using Kind = std::pair<uint32_t, uint32_t>;
    EXPECT_EQ(kinds, (std::vector<Kind>{Kind(kKivValueKind_UInt32, 4), Kind(kKivValueKind_Int32, 4),
                                        Kind(kKivValueKind_UInt32, 4), Kind(kKivValueKind_Double, 8),
                                        Kind(kKivValueKind_Text, 64)}));
}

TEST_F(GlueDB, AnyNonZeroBooleanIsTrue)
{
    MoveToFirst();
    host.databaseHandler = [](kivtest::FakeDBRequest& request) { return request.WriteScalar<uint32_t>(7); };
    EXPECT_TRUE(KivGlueDBGetBooleanFieldValue(Info(), database, "Member"));
}

TEST_F(GlueDB, NumberFieldsAreReadThroughADouble)
{
    MoveToFirst();
    host.ClearCalls();
    KivNumber balance = KivGlueDBGetNumberFieldValue(Info(), database, "Height");
    EXPECT_EQ(Text(balance.GetStringRepresentation()), "1.75");
    const FakeCall& call = OnlyCall();
    EXPECT_EQ(call.Kind(), (uint32_t)kKivValueKind_Double);
    EXPECT_EQ(call.valueSize, 8u);
}

TEST_F(GlueDB, MissingFieldsGiveNeutralValues)
{
    MoveToFirst();
    EXPECT_TRUE(KivGlueDBGetNumberFieldValue(Info(), database, "Missing").IsNull());
    EXPECT_EQ(KivGlueDBGetIntegerFieldValue(Info(), database, "Missing"), 0);
    EXPECT_FALSE(KivGlueDBGetBooleanFieldValue(Info(), database, "Missing"));
    EXPECT_EQ(KivGlueDBGetUIntegerFieldValue(Info(), database, "Missing"), 0u);
    EXPECT_EQ(KivGlueDBGetFloatFieldValue(Info(), database, "Missing"), 0.0);
    EXPECT_EQ(Text(KivGlueDBGetTextFieldValue(Info(), database, "Missing")), "");
    EXPECT_EQ(Text(KivGlueDBGetLongTextFieldValue(Info(), database, "Missing")), "");
}

TEST_F(GlueDB, ALongTextIsReadInTwoCalls)
{
    MoveToFirst();
    host.ClearCalls();
    EXPECT_EQ(Text(KivGlueDBGetLongTextFieldValue(Info(), database, "Notes")), std::string(100, 'n'));
    ASSERT_EQ(host.calls.size(), 2u);
    EXPECT_EQ(host.calls[0].capacity2, 64u);
    EXPECT_EQ(host.calls[0].result, (uint32_t)kKivResult_BufferTooSmall);
    EXPECT_EQ(host.calls[1].capacity2, 101u);
    EXPECT_EQ(host.calls[1].text, "Notes");

    host.ClearCalls();
    host.BufferTooSmall(kKivDB_GetFieldValue, 200, 2, kDatabase);
    EXPECT_EQ(Text(KivGlueDBGetTextFieldValue(Info(), database, "Name")), "");
    EXPECT_EQ(host.calls.size(), 2u);
}

TEST_F(GlueDB, RecordKeysTravelAsTextOrAsNumbersWithTheirSize)
{
    host.databaseHandler = [](kivtest::FakeDBRequest&) { return 0u; };
    EXPECT_EQ(KivGlueDBDeleteRecord(Info(), database, KivString("Ann")), 0u);
    EXPECT_EQ(KivGlueDBDeleteRecord(Info(), database, 7u), 0u);
    EXPECT_EQ(KivGlueDBDeleteRecord(Info(), database, -7), 0u);
    EXPECT_EQ(KivGlueDBDeleteRecord(Info(), database, 2.5), 0u);
    EXPECT_EQ(KivGlueDBMoveToRecord(Info(), database, KivString("Bob")), 0u);
    EXPECT_EQ(KivGlueDBMoveToRecord(Info(), database, 8u), 0u);
    EXPECT_EQ(KivGlueDBMoveToRecord(Info(), database, -8), 0u);
    EXPECT_EQ(KivGlueDBMoveToRecord(Info(), database, 0.25), 0u);
    using Key = std::tuple<std::string, std::string, uint32_t, uint32_t>; // selector, key, kind, size
    std::vector<Key> keys;
    for (const FakeCall& call : host.calls)
    {
        EXPECT_EQ(call.handle, database);
        uint32_t size = call.Kind() == kKivValueKind_Text ? call.textLengthWord : call.valueSize;
        keys.emplace_back(call.Selector(), call.text, call.Kind(), size);
    }
    EXPECT_EQ(keys, (std::vector<Key>{
                        Key("MRDl", "Ann", kKivValueKind_Text, 4),
                        Key("MRDl", "7", kKivValueKind_UInt32, 4),
                        Key("MRDl", "-7", kKivValueKind_Int32, 4),
                        Key("MRDl", "2.5", kKivValueKind_Double, 8),
                        Key("MMTR", "Bob", kKivValueKind_Text, 4),
                        Key("MMTR", "8", kKivValueKind_UInt32, 4),
                        Key("MMTR", "-8", kKivValueKind_Int32, 4),
                        Key("MMTR", "0.25", kKivValueKind_Double, 8),
                    }));
}

TEST_F(GlueDB, JumpAndLockingPassTheirWordInTheLastSlot)
{
    EXPECT_EQ(KivGlueDBJump(Info(), database, 1), 0u);
    EXPECT_EQ(Text(KivGlueDBGetTextFieldValue(Info(), database, "Name")), "Bob");
    EXPECT_EQ(KivGlueDBSetLocking(Info(), database, 3), 0u);
    EXPECT_EQ(host.calls[0].word8, 1u);
    EXPECT_EQ(host.calls[2].selector, (uint32_t)kKivDB_SetLocking);
    EXPECT_EQ(host.calls[2].word8, 3u);
    EXPECT_EQ(host.db.Find("people")->lockMode, 3u);
}

TEST_F(GlueDB, ExportAndImportReportTheHostsCountWhateverTheCode)
{
    host.db.exportResult = kNoRecord;
    unsigned int count = 99;
    EXPECT_EQ(KivGlueDBExport(Info(), database, "/data/people.txt", count, "Name,Age"), kNoRecord);
    EXPECT_EQ(count, 2u);
    const FakeCall& exported = OnlyCall();
    EXPECT_EQ(exported.text, "/data/people.txt");
    EXPECT_EQ(exported.text2, "Name,Age");
    EXPECT_EQ(exported.text2LengthWord, 9u);
    EXPECT_EQ(exported.word8, 0u) << "preset";

    host.db.importCount = 5;
    EXPECT_EQ(KivGlueDBImport(Info(), database, "/data/in.txt", count), 0u);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(host.calls.back().text, "/data/in.txt");
    EXPECT_EQ(host.calls.back().args[3], nullptr);

    host.FailDatabase(kKivDB_Import);
    EXPECT_NE(KivGlueDBImport(Info(), database, "/data/in.txt", count), 0u);
    EXPECT_EQ(count, 0u);
}

TEST_F(GlueDB, NamesAndErrorTextsAreReadIntoSmallBuffersWithOneRetry)
{
    host.db.errorTexts[KIV_FOURCC('M', 'I', 'd', 'x')] = std::string(150, 'e');
    EXPECT_EQ(Text(KivGlueDBGetErrorInfo(Info(), KIV_FOURCC('M', 'I', 'd', 'x'))), std::string(150, 'e'));
    ASSERT_EQ(host.calls.size(), 2u);
    EXPECT_EQ(host.calls[0].capacity, 128u);
    EXPECT_EQ(host.calls[0].handle, KIV_FOURCC('M', 'I', 'd', 'x')) << "the code goes in the first slot";
    EXPECT_EQ(host.calls[1].capacity, 151u);
    EXPECT_EQ(Text(KivGlueDBGetErrorInfo(Info(), 1)), "");

    host.ClearCalls();
    EXPECT_EQ(Text(KivGlueDBGetDatabaseName(Info(), database)), "people");
    EXPECT_EQ(host.calls.back().capacity, 32u);
    KivString name;
    EXPECT_EQ(KivGlueDBGetDatabaseNameByIndex(Info(), 0, name), 0u);
    EXPECT_EQ(Text(name), "people");
    EXPECT_EQ(host.calls.back().handle, 0u);
    EXPECT_EQ(host.calls.back().capacity, 32u);
    name = "unchanged";
    EXPECT_NE(KivGlueDBGetDatabaseNameByIndex(Info(), 5, name), 0u);
    EXPECT_EQ(Text(name), "unchanged");
    unsigned int closed = 4242;
    EXPECT_EQ(Text(KivGlueDBGetDatabaseName(Info(), closed)), "");
}

TEST_F(GlueDB, ODBCFieldTypes)
{
    host.db.odbcFieldTypes = {{"INTEGER", 0x44}, {std::string(40, 'T'), 0x4C}};
    KivString name;
    unsigned int type = 0;
    EXPECT_EQ(KivGlueDBGetODBCFieldTypeInfo(Info(), 0, name, type), 0u);
    EXPECT_EQ(Text(name), "INTEGER");
    EXPECT_EQ(type, 0x44u);
    EXPECT_EQ(host.calls.back().capacity, 32u);
    EXPECT_EQ(host.calls.back().word8, 0u);
    EXPECT_EQ(KivGlueDBGetODBCFieldTypeInfoByIndex(Info(), 1, name, type), 0u);
    EXPECT_EQ(Text(name), std::string(40, 'T'));
    EXPECT_EQ(type, 0x4Cu);
    EXPECT_EQ(host.Selectors(kDatabase), (std::vector<std::string>{"MOFT", "MOFI", "MOFI"}));

    type = 7;
    EXPECT_EQ(KivGlueDBGetODBCFieldTypeInfoByName(Info(), "integer", type), 0u);
    EXPECT_EQ(type, 0x44u);
    EXPECT_EQ(host.calls.back().text, "integer");
    EXPECT_NE(KivGlueDBGetODBCFieldTypeInfoByName(Info(), "BLOB", type), 0u);
    EXPECT_EQ(type, 0x44u);
}

TEST_F(GlueDB, ANewRecordIsCreatedFilledAndAdded)
{
    ASSERT_EQ(KivGlueDBCreateRecord(Info(), database), 0u);
    ASSERT_EQ(KivGlueDBSetTextFieldValue(Info(), database, "Name", "Cy"), 0u);
    ASSERT_EQ(KivGlueDBSetIntegerFieldValue(Info(), database, "Age", 30), 0u);
    ASSERT_EQ(KivGlueDBAddRecord(Info(), database), 0u);
    EXPECT_EQ(KivGlueDBGetRecordCount(Info(), database), 3u);
    EXPECT_EQ(host.db.Find("people")->records.back().at("Name"), "Cy");
    EXPECT_EQ(host.db.Find("people")->records.back().at("Age"), "30");
}
