// The process model: a master that owns the listening sockets and the loaded module
// libraries, and worker processes forked from it that serve requests.
//
// Signals go to the master, as with nginx and php-fpm:
//   SIGHUP          read the configuration (with its users and preferences) again; when it
//                   passes its checks, open the logs again, start workers for it and let the
//                   old workers finish their requests in flight and exit. A configuration that
//                   fails is refused with a log line, and the running one goes on serving.
//   SIGUSR1         open the logs again (after logrotate renamed them), in every process.
//   SIGTERM/SIGINT  stop: workers finish their requests in flight, send 'MTrm' and exit.
// A worker that dies (a module crash takes only its own process down) is replaced. A worker
// is killed by the kernel the moment its master dies, so no worker ever holds the port
// without a master. The master reports to systemd (see SystemdNotify.h).
#pragma once

#include "config/ServerConfig.h"

#include <functional>

namespace kiv
{

// Reads the configuration as the command line asked; called at start and on every SIGHUP.
// Throws ConfigError (or std::runtime_error) when it cannot.
using ConfigLoader = std::function<ServerConfig()>;

// Runs the master and its workers until a stop signal; returns the exit status. With
// inProcess the master serves requests itself (one worker, no fork), for debugging; a reload
// then finishes the requests in flight and serves the new configuration from the same process.
// Must be called before the process starts any thread.
int runServer(const ConfigLoader& loadConfig, bool inProcess);

// How many workers a configuration asks for (0 means one per processor core).
int workerCount(const ServerConfig& config);

// Raises the soft limit of open files to the hard limit: every connection is a descriptor,
// and a worker that runs out of them cannot accept the clients that idle ones lock out.
void raiseOpenFileLimit();

} // namespace kiv
