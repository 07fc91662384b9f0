// The scratch folder of a fuzz target that needs files: in memory where there is some, so that
// database writes are not held up by file system syncs, and named with the process number at a
// fixed width, so that the paths a target works with have the same length in every run and the
// coverage an input reaches does not depend on the process number. Removed at exit.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace fuzz
{

inline std::filesystem::path& scratchFolderToRemove()
{
    static std::filesystem::path folder;
    return folder;
}

inline void removeScratchFolder()
{
    std::error_code error;
    std::filesystem::remove_all(scratchFolderToRemove(), error);
}

// A new, empty folder named prefix + "-" + the process number.
inline std::filesystem::path makeScratchFolder(const std::string& prefix)
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path parent = ::access("/dev/shm", W_OK) == 0 && fs::is_directory("/dev/shm", error)
                                ? fs::path("/dev/shm")
                                : fs::temp_directory_path();
    std::string digits = std::to_string(::getpid());
    digits.insert(0, digits.size() < 10 ? 10 - digits.size() : 0, '0');
    const fs::path folder = parent / (prefix + "-" + digits);
    fs::remove_all(folder);
    fs::create_directories(folder);
    if (scratchFolderToRemove().empty())
        std::atexit(removeScratchFolder);
    scratchFolderToRemove() = folder;
    return folder;
}

} // namespace fuzz
