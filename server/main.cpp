// kiv-server: the web server that renders pages with module tags.
//   serve   run the server (master and workers)
//   render  render one page and print its HTML (scripting, debugging, tests)
//   passwd  print a password hash for the configuration
//   check   validate a configuration
//   db      administer databases (cli/DatabaseCommands.h)
#include "cli/DatabaseCommands.h"
#include "config/ServerConfig.h"
#include "logging/Log.h"
#include "modules/ModuleRegistry.h"
#include "process/Generation.h"
#include "process/ServerProcesses.h"
#include "region/RegionState.h"
#include "region/UserDirectory.h"
#include "services/ModuleHost.h"
#include "site/SampleData.h"
#include "site/SiteHandler.h"
#include "common/SafePaths.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <termios.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

struct CommonOptions
{
    std::string configFile;
    std::string root;
    std::string data;
    std::vector<std::string> modules;
    std::string listen;
    int port = -1;
    int workers = -1;
    std::string serverLog;
    std::string accessLog;
    std::string tlsCertificate;
    std::string tlsKey;
};

void addCommonOptions(CLI::App& command, CommonOptions& options)
{
    command.add_option("--config", options.configFile, "TOML configuration file");
    command.add_option("--root", options.root, "site folder (without a configuration file)");
    command.add_option("--data", options.data, "data folder (default: beside the site, <root>-data)");
    command.add_option("--module", options.modules,
                       "module library to load (repeatable; replaces the default)");
}

void addTlsOptions(CLI::App& command, CommonOptions& options)
{
    command.add_option("--tls-cert", options.tlsCertificate,
                       "PEM certificate chain: the main listener speaks HTTPS (with --tls-key)");
    command.add_option("--tls-key", options.tlsKey, "PEM private key of --tls-cert");
}

fs::path programPath()
{
    std::error_code error;
    fs::path self = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::path() : self;
}

kiv::ServerConfig buildConfig(const CommonOptions& options)
{
    kiv::ServerConfig config;
    if (!options.configFile.empty())
    {
        config = kiv::loadConfigFile(options.configFile);
        if (!options.root.empty())
            config.regions.front().siteRoot = fs::absolute(options.root).lexically_normal();
        if (!options.data.empty())
            config.regions.front().dataFolder = fs::absolute(options.data).lexically_normal();
    }
    else
    {
        if (options.root.empty())
            throw kiv::ConfigError("give the site folder with --root, or a configuration with --config");
        config.regions.push_back(kiv::makeDefaultRegion(options.root, options.data));
    }
    if (!options.modules.empty())
    {
        config.modules.clear();
        for (const auto& module : options.modules)
            config.modules.push_back(fs::absolute(module));
        config.modulesConfigured = true;
    }
    if (!config.modulesConfigured)
    {
        fs::path module = kiv::findDefaultModule(programPath());
        if (!module.empty())
            config.modules.push_back(module);
        else
            std::cerr
                << "kiv-server: warning: the database module (libkivdatabase.so) was not found beside the "
                   "program; pages are served without it (use --module)\n";
    }
    kiv::ListenerConfig& mainListener = config.listeners.front();
    if (!options.listen.empty())
        mainListener.address = options.listen;
    if (options.port >= 0)
        mainListener.port = options.port;
    if (options.tlsCertificate.empty() != options.tlsKey.empty())
        throw kiv::ConfigError("--tls-cert and --tls-key go together");
    if (!options.tlsCertificate.empty())
    {
        mainListener.tlsCertificate = fs::absolute(options.tlsCertificate);
        mainListener.tlsKey = fs::absolute(options.tlsKey);
        mainListener.redirectToTls = false;
    }
    if (options.workers >= 0)
        config.workers = options.workers;
    if (!options.serverLog.empty())
        config.serverLog = fs::absolute(options.serverLog);
    if (!options.accessLog.empty())
        config.accessLog = fs::absolute(options.accessLog);
    return config;
}

void loadModules(const kiv::ServerConfig& config, kiv::ModuleRegistry& registry)
{
    for (const auto& module : config.modules)
        registry.load(module);
}

