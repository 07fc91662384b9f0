// The embedded store as the service sees it: the database files of the region's data folder,
// opening one under its open-mode lock, and the store's seven native field types.
#pragma once

#include "Store.h"
#include "embedded/EmbeddedStore.h"

namespace kiv::db
{

class EmbeddedCatalogue : public Catalogue
{
public:
    EmbeddedCatalogue(std::filesystem::path dataFolder, StoreOptions options);

    uint32_t createDatabase(const std::string& name, std::string& message) override;
    uint32_t deleteDatabase(const std::string& name, std::string& message) override;
    uint32_t listDatabases(std::vector<std::string>& names, std::string& message) override;
    uint32_t openDatabase(const OpenRequest& request, std::unique_ptr<Table>& table,
                          std::string& message) override;

    uint32_t supportFlags() override { return 0; } // the embedded store is no ODBC source
    uint32_t cursorFlags() override { return 0; }
    size_t typeCount() override { return 7; }
    bool typeAt(size_t index, TypeDescription& type) override;
    bool typeOfWord(uint32_t typeBits, TypeDescription& type) override;
    bool typeNamed(std::string_view name, TypeDescription& type) override;

    uint32_t checkDatabase(const std::string& name, std::vector<std::string>& problems,
                           std::string& message) override
    {
        return myFiles.check(name, problems, message);
    }
    uint32_t backupDatabase(const std::string& name, const std::filesystem::path& folder,
                            std::string& message) override
    {
        return myFiles.backup(name, folder, message);
    }
    uint32_t restoreDatabase(const std::string& name, const std::filesystem::path& folder,
                             std::string& message) override
    {
        return myFiles.restore(name, folder, message);
    }

    uint32_t listTrash(std::vector<TrashEntry>& entries, std::string& message) override
    {
        return myFiles.listTrash(entries, message);
    }
    uint32_t restoreTrash(const TrashRestore& which, uint64_t& restored, std::string& message) override
    {
        return myFiles.restoreTrash(which, restored, message);
    }
    uint32_t emptyTrash(std::string& message) override { return myFiles.emptyTrash(message); }

private:
    DatabaseCatalogue myFiles;
};

} // namespace kiv::db
