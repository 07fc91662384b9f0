// Master and worker processes.
#include "process/ServerProcesses.h"

#include "logging/Log.h"
#include "process/Generation.h"
#include "process/Metrics.h"
#include "process/MetricsRegistry.h"
#include "process/Signals.h"
#include "process/SystemdNotify.h"
#include "process/Worker.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kiv
{

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// How long workers told to stop get to finish their requests before they are killed.
constexpr auto kStopTime = std::chrono::seconds(30);
// How long new workers get to initialise their modules and start serving.
constexpr auto kStartTime = std::chrono::seconds(60);
// A worker that dies sooner than this after its start is replaced only after this pause, so
// that a module that crashes on every start does not make a tight loop.
constexpr auto kRestartPause = std::chrono::seconds(1);

// Sends the logs to the files of config; a file that cannot be opened leaves its log where it was.
void openLogsOf(const ServerConfig& config)
{
    try
    {
        openServerLog(config.serverLog);
        openAccessLog(config.accessLog);
    }
    catch (const std::exception& error)
    {
        writeServerLog(LogKind::Error, {}, std::string(error.what()) + "; the log goes on to the old file");
    }
}

std::string describeExit(int status)
{
    if (WIFSIGNALED(status))
        return "was killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
               strsignal(WTERMSIG(status)) + ")";
    return "exited with status " + std::to_string(WEXITSTATUS(status));
}

std::string describeServing(const Generation& generation, int workers)
{
    std::string text = "serving " + std::to_string(generation.config.regions.size()) + " region(s) on";
    for (const auto& listener : generation.listeners)
        text += " " + listener.url();
    return text + " with " + std::to_string(workers) + " worker(s), configuration " +
           std::to_string(generation.number);
}

std::string oneLine(std::string text)
{
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at))
        text.replace(at, 1, "; ");
    return text;
}

// A pipe on which each worker of a batch writes one byte once it serves; its end tells the
// master that every worker of the batch has either written or died.
struct ReadyPipe
{
    FileDescriptor readEnd;
    FileDescriptor writeEnd;

    ReadyPipe()
    {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) == 0)
        {
            readEnd.reset(ends[0]);
            writeEnd.reset(ends[1]);
        }
    }

    // Counts the workers that say they serve, up to expected, until the deadline.
    int countReady(int expected)
    {
        writeEnd.reset();
        int ready = 0;
        auto deadline = Clock::now() + kStartTime;
        while (readEnd.isOpen() && ready < expected)
        {
            auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
            pollfd waiting{readEnd.get(), POLLIN, 0};
            if (left <= 0 || ::poll(&waiting, 1, static_cast<int>(left)) <= 0)
                break;
            char bytes[64];
            ssize_t received = ::read(readEnd.get(), bytes, sizeof bytes);
            if (received <= 0)
                break;
            ready += static_cast<int>(received);
        }
        return ready;
    }
};

class Master
{
public:
    Master(const ConfigLoader& loadConfig, std::shared_ptr<Generation> first)
        : myLoadConfig(loadConfig), myCurrent(std::move(first))
    {
    }

    int run()
    {
        int ready = startBatch(workerCount(myCurrent->config));
        if (ready == 0)
        {
            writeServerLog(LogKind::Failure, {}, "no worker could start serving; stopping");
            stopAll();
            return 1;
        }
        writeServerLog(LogKind::Note, {}, "started " + std::to_string(ready) + " workers");
        notifyReady(describeServing(*myCurrent, ready));
        bool stopping = false;
        while (!stopping || !myWorkers.empty())
        {
            int signal = waitForSignal(masterSignals(), milliseconds(stopping ? 100 : 1000));
            if ((signal == SIGTERM || signal == SIGINT) && !stopping)
            {
                stopping = true;
                notifyStopping();
                writeServerLog(LogKind::Note, {},
                               "stopping: waiting for the workers to finish their requests");
                for (auto& [pid, worker] : myWorkers)
                    stopWorker(pid, worker);
            }
            else if (signal == SIGHUP && !stopping)
                reload();
            else if (signal == SIGUSR1)
                reopenAllLogs();
            reap();
            killOverdue();
            if (!stopping)
                replaceMissing();
            metrics::setWorkers(currentWorkers());
        }
        writeServerLog(LogKind::Note, {}, "server stopped");
        return 0;
    }

private:
    struct Worker
    {
        std::shared_ptr<Generation> generation;
        Clock::time_point started;
        bool stopping = false;
        bool killed = false;
        Clock::time_point deadline; // when stopping: killed after this
    };

