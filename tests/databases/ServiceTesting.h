// What the database service's tests share: a fresh data folder per test, a service over it,
// and short ways to open a database, add a record and read values through the typed interface.
#pragma once

#include "DatabaseService.h"
#include "KivModuleInterface.h"
#include "ServiceCodes.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace kiv::db::testing
{

// A fresh data folder per test, removed afterwards; exports go to its "exports" folder.
class DataFolder
{
public:
    DataFolder();
    ~DataFolder();
    const std::filesystem::path& path() const { return myPath; }
    std::filesystem::path exports() const { return myPath / "exports"; }

private:
    std::filesystem::path myPath;
};

// A service over the folder; opens that conflict fail at once unless told to wait.
ServiceEnvironment environmentIn(const std::filesystem::path& dataFolder,
                                 std::chrono::milliseconds lockWait = std::chrono::milliseconds(0));

// Opens a database (ASSERTs that it opened) and hands out the open database.
Database& open(DatabaseService& service, const std::string& name, OpenMode mode = OpenMode::Shared,
               const std::string& uniqueID = "", OpenIntent intent = OpenIntent::MustExist);

// Creates and opens a database with a few fields of every kind: Name (Text 40, indexed), City
// (Text), Price (Number, indexed), Qty (Integer), Stock (UInteger), Weight (Float), Active
// (Boolean), Notes (LongText), Code (Text, case-sensitive).
Database& openSampleDatabase(DatabaseService& service, const std::string& name);

// Adds one record from (field, text value) pairs; returns the first failing code.
uint32_t addRecord(Database& database, const std::vector<std::pair<std::string, std::string>>& values);
// The current record's value as text ("" when there is none).
std::string text(Database& database, const std::string& field);
uint32_t recordCount(Database& database);
uint32_t resultCount(Database& database);
// Runs a search and reads one field of every result, in order.
std::vector<std::string> column(Database& database, const std::string& search, const std::string& field);

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, const std::string& content);

} // namespace kiv::db::testing
