// The signals the server acts on. They are blocked in every thread of every process and taken
// one at a time with sigtimedwait, at a point where acting on them is safe: no handler ever
// runs in the middle of other code. The master takes SIGCHLD the same way, to reap at once.
#pragma once

#include <chrono>
#include <csignal>
#include <initializer_list>

namespace kiv
{

sigset_t signalSet(std::initializer_list<int> signals);
// SIGTERM, SIGINT, SIGHUP, SIGUSR1 and, for the master, SIGCHLD.
const sigset_t& masterSignals();
const sigset_t& workerSignals();

// The next of the signals, or 0 when none came within the wait.
int waitForSignal(const sigset_t& signals, std::chrono::milliseconds wait);

// SIGUSR1: opens the logs again by their names; a log that cannot be opened stays where it
// was, with an error line saying so.
void reopenLogsOrWarn();

} // namespace kiv
