// Preparing a configuration for the workers.
#include "process/Generation.h"

#include "http/TlsContext.h"
#include "logging/Log.h"
#include "site/SampleData.h"

#include <iostream>

namespace fs = std::filesystem;

namespace kiv
{

namespace
{

const Listener* findBound(const Generation* previous, const ListenerConfig& config)
{
    if (!previous)
        return nullptr;
    for (const auto& listener : previous->listeners)
        if (listener.config().address == config.address && listener.config().port == config.port)
            return &listener;
    return nullptr;
}

} // namespace

std::vector<std::string> findServingProblems(const ServerConfig& config)
{
    std::vector<std::string> problems = findConfigProblems(config);
    for (const auto& listener : config.listeners)
        if (listener.isTls())
            if (std::string problem = findTlsProblem(listener.tlsCertificate, listener.tlsKey);
                !problem.empty())
                problems.push_back(problem);
    ModuleRegistry registry;
    for (const auto& module : config.modules)
    {
        try
        {
            registry.load(module);
        }
        catch (const std::exception& error)
        {
            problems.push_back(error.what());
        }
    }
    return problems;
}

std::unique_ptr<Generation> prepareGeneration(ServerConfig config, const Generation* previous)
{
    std::vector<std::string> problems = findConfigProblems(config);
    if (!problems.empty())
    {
        std::string text;
        for (const auto& problem : problems)
            text += (text.empty() ? "" : "\n") + problem;
        throw ConfigError(text);
    }
    auto generation = std::make_unique<Generation>();
    generation->config = std::move(config);
    generation->number = previous ? previous->number + 1 : 1;
    const ServerConfig& ready = generation->config;
    for (const auto& module : ready.modules)
        generation->modules.load(module);
    for (const auto& listenerConfig : ready.listeners)
    {
        if (const Listener* bound = findBound(previous, listenerConfig))
            generation->listeners.emplace_back(listenerConfig, *bound);
        else
        {
            generation->listeners.emplace_back(listenerConfig);
            const Listener& listener = generation->listeners.back();
            // Tests and scripts read the chosen port from this line.
            std::cerr << "kiv-server: listening on " << listener.url()
                      << (listenerConfig.redirectToTls ? " (redirecting to HTTPS)" : "") << " (site "
                      << ready.regions.front().siteRoot.string() << ")" << std::endl;
        }
    }
    for (const auto& region : ready.regions)
    {
        std::error_code error;
        fs::create_directories(region.dataFolder, error);
        if (error)
            throw std::runtime_error("region '" + region.name + "': cannot create the data folder " +
                                     region.dataFolder.string() + ": " + error.message());
        importSampleData(region);
    }
    return generation;
}

} // namespace kiv
