// One configuration as the master serves it: the configuration, the module libraries it names
// and its listening sockets. A reload (SIGHUP) prepares a new generation beside the running
// one; the old one is kept until the last of its workers has finished its requests.
#pragma once

#include "config/ServerConfig.h"
#include "http/Listener.h"
#include "modules/ModuleRegistry.h"

#include <memory>
#include <vector>

namespace kiv
{

struct Generation
{
    ServerConfig config;
    ModuleRegistry modules;
    std::vector<Listener> listeners;
    int number = 1;
};

// Checks the configuration and makes what the workers need: loads the modules, binds the
// listeners (sharing the sockets of previous for the same address and port, so a reload
// loses no waiting connection), creates the data folders and imports the sample data. Throws
// ConfigError listing every problem, or std::runtime_error for a module or a socket that
// cannot be used; previous is left as it was.
std::unique_ptr<Generation> prepareGeneration(ServerConfig config, const Generation* previous);

// Every problem that would stop a configuration from serving, as `kiv-server check` lists
// them: findConfigProblems, then the TLS files and the module libraries.
std::vector<std::string> findServingProblems(const ServerConfig& config);

} // namespace kiv
