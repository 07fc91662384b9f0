// A serving process and its signals.
#include "process/Worker.h"

#include "common/MemoryRelease.h"
#include "http/HttpServer.h"
#include "process/Signals.h"
#include "region/RegionState.h"
#include "services/ModuleHost.h"
#include "site/SiteHandler.h"

#include <unistd.h>

namespace kiv
{

SignalThread::SignalThread(WorkerControl& control, pid_t master)
    : myThread([this, &control, master] { watch(control, master); })
{
}

SignalThread::~SignalThread()
{
    myDone = true;
    myThread.join();
}

void SignalThread::watch(WorkerControl& control, pid_t master)
{
    while (!myDone.load())
    {
        int signal = waitForSignal(workerSignals(), std::chrono::milliseconds(200));
        if (signal == SIGTERM || signal == SIGINT)
        {
            control.terminate = true;
            control.stop = true;
        }
        else if (signal == SIGUSR1)
            reopenLogsOrWarn();
        else if (signal == SIGHUP && master == 0)
        {
            control.reload = true;
            control.stop = true;
        }
        if (master != 0 && ::getppid() != master)
            ::_exit(1);
    }
}

void serveGeneration(Generation& generation, WorkerControl& control, const std::function<void()>& onReady)
{
    limitRetainedMemory();
    ModuleHost host(generation.modules);
    host.initializeAll();
    RegionStates regions(generation.config);
    SiteHandler site(generation.config, regions, host);
    HttpServer server(generation.listeners, generation.config, site);
    onReady();
    server.run(control.stop);
    host.terminateAll();
}

} // namespace kiv
