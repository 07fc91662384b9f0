// A scripted, recording host for module tests: it owns a per-call record whose two callbacks
// answer from plain C++ data (tag, parameters, arguments, variables, preferences, a small set
// of databases) and records every call with its decoded arguments.
//
// Typical use:
//
//     kivtest::FakeHost host;
//     host.tagName = "kivSearchDatabase";
//     host.AddTagParameter("databaseName", "people");      // ordered; names may repeat
//     host.tagBody = "<tr><td>&kivDBField(Name);</td></tr>";
//     host.preferences["kivSearchDatabase"] = "yes";
//     auto& people = host.db.AddDatabase("people", {{"Name", 0x02060032}, {"Age", 0x20000}});
//     people.AddRecord({{"Name", "Ann"}, {"Age", "41"}});
//     KivString output;
//     unsigned int code = ProcessSearchDatabase(host.Info(), output);
//     EXPECT_EQ(host.CountCalls(kKivServer_SetPageVariable), 3u);
//     EXPECT_EQ(host.pageVariables.Get("result_ResultCount"), "1");
//     const kivtest::FakeCall& search = host.LastCall(kKivDB_ExecuteSearch, kivtest::kDatabase);
//     EXPECT_EQ(search.text, "...");
//
// Scripting:
// - tagName, tagBody, actionName: the answers to 'MTag', 'MTBd', 'MAct'.
// - tagParameters / pathArguments / postArguments: ordered name-value lists (FakePairs); the
//   index of 'MTPm'/'MPAr'/'MFAr' picks among repeated names; tag parameter names match
//   without regard to case. pageVariables is a FakePairs too ('MSPV' replaces or appends).
// - preferences, cgiVariables, cookies: maps; a missing key answers kFakeNotFound.
// - outTexts[selector]: answers of the other Out selectors ('MMdP', 'MVrP', ...); missing ones
//   answer kFakeNotFound. inOutAnswers[selector]: a function from the module's input to the
//   answer of an InOut selector ('MNmS', 'MRfA', 'MRDF', 'MUPh', 'MRCP'); without one the input
//   is echoed. logins: user -> password for 'MVSL'/'MVDL'. pageID, defaultLanguage: scalars.
// - FailServer(selector, code) / FailDatabase(selector, code): answer `code` and do nothing.
// - BufferTooSmall(selector, size, times, database): answer 'MBtS' and write `size` into every
//   capacity word of the call, `times` times. Texts that do not fit the module's buffer get
//   'MBtS' with their length + 1 anyway, like a real host.
// - databaseHandler: replaces the built-in database model for every database call; it may
//   still call host.db.Handle(request) for the default behaviour.
//
// The built-in database model (host.db): databases by name (listed in name order), fields with
// type words, records as field -> text maps, converted to the kind the module asks for.
// 'MDOp' hands out handles from 1; its second text names the key field that 'MRDl'/'MMTR' match
// (otherwise the first auto-unique field, else the first field). 'MSEc' selects records with
// db.search (every record by default); cursor moves answer 'MBOF'/'MEOF' past either end and
// 'MMJp' goes to a 0-based position in the results. Values set after 'MRCr' make the record that
// 'MRAd' stores (auto-unique fields numbered from 1); values set on the current record are
// stored by 'MRUp'. 'MExp' reports the result count and answers db.exportResult; 'MImp'
// reports db.importCount; 'MDEI' answers db.errorTexts by its first-slot word.
//
// Observing: calls (every call, in order), CallsTo(selector, kind), CountCalls, LastCall;
// output (everything written with 'MWtS') and writeCount; logLines; errorHeadline and
// errorHint; registeredTags; httpStatus, httpStatusMessage, httpHeaders, responseURI.
//
// Answers follow one convention: on success the capacity word receives the number of text
// bytes written (without the terminating zero, which is written when it fits).
#ifndef KIV_TEST_FAKE_HOST_H
#define KIV_TEST_FAKE_HOST_H

