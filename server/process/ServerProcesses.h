// The process model: a master that owns the listening socket and the loaded module
// libraries, and worker processes forked from it that serve requests. A worker that dies
// (a module crash takes only its own process down) is replaced. SIGTERM or SIGINT stops
// everything gracefully: workers finish their requests in flight, send 'MTrm' and exit.
#pragma once

#include "config/ServerConfig.h"
#include "http/HttpServer.h"
#include "modules/ModuleRegistry.h"

namespace kiv
{

// Runs the master and its workers until a stop signal; returns the exit status. With
// inProcess the master serves requests itself (one worker, no fork), for debugging.
int runServer(const ServerConfig& config, ModuleRegistry& modules, const Listener& listener, bool inProcess);

// One worker: initialise the modules, serve until a stop signal, terminate the modules.
int runWorker(const ServerConfig& config, ModuleRegistry& modules, const Listener& listener);

// How many workers a configuration asks for (0 means one per processor core).
int workerCount(const ServerConfig& config);

} // namespace kiv