    // Starts count workers of the current generation and waits until they serve; returns how
    // many do.
    int startBatch(int count)
    {
        ReadyPipe pipe;
        int started = 0;
        for (int i = 0; i < count; ++i)
            started += startWorker(pipe.writeEnd.get(), pipe.readEnd.get()) > 0 ? 1 : 0;
        return pipe.readEnd.isOpen() ? pipe.countReady(started) : started;
    }

    pid_t startWorker(int readyWrite = -1, int readyRead = -1)
    {
        pid_t master = ::getpid();
        pid_t pid = ::fork();
        if (pid == 0)
            runWorkerProcess(master, readyWrite, readyRead);
        if (pid < 0)
        {
            writeServerLog(LogKind::Failure, {},
                           std::string("cannot start a worker: ") + std::strerror(errno));
            return pid;
        }
        Worker& worker = myWorkers[pid];
        worker.generation = myCurrent;
        worker.started = Clock::now();
        return pid;
    }

    [[noreturn]] void runWorkerProcess(pid_t master, int readyWrite, int readyRead)
    {
        // The kernel kills this worker when the master dies; a master that died before this
        // line is seen by the check after it.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != master)
            ::_exit(1);
        if (readyRead >= 0)
            ::close(readyRead);
        // The sockets of listeners that only old configurations have must close when their
        // workers are done, not live on in this one. The process ends with _exit, so the
        // objects that owned them are never destroyed here.
        for (const auto& [pid, worker] : myWorkers)
            if (worker.generation != myCurrent)
                for (const auto& listener : worker.generation->listeners)
                    ::close(listener.descriptor());
        sigset_t child = signalSet({SIGCHLD});
        ::pthread_sigmask(SIG_UNBLOCK, &child, nullptr);
        int status = 1;
        try
        {
            WorkerControl control;
            SignalThread signals(control, master);
            serveGeneration(*myCurrent, control,
                            [readyWrite]
                            {
                                if (readyWrite >= 0)
                                {
                                    [[maybe_unused]] ssize_t ignored = ::write(readyWrite, "r", 1);
                                    ::close(readyWrite);
                                }
                            });
            status = 0;
        }
        catch (const std::exception& error)
        {
            writeServerLog(LogKind::Failure, {}, std::string("worker failed: ") + error.what());
        }
        // The master's objects (module libraries, logs) belong to the master; leave without
        // running their destructors a second time.
        ::_exit(status);
    }

    int currentWorkers() const
    {
        int count = 0;
        for (const auto& [pid, worker] : myWorkers)
            count += worker.generation == myCurrent && !worker.stopping ? 1 : 0;
        return count;
    }

    void stopWorker(pid_t pid, Worker& worker)
    {
        if (worker.stopping)
            return;
        ::kill(pid, SIGTERM);
        worker.stopping = true;
        worker.deadline = Clock::now() + kStopTime;
    }

    void stopGeneration(const std::shared_ptr<Generation>& generation)
    {
        for (auto& [pid, worker] : myWorkers)
            if (worker.generation == generation)
                stopWorker(pid, worker);
    }

    void reap()
    {
        while (true)
        {
            int status = 0;
            pid_t pid = ::waitpid(-1, &status, WNOHANG);
            if (pid <= 0)
                return;
            auto found = myWorkers.find(pid);
            if (found == myWorkers.end())
                continue;
            Worker worker = std::move(found->second);
            myWorkers.erase(found);
            metrics::forgetProcess(pid);
            std::string who = "worker " + std::to_string(pid);
            if (worker.stopping || worker.generation != myCurrent)
            {
                bool clean = WIFEXITED(status) && WEXITSTATUS(status) == 0;
                writeServerLog(clean ? LogKind::Note : LogKind::Warning, {},
                               who + " of configuration " + std::to_string(worker.generation->number) + " " +
                                   (clean ? "finished" : describeExit(status)));
                continue;
            }
            writeServerLog(LogKind::Error, {}, who + " " + describeExit(status) + "; starting a new one");
            metrics::countWorkerRestart();
            if (Clock::now() - worker.started < kRestartPause)
                myNextStart = Clock::now() + kRestartPause;
        }
    }

    void replaceMissing()
    {
        int wanted = workerCount(myCurrent->config);
        for (int count = currentWorkers(); count < wanted && Clock::now() >= myNextStart; ++count)
            if (startWorker() <= 0)
                return;
    }