#include "KivModuleInterface.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kivtest
{

constexpr bool kServer = false;
constexpr bool kDatabase = true;

// What the fake answers for a name, index or key it does not know.
constexpr uint32_t kFakeNotFound = KIV_FOURCC('M', 'N', 'F', 'd');

// "MTag" for 0x4D546167.
inline std::string FourCC(uint32_t code_i)
{
    std::string text(4, ' ');
    for (int i = 0; i < 4; ++i)
        text[i] = (char)((code_i >> (24 - 8 * i)) & 0xFF);
    return text;
}

inline bool EqualsIgnoringCase(const std::string& a_i, const std::string& b_i)
{
    return a_i.size() == b_i.size() &&
           std::equal(a_i.begin(), a_i.end(), b_i.begin(),
                      [](char a, char b)
                      { return std::tolower((unsigned char)a) == std::tolower((unsigned char)b); });
}

// An ordered list of name-value pairs in which names may repeat.
struct FakePairs
{
    std::vector<std::pair<std::string, std::string>> items;
    bool ignoreCase = false;

    void Add(const std::string& name_i, const std::string& value_i) { items.emplace_back(name_i, value_i); }
    bool Matches(const std::string& a_i, const std::string& b_i) const
    {
        return ignoreCase ? EqualsIgnoringCase(a_i, b_i) : a_i == b_i;
    }
    // The `index_i`-th value of that name, or null.
    const std::string* Find(const std::string& name_i, uint32_t index_i = 0) const
    {
        for (const auto& item : items)
            if (Matches(item.first, name_i) && index_i-- == 0)
                return &item.second;
        return nullptr;
    }
    std::string Get(const std::string& name_i, const std::string& missing_i = "") const
    {
        const std::string* value = Find(name_i);
        return value ? *value : missing_i;
    }
    bool Has(const std::string& name_i) const { return Find(name_i) != nullptr; }
    // Replaces the first value of that name, or appends.
    void Set(const std::string& name_i, const std::string& value_i)
    {
        for (auto& item : items)
            if (Matches(item.first, name_i))
            {
                item.second = value_i;
                return;
            }
        Add(name_i, value_i);
    }
    size_t Size() const { return items.size(); }
};

// One callback call as the module made it. Texts are decoded before the host answers.
struct FakeCall
{
    bool database = false;
    uint32_t selector = 0;
    void* args[6] = {}; // a3 .. a8 (a8 only for the database callback)

    std::string text;             // first input text: name, key, line, InOut input, db a4 text
    std::string text2;            // second input text: TwoIn value, db a6 text or value as text
    uint32_t textLengthWord = 0;  // the length word of `text` (server a4, db a5)
    bool textTerminated = false;  // whether the byte the length word counts as the terminator is 0
    uint32_t text2LengthWord = 0; // the length word of `text2` (server a6, db a7)
    uint32_t capacity = 0;        // capacity of the first output buffer as passed
    uint32_t capacity2 = 0;       // capacity of the second output buffer (PairOut value)

    bool hasIndex = false; // server a7 index of NameOut and PairOut calls
    uint32_t index = 0;
    bool hasWord7 = false; // server a7 word of other calls (log kind, tag flags, scalar preset)
    uint32_t word7 = 0;

    bool hasHandle = false; // db a3 word (handle or index)
    uint32_t handle = 0;
    bool hasWord8 = false; // db a8 word as passed (kind, type word, mode, index, preset count)
    uint32_t word8 = 0;
    uint32_t valueSize = 0; // db a7 word of value transfers, or a5 of numeric keys

    uint32_t result = 0; // what the fake answered

    std::string Selector() const { return FourCC(selector); }
    uint32_t Kind() const { return word8 & 0xF0000000u; }
};

// Writes an answer text into a module buffer, or asks for more room.
inline uint32_t FakeWriteText(void* buffer_i, void* capacity_i, const std::string& text_i)
{
    if (capacity_i == nullptr)
        return kKivResult_UnknownError;
    uint32_t& capacity = *static_cast<uint32_t*>(capacity_i);
    if (buffer_i == nullptr || text_i.size() + 1 > capacity)
    {
        capacity = (uint32_t)text_i.size() + 1;
        return kKivResult_BufferTooSmall;
    }
    std::memcpy(buffer_i, text_i.data(), text_i.size());
    static_cast<char*>(buffer_i)[text_i.size()] = 0;
    capacity = (uint32_t)text_i.size();
    return 0;
}

inline std::string FakeDoubleText(double value_i)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.15g", value_i);
    if (std::strtod(text, nullptr) != value_i)
        std::snprintf(text, sizeof text, "%.17g", value_i);
    return text;
}

// A database call as the handler sees it: the decoded call and the raw slots.
struct FakeDBRequest
{
    FakeCall& call;
    void* a3;
    void* a4;
    void* a5;
    void* a6;
    void* a7;
    void* a8;

    uint32_t Selector() const { return call.selector; }
    // Output text into a4/a5 (names, error texts).
    uint32_t WriteText(const std::string& text_i) { return FakeWriteText(a4, a5, text_i); }
    // A field value into a6/a7 in the kind the module asked for.
    uint32_t WriteValue(const std::string& text_i)
    {
        switch (call.Kind())
        {
        case kKivValueKind_Text:
            return FakeWriteText(a6, a7, text_i);
        case kKivValueKind_UInt32:
            return WriteScalar((uint32_t)std::strtoul(text_i.c_str(), nullptr, 10));
        case kKivValueKind_Int32:
            return WriteScalar((int32_t)std::strtol(text_i.c_str(), nullptr, 10));
        case kKivValueKind_Double:
            return WriteScalar(std::strtod(text_i.c_str(), nullptr));
        }
        return kKivResult_UnknownError;
    }
    template <typename T> uint32_t WriteScalar(T value_i)
    {
        if (a6 == nullptr || a7 == nullptr || *static_cast<uint32_t*>(a7) < sizeof(T))
            return kKivResult_UnknownError;
        std::memcpy(a6, &value_i, sizeof(T));
        return 0;
    }
    void SetWord3(uint32_t value_i)
    {
        if (a3)
            *static_cast<uint32_t*>(a3) = value_i;
    }
    void SetWord8(uint32_t value_i)
    {
        if (a8)
            *static_cast<uint32_t*>(a8) = value_i;
    }
};

struct FakeField
{
    std::string name;
    uint32_t typeWord = 0;
};

// One database of the built-in model. Values are kept as text, converted on reading.
struct FakeDatabase
{
    std::string name;
    std::vector<FakeField> fields;
    std::vector<std::map<std::string, std::string>> records;
    std::string keyField; // the field MRDl/MMTR keys match; default: first auto-unique, else first
    uint32_t lockMode = 0;
    uint32_t nextUniqueID = 1;

