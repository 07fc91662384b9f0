// The module-side calling conventions, re-created for the tests.
#include "ServiceClient.h"

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>

namespace kiv::db::testing
{

namespace
{
struct InputText
{
    explicit InputText(const std::string& value) : bytes(value), size(uint32_t(value.size() + 1)) {}
    std::string bytes; // std::string keeps the terminating zero after its data
    uint32_t size;
    void* text() { return bytes.data(); }
    void* length() { return &size; }
};
} // namespace

DataFolder::DataFolder()
{
    static std::atomic<int> counter{0};
    myPath = std::filesystem::temp_directory_path() /
             ("kivdb-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(myPath);
    std::filesystem::create_directories(myPath);
}

DataFolder::~DataFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(myPath, ignored);
}

ServiceClient::ServiceClient(const std::filesystem::path& dataFolder, std::string tag,
                             std::chrono::milliseconds lockWait)
    : mySession(SessionEnvironment{dataFolder, lockWait, false})
{
    mySession.setCurrentTag(tag);
}

ServiceClient::ServiceClient(SessionEnvironment environment, std::string tag)
    : mySession(std::move(environment))
{
    mySession.setCurrentTag(tag);
}

TextAnswer ServiceClient::readText(uint32_t selector, uint32_t* a3, const std::string* name, uint32_t* a8,
                                   uint32_t capacity)
{
    TextAnswer answer;
    std::vector<char> buffer(capacity);
    uint32_t room = capacity;
    std::string nameBytes = name ? *name : std::string();
    uint32_t nameSize = uint32_t(nameBytes.size() + 1);
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        ++answer.calls;
        if (name)
            answer.code = call(selector, a3, nameBytes.data(), &nameSize, buffer.data(), &room, a8);
        else
            answer.code = call(selector, a3, buffer.data(), &room, nullptr, nullptr, a8);
        if (answer.code != result::kBufferTooSmall)
            break;
        buffer.resize(room);
        room = uint32_t(buffer.size());
    }
    if (answer.code == result::kSuccess)
        answer.text.assign(buffer.data(), room);
    return answer;
}

uint32_t ServiceClient::createDatabase(const std::string& name)
{
    InputText text(name);
    return call(kKivDB_CreateDatabase, nullptr, text.text(), text.length());
}

uint32_t ServiceClient::deleteDatabase(const std::string& name)
{
    InputText text(name);
    return call(kKivDB_DeleteDatabase, nullptr, text.text(), text.length());
}

uint32_t ServiceClient::open(const std::string& name, uint32_t mode, uint32_t& handle,
                             const std::string& uniqueID)
{
    InputText text(name);
    InputText second(uniqueID);
    return call(kKivDB_OpenDatabase, &handle, text.text(), text.length(), second.text(), second.length(),
                &mode);
}

uint32_t ServiceClient::close(uint32_t handle)
{
    return call(kKivDB_CloseDatabase, &handle);
}

uint32_t ServiceClient::databaseCount()
{
    uint32_t count = 0;
    call(kKivDB_GetDatabaseCount, nullptr, nullptr, nullptr, nullptr, nullptr, &count);
    return count;
}

std::vector<std::string> ServiceClient::databaseNames()
{
    std::vector<std::string> names;
    const uint32_t count = databaseCount();
    for (uint32_t index = 0; index < count; ++index)
    {
        uint32_t slot = index;
        // Starts at 32 bytes like the module; longer names take the retry.
        TextAnswer answer;
        std::vector<char> buffer(32);
        uint32_t room = 32;
        answer.code = call(kKivDB_GetDatabaseNameByIndex, &slot, buffer.data(), &room);
        if (answer.code == result::kBufferTooSmall)
        {
            buffer.resize(room);
            answer.code = call(kKivDB_GetDatabaseNameByIndex, &slot, buffer.data(), &room);
        }
        EXPECT_EQ(answer.code, 0u);
        names.emplace_back(buffer.data(), room);
    }
    return names;
}

TextAnswer ServiceClient::errorInfo(uint32_t codeOrHandle)
{
    uint32_t slot = codeOrHandle;
    TextAnswer answer;
    std::vector<char> buffer(128);
    uint32_t room = 128;
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        ++answer.calls;
        answer.code = call(kKivDB_GetErrorInfo, &slot, buffer.data(), &room);
        if (answer.code != result::kBufferTooSmall)
            break;
        buffer.resize(room);
    }
    if (answer.code == 0)
        answer.text.assign(buffer.data(), room);
    return answer;
}