    void killOverdue()
    {
        auto now = Clock::now();
        for (auto& [pid, worker] : myWorkers)
            if (worker.stopping && !worker.killed && now > worker.deadline)
            {
                writeServerLog(LogKind::Warning, {},
                               "worker " + std::to_string(pid) + " did not stop in time; killing it");
                ::kill(pid, SIGKILL);
                worker.killed = true;
            }
    }

    void reopenAllLogs()
    {
        reopenLogsOrWarn();
        for (const auto& [pid, worker] : myWorkers)
            ::kill(pid, SIGUSR1);
        writeServerLog(LogKind::Note, {}, "logs opened again (SIGUSR1)");
    }

    void refuseReload(const std::string& reason)
    {
        writeServerLog(LogKind::Error, {},
                       "reload refused, configuration " + std::to_string(myCurrent->number) +
                           " goes on serving: " + oneLine(reason));
        metrics::countReload(false);
        notifyReady(describeServing(*myCurrent, currentWorkers()) + " (the last reload was refused)");
    }

    // SIGHUP: the new configuration's workers start beside the old ones, which are told to
    // stop once the new ones serve. Both accept on the same sockets meanwhile, so no
    // connection is refused.
    void reload()
    {
        notifyReloading();
        writeServerLog(LogKind::Note, {}, "reloading the configuration (SIGHUP)");
        std::shared_ptr<Generation> next;
        try
        {
            next = prepareGeneration(myLoadConfig(), myCurrent.get());
        }
        catch (const std::exception& error)
        {
            return refuseReload(error.what());
        }
        std::shared_ptr<Generation> previous = myCurrent;
        openLogsOf(next->config); // before the fork: the new workers inherit the new files
        myCurrent = next;
        int ready = startBatch(workerCount(next->config));
        if (ready == 0)
        {
            stopGeneration(next);
            myCurrent = previous;
            openLogsOf(previous->config);
            return refuseReload("no worker could start serving configuration " +
                                std::to_string(next->number));
        }
        stopGeneration(previous);
        metrics::countReload(true);
        writeServerLog(LogKind::Note, {},
                       "reload applied: " + describeServing(*next, ready) +
                           "; the previous workers finish their requests");
        notifyReady(describeServing(*next, ready));
    }

    void stopAll()
    {
        for (auto& [pid, worker] : myWorkers)
            stopWorker(pid, worker);
        while (!myWorkers.empty())
        {
            waitForSignal(signalSet({SIGCHLD}), milliseconds(100));
            reap();
            killOverdue();
        }
    }

    const ConfigLoader& myLoadConfig;
    std::shared_ptr<Generation> myCurrent;
    std::map<pid_t, Worker> myWorkers;
    Clock::time_point myNextStart;
};

// --single-process: this process is the only worker; a reload finishes the requests in flight
// and serves the new configuration on the same sockets.
int serveInProcess(const ConfigLoader& loadConfig, std::shared_ptr<Generation> generation)
{
    WorkerControl control;
    SignalThread signals(control, 0);
    while (true)
    {
        serveGeneration(*generation, control, [&] { notifyReady(describeServing(*generation, 1)); });
        if (control.terminate || !control.reload)
            break;
        control.reload = false;
        control.stop = control.terminate.load();
        notifyReloading();
        try
        {
            std::shared_ptr<Generation> next = prepareGeneration(loadConfig(), generation.get());
            openLogsOf(next->config);
            generation = std::move(next);
            metrics::countReload(true);
            writeServerLog(LogKind::Note, {}, "reload applied: " + describeServing(*generation, 1));
        }
        catch (const std::exception& error)
        {
            metrics::countReload(false);
            writeServerLog(LogKind::Error, {},
                           "reload refused, configuration " + std::to_string(generation->number) +
                               " goes on serving: " + oneLine(error.what()));
        }
    }
    notifyStopping();
    writeServerLog(LogKind::Note, {}, "server stopped");
    return 0;
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

int runServer(const ConfigLoader& loadConfig, bool inProcess)
{
    // Blocked before any thread exists, so that every thread and every worker inherits it.
    ::sigprocmask(SIG_BLOCK, &masterSignals(), nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    ServerConfig config = loadConfig();
    openServerLog(config.serverLog);
    openAccessLog(config.accessLog);
    // Made before the first fork, so that every worker counts into the same memory.
    MetricsRegistry::instance();
    std::shared_ptr<Generation> first = prepareGeneration(std::move(config), nullptr);
    raiseOpenFileLimit();
    if (inProcess)
        return serveInProcess(loadConfig, std::move(first));
    Master master(loadConfig, std::move(first));
    return master.run();
}

} // namespace kiv