    // Search state: result record indices, the cursor position in them, the current record.
    std::vector<size_t> results;
    bool searched = false;
    long position = -1;
    long current = -1;
    bool creating = false;
    std::map<std::string, std::string> pending; // values set since MRCr or for MRUp

    void AddField(const std::string& name_i, uint32_t typeWord_i) { fields.push_back({name_i, typeWord_i}); }
    FakeDatabase& AddRecord(const std::map<std::string, std::string>& values_i)
    {
        records.push_back(values_i);
        return *this;
    }
    const FakeField* FindField(const std::string& name_i) const
    {
        for (const auto& field : fields)
            if (EqualsIgnoringCase(field.name, name_i))
                return &field;
        return nullptr;
    }
    std::string KeyField() const
    {
        if (!keyField.empty())
            return keyField;
        for (const auto& field : fields)
            if (field.typeWord & kKivFieldFlag_AutoUnique)
                return field.name;
        return fields.empty() ? std::string() : fields.front().name;
    }
    long FindRecord(const std::string& key_i) const
    {
        std::string field = KeyField();
        for (size_t i = 0; i < records.size(); ++i)
        {
            auto value = records[i].find(field);
            if (value != records[i].end() && value->second == key_i)
                return (long)i;
        }
        return -1;
    }
    std::vector<size_t> AllRecords() const
    {
        std::vector<size_t> all(records.size());
        for (size_t i = 0; i < all.size(); ++i)
            all[i] = i;
        return all;
    }
    const std::vector<size_t>& Results()
    {
        if (!searched)
            results = AllRecords();
        return results;
    }
};

// The built-in database model behind the database callback.
struct FakeDatabases
{
    std::map<std::string, FakeDatabase> databases; // listed by name, in name order
    std::map<uint32_t, std::string> open;          // handle -> database name
    uint32_t nextHandle = 1;
    std::string session;      // the text of the last 'MIni'
    bool initialized = false; // between 'MIni' and 'MTrm'

    // Which records a search text selects; by default every record, in stored order.
    std::function<std::vector<size_t>(const FakeDatabase&, const std::string&)> search;
    std::map<uint32_t, std::string> errorTexts; // 'MDEI': error code -> text
    uint32_t odbcSupportFlags = 0;
    uint32_t odbcCursorFlags = 0;
    std::vector<std::pair<std::string, uint32_t>> odbcFieldTypes; // 'MOFT'/'MOFI'/'MDFN'/'MOFC'
    uint32_t importCount = 0;                                     // what 'MImp' reports
    uint32_t exportResult = 0;                                    // what 'MExp' answers

    FakeDatabase& AddDatabase(const std::string& name_i, const std::vector<FakeField>& fields_i = {})
    {
        FakeDatabase& database = databases[name_i];
        database.name = name_i;
        database.fields = fields_i;
        return database;
    }
    FakeDatabase* Find(const std::string& name_i)
    {
        for (auto& entry : databases)
            if (EqualsIgnoringCase(entry.first, name_i))
                return &entry.second;
        return nullptr;
    }
    FakeDatabase* ByHandle(const FakeCall& call_i)
    {
        if (!call_i.hasHandle)
            return nullptr;
        auto entry = open.find(call_i.handle);
        return entry == open.end() ? nullptr : Find(entry->second);
    }

    uint32_t Handle(FakeDBRequest& request_io);

private:
    static uint32_t Move(FakeDatabase& database_io, long position_i)
    {
        const std::vector<size_t>& results = database_io.Results();
        if (position_i < 0)
            return kKivResult_BeginningOfFile;
        if ((size_t)position_i >= results.size())
            return kKivResult_EndOfFile;
        database_io.position = position_i;
        database_io.current = (long)results[position_i];
        database_io.creating = false;
        database_io.pending.clear();
        return 0;
    }
};

