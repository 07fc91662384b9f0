// Per-request state for the host services.
#include "services/RequestContext.h"

#include "http/Forms.h"
#include "logging/AuditLog.h"
#include "logging/Log.h"
#include "process/Metrics.h"

#include <atomic>
#include <unistd.h>

namespace kiv
{

RequestContext::RequestContext(const ServerConfig& serverConfig, RegionState& regionState,
                               const HttpRequest& httpRequest)
    : server(serverConfig), region(regionState), request(httpRequest)
{
    pathArguments = parseUrlEncoded(request.queryString);
    cookies = parseCookies(request.headerOr("Cookie"));
    urlPath = request.path;
    pageID = nextPageID();
}

RequestContext::~RequestContext() = default;

void RequestContext::setPageVariable(std::string_view name, std::string_view value)
{
    for (auto& [key, existing] : pageVariables)
        if (key == name)
        {
            existing = std::string(value);
            return;
        }
    pageVariables.emplace_back(std::string(name), std::string(value));
}

const std::string* RequestContext::pageVariable(std::string_view name) const
{
    return findValue(pageVariables, name);
}

const NameValueList& RequestContext::cgiVariables()
{
    if (myCgiVariables)
        return *myCgiVariables;
    NameValueList variables;
    auto add = [&](std::string name, std::string value)
    { variables.emplace_back(std::move(name), std::move(value)); };
    std::string host = request.headerOr("Host");
    std::string serverName = host.substr(
        0, host.rfind(':') == std::string::npos || host.back() == ']' ? host.size() : host.rfind(':'));
    add("GATEWAY_INTERFACE", "CGI/1.1");
    add("SERVER_SOFTWARE", "kiv-server");
    add("SERVER_NAME", serverName.empty() ? server.listeners.front().address : serverName);
    add("SERVER_PORT", std::to_string(request.localPort));
    add("SERVER_PROTOCOL", "HTTP/1." + std::to_string(request.minorVersion));
    add("REQUEST_METHOD", request.method);
    add("REQUEST_URI", request.target);
    add("SCRIPT_NAME", urlPath);
    add("PATH_INFO", "");
    add("PATH_TRANSLATED", physicalPath.string());
    add("QUERY_STRING", request.queryString);
    add("REMOTE_ADDR", request.remoteAddress);
    add("REMOTE_HOST", request.remoteAddress);
    add("REMOTE_PORT", std::to_string(request.remotePort));
    add("REMOTE_USER", request.user);
    add("AUTH_TYPE", request.user.empty() ? "" : "Basic");
    add("CONTENT_TYPE", request.headerOr("Content-Type"));
    add("CONTENT_LENGTH", request.body.empty() ? "" : std::to_string(request.body.size()));
    add("DOCUMENT_ROOT", region.region.siteRoot.string());
    add("HTTPS", request.secure ? "on" : "off");
    for (const auto& [name, value] : request.headers)
    {
        // Credentials stay with the server, as in every CGI implementation.
        if (equalsIgnoringCase(name, "Authorization") || equalsIgnoringCase(name, "Proxy-Authorization"))
            continue;
        std::string variable = "HTTP_";
        for (char c : name)
            variable += c == '-' ? '_' : static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
        if (!findValue(variables, variable))
            add(variable, value);
    }
    myCgiVariables = std::move(variables);
    return *myCgiVariables;
}

db::DatabaseService& RequestContext::databaseService()
{
    if (!myDatabase)
    {
        const RegionConfig& config = region.region;
        db::ServiceEnvironment environment;
        environment.dataFolder = config.dataFolder;
        environment.exportsFolder = config.exportsFolder;
        environment.durableCommits = config.durableCommits;
        environment.connectionOpened = metrics::countStoreConnection;
        environment.trashDays = config.trashDays;
        environment.actor = request.user.empty() ? "public " + request.remoteAddress : request.user;
        const auto auditLog = auditLogOf(server, config);
        environment.changed = [this, auditLog](db::AuditEntry& entry)
        {
            const AuditSource source{region.region.name, request.user.empty() ? "public" : request.user,
                                     request.remoteAddress, urlPath};
            if (std::string why; !recordChange(auditLog, source, entry, why))
                writeServerLog(LogKind::Error, {region.region.name, urlPath, inTag ? currentTag.name : ""},
                               why);
        };
        environment.protectedFiles = {config.usersFile, region.preferences.file(), server.serverLog,
                                      server.accessLog, auditLog};
        environment.warning = [this](const std::string& line) {
            writeServerLog(LogKind::Warning, {region.region.name, urlPath, inTag ? currentTag.name : ""},
                           line);
        };
        environment.timing =
            [](db::TimedStep step, std::string_view store, std::chrono::steady_clock::duration took)
        {
            if (step == db::TimedStep::Open)
                metrics::observeDatabaseOpen(store, took);
            else
                metrics::observeDatabaseSearch(store, took);
        };
        myDatabase = std::make_unique<db::DatabaseService>(std::move(environment));
    }
    return *myDatabase;
}

abi::DatabaseSlots& RequestContext::databaseSlots()
{
    if (!myDatabaseSlots)
        myDatabaseSlots = std::make_unique<abi::DatabaseSlots>(databaseService());
    myDatabaseSlots->setOpenIntent(openIntent);
    myDatabaseSlots->setValueText(valueText);
    return *myDatabaseSlots;
}

const db::ServiceFailure* RequestContext::databaseFailure() const
{
    return myDatabase && myDatabase->lastFailure().code != 0 ? &myDatabase->lastFailure() : nullptr;
}

void RequestContext::clearDatabaseFailure()
{
    if (myDatabase)
        myDatabase->clearLastFailure();
}

void RequestContext::closeDatabaseService()
{
    myDatabaseSlots.reset();
    myDatabase.reset();
}

uint32_t nextPageID()
{
    // Page IDs differ between worker processes too: the process ID goes in the high bits.
    static std::atomic<uint32_t> counter{0};
    uint32_t sequence = ++counter & 0xFFFFF;
    uint32_t identifier = (static_cast<uint32_t>(::getpid()) << 20) ^ sequence;
    return identifier != 0 ? identifier : 1;
}

} // namespace kiv