int serve(const CommonOptions& options, bool singleProcess)
{
    // Read again on every SIGHUP, with the same command line.
    kiv::ConfigLoader loadConfig = [&options]
    {
        kiv::ServerConfig config = buildConfig(options);
        if (options.configFile.empty())
            for (const auto& region : config.regions)
            {
                fs::create_directories(region.dataFolder);
                std::string password = kiv::createInitialAccount(region.usersFile);
                if (!password.empty())
                    std::cerr << "kiv-server: created the account 'admin' with the password " << password
                              << "\n            for /manage/ and " << config.adminPath << " (stored in "
                              << region.usersFile.string() << ")\n";
            }
        return config;
    };
    return kiv::runServer(loadConfig, singleProcess);
}

struct RenderOptions
{
    std::string page = "/";
    std::string query;
    std::string form;
    std::string region;
    std::string language;
    std::string cookie;
};

int render(const CommonOptions& options, const RenderOptions& renderOptions)
{
    kiv::ServerConfig config = buildConfig(options);
    kiv::openServerLog(config.serverLog);
    size_t regionIndex = 0;
    if (!renderOptions.region.empty())
    {
        regionIndex = config.regions.size();
        for (size_t i = 0; i < config.regions.size(); ++i)
            if (config.regions[i].name == renderOptions.region)
                regionIndex = i;
        if (regionIndex == config.regions.size())
            throw kiv::ConfigError("no region is named '" + renderOptions.region + "'");
    }
    if (!renderOptions.language.empty())
    {
        uint32_t code = kiv::languageCode(renderOptions.language);
        if (code == 0)
            throw kiv::ConfigError("unknown language '" + renderOptions.language + "' (en, fr or es)");
        config.regions[regionIndex].language = code;
    }
    kiv::ModuleRegistry registry;
    loadModules(config, registry);
    kiv::ModuleHost host(registry);
    host.initializeAll();
    kiv::RegionStates regions(config);
    kiv::SiteHandler site(config, regions, host);
    kiv::RegionState& region = regions.stateOf(config.regions[regionIndex]);

    kiv::HttpRequest request;
    request.method = renderOptions.form.empty() ? "GET" : "POST";
    request.path = renderOptions.page;
    request.queryString = renderOptions.query;
    request.target = renderOptions.page + (renderOptions.query.empty() ? "" : "?" + renderOptions.query);
    request.body = renderOptions.form;
    request.remoteAddress = "127.0.0.1";
    request.headers = {{"Host", "localhost"}};
    if (!renderOptions.form.empty())
        request.headers.emplace_back("Content-Type", "application/x-www-form-urlencoded");
    if (!renderOptions.cookie.empty())
        request.headers.emplace_back("Cookie", renderOptions.cookie);

    auto file = kiv::resolveUrlPath(region.region.siteRoot, renderOptions.page);
    if (file && fs::is_directory(*file))
        for (const auto& index : region.region.indexFiles)
            if (fs::is_regular_file(*file / index))
            {
                *file /= index;
                break;
            }
    int status = 0;
    if (!file || !fs::is_regular_file(*file))
    {
        std::cerr << "kiv-server: no page " << renderOptions.page << " in " << region.region.siteRoot.string()
                  << "\n";
        status = 1;
    }
    else
    {
        kiv::HttpResponse response;
        site.renderPageFile(region, *file, request, response);
        std::cout << response.body << std::flush;
        status = response.status < 400 ? 0 : 1;
    }
    host.terminateAll();
    return status;
}

