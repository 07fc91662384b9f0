// The one place that calls into modules: 'MIni' when a worker starts, 'MTag' for each tag,
// 'MGPr'/'MSPr' for the administration page, 'MTrm' before the worker exits. Calls are
// serialised by one lock per process, because module code (and the foundation objects it
// uses) is not safe to run on two threads at once.
#pragma once

#include "modules/ModuleRegistry.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace kiv
{

class RequestContext;

struct ErrorInformation
{
    bool isSet = false;
    std::string headline; // HTML, as the module wrote it
    std::string hint;
};

// The connection handle of one module call: what the callbacks need to answer it.
struct ModuleCall
{
    ModuleRecord& module;
    RequestContext* request; // null during 'MIni' and 'MTrm'
    std::string output;      // what the module wrote with 'MWtS'
    ErrorInformation error;  // what it set with 'MSEI'
};

struct ModuleCallResult
{
    uint32_t code = 0;
    std::string output;
    ErrorInformation error;
};

class ModuleHost
{
public:
    explicit ModuleHost(ModuleRegistry& registry) : myRegistry(registry) {}

    ModuleRegistry& registry() { return myRegistry; }

    // Sends 'MIni' to every loaded module and logs those that fail; returns the number of
    // modules that failed (0 when all started).
    int initializeAll();
    // Sends 'MTrm' to every initialised module.
    void terminateAll();

    ModuleCallResult call(ModuleRecord& module, uint32_t requestCode, RequestContext* request);

    // Runs cleanup that touches module-owned services (the request's database service)
    // under the same lock as module calls.
    void finishRequest(RequestContext& request);

    // For the health check: every module started, and a module call could begin within the
    // wait (no call is stuck holding the lock). Empty when so, else the reason.
    std::string findCallProblem(std::chrono::milliseconds wait);

private:
    ModuleRegistry& myRegistry;
    std::timed_mutex myMutex;
    int myFailedModules = 0;
};

} // namespace kiv