inline uint32_t FakeDatabases::Handle(FakeDBRequest& request_io)
{
    FakeCall& call = request_io.call;
    const std::string& text = call.text;
    FakeDatabase* database = ByHandle(call);
    auto needDatabase = [&]() { return database != nullptr; };

    switch (call.selector)
    {
    case kKivDB_Initialize:
        session = text;
        initialized = true;
        return 0;
    case kKivDB_Terminate:
        initialized = false;
        return 0;
    case kKivDB_GetODBCSupportFlags:
        request_io.SetWord8(odbcSupportFlags);
        return 0;
    case kKivDB_GetODBCCursorFlags:
        request_io.SetWord8(odbcCursorFlags);
        return 0;
    case kKivDB_GetODBCFieldTypeCount:
        request_io.SetWord8((uint32_t)odbcFieldTypes.size());
        return 0;
    case kKivDB_GetODBCFieldTypeInfo:
    case kKivDB_GetODBCFieldTypeByIndex:
    {
        if (call.handle >= odbcFieldTypes.size())
            return kFakeNotFound;
        uint32_t result = request_io.WriteText(odbcFieldTypes[call.handle].first);
        if (result == 0)
            request_io.SetWord8(odbcFieldTypes[call.handle].second);
        return result;
    }
    case kKivDB_GetODBCFieldTypeByName:
        for (const auto& type : odbcFieldTypes)
            if (EqualsIgnoringCase(type.first, text))
            {
                request_io.SetWord8(type.second);
                return 0;
            }
        return kFakeNotFound;
    case kKivDB_GetErrorInfo:
    {
        auto entry = errorTexts.find(call.handle);
        return entry == errorTexts.end() ? kFakeNotFound : request_io.WriteText(entry->second);
    }
    case kKivDB_CreateDatabase:
        if (Find(text))
            return KIV_FOURCC('M', 'O', 'p', 'F');
        AddDatabase(text);
        return 0;
    case kKivDB_DeleteDatabase:
        for (auto entry = databases.begin(); entry != databases.end(); ++entry)
            if (EqualsIgnoringCase(entry->first, text))
            {
                databases.erase(entry);
                return 0;
            }
        return kFakeNotFound;
    case kKivDB_OpenDatabase:
    {
        FakeDatabase* opened = Find(text);
        if (opened == nullptr)
            return kFakeNotFound;
        if (!call.text2.empty())
            opened->keyField = call.text2;
        open[nextHandle] = opened->name;
        request_io.SetWord3(nextHandle++);
        return 0;
    }
    case kKivDB_CloseDatabase:
        return open.erase(call.handle) ? 0 : kFakeNotFound;
    case kKivDB_GetDatabaseName:
        return needDatabase() ? request_io.WriteText(database->name) : kFakeNotFound;
    case kKivDB_GetDatabaseNameByIndex:
    {
        if (call.handle >= databases.size())
            return kFakeNotFound;
        auto entry = databases.begin();
        std::advance(entry, call.handle);
        return request_io.WriteText(entry->first);
    }
    case kKivDB_GetDatabaseCount:
        request_io.SetWord8((uint32_t)databases.size());
        return 0;
    default:
        break;
    }

    if (!needDatabase())
        return kFakeNotFound;
    switch (call.selector)
    {
    case kKivDB_AddField:
        if (database->FindField(text))
            return KIV_FOURCC('M', 'F', 'E', 'x');
        database->AddField(text, call.word8);
        return 0;
    case kKivDB_DeleteField:
        for (auto field = database->fields.begin(); field != database->fields.end(); ++field)
            if (EqualsIgnoringCase(field->name, text))
            {
                database->fields.erase(field);
                return 0;
            }
        return kFakeNotFound;
    case kKivDB_GetFieldInfoByName:
    {
        const FakeField* field = database->FindField(text);
        if (field == nullptr)
            return kFakeNotFound;
        request_io.SetWord8(field->typeWord);
        return 0;
    }
    case kKivDB_GetFieldInfoByIndex:
    {
        if (call.word8 >= database->fields.size())
            return kFakeNotFound;
        const FakeField& field = database->fields[call.word8];
        uint32_t result = request_io.WriteText(field.name);
        if (result == 0)
            request_io.SetWord8(field.typeWord);
        return result;
    }
    case kKivDB_GetFieldCount:
        request_io.SetWord8((uint32_t)database->fields.size());
        return 0;
    case kKivDB_SetLocking:
        database->lockMode = call.word8;
        return 0;
    case kKivDB_CreateRecord:
        database->creating = true;
        database->pending.clear();
        return 0;
    case kKivDB_AddRecord:
    {
        if (!database->creating)
            return kKivResult_UnknownError;
        std::map<std::string, std::string> record = database->pending;
        for (const auto& field : database->fields)
            if ((field.typeWord & kKivFieldFlag_AutoUnique) && !record.count(field.name))
                record[field.name] = std::to_string(database->nextUniqueID++);
        database->records.push_back(record);
        database->creating = false;
        database->pending.clear();
        database->current = (long)database->records.size() - 1;
        return 0;
    }
    case kKivDB_UpdateRecord:
        if (database->current < 0 || (size_t)database->current >= database->records.size())
            return kKivResult_UnknownError;
        for (const auto& value : database->pending)
            database->records[database->current][value.first] = value.second;
        database->pending.clear();
        return 0;
    case kKivDB_DeleteRecord:
    {
        long index = database->FindRecord(text);
        if (index < 0)
            return kFakeNotFound;
        database->records.erase(database->records.begin() + index);
        database->searched = false;
        database->current = database->position = -1;
        return 0;
    }
    case kKivDB_DeleteAllRecords:
        database->records.clear();
        database->searched = false;
        database->current = database->position = -1;
        return 0;
    case kKivDB_SetFieldValue:
    {
        const FakeField* field = database->FindField(text);
        if (field == nullptr)
            return kFakeNotFound;
        database->pending[field->name] = call.text2;
        return 0;
    }
    case kKivDB_GetFieldValue:
    {
        const FakeField* field = database->FindField(text);
        if (field == nullptr)
            return kFakeNotFound;
        std::string value;
        auto pending = database->pending.find(field->name);
        if (pending != database->pending.end())
            value = pending->second;
        else if (!database->creating && database->current >= 0 &&
                 (size_t)database->current < database->records.size())
        {
            auto stored = database->records[database->current].find(field->name);
            if (stored != database->records[database->current].end())
                value = stored->second;
        }
        else
            return kKivResult_EndOfFile;
        return request_io.WriteValue(value);
    }
    case kKivDB_GetRecordCount:
        request_io.SetWord8((uint32_t)database->records.size());
        return 0;
    case kKivDB_ClearSearchResults:
        database->searched = false;
        database->results.clear();
        database->position = database->current = -1;
        return 0;
    case kKivDB_ExecuteSearch:
        database->results = search ? search(*database, text) : database->AllRecords();
        database->searched = true;
        database->position = database->current = -1;
        return 0;
    case kKivDB_GetResultCount:
        request_io.SetWord8((uint32_t)database->Results().size());
        return 0;
    case kKivDB_MoveFirstRecord:
        return Move(*database, 0);
    case kKivDB_MoveLastRecord:
        return Move(*database, (long)database->Results().size() - 1);
    case kKivDB_MovePrevRecord:
        return Move(*database, database->position - 1);
    case kKivDB_MoveNextRecord:
        return Move(*database, database->position + 1);
    case kKivDB_Jump:
        return Move(*database, (long)call.word8);
    case kKivDB_MoveToRecord:
    {
        long index = database->FindRecord(text);
        if (index < 0)
            return kFakeNotFound;
        database->current = index;
        database->creating = false;
        database->pending.clear();
        const std::vector<size_t>& results = database->Results();
        auto found = std::find(results.begin(), results.end(), (size_t)index);
        database->position = found == results.end() ? -1 : (long)(found - results.begin());
        return 0;
    }
    case kKivDB_Export:
        request_io.SetWord8((uint32_t)database->Results().size());
        return exportResult;
    case kKivDB_Import:
        request_io.SetWord8(importCount);
        return 0;
    }
    return kKivResult_UnknownFunction;
}

