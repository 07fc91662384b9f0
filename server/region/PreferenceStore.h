// Module preferences of one region, kept in a file in the region's data folder so that
// they survive restarts and are shared by every worker process. Changes are written to a
// temporary file and renamed over the old one under a file lock, so a crash mid-write
// never leaves half a file and concurrent writers never lose each other's changes.
#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace kiv
{

class PreferenceStore
{
public:
    explicit PreferenceStore(std::filesystem::path file);

    std::optional<std::string> get(std::string_view module, std::string_view key);
    bool set(std::string_view module, std::string_view key, std::string_view value);
    bool remove(std::string_view module, std::string_view key);
    const std::filesystem::path& file() const { return myFile; }

private:
    using Entries = std::map<std::string, std::string>;
    bool change(const std::string& entryKey, const std::optional<std::string>& value);
    void reloadIfChanged();

    std::filesystem::path myFile;
    std::mutex myMutex;
    Entries myEntries;
    struct timespec myModified
    {
    };
    off_t mySize = -1;
    ino_t myInode = 0;
};

} // namespace kiv
