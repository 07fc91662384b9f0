// The host's database service as one request sees it: the target of the module's database
// callback. The HTTP layer creates one session per request and forwards every database
// selector to handle(); the session owns whatever the request opened and closes it at the end.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace kiv::db
{

// What a session needs to know about where it runs.
struct SessionEnvironment
{
    std::filesystem::path dataFolder; // the region's data folder: every embedded database lives here
    // How long an open waits for a conflicting open (exclusive against shared) to end before
    // it is refused with 'MLkd'.
    std::chrono::milliseconds lockWait{2000};
    // synchronous=FULL: commits also survive a power loss, at the price of an fsync each.
    // Without it a committed record still survives a crash or kill of the server.
    bool durableCommits = false;
    // ODBC sources: move through search results with the driver's scrollable cursor where it
    // has one. false always takes the fallback that keeps the results' unique IDs.
    bool odbcScrollableCursors = true;
};

class DatabaseSession
{
public:
    explicit DatabaseSession(SessionEnvironment environment);
    ~DatabaseSession();
    DatabaseSession(const DatabaseSession&) = delete;
    DatabaseSession& operator=(const DatabaseSession&) = delete;

    // The tag being processed (as written in the page); only the editor tag may create a
    // database by opening a name that does not exist.
    void setCurrentTag(std::string_view tagName);

    // One call of the database callback: selector and the six argument slots a3..a8.
    uint32_t handle(uint32_t selector, void* a3, void* a4, void* a5, void* a6, void* a7, void* a8);

private:
    struct Impl;
    std::unique_ptr<Impl> myImpl;
};

} // namespace kiv::db