class FakeHost
{
public:
    // --- the scripted model ---
    std::string tagName;
    std::string tagBody;
    std::string actionName;
    FakePairs tagParameters{{}, true};
    FakePairs pathArguments;
    FakePairs postArguments;
    FakePairs pageVariables;
    std::map<std::string, std::string> preferences;
    std::map<std::string, std::string> cgiVariables;
    std::map<std::string, std::string> cookies;
    std::map<std::string, std::string> logins;
    std::map<uint32_t, std::string> outTexts;
    std::map<uint32_t, std::function<std::string(const std::string&)>> inOutAnswers;
    uint32_t pageID = 0;
    uint32_t defaultLanguage = kKivHostLanguage_English;
    FakeDatabases db;
    std::function<uint32_t(FakeDBRequest&)> databaseHandler;

    // --- what the module did ---
    std::vector<FakeCall> calls;
    std::string output;
    unsigned int writeCount = 0;
    std::vector<std::pair<uint32_t, std::string>> logLines; // kind ('MLgN'...), line
    std::string errorHeadline;
    std::string errorHint;
    unsigned int errorCount = 0;
    std::vector<std::pair<std::string, uint32_t>> registeredTags;
    std::string httpStatus;
    std::string httpStatusMessage;
    FakePairs httpHeaders;
    std::string responseURI;

    FakeHost()
    {
        myInfo.hostReserved0 = nullptr;
        myInfo.hostReserved1 = 0;
        myInfo.connID_i = this;
        myInfo.requestCode = 0;
        myInfo.KivServerSupportFunction = &ServerCallback;
        myInfo.KivDatabaseSupportFunction = &DatabaseCallback;
    }
    // The record points back at this object.
    FakeHost(const FakeHost&) = delete;
    FakeHost& operator=(const FakeHost&) = delete;

    _KIVAPI_ModuleProcessingInfo* Info() { return &myInfo; }

    // Sends a request to a module entry (ProcessKivRequest or one found with dlsym).
    uint32_t Request(KivProcessRequestProc entry_i, uint32_t requestCode_i)
    {
        myInfo.requestCode = requestCode_i;
        return entry_i(&myInfo);
    }

    void AddTagParameter(const std::string& name_i, const std::string& value_i)
    {
        tagParameters.Add(name_i, value_i);
    }

    void FailServer(uint32_t selector_i, uint32_t code_i = kKivResult_UnknownError)
    {
        myServerFailures[selector_i] = code_i;
    }
    void FailDatabase(uint32_t selector_i, uint32_t code_i = kKivResult_UnknownError)
    {
        myDatabaseFailures[selector_i] = code_i;
    }
    void ClearFailures()
    {
        myServerFailures.clear();
        myDatabaseFailures.clear();
        myTooSmall.clear();
    }
    void BufferTooSmall(uint32_t selector_i, uint32_t size_i, int times_i = 1, bool database_i = kServer)
    {
        myTooSmall[{database_i, selector_i}] = {size_i, times_i};
    }

    std::vector<const FakeCall*> CallsTo(uint32_t selector_i, bool database_i = kServer) const
    {
        std::vector<const FakeCall*> found;
        for (const auto& call : calls)
            if (call.selector == selector_i && call.database == database_i)
                found.push_back(&call);
        return found;
    }
    size_t CountCalls(uint32_t selector_i, bool database_i = kServer) const
    {
        return CallsTo(selector_i, database_i).size();
    }
    const FakeCall& LastCall(uint32_t selector_i, bool database_i = kServer) const
    {
        auto found = CallsTo(selector_i, database_i);
        if (found.empty())
            throw std::runtime_error("no call to " + FourCC(selector_i));
        return *found.back();
    }
    // The selectors of all calls, in order, as "MTag" texts.
    std::vector<std::string> Selectors(bool database_i = kServer) const
    {
        std::vector<std::string> selectors;
        for (const auto& call : calls)
            if (call.database == database_i)
                selectors.push_back(call.Selector());
        return selectors;
    }
    void ClearCalls() { calls.clear(); }

private:
    enum Shape
    {
        kOut,
        kIn,
        kWrite,
        kTwoIn,
        kStatus,
        kInOut,
        kNameOut,
        kPairOut,
        kScalar
    };