uint32_t ServiceClient::addField(uint32_t handle, const std::string& name, uint32_t typeWord)
{
    InputText text(name);
    return call(kKivDB_AddField, &handle, text.text(), text.length(), nullptr, nullptr, &typeWord);
}

uint32_t ServiceClient::deleteField(uint32_t handle, const std::string& name)
{
    InputText text(name);
    return call(kKivDB_DeleteField, &handle, text.text(), text.length());
}

uint32_t ServiceClient::fieldInfo(uint32_t handle, const std::string& name, uint32_t& typeWord)
{
    InputText text(name);
    typeWord = 0;
    return call(kKivDB_GetFieldInfoByName, &handle, text.text(), text.length(), nullptr, nullptr, &typeWord);
}

uint32_t ServiceClient::fieldInfoByIndex(uint32_t handle, uint32_t index, std::string& name,
                                         uint32_t& typeWord)
{
    typeWord = index;
    const TextAnswer answer = readText(kKivDB_GetFieldInfoByIndex, &handle, nullptr, &typeWord, 4);
    name = answer.text;
    return answer.code;
}

uint32_t ServiceClient::fieldCount(uint32_t handle)
{
    uint32_t count = 0;
    call(kKivDB_GetFieldCount, &handle, nullptr, nullptr, nullptr, nullptr, &count);
    return count;
}

uint32_t ServiceClient::simple(uint32_t selector, uint32_t handle)
{
    return call(selector, &handle);
}

uint32_t ServiceClient::setText(uint32_t handle, const std::string& field, const std::string& value)
{
    InputText name(field);
    InputText text(value);
    uint32_t kind = kKivValueKind_Text;
    return call(kKivDB_SetFieldValue, &handle, name.text(), name.length(), text.text(), text.length(), &kind);
}

uint32_t ServiceClient::setUInt(uint32_t handle, const std::string& field, uint32_t value)
{
    InputText name(field);
    uint32_t size = 4;
    uint32_t kind = kKivValueKind_UInt32;
    return call(kKivDB_SetFieldValue, &handle, name.text(), name.length(), &value, &size, &kind);
}

uint32_t ServiceClient::setInt(uint32_t handle, const std::string& field, int32_t value)
{
    InputText name(field);
    uint32_t size = 4;
    uint32_t kind = kKivValueKind_Int32;
    return call(kKivDB_SetFieldValue, &handle, name.text(), name.length(), &value, &size, &kind);
}

uint32_t ServiceClient::setDouble(uint32_t handle, const std::string& field, double value)
{
    InputText name(field);
    uint32_t size = 8;
    uint32_t kind = kKivValueKind_Double;
    return call(kKivDB_SetFieldValue, &handle, name.text(), name.length(), &value, &size, &kind);
}

TextAnswer ServiceClient::getText(uint32_t handle, const std::string& field)
{
    uint32_t kind = kKivValueKind_Text;
    // 64 bytes first, as the module's text getters do.
    return readText(kKivDB_GetFieldValue, &handle, &field, &kind, 64);
}

uint32_t ServiceClient::getUInt(uint32_t handle, const std::string& field, uint32_t& value)
{
    InputText name(field);
    uint32_t size = 4;
    uint32_t kind = kKivValueKind_UInt32;
    return call(kKivDB_GetFieldValue, &handle, name.text(), name.length(), &value, &size, &kind);
}

uint32_t ServiceClient::getInt(uint32_t handle, const std::string& field, int32_t& value)
{
    InputText name(field);
    uint32_t size = 4;
    uint32_t kind = kKivValueKind_Int32;
    return call(kKivDB_GetFieldValue, &handle, name.text(), name.length(), &value, &size, &kind);
}

uint32_t ServiceClient::getDouble(uint32_t handle, const std::string& field, double& value)
{
    InputText name(field);
    uint32_t size = 8;
    uint32_t kind = kKivValueKind_Double;
    return call(kKivDB_GetFieldValue, &handle, name.text(), name.length(), &value, &size, &kind);
}

uint32_t ServiceClient::deleteRecordByText(uint32_t handle, const std::string& key)
{
    InputText text(key);
    return call(kKivDB_DeleteRecord, &handle, text.text(), text.length());
}

