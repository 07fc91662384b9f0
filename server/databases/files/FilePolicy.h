// Which files export and import may name: only files inside the region's exports folder
// (made on first use), and never one of the server's own files, whatever the spelling (case,
// "./", "..", symbolic links): a database file or its journal, the open-mode locks, the
// accounts, the preferences or a log. An export that overwrote one of those would destroy a
// database or lock the administrator out.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::db
{

class FilePolicy
{
public:
    FilePolicy() = default;
    // `protectedFiles`: the region's accounts, preferences and logs, wherever they are.
    FilePolicy(std::filesystem::path exportsFolder, std::vector<std::filesystem::path> protectedFiles);

    const std::filesystem::path& exportsFolder() const { return myExportsFolder; }

    // The real location of a file a page names (absolute, or relative to the exports folder):
    // 0 and the path, or 'MNAu' with a sentence saying why it is refused ('MInv' for an empty
    // name).
    uint32_t resolve(std::string_view requested, std::filesystem::path& file, std::string& why) const;
    // A resolved file as messages name it: its path inside the exports folder.
    std::string shownName(const std::filesystem::path& file) const;

private:
    bool isServersOwn(const std::filesystem::path& real) const;

    std::filesystem::path myExportsFolder;
    std::vector<std::filesystem::path> myProtectedFiles;
};

} // namespace kiv::db