    static Shape ServerShape(uint32_t selector_i)
    {
        switch (selector_i)
        {
        case kKivServer_WriteToServer:
            return kWrite;
        case kKivServer_SetHTTPResponseStatus:
            return kStatus;
        case kKivServer_WriteToLog:
        case kKivServer_RegisterModuleName:
        case kKivServer_RegisterModuleVersion:
        case kKivServer_RegisterModuleAuthor:
        case kKivServer_RegisterModuleDeveloperID:
        case kKivServer_RegisterVersionTrackerURL:
        case kKivServer_RegisterForTag:
        case kKivServer_UnregisterForTag:
        case kKivServer_UnregisterForAction:
        case kKivServer_SetHTTPResponseURI:
        case kKivServer_RemovePreference:
            return kIn;
        case kKivServer_SetErrorInformation:
        case kKivServer_SetPageVariable:
        case kKivServer_SetHTTPResponseHeader:
        case kKivServer_ValidateServerLogin:
        case kKivServer_ValidateDomainLogin:
        case kKivServer_SetPreference:
            return kTwoIn;
        case kKivServer_NormalizeString:
        case kKivServer_RegisterForAction:
        case kKivServer_GetRegionDataFolderPath:
        case kKivServer_MapURLToPhysicalPath:
        case kKivServer_VerifyRegionContainsFile:
            return kInOut;
        case kKivServer_GetTagParameter:
        case kKivServer_GetPathArgument:
        case kKivServer_GetPostArgument:
        case kKivServer_GetCGIEnvironmentVariable:
        case kKivServer_GetPageVariable:
        case kKivServer_GetCookie:
        case kKivServer_GetPreference:
            return kNameOut;
        case kKivServer_GetTagParameterByIndex:
        case kKivServer_GetPathArgumentByIndex:
        case kKivServer_GetPostArgumentByIndex:
        case kKivServer_GetPageVariableByIndex:
            return kPairOut;
        case kKivServer_GetPageID:
        case kKivServer_GetTagParameterCount:
        case kKivServer_GetPathArgumentCount:
        case kKivServer_GetPostArgumentCount:
        case kKivServer_GetPageVariableCount:
        case kKivServer_GetDefaultLanguage:
            return kScalar;
        default:
            return kOut;
        }
    }

    static uint32_t Word(void* address_i) { return address_i ? *static_cast<uint32_t*>(address_i) : 0; }
    static bool Terminated(void* text_i, void* length_i)
    {
        return text_i && length_i && Word(length_i) > 0 &&
               static_cast<const char*>(text_i)[Word(length_i) - 1] == 0;
    }
    static std::string Text(void* text_i, void* length_i)
    {
        // The length word counts the terminating zero.
        if (text_i == nullptr || length_i == nullptr || Word(length_i) == 0)
            return std::string();
        return std::string(static_cast<const char*>(text_i), Word(length_i) - 1);
    }

    static uint32_t ServerCallback(void* connID_i, uint32_t selector_i, void* a3, void* a4, void* a5,
                                   void* a6, void* a7)
    {
        return static_cast<FakeHost*>(connID_i)->Server(selector_i, a3, a4, a5, a6, a7);
    }
    static uint32_t DatabaseCallback(void* connID_i, uint32_t selector_i, void* a3, void* a4, void* a5,
                                     void* a6, void* a7, void* a8)
    {
        return static_cast<FakeHost*>(connID_i)->Database(selector_i, a3, a4, a5, a6, a7, a8);
    }

    // Answers 'MBtS' when a test asked for it; writes the size into every given capacity word.
    bool TooSmall(bool database_i, uint32_t selector_i, std::initializer_list<void*> capacities_i)
    {
        auto entry = myTooSmall.find({database_i, selector_i});
        if (entry == myTooSmall.end() || entry->second.second <= 0)
            return false;
        --entry->second.second;
        for (void* capacity : capacities_i)
            if (capacity)
                *static_cast<uint32_t*>(capacity) = entry->second.first;
        return true;
    }

