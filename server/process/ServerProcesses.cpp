// Master and worker processes.
#include "process/ServerProcesses.h"

#include "http/HttpServer.h"
#include "logging/Log.h"
#include "region/RegionState.h"
#include "services/ModuleHost.h"
#include "site/SiteHandler.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <map>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kiv
{

namespace
{

std::atomic<bool> ourStopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the stop flag is set from a signal handler");

extern "C" void requestStop(int)
{
    ourStopRequested.store(true);
}

void installSignalHandlers()
{
    struct sigaction action
    {
    };
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: a blocked waitpid must return to look at the flag
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

using Clock = std::chrono::steady_clock;

struct WorkerProcess
{
    Clock::time_point started;
};

pid_t startWorker(const ServerConfig& config, ModuleRegistry& modules, const std::vector<Listener>& listeners)
{
    pid_t pid = ::fork();
    if (pid == 0)
    {
        int status = 1;
        try
        {
            status = runWorker(config, modules, listeners);
        }
        catch (const std::exception& error)
        {
            writeServerLog(LogKind::Failure, {}, std::string("worker failed: ") + error.what());
        }
        // The master's objects (module libraries, logs) belong to the master; leave without
        // running its destructors a second time.
        ::_exit(status);
    }
    if (pid < 0)
        writeServerLog(LogKind::Failure, {}, std::string("cannot start a worker: ") + std::strerror(errno));
    return pid;
}

std::string describeExit(int status)
{
    if (WIFSIGNALED(status))
        return "was killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
               strsignal(WTERMSIG(status)) + ")";
    return "exited with status " + std::to_string(WEXITSTATUS(status));
}

void stopWorkers(std::map<pid_t, WorkerProcess>& workers)
{
    for (const auto& [pid, worker] : workers)
        ::kill(pid, SIGTERM);
    auto deadline = Clock::now() + std::chrono::seconds(30);
    while (!workers.empty() && Clock::now() < deadline)
    {
        int status = 0;
        pid_t pid = ::waitpid(-1, &status, WNOHANG);
        if (pid > 0)
            workers.erase(pid);
        else if (pid < 0 && errno == ECHILD)
            break;
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    for (const auto& [pid, worker] : workers)
    {
        writeServerLog(LogKind::Warning, {},
                       "worker " + std::to_string(pid) + " did not stop in time; killing it");
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    workers.clear();
}

} // namespace

int workerCount(const ServerConfig& config)
{
    if (config.workers > 0)
        return config.workers;
    unsigned cores = std::thread::hardware_concurrency();
    return cores == 0 ? 1 : static_cast<int>(cores);
}

void raiseOpenFileLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max)
        return;
    limit.rlim_cur = limit.rlim_max;
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
        writeServerLog(LogKind::Warning, {},
                       std::string("cannot raise the open file limit: ") + std::strerror(errno));
}

int runWorker(const ServerConfig& config, ModuleRegistry& modules, const std::vector<Listener>& listeners)
{
    installSignalHandlers();
    ModuleHost host(modules);
    host.initializeAll();
    RegionStates regions(config);
    SiteHandler site(config, regions, host);
    HttpServer server(listeners, config, site);
    server.run(ourStopRequested);
    host.terminateAll();
    return 0;
}

int runServer(const ServerConfig& config, ModuleRegistry& modules, const std::vector<Listener>& listeners,
              bool inProcess)
{
    installSignalHandlers();
    if (inProcess)
    {
        int status = runWorker(config, modules, listeners);
        writeServerLog(LogKind::Note, {}, "server stopped");
        return status;
    }
    std::map<pid_t, WorkerProcess> workers;
    int wanted = workerCount(config);
    for (int i = 0; i < wanted; ++i)
        if (pid_t pid = startWorker(config, modules, listeners); pid > 0)
            workers[pid] = {Clock::now()};
    writeServerLog(LogKind::Note, {}, "started " + std::to_string(workers.size()) + " workers");

    while (!ourStopRequested.load())
    {
        int status = 0;
        pid_t pid = ::waitpid(-1, &status, 0);
        if (pid < 0)
        {
            if (errno == ECHILD)
                std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        else if (auto found = workers.find(pid); found != workers.end())
        {
            auto lived = Clock::now() - found->second.started;
            workers.erase(found);
            writeServerLog(LogKind::Error, {},
                           "worker " + std::to_string(pid) + " " + describeExit(status) +
                               "; starting a new one");
            // A worker that dies at once would otherwise be restarted in a tight loop.
            if (lived < std::chrono::seconds(1))
                for (int i = 0; i < 10 && !ourStopRequested.load(); ++i)
                    std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        if (ourStopRequested.load())
            break;
        while (static_cast<int>(workers.size()) < wanted)
        {
            pid_t started = startWorker(config, modules, listeners);
            if (started <= 0)
                break;
            workers[started] = {Clock::now()};
        }
    }
    writeServerLog(LogKind::Note, {}, "stopping: waiting for the workers to finish their requests");
    stopWorkers(workers);
    writeServerLog(LogKind::Note, {}, "server stopped");
    return 0;
}

} // namespace kiv
