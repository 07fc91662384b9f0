// Tag modules as the host knows them: the loaded shared library, its entry point, and
// what it registered about itself (name, version, author, tags with their flags,
// actions) when it was initialised.
#pragma once

#include "KivModuleInterface.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kiv
{

struct RegisteredTag
{
    std::string name;
    uint32_t flags = 0;
};

// What the host's tag-registration flag bits mean; see the module interface guide.
inline bool tagHasBody(uint32_t flags)
{
    return (flags & kKivTagFlag_Container) && !(flags & kKivTagFlag_Empty);
}
inline bool tagBodyIsRaw(uint32_t flags)
{
    return (flags & kKivTagFlag_RawBody) != 0;
}
std::string describeTagFlags(uint32_t flags);

// A shared library opened with dlopen and closed when the owner goes away.
class SharedLibrary
{
public:
    explicit SharedLibrary(const std::filesystem::path& path); // throws std::runtime_error
    ~SharedLibrary();
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;
    void* symbol(const char* name) const;

private:
    void* myHandle = nullptr;
};

struct ModuleRecord
{
    std::filesystem::path path;
    std::unique_ptr<SharedLibrary> library;
    KivProcessRequestProc entry = nullptr;

    std::string name;
    std::string version;
    std::string author;
    std::string developerID;
    std::string versionTrackerURL;
    std::vector<RegisteredTag> tags;
    std::vector<std::string> actions;
    bool initialized = false;

    std::string displayName() const { return name.empty() ? path.filename().string() : name; }
    const RegisteredTag* findTag(std::string_view tagName) const; // ignoring case
    void registerTag(std::string_view tagName, uint32_t flags);
    bool unregisterTag(std::string_view tagName);
    void registerAction(std::string_view actionName);
    bool unregisterAction(std::string_view actionName);
};

class ModuleRegistry
{
public:
    // Opens the library and resolves its entry; throws std::runtime_error with the reason.
    ModuleRecord& load(const std::filesystem::path& path);

    const std::vector<std::unique_ptr<ModuleRecord>>& modules() const { return myModules; }
    // The module that registered this tag (ignoring case) and the registration; the first
    // loaded module wins when two register the same name.
    std::pair<ModuleRecord*, const RegisteredTag*> findTag(std::string_view tagName) const;

private:
    std::vector<std::unique_ptr<ModuleRecord>> myModules;
};

// The database module shipped with the server: beside the program, or where the build
// tree puts it. Empty when none is found.
std::filesystem::path findDefaultModule(const std::filesystem::path& programPath);

} // namespace kiv