    uint32_t Server(uint32_t selector_i, void* a3, void* a4, void* a5, void* a6, void* a7)
    {
        FakeCall call;
        call.selector = selector_i;
        void* raw[6] = {a3, a4, a5, a6, a7, nullptr};
        std::copy(raw, raw + 6, call.args);
        Shape shape = ServerShape(selector_i);
        switch (shape)
        {
        case kWrite:
            call.textLengthWord = Word(a4);
            call.text = a3 ? std::string(static_cast<const char*>(a3), Word(a4)) : std::string();
            break;
        case kIn:
            call.textLengthWord = Word(a4);
            call.textTerminated = Terminated(a3, a4);
            call.text = Text(a3, a4);
            break;
        case kTwoIn:
        case kStatus:
            call.textLengthWord = Word(a4);
            call.text = a3 ? std::string(static_cast<const char*>(a3)) : std::string();
            if (shape == kTwoIn)
            {
                call.textTerminated = Terminated(a3, a4);
                call.text = Text(a3, a4);
            }
            call.text2LengthWord = Word(a6);
            call.text2 = Text(a5, a6);
            break;
        case kInOut:
            call.capacity = Word(a4);
            call.text = a3 ? std::string(static_cast<const char*>(a3),
                                         strnlen(static_cast<const char*>(a3), Word(a4)))
                           : std::string();
            break;
        case kNameOut:
            call.textLengthWord = Word(a4);
            call.textTerminated = Terminated(a3, a4);
            call.text = Text(a3, a4);
            call.capacity = Word(a6);
            break;
        case kPairOut:
            call.capacity = Word(a4);
            call.capacity2 = Word(a6);
            break;
        case kOut:
            call.capacity = Word(a4);
            break;
        case kScalar:
            break;
        }
        if ((shape == kNameOut || shape == kPairOut) && a7)
        {
            call.hasIndex = true;
            call.index = Word(a7);
        }
        else if (a7)
        {
            call.hasWord7 = true;
            call.word7 = Word(a7);
        }
        call.result = AnswerServer(call, shape, a3, a4, a5, a6, a7);
        calls.push_back(call);
        return call.result;
    }

    uint32_t AnswerServer(FakeCall& call, Shape shape_i, void* a3, void* a4, void* a5, void* a6, void* a7)
    {
        uint32_t selector = call.selector;
        auto failure = myServerFailures.find(selector);
        if (failure != myServerFailures.end())
            return failure->second;
        switch (shape_i)
        {
        case kOut:
        {
            if (TooSmall(kServer, selector, {a4}))
                return kKivResult_BufferTooSmall;
            std::string answer;
            if (selector == kKivServer_GetTag)
                answer = tagName;
            else if (selector == kKivServer_GetTagBody)
                answer = tagBody;
            else if (selector == kKivServer_GetActionName)
                answer = actionName;
            else if (outTexts.count(selector))
                answer = outTexts[selector];
            else
                return kFakeNotFound;
            return FakeWriteText(a3, a4, answer);
        }
        case kInOut:
        {
            if (TooSmall(kServer, selector, {a4}))
                return kKivResult_BufferTooSmall;
            auto answer = inOutAnswers.find(selector);
            return FakeWriteText(a3, a4,
                                 answer == inOutAnswers.end() ? call.text : answer->second(call.text));
        }
        case kNameOut:
        {
            if (TooSmall(kServer, selector, {a6}))
                return kKivResult_BufferTooSmall;
            const std::string* value = nullptr;
            std::map<std::string, std::string>* map = nullptr;
            switch (selector)
            {
            case kKivServer_GetTagParameter:
                value = tagParameters.Find(call.text, call.index);
                break;
            case kKivServer_GetPathArgument:
                value = pathArguments.Find(call.text, call.index);
                break;
            case kKivServer_GetPostArgument:
                value = postArguments.Find(call.text, call.index);
                break;
            case kKivServer_GetPageVariable:
                value = pageVariables.Find(call.text);
                break;
            case kKivServer_GetCGIEnvironmentVariable:
                map = &cgiVariables;
                break;
            case kKivServer_GetCookie:
                map = &cookies;
                break;
            case kKivServer_GetPreference:
                map = &preferences;
                break;
            }
            if (map && map->count(call.text))
                value = &(*map)[call.text];
            return value ? FakeWriteText(a5, a6, *value) : kFakeNotFound;
        }
        case kPairOut:
        {
            if (TooSmall(kServer, selector, {a4, a6}))
                return kKivResult_BufferTooSmall;
            const FakePairs* pairs = selector == kKivServer_GetTagParameterByIndex   ? &tagParameters
                                     : selector == kKivServer_GetPathArgumentByIndex ? &pathArguments
                                     : selector == kKivServer_GetPostArgumentByIndex ? &postArguments
                                                                                     : &pageVariables;
            if (call.index >= pairs->Size())
                return kFakeNotFound;
            const auto& pair = pairs->items[call.index];
            if (pair.first.size() + 1 > Word(a4) || pair.second.size() + 1 > Word(a6))
            {
                *static_cast<uint32_t*>(a4) = (uint32_t)pair.first.size() + 1;
                *static_cast<uint32_t*>(a6) = (uint32_t)pair.second.size() + 1;
                return kKivResult_BufferTooSmall;
            }
            FakeWriteText(a3, a4, pair.first);
            return FakeWriteText(a5, a6, pair.second);
        }
        case kScalar:
        {
            uint32_t value = selector == kKivServer_GetPageID              ? pageID
                             : selector == kKivServer_GetDefaultLanguage   ? defaultLanguage
                             : selector == kKivServer_GetTagParameterCount ? (uint32_t)tagParameters.Size()
                             : selector == kKivServer_GetPathArgumentCount ? (uint32_t)pathArguments.Size()
                             : selector == kKivServer_GetPostArgumentCount ? (uint32_t)postArguments.Size()
                                                                           : (uint32_t)pageVariables.Size();
            if (a7)
                *static_cast<uint32_t*>(a7) = value;
            return 0;
        }
        default:
            break;
        }
        // Services that only take input.
        switch (selector)
        {
        case kKivServer_WriteToServer:
            output += call.text;
            ++writeCount;
            break;
        case kKivServer_WriteToLog:
            logLines.emplace_back(call.word7, call.text);
            break;
        case kKivServer_SetErrorInformation:
            errorHeadline = call.text;
            errorHint = call.text2;
            ++errorCount;
            break;
        case kKivServer_RegisterForTag:
            registeredTags.emplace_back(call.text, call.word7);
            break;
        case kKivServer_SetPageVariable:
            pageVariables.Set(call.text, call.text2);
            break;
        case kKivServer_SetHTTPResponseStatus:
            httpStatus = call.text;
            httpStatusMessage = call.text2;
            break;
        case kKivServer_SetHTTPResponseHeader:
            httpHeaders.Add(call.text, call.text2);
            break;
        case kKivServer_SetHTTPResponseURI:
            responseURI = call.text;
            break;
        case kKivServer_ValidateServerLogin:
        case kKivServer_ValidateDomainLogin:
        {
            auto login = logins.find(call.text);
            return login != logins.end() && login->second == call.text2 ? 0 : kFakeNotFound;
        }
        case kKivServer_SetPreference:
            preferences[call.text] = call.text2;
            break;
        case kKivServer_RemovePreference:
            return preferences.erase(call.text) ? 0 : kFakeNotFound;
        default:
            break;
        }
        return 0;
    }

