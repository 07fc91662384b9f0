// The embedded store as a backend of the session: its catalogue of database files in the
// region's data folder and its seven native field types.
#pragma once

#include "DatabaseBackend.h"
#include "EmbeddedStore.h"

namespace kiv::db
{

class EmbeddedBackend : public DatabaseBackend
{
public:
    EmbeddedBackend(std::filesystem::path dataFolder, StoreOptions options);

    uint32_t createDatabase(const std::string& name, std::string& message) override;
    uint32_t deleteDatabase(const std::string& name, std::string& message) override;
    uint32_t listDatabases(std::vector<std::string>& names, std::string& message) override;
    uint32_t openDatabase(const OpenRequest& request, std::unique_ptr<OpenDatabase>& database,
                          std::string& message) override;

    uint32_t supportFlags() override { return 0; } // the embedded store is no ODBC source
    uint32_t cursorFlags() override { return 0; }
    size_t typeCount() override { return 7; }
    bool typeAt(size_t index, TypeDescription& type) override;
    bool typeOfWord(uint32_t typeBits, TypeDescription& type) override;
    bool typeNamed(std::string_view name, TypeDescription& type) override;

private:
    DatabaseCatalogue myCatalogue;
};

} // namespace kiv::db
