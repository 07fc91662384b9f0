// What a serving process runs: the modules, the regions and the connection layer of one
// generation, until its signals say to stop; and the thread that takes those signals.
#pragma once

#include "process/Generation.h"

#include <atomic>
#include <functional>
#include <sys/types.h>
#include <thread>

namespace kiv
{

// What a serving process's signals ask of it.
struct WorkerControl
{
    std::atomic<bool> stop{false};      // finish the requests in flight and return
    std::atomic<bool> terminate{false}; // SIGTERM or SIGINT
    std::atomic<bool> reload{false};    // SIGHUP, when the process serves alone
};

// Takes a serving process's signals beside its server: SIGTERM and SIGINT stop it, SIGUSR1
// opens the logs again, and SIGHUP reloads when it serves alone (master 0; a master's worker
// leaves that to the master). A worker also watches its master, five times a second: the
// parent-death signal kills it the moment the master dies, and this check covers a master
// gone before the signal was set.
class SignalThread
{
public:
    SignalThread(WorkerControl& control, pid_t master);
    ~SignalThread();
    SignalThread(const SignalThread&) = delete;
    SignalThread& operator=(const SignalThread&) = delete;

private:
    void watch(WorkerControl& control, pid_t master);

    std::atomic<bool> myDone{false};
    std::thread myThread; // last: started once the flag exists
};

// Serves one generation until control.stop: 'MIni' first, 'MTrm' last. onReady runs once the
// modules are initialised and the listeners are about to be accepted on.
void serveGeneration(Generation& generation, WorkerControl& control, const std::function<void()>& onReady);

} // namespace kiv
