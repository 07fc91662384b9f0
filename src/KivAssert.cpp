// Writes assertion lines in the one form every layer uses, then aborts or carries on, and finds
// the project path those lines name whatever path the compiler gave the file.
#include "KivAssert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{
const char kHeaderFolder[] = "kiv-foundation/include/";
const size_t kHeaderFolderLength = sizeof(kHeaderFolder) - 1;

// The project's top-level folders. A folder of tests may repeat one of their names
// (tests/server), so a match directly below "tests" is taken with it.
const char* const kTopLevelFolders[] = {"kiv-foundation", "src",  "database", "server",
                                        "tests",          "fuzz", "bench",    "examples"};

// The length of the folder part of a path, slash included; 0 for a bare name.
size_t FolderLength(const char* path_i)
{
    const char* slash = std::strrchr(path_i, '/');
    return slash != nullptr ? (size_t)(slash - path_i) + 1 : 0;
}

bool IsComponent(const char* start_i, size_t length_i, const char* name_i)
{
    return std::strlen(name_i) == length_i && std::strncmp(start_i, name_i, length_i) == 0;
}

bool IsTopLevelFolder(const char* start_i, size_t length_i)
{
    for (const char* folder : kTopLevelFolders)
        if (IsComponent(start_i, length_i, folder))
            return true;
    return false;
}

// The start of the path from the last top-level folder among the file's folders, or null.
const char* FindFromTopLevelFolder(const char* file_i)
{
    const char* found = nullptr;
    const char* previous = nullptr;
    size_t previousLength = 0;
    const char* component = file_i;
    for (const char* slash = std::strchr(component, '/'); slash != nullptr;
         slash = std::strchr(component, '/'))
    {
        size_t length = (size_t)(slash - component);
        if (IsTopLevelFolder(component, length))
            found =
                previous != nullptr && IsComponent(previous, previousLength, "tests") ? previous : component;
        previous = component;
        previousLength = length;
        component = slash + 1;
    }
    return found;
}

// The project path of `file_i` as folder + remainder.
void FindProjectPath(const char* file_i, const char* headerFile_i, const char*& folder_o, const char*& rest_o)
{
    folder_o = "";
    const size_t headerFolderLength = FolderLength(headerFile_i);
    if (std::strncmp(file_i, headerFile_i, headerFolderLength) == 0 &&
        std::strchr(file_i + headerFolderLength, '/') == nullptr)
    {
        folder_o = kHeaderFolder;
        rest_o = file_i + headerFolderLength;
        return;
    }
    if (headerFolderLength >= kHeaderFolderLength &&
        std::strncmp(headerFile_i + headerFolderLength - kHeaderFolderLength, kHeaderFolder,
                     kHeaderFolderLength) == 0)
    {
        const size_t rootLength = headerFolderLength - kHeaderFolderLength;
        const bool rootIsAFolder = rootLength == 0 || headerFile_i[rootLength - 1] == '/';
        // A root spelled "" (the compiler ran in it) says nothing about an absolute path or
        // one that climbs out of it.
        const bool fileIsBelowIt =
            rootLength > 0 || (file_i[0] != '/' && std::strncmp(file_i, "../", 3) != 0);
        if (rootIsAFolder && fileIsBelowIt && std::strncmp(file_i, headerFile_i, rootLength) == 0)
        {
            rest_o = file_i + rootLength;
            return;
        }
    }
    const char* fromTopLevel = FindFromTopLevelFolder(file_i);
    rest_o = fromTopLevel != nullptr ? fromTopLevel : file_i;
}

void Write(const char* file_i, const char* headerFile_i, const char* text1_i, const char* text2_i,
           const char* text3_i)
{
    KivAssertLocation location = KivAssertLocate(file_i, headerFile_i);
    std::fprintf(stderr, "\tFILE: \"%s%.*s\"\n%s%s%s", location.folder, location.pathLength, location.path,
                 text1_i, text2_i, text3_i);
    std::fflush(stderr);
}
} // namespace

KivAssertLocation KivAssertLocate(const char* file_i, const char* headerFile_i)
{
    KivAssertLocation location{"", file_i, 0};
    FindProjectPath(file_i, headerFile_i, location.folder, location.path);
    // The path is printed without its extension: "src/KivString.cpp" -> "src/KivString".
    const char* name = location.path + FolderLength(location.path);
    const char* dot = std::strrchr(name, '.');
    location.pathLength = dot != nullptr ? (int)(dot - location.path) : (int)std::strlen(location.path);
    return location;
}

void KivAssertReport(const char* file_i, const char* headerFile_i, const char* kind_i,
                     const char* condition_i)
{
    Write(file_i, headerFile_i, kind_i, condition_i, "\n");
}

void KivAssertReportMessage(const char* file_i, const char* headerFile_i, const char* message_i)
{
    Write(file_i, headerFile_i, message_i, "", "");
}

void KivAssertAbort(const char* file_i, const char* headerFile_i, const char* kind_i, const char* condition_i)
{
    KivAssertReport(file_i, headerFile_i, kind_i, condition_i);
    std::abort();
}
