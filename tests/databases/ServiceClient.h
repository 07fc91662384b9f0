// Drives the database service the way the module does: raw argument slots, text lengths
// + 1, small output buffers retried once after 'MBtS' with the size the service asks for.
#pragma once

#include "DatabaseResultCodes.h"
#include "DatabaseSession.h"
#include "KivModuleInterface.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace kiv::db::testing
{

// A fresh data folder per test, removed afterwards.
class DataFolder
{
public:
    DataFolder();
    ~DataFolder();
    const std::filesystem::path& path() const { return myPath; }

private:
    std::filesystem::path myPath;
};

struct TextAnswer
{
    uint32_t code = 0;
    std::string text;
    int calls = 0; // 2 when the first buffer was too small
};

class ServiceClient
{
public:
    explicit ServiceClient(const std::filesystem::path& dataFolder, std::string tag = "kivModifyDatabase",
                           std::chrono::milliseconds lockWait = std::chrono::milliseconds(0));
    ServiceClient(SessionEnvironment environment, std::string tag);

    DatabaseSession& session() { return mySession; }
    uint32_t call(uint32_t selector, void* a3 = nullptr, void* a4 = nullptr, void* a5 = nullptr,
                  void* a6 = nullptr, void* a7 = nullptr, void* a8 = nullptr)
    {
        return mySession.handle(selector, a3, a4, a5, a6, a7, a8);
    }

    // Databases
    uint32_t createDatabase(const std::string& name);
    uint32_t deleteDatabase(const std::string& name);
    uint32_t open(const std::string& name, uint32_t mode, uint32_t& handle, const std::string& uniqueID = "");
    uint32_t close(uint32_t handle);
    uint32_t databaseCount();
    std::vector<std::string> databaseNames();
    TextAnswer errorInfo(uint32_t codeOrHandle);

    // Fields
    uint32_t addField(uint32_t handle, const std::string& name, uint32_t typeWord);
    uint32_t deleteField(uint32_t handle, const std::string& name);
    uint32_t fieldInfo(uint32_t handle, const std::string& name, uint32_t& typeWord);
    uint32_t fieldInfoByIndex(uint32_t handle, uint32_t index, std::string& name, uint32_t& typeWord);
    uint32_t fieldCount(uint32_t handle);

    // Records and values
    uint32_t simple(uint32_t selector, uint32_t handle); // create, add, update, delete all, moves, clear
    uint32_t setText(uint32_t handle, const std::string& field, const std::string& value);
    uint32_t setUInt(uint32_t handle, const std::string& field, uint32_t value);
    uint32_t setInt(uint32_t handle, const std::string& field, int32_t value);
    uint32_t setDouble(uint32_t handle, const std::string& field, double value);
    TextAnswer getText(uint32_t handle, const std::string& field);
    uint32_t getUInt(uint32_t handle, const std::string& field, uint32_t& value);
    uint32_t getInt(uint32_t handle, const std::string& field, int32_t& value);
    uint32_t getDouble(uint32_t handle, const std::string& field, double& value);
    uint32_t deleteRecordByText(uint32_t handle, const std::string& key);
    uint32_t deleteRecordByUInt(uint32_t handle, uint32_t key);
    uint32_t moveToText(uint32_t handle, const std::string& key);
    uint32_t moveToUInt(uint32_t handle, uint32_t key);
    uint32_t recordCount(uint32_t handle);

    // Searches
    uint32_t search(uint32_t handle, const std::string& text);
    uint32_t resultCount(uint32_t handle);
    uint32_t jump(uint32_t handle, uint32_t offset);
    // Runs a search and reads one field of every result, in order.
    std::vector<std::string> column(uint32_t handle, const std::string& search, const std::string& field);

    // Files
    uint32_t exportRecords(uint32_t handle, const std::string& path, const std::string& fields,
                           uint32_t& count);
    uint32_t importRecords(uint32_t handle, const std::string& path, uint32_t& count);

    // Adds one record from (field, text value) pairs; returns the add's code.
    uint32_t addRecord(uint32_t handle, const std::vector<std::pair<std::string, std::string>>& values);

private:
    TextAnswer readText(uint32_t selector, uint32_t* a3, const std::string* name, uint32_t* a8,
                        uint32_t capacity);
    DatabaseSession mySession;
};

// Opens a new database with a few fields of every kind: Name (Text 40, indexed), City
// (Text), Price (Number, indexed), Qty (Integer), Stock (UInteger), Weight (Float),
// Active (Boolean), Notes (LongText), Code (Text, case-sensitive).
uint32_t openSampleDatabase(ServiceClient& client, const std::string& name);

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, const std::string& content);

} // namespace kiv::db::testing
