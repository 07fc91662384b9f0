// A small host for benchmarking one module tag end to end without HTTP: it loads the built
// module library, answers the server selectors that the search tag uses from plain data, and
// forwards every database selector to the embedded database service, one session per tag call
// as the server does.
#pragma once

#include "KivModuleInterface.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kivbench
{

using NameValues = std::vector<std::pair<std::string, std::string>>;

// What the page gives the tag and what the tag gives back.
struct TagCall
{
    std::string tagName;
    NameValues parameters; // in written order
    std::string body;
    std::map<std::string, std::string> preferences;
    NameValues pageVariables;
    std::string output;
    std::string errorHeadline;
};

class BenchHost
{
public:
    BenchHost(const std::filesystem::path& moduleFile, const std::filesystem::path& dataFolder);
    ~BenchHost();
    BenchHost(const BenchHost&) = delete;
    BenchHost& operator=(const BenchHost&) = delete;

    // One 'MTag' call; the output, page variables and error headline land in `call`.
    uint32_t runTag(TagCall& call);

private:
    void* myLibrary = nullptr;
    KivProcessRequestProc myEntry = nullptr;
    std::filesystem::path myDataFolder;
};

} // namespace kivbench