    static bool DatabaseA4IsOutput(uint32_t selector_i)
    {
        return selector_i == kKivDB_GetODBCFieldTypeInfo || selector_i == kKivDB_GetODBCFieldTypeByIndex ||
               selector_i == kKivDB_GetErrorInfo || selector_i == kKivDB_GetDatabaseName ||
               selector_i == kKivDB_GetDatabaseNameByIndex || selector_i == kKivDB_GetFieldInfoByIndex;
    }

    // A value passed by address (a key or a field value) as text, in the kind given.
    static std::string ValueText(uint32_t kind_i, void* value_i, void* size_i)
    {
        if (value_i == nullptr)
            return std::string();
        switch (kind_i)
        {
        case kKivValueKind_Text:
            return Text(value_i, size_i);
        case kKivValueKind_UInt32:
            return std::to_string(*static_cast<uint32_t*>(value_i));
        case kKivValueKind_Int32:
            return std::to_string(*static_cast<int32_t*>(value_i));
        case kKivValueKind_Double:
            return FakeDoubleText(*static_cast<double*>(value_i));
        }
        return std::string();
    }

    uint32_t Database(uint32_t selector_i, void* a3, void* a4, void* a5, void* a6, void* a7, void* a8)
    {
        FakeCall call;
        call.database = true;
        call.selector = selector_i;
        void* raw[6] = {a3, a4, a5, a6, a7, a8};
        std::copy(raw, raw + 6, call.args);
        if (a3)
        {
            call.hasHandle = true;
            call.handle = Word(a3);
        }
        if (a8)
        {
            call.hasWord8 = true;
            call.word8 = Word(a8);
        }
        bool keyed = selector_i == kKivDB_DeleteRecord || selector_i == kKivDB_MoveToRecord;
        if (DatabaseA4IsOutput(selector_i))
            call.capacity = Word(a5);
        else if (keyed)
        {
            call.text = ValueText(call.Kind(), a4, a5);
            if (call.Kind() == kKivValueKind_Text)
                call.textLengthWord = Word(a5);
            else
                call.valueSize = Word(a5);
        }
        else
        {
            call.textLengthWord = Word(a5);
            call.textTerminated = Terminated(a4, a5);
            call.text = Text(a4, a5);
        }
        if (selector_i == kKivDB_SetFieldValue)
        {
            call.text2 = ValueText(call.Kind(), a6, a7);
            if (call.Kind() == kKivValueKind_Text)
                call.text2LengthWord = Word(a7);
            else
                call.valueSize = Word(a7);
        }
        else if (selector_i == kKivDB_GetFieldValue)
        {
            if (call.Kind() == kKivValueKind_Text)
                call.capacity2 = Word(a7);
            else
                call.valueSize = Word(a7);
        }
        else if (a6)
        {
            call.text2LengthWord = Word(a7);
            call.text2 = Text(a6, a7);
        }

        auto failure = myDatabaseFailures.find(selector_i);
        if (failure != myDatabaseFailures.end())
            call.result = failure->second;
        else if (TooSmall(kDatabase, selector_i,
                          {DatabaseA4IsOutput(selector_i) ? a5 : nullptr,
                           selector_i == kKivDB_GetFieldValue ? a7 : nullptr}))
            call.result = kKivResult_BufferTooSmall;
        else
        {
            FakeDBRequest request{call, a3, a4, a5, a6, a7, a8};
            call.result = databaseHandler ? databaseHandler(request) : db.Handle(request);
        }
        calls.push_back(call);
        return call.result;
    }

    _KIVAPI_ModuleProcessingInfo myInfo;
    std::map<uint32_t, uint32_t> myServerFailures;
    std::map<uint32_t, uint32_t> myDatabaseFailures;
    std::map<std::pair<bool, uint32_t>, std::pair<uint32_t, int>> myTooSmall;
};

} // namespace kivtest

#endif