uint32_t ServiceClient::deleteRecordByUInt(uint32_t handle, uint32_t key)
{
    uint32_t size = 4;
    uint32_t kind = kKivValueKind_UInt32;
    return call(kKivDB_DeleteRecord, &handle, &key, &size, nullptr, nullptr, &kind);
}

uint32_t ServiceClient::moveToText(uint32_t handle, const std::string& key)
{
    InputText text(key);
    uint32_t kind = kKivValueKind_Text;
    return call(kKivDB_MoveToRecord, &handle, text.text(), text.length(), nullptr, nullptr, &kind);
}

uint32_t ServiceClient::moveToUInt(uint32_t handle, uint32_t key)
{
    uint32_t size = 4;
    uint32_t kind = kKivValueKind_UInt32;
    return call(kKivDB_MoveToRecord, &handle, &key, &size, nullptr, nullptr, &kind);
}

uint32_t ServiceClient::recordCount(uint32_t handle)
{
    uint32_t count = 0;
    call(kKivDB_GetRecordCount, &handle, nullptr, nullptr, nullptr, nullptr, &count);
    return count;
}

uint32_t ServiceClient::search(uint32_t handle, const std::string& text)
{
    InputText search(text);
    call(kKivDB_ClearSearchResults, &handle);
    return call(kKivDB_ExecuteSearch, &handle, search.text(), search.length());
}

uint32_t ServiceClient::resultCount(uint32_t handle)
{
    uint32_t count = 0;
    call(kKivDB_GetResultCount, &handle, nullptr, nullptr, nullptr, nullptr, &count);
    return count;
}

uint32_t ServiceClient::jump(uint32_t handle, uint32_t offset)
{
    return call(kKivDB_Jump, &handle, nullptr, nullptr, nullptr, nullptr, &offset);
}

std::vector<std::string> ServiceClient::column(uint32_t handle, const std::string& searchText,
                                               const std::string& field)
{
    std::vector<std::string> values;
    const uint32_t code = search(handle, searchText);
    EXPECT_EQ(code, 0u) << searchText << ": " << errorInfo(handle).text;
    if (code != 0)
        return values;
    for (uint32_t move = simple(kKivDB_MoveFirstRecord, handle); move == 0;
         move = simple(kKivDB_MoveNextRecord, handle))
        values.push_back(getText(handle, field).text);
    return values;
}

uint32_t ServiceClient::exportRecords(uint32_t handle, const std::string& path, const std::string& fields,
                                      uint32_t& count)
{
    InputText file(path);
    InputText list(fields);
    return call(kKivDB_Export, &handle, file.text(), file.length(), list.text(), list.length(), &count);
}

uint32_t ServiceClient::importRecords(uint32_t handle, const std::string& path, uint32_t& count)
{
    InputText file(path);
    return call(kKivDB_Import, &handle, file.text(), file.length(), nullptr, nullptr, &count);
}

uint32_t ServiceClient::addRecord(uint32_t handle,
                                  const std::vector<std::pair<std::string, std::string>>& values)
{
    if (const uint32_t code = simple(kKivDB_CreateRecord, handle); code != 0)
        return code;
    for (const auto& [field, value] : values)
        if (const uint32_t code = setText(handle, field, value); code != 0)
            return code;
    return simple(kKivDB_AddRecord, handle);
}

uint32_t openSampleDatabase(ServiceClient& client, const std::string& name)
{
    uint32_t handle = 0;
    EXPECT_EQ(client.createDatabase(name), 0u);
    EXPECT_EQ(client.open(name, 3, handle), 0u);
    EXPECT_EQ(client.addField(handle, "Name", 0x02060028), 0u);
    EXPECT_EQ(client.addField(handle, "City", 0x00060000), 0u);
    EXPECT_EQ(client.addField(handle, "Price", 0x02050000), 0u);
    EXPECT_EQ(client.addField(handle, "Qty", 0x00020000), 0u);
    EXPECT_EQ(client.addField(handle, "Stock", 0x00030000), 0u);
    EXPECT_EQ(client.addField(handle, "Weight", 0x00040000), 0u);
    EXPECT_EQ(client.addField(handle, "Active", 0x00010000), 0u);
    EXPECT_EQ(client.addField(handle, "Notes", 0x00070000), 0u);
    EXPECT_EQ(client.addField(handle, "Code", 0x08060000), 0u);
    return handle;
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::filesystem::path& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

} // namespace kiv::db::testing
