// Loading modules and keeping their registrations.
#include "modules/ModuleRegistry.h"

#include "common/Text.h"

#include <algorithm>
#include <dlfcn.h>
#include <stdexcept>

namespace fs = std::filesystem;

namespace kiv
{

std::string describeTagFlags(uint32_t flags)
{
    std::string text;
    auto add = [&](std::string_view word) { text += (text.empty() ? "" : ", ") + std::string(word); };
    if (tagHasBody(flags))
        add(tagBodyIsRaw(flags) ? "container, body passed unprocessed" : "container, body rendered first");
    else
        add("no body");
    uint32_t known = kKivTagFlag_RawBody | kKivTagFlag_Container | kKivTagFlag_Empty;
    if (flags & ~known)
        add("other bits " + fourCharacterCode(flags & ~known));
    return text;
}

SharedLibrary::SharedLibrary(const fs::path& path)
{
    myHandle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!myHandle)
    {
        const char* reason = ::dlerror();
        throw std::runtime_error("cannot load module " + path.string() + ": " +
                                 (reason ? reason : "unknown"));
    }
}

SharedLibrary::~SharedLibrary()
{
    if (myHandle)
        ::dlclose(myHandle);
}

void* SharedLibrary::symbol(const char* name) const
{
    return ::dlsym(myHandle, name);
}

const RegisteredTag* ModuleRecord::findTag(std::string_view tagName) const
{
    for (const auto& tag : tags)
        if (equalsIgnoringCase(tag.name, tagName))
            return &tag;
    return nullptr;
}

void ModuleRecord::registerTag(std::string_view tagName, uint32_t flags)
{
    for (auto& tag : tags)
        if (equalsIgnoringCase(tag.name, tagName))
        {
            tag.flags = flags;
            return;
        }
    tags.push_back({std::string(tagName), flags});
}

bool ModuleRecord::unregisterTag(std::string_view tagName)
{
    auto found =
        std::find_if(tags.begin(), tags.end(),
                     [&](const RegisteredTag& tag) { return equalsIgnoringCase(tag.name, tagName); });
    if (found == tags.end())
        return false;
    tags.erase(found);
    return true;
}

void ModuleRecord::registerAction(std::string_view actionName)
{
    if (std::find(actions.begin(), actions.end(), actionName) == actions.end())
        actions.emplace_back(actionName);
}

bool ModuleRecord::unregisterAction(std::string_view actionName)
{
    auto found = std::find(actions.begin(), actions.end(), actionName);
    if (found == actions.end())
        return false;
    actions.erase(found);
    return true;
}

ModuleRecord& ModuleRegistry::load(const fs::path& path)
{
    auto record = std::make_unique<ModuleRecord>();
    record->path = fs::absolute(path).lexically_normal();
    record->library = std::make_unique<SharedLibrary>(record->path);
    record->entry = reinterpret_cast<KivProcessRequestProc>(record->library->symbol(KIV_MODULE_ENTRY_NAME));
    if (!record->entry)
        throw std::runtime_error("module " + path.string() + " has no " KIV_MODULE_ENTRY_NAME " entry");
    myModules.push_back(std::move(record));
    return *myModules.back();
}

std::pair<ModuleRecord*, const RegisteredTag*> ModuleRegistry::findTag(std::string_view tagName) const
{
    for (const auto& module : myModules)
        if (const RegisteredTag* tag = module->findTag(tagName))
            return {module.get(), tag};
    return {nullptr, nullptr};
}

fs::path findDefaultModule(const fs::path& programPath)
{
    fs::path folder = programPath.parent_path();
    const fs::path candidates[] = {
        folder / "libkivdatabase.so",
        folder / ".." / "database" / "libkivdatabase.so",
        folder / ".." / "lib" / "libkivdatabase.so",
        folder / ".." / "lib" / "kiv" / "libkivdatabase.so",
    };
    for (const auto& candidate : candidates)
    {
        std::error_code error;
        if (fs::is_regular_file(candidate, error))
            return fs::canonical(candidate, error);
    }
    return {};
}

} // namespace kiv
