// Persistent per-region preferences.
#include "region/PreferenceStore.h"

#include "common/Text.h"
#include "common/FileDescriptor.h"
#include "logging/Log.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace kiv
{

namespace
{

std::string entryKeyOf(std::string_view module, std::string_view key)
{
    return std::string(module) + '\t' + std::string(key);
}

// One line per preference: module, key and value, each percent-encoded, separated by spaces.
std::map<std::string, std::string> readEntries(const fs::path& file)
{
    std::map<std::string, std::string> entries;
    std::ifstream in(file, std::ios::binary);
    std::string line;
    while (std::getline(in, line))
    {
        std::istringstream fields(line);
        std::string module, key, value, decodedModule, decodedKey, decodedValue;
        if (!(fields >> module >> key))
            continue;
        fields >> value;
        if (percentDecode(module, false, decodedModule) && percentDecode(key, false, decodedKey) &&
            percentDecode(value, false, decodedValue))
            entries[entryKeyOf(decodedModule, decodedKey)] = decodedValue;
    }
    return entries;
}

bool writeEntries(const fs::path& file, const std::map<std::string, std::string>& entries)
{
    std::string text;
    for (const auto& [entryKey, value] : entries)
    {
        size_t tab = entryKey.find('\t');
        text += percentEncode(entryKey.substr(0, tab)) + " " + percentEncode(entryKey.substr(tab + 1)) + " " +
                percentEncode(value) + "\n";
    }
    fs::path temporary = file;
    temporary += ".tmp" + std::to_string(::getpid());
    FileDescriptor out(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
    if (!out.isOpen())
        return false;
    size_t written = 0;
    while (written < text.size())
    {
        ssize_t n = ::write(out.get(), text.data() + written, text.size() - written);
        if (n <= 0)
        {
            ::unlink(temporary.c_str());
            return false;
        }
        written += static_cast<size_t>(n);
    }
    if (::fsync(out.get()) != 0 || ::rename(temporary.c_str(), file.c_str()) != 0)
    {
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

} // namespace

PreferenceStore::PreferenceStore(fs::path file) : myFile(std::move(file)) {}

void PreferenceStore::reloadIfChanged()
{
    struct stat info
    {
    };
    if (::stat(myFile.c_str(), &info) != 0)
    {
        myEntries.clear();
        mySize = -1;
        return;
    }
    if (info.st_size == mySize && info.st_ino == myInode && info.st_mtim.tv_sec == myModified.tv_sec &&
        info.st_mtim.tv_nsec == myModified.tv_nsec)
        return;
    myEntries = readEntries(myFile);
    mySize = info.st_size;
    myInode = info.st_ino;
    myModified = info.st_mtim;
}

std::optional<std::string> PreferenceStore::get(std::string_view module, std::string_view key)
{
    std::lock_guard<std::mutex> lock(myMutex);
    reloadIfChanged();
    auto found = myEntries.find(entryKeyOf(module, key));
    if (found == myEntries.end())
        return std::nullopt;
    return found->second;
}

bool PreferenceStore::set(std::string_view module, std::string_view key, std::string_view value)
{
    return change(entryKeyOf(module, key), std::string(value));
}

bool PreferenceStore::remove(std::string_view module, std::string_view key)
{
    return change(entryKeyOf(module, key), std::nullopt);
}

bool PreferenceStore::change(const std::string& entryKey, const std::optional<std::string>& value)
{
    std::lock_guard<std::mutex> lock(myMutex);
    std::error_code ignored;
    fs::create_directories(myFile.parent_path(), ignored);
    fs::path lockPath = myFile;
    lockPath += ".lock";
    FileDescriptor lockFile(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    if (!lockFile.isOpen() || ::flock(lockFile.get(), LOCK_EX) != 0)
    {
        writeServerLog(LogKind::Error, {},
                       "cannot lock preferences " + lockPath.string() + ": " + std::strerror(errno));
        return false;
    }
    // Read under the lock: another worker may have changed the file since our last look.
    auto entries = readEntries(myFile);
    if (value)
        entries[entryKey] = *value;
    else
        entries.erase(entryKey);
    bool written = writeEntries(myFile, entries);
    if (!written)
        writeServerLog(LogKind::Error, {}, "cannot write preferences " + myFile.string());
    mySize = -1; // force a reload on the next read
    reloadIfChanged();
    return written; // the lock is released when lockFile closes
}

} // namespace kiv
