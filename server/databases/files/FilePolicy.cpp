// The exports folder and the files no export or import may touch.
#include "files/FilePolicy.h"

#include "FieldTypes.h"
#include "KivModuleInterface.h"
#include "common/SafePaths.h"
#include "files/RecordFiles.h"

namespace fs = std::filesystem;

namespace kiv::db
{

namespace
{
// Endings of the embedded store's files: the database, its write-ahead log and shared
// memory, a rollback journal.
constexpr std::string_view kStoreEndings[] = {".kivdb", ".kivdb-wal", ".kivdb-shm", ".kivdb-journal"};

bool endsWith(std::string_view text, std::string_view ending)
{
    return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}
} // namespace

FilePolicy::FilePolicy(fs::path exportsFolder, std::vector<fs::path> protectedFiles)
    : myExportsFolder(std::move(exportsFolder)), myProtectedFiles(std::move(protectedFiles))
{
}

bool FilePolicy::isServersOwn(const fs::path& real) const
{
    const std::string name = foldCase(real.filename().string());
    // Hidden names: the lock folder, the store's temporary files, an export's own temporary.
    if (name.empty() || name[0] == '.')
        return true;
    for (const auto ending : kStoreEndings)
        if (endsWith(name, ending))
            return true;
    for (const auto& component : real)
        if (foldCase(component.string()) == ".kivlocks")
            return true;
    const std::string folded = foldCase(real.string());
    for (const auto& file : myProtectedFiles)
    {
        std::error_code error;
        const fs::path protectedReal = fs::weakly_canonical(file, error);
        const std::string protectedName = foldCase(file.filename().string());
        if (folded == foldCase((error ? file : protectedReal).string()) || name == protectedName ||
            name == protectedName + ".lock")
            return true;
    }
    return false;
}

uint32_t FilePolicy::resolve(std::string_view requested, fs::path& file, std::string& why) const
{
    requested = trimBlanks(requested);
    if (requested.empty())
    {
        why = "No file was named.";
        return kKivResult_InvalidValue;
    }
    std::error_code error;
    fs::create_directories(myExportsFolder, error);
    const auto real = resolveFileInFolder(myExportsFolder, requested);
    if (!real)
    {
        why = "The file " + quoteValue(requested) + " is outside the exports folder " +
              myExportsFolder.string() + ".";
        return kKivResult_NotAuthorized;
    }
    if (isServersOwn(*real))
    {
        why = "The file " + quoteValue(requested) + " is one of the server's own files.";
        return kKivResult_NotAuthorized;
    }
    file = *real;
    return kKivResult_Success;
}

std::string FilePolicy::shownName(const fs::path& file) const
{
    std::error_code error;
    const fs::path relative = file.lexically_relative(fs::weakly_canonical(myExportsFolder, error));
    return relative.empty() || error ? file.filename().string() : relative.string();
}

} // namespace kiv::db
