// The process model: a master that owns the listening socket and the loaded module
// libraries, and worker processes forked from it that serve requests. A worker that dies
// (a module crash takes only its own process down) is replaced. SIGTERM or SIGINT stops
// everything gracefully: workers finish their requests in flight, send 'MTrm' and exit.
#pragma once

#include "config/ServerConfig.h"
#include "http/Listener.h"
#include "modules/ModuleRegistry.h"

#include <vector>

namespace kiv
{

// Runs the master and its workers until a stop signal; returns the exit status. With
// inProcess the master serves requests itself (one worker, no fork), for debugging.
int runServer(const ServerConfig& config, ModuleRegistry& modules, const std::vector<Listener>& listeners,
              bool inProcess);

// One worker: initialise the modules, serve until a stop signal, terminate the modules.
int runWorker(const ServerConfig& config, ModuleRegistry& modules, const std::vector<Listener>& listeners);

// How many workers a configuration asks for (0 means one per processor core).
int workerCount(const ServerConfig& config);

// Raises the soft limit of open files to the hard limit: every connection is a descriptor,
// and a worker that runs out of them cannot accept the clients that idle ones lock out.
void raiseOpenFileLimit();

} // namespace kiv
