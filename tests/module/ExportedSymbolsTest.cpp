// The built module library shows the host exactly one symbol, its entry, and needs nothing of
// the foundation from outside: the host may carry its own copy of the foundation.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace
{

// The symbol names that `nm` lists with the given options for the built library.
std::vector<std::string> DynamicSymbols(const std::string& options_i)
{
    std::string command = "nm -D " + options_i + " '" KIV_DATABASE_MODULE_FILE "'";
    FILE* pipe = popen(command.c_str(), "r");
    std::vector<std::string> names;
    if (pipe == nullptr)
        return names;
    char line[1024];
    while (std::fgets(line, sizeof line, pipe))
    {
        // "<address> <type> <name>" for defined symbols, "<type> <name>" for undefined ones.
        std::istringstream fields(line);
        std::vector<std::string> words;
        for (std::string word; fields >> word;)
            words.push_back(word);
        if (!words.empty())
            names.push_back(words.back());
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return names;
}

} // namespace

TEST(ExportedSymbols, OnlyTheEntryIsExported)
{
    EXPECT_EQ(DynamicSymbols("--defined-only"), std::vector<std::string>{"ProcessKivRequest"});
}

TEST(ExportedSymbols, TheFoundationIsCarriedInside)
{
    for (const std::string& name : DynamicSymbols("--undefined-only"))
        EXPECT_EQ(name.find("Kiv"), std::string::npos) << name;
}
