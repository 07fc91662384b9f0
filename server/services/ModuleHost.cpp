// Module lifecycle and calls.
#include "services/ModuleHost.h"

#include "logging/Log.h"
#include "services/HostCallbacks.h"
#include "services/RequestContext.h"

namespace kiv
{

ModuleCallResult ModuleHost::call(ModuleRecord& module, uint32_t requestCode, RequestContext* request)
{
    std::lock_guard<std::timed_mutex> lock(myMutex);
    ModuleCall call{module, request, {}, {}};
    _KIVAPI_ModuleProcessingInfo info{};
    info.connID_i = &call;
    info.requestCode = requestCode;
    info.KivServerSupportFunction = &serverSupportFunction;
    info.KivDatabaseSupportFunction = &databaseSupportFunction;
    ModuleCallResult result;
    result.code = module.entry(&info);
    result.output = std::move(call.output);
    result.error = std::move(call.error);
    return result;
}

int ModuleHost::initializeAll()
{
    int failures = 0;
    for (const auto& module : myRegistry.modules())
    {
        ModuleCallResult result = call(*module, kKivRequest_Initialize, nullptr);
        module->initialized = true; // 'MTrm' is owed even after a partial initialisation
        if (result.code != 0)
        {
            ++failures;
            writeServerLog(LogKind::Error, {},
                           "module " + module->path.string() + " failed to initialise: result " +
                               fourCharacterCode(result.code));
        }
        else
            writeServerLog(LogKind::Note, {},
                           "module " + module->displayName() + " " + module->version + " initialised with " +
                               std::to_string(module->tags.size()) + " tags");
    }
    myFailedModules = failures;
    return failures;
}

void ModuleHost::terminateAll()
{
    for (const auto& module : myRegistry.modules())
    {
        if (!module->initialized)
            continue;
        ModuleCallResult result = call(*module, kKivRequest_Terminate, nullptr);
        module->initialized = false;
        if (result.code != 0)
            writeServerLog(LogKind::Warning, {},
                           "module " + module->displayName() + " answered " + fourCharacterCode(result.code) +
                               " to termination");
    }
}

void ModuleHost::finishRequest(RequestContext& request)
{
    std::lock_guard<std::timed_mutex> lock(myMutex);
    request.closeDatabaseService();
}

std::string ModuleHost::findCallProblem(std::chrono::milliseconds wait)
{
    if (myFailedModules > 0)
        return std::to_string(myFailedModules) + " module(s) failed to initialise";
    std::unique_lock<std::timed_mutex> lock(myMutex, wait);
    if (!lock.owns_lock())
        return "a module call has been running for more than " + std::to_string(wait.count()) + " ms";
    return {};
}

} // namespace kiv
