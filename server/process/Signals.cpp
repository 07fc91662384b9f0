// Taking signals without handlers.
#include "process/Signals.h"

#include "logging/Log.h"

#include <stdexcept>
#include <string>

namespace kiv
{

sigset_t signalSet(std::initializer_list<int> signals)
{
    sigset_t set;
    sigemptyset(&set);
    for (int signal : signals)
        sigaddset(&set, signal);
    return set;
}

const sigset_t& masterSignals()
{
    static const sigset_t signals = signalSet({SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGCHLD});
    return signals;
}

const sigset_t& workerSignals()
{
    static const sigset_t signals = signalSet({SIGTERM, SIGINT, SIGHUP, SIGUSR1});
    return signals;
}

int waitForSignal(const sigset_t& signals, std::chrono::milliseconds wait)
{
    timespec timeout{static_cast<time_t>(wait.count() / 1000),
                     static_cast<long>(wait.count() % 1000) * 1000000};
    int signal = ::sigtimedwait(&signals, nullptr, &timeout);
    return signal < 0 ? 0 : signal;
}

void reopenLogsOrWarn()
{
    try
    {
        reopenLogs();
    }
    catch (const std::exception& error)
    {
        writeServerLog(LogKind::Error, {}, std::string(error.what()) + "; the log goes on to the old file");
    }
}

} // namespace kiv