std::string readPassword()
{
    std::string password;
    if (::isatty(STDIN_FILENO))
    {
        termios saved{};
        tcgetattr(STDIN_FILENO, &saved);
        termios quiet = saved;
        quiet.c_lflag &= static_cast<tcflag_t>(~ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
        std::cerr << "Password: " << std::flush;
        std::getline(std::cin, password);
        std::string again;
        std::cerr << "\nAgain: " << std::flush;
        std::getline(std::cin, again);
        std::cerr << "\n";
        tcsetattr(STDIN_FILENO, TCSANOW, &saved);
        if (again != password)
            throw std::runtime_error("the passwords differ");
    }
    else
        std::getline(std::cin, password);
    if (!password.empty() && password.back() == '\r')
        password.pop_back();
    if (std::string problem = kiv::findPasswordProblem(password); !problem.empty())
        throw std::runtime_error(problem);
    return password;
}

int check(const CommonOptions& options)
{
    kiv::ServerConfig config = buildConfig(options);
    auto problems = kiv::findServingProblems(config);
    for (const auto& problem : problems)
        std::cerr << "kiv-server: " << problem << "\n";
    if (!problems.empty())
        return 1;
    std::cout << "configuration OK: " << config.regions.size() << " region(s), " << config.modules.size()
              << " module(s), listening on";
    for (const auto& listener : config.listeners)
        std::cout << " " << listener.address << ":" << listener.port << (listener.isTls() ? " (HTTPS)" : "");
    std::cout << "\n";
    return 0;
}

// The server's version, and each module's as it registered itself when initialised.
std::string versionText()
{
    std::string text = "kiv-server " KIV_VERSION "\n";
    fs::path module = kiv::findDefaultModule(programPath());
    if (module.empty())
        return text + "no module found beside the program\n";
    kiv::openServerLog("/dev/null"); // the modules' start-up notes are not the answer
    kiv::ModuleRegistry registry;
    kiv::ModuleRecord& record = registry.load(module);
    kiv::ModuleHost host(registry);
    host.initializeAll();
    text += record.displayName() + " " +
            (record.version.empty() ? "(no version registered)" : record.version) + " (" + module.string() +
            ")\n";
    host.terminateAll();
    return text;
}

// Every line of an error, each with the program's name.
void printError(const std::string& message)
{
    size_t start = 0;
    while (start <= message.size())
    {
        size_t end = std::min(message.find('\n', start), message.size());
        std::cerr << "kiv-server: " << message.substr(start, end - start) << "\n";
        start = end + 1;
    }
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"kiv-server: a web server for pages with module tags"};
    app.require_subcommand(1);
    // --help shows every command with all its options.
    app.set_help_flag();
    app.set_help_all_flag("-h,--help", "print every command with all its options, and exit");
    app.set_version_flag("--version", versionText,
                         "print the versions of the server and its module, and exit");

    CommonOptions serveOptions;
    bool singleProcess = false;
    CLI::App* serveCommand = app.add_subcommand("serve", "run the server");
    addCommonOptions(*serveCommand, serveOptions);
    addTlsOptions(*serveCommand, serveOptions);
    serveCommand->add_option("--listen", serveOptions.listen,
                             "IPv4 address to listen on (default 127.0.0.1)");
    serveCommand->add_option("--port", serveOptions.port, "port (default 8080; 0 picks a free one)");
    serveCommand->add_option("--workers", serveOptions.workers, "worker processes (default one per core)");
    serveCommand->add_option("--server-log", serveOptions.serverLog,
                             "server log file (default standard error)");
    serveCommand->add_option("--access-log", serveOptions.accessLog,
                             "access log file (default standard error)");
    serveCommand->add_flag("--single-process", singleProcess,
                           "serve from one process without forking workers");

    CommonOptions renderCommonOptions;
    RenderOptions renderOptions;
    CLI::App* renderCommand = app.add_subcommand("render", "render one page and print its HTML");
    addCommonOptions(*renderCommand, renderCommonOptions);
    renderCommand->add_option("--page", renderOptions.page, "URL path of the page")->required();
    renderCommand->add_option("--query", renderOptions.query, "path arguments, as a query string");
    renderCommand->add_option("--form", renderOptions.form, "post arguments, url-encoded (makes it a POST)");
    renderCommand->add_option("--region", renderOptions.region, "region name (from the configuration)");
    renderCommand->add_option("--language", renderOptions.language, "en, fr or es");
    renderCommand->add_option("--cookie", renderOptions.cookie, "Cookie header");

    CLI::App* passwdCommand = app.add_subcommand("passwd", "print a password hash (reads the password)");

    CommonOptions checkOptions;
    CLI::App* checkCommand = app.add_subcommand("check", "validate a configuration");
    addCommonOptions(*checkCommand, checkOptions);
    addTlsOptions(*checkCommand, checkOptions);

    kiv::DatabaseCommands databaseCommands(app);

    CLI11_PARSE(app, argc, argv);
    try
    {
        if (serveCommand->parsed())
            return serve(serveOptions, singleProcess);
        if (renderCommand->parsed())
            return render(renderCommonOptions, renderOptions);
        if (passwdCommand->parsed())
        {
            std::cout << kiv::hashPassword(readPassword()) << "\n";
            return 0;
        }
        if (checkCommand->parsed())
            return check(checkOptions);
        if (databaseCommands.parsed())
            return databaseCommands.run();
    }
    catch (const std::exception& error)
    {
        printError(error.what());
        return 1;
    }
    return 0;
}
