// The shared pieces of the database service's tests.
#include "ServiceTesting.h"

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <sstream>

namespace kiv::db::testing
{

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

ServiceEnvironment environmentIn(const std::filesystem::path& dataFolder, std::chrono::milliseconds lockWait)
{
    ServiceEnvironment environment;
    environment.dataFolder = dataFolder;
    environment.lockWait = lockWait;
    return environment;
}

Database& open(DatabaseService& service, const std::string& name, OpenMode mode, const std::string& uniqueID,
               OpenIntent intent)
{
    DatabaseHandle handle = 0;
    const uint32_t code = service.openDatabase(name, mode, intent, uniqueID, handle);
    EXPECT_EQ(code, 0u) << name << ": " << service.lastFailure().line;
    if (code != 0)
        throw std::runtime_error("cannot open " + name);
    return *service.database(handle);
}

Database& openSampleDatabase(DatabaseService& service, const std::string& name)
{
    EXPECT_EQ(service.createDatabase(name), 0u) << service.lastFailure().line;
    Database& database = open(service, name, OpenMode::Exclusive);
    const std::pair<const char*, uint32_t> fields[] = {
        {"Name", 0x02060028},   {"City", 0x00060000},  {"Price", 0x02050000},
        {"Qty", 0x00020000},    {"Stock", 0x00030000}, {"Weight", 0x00040000},
        {"Active", 0x00010000}, {"Notes", 0x00070000}, {"Code", 0x08060000}};
    for (const auto& [field, typeWord] : fields)
        EXPECT_EQ(database.addField(field, typeWord), 0u) << field << ": " << database.message();
    return database;
}

uint32_t addRecord(Database& database, const std::vector<std::pair<std::string, std::string>>& values)
{
    if (const uint32_t code = database.createRecord(); code != 0)
        return code;
    for (const auto& [field, value] : values)
        if (const uint32_t code = database.setValue(field, std::string_view(value)); code != 0)
            return code;
    return database.addRecord();
}

std::string text(Database& database, const std::string& field)
{
    const FieldDefinition* definition = nullptr;
    const FieldValue* value = nullptr;
    if (database.getValue(field, definition, value) != 0)
        return {};
    return valueAsText(*definition, *value);
}

uint32_t recordCount(Database& database)
{
    uint32_t count = 0;
    EXPECT_EQ(database.recordCount(count), 0u);
    return count;
}

uint32_t resultCount(Database& database)
{
    uint32_t count = 0;
    EXPECT_EQ(database.resultCount(count), 0u);
    return count;
}

std::vector<std::string> column(Database& database, const std::string& search, const std::string& field)
{
    std::vector<std::string> values;
    const uint32_t code = database.executeSearch(search);
    EXPECT_EQ(code, 0u) << search << ": " << database.message();
    if (code != 0)
        return values;
    for (uint32_t move = database.moveFirst(); move == 0; move = database.moveNext())
        values.push_back(text(database, field));
    return values;
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
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

} // namespace kiv::db::testing
