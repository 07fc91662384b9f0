// Health and metrics pages.
#include "site/StatusPages.h"

#include "DatabaseService.h"
#include "logging/Log.h"
#include "process/MetricsRegistry.h"

#include <unistd.h>

namespace fs = std::filesystem;

namespace kiv
{

namespace
{

constexpr std::string_view kStatusPrefix = "/kiv-status/";
// A module call longer than this makes the worker unhealthy: pages would wait behind it.
constexpr std::chrono::milliseconds kModuleWait{2000};

HttpResponse plainText(int status, std::string body, std::string_view type = "text/plain; charset=utf-8")
{
    HttpResponse response;
    response.status = status;
    response.body = std::move(body);
    response.setHeader("Content-Type", type);
    response.setHeader("Cache-Control", "no-store");
    return response;
}

} // namespace

bool isLocalClient(const HttpRequest& request)
{
    const std::string& address = request.remoteAddress;
    bool loopback = address.rfind("127.", 0) == 0 || address == "::1" || address.rfind("::ffff:127.", 0) == 0;
    return loopback && !request.header("Forwarded") && !request.header("X-Forwarded-For") &&
           !request.header("X-Real-IP");
}

StatusPages::StatusPages(const ServerConfig& config, ModuleHost& host) : myConfig(config), myHost(host) {}

bool StatusPages::isStatusPath(std::string_view path)
{
    return path.rfind(kStatusPrefix, 0) == 0 || path == kStatusPrefix.substr(0, kStatusPrefix.size() - 1);
}

bool StatusPages::isOpenTo(const HttpRequest& request) const
{
    switch (myConfig.statusAccess)
    {
    case StatusAccess::Public:
        return true;
    case StatusAccess::LocalOrLogin:
        return isLocalClient(request);
    case StatusAccess::Login:
        return false;
    }
    return false;
}

std::string StatusPages::findHealthProblem()
{
    if (std::string problem = myHost.findCallProblem(kModuleWait); !problem.empty())
        return problem;
    for (const auto& region : myConfig.regions)
    {
        std::error_code error;
        if (!fs::is_directory(region.dataFolder, error) ||
            ::access(region.dataFolder.c_str(), R_OK | W_OK | X_OK) != 0)
            return "region '" + region.name + "': the data folder " + region.dataFolder.string() +
                   " is not a folder this server can write to";
    }
    return {};
}

void StatusPages::handle(const HttpRequest& request, const RegionConfig& region, HttpResponse& response)
{
    if (request.user.empty() && !isOpenTo(request))
    {
        response = makeErrorResponse(401, "The server status needs a login.");
        response.setHeader("WWW-Authenticate", "Basic realm=\"kiv-server " + region.name + "\"");
        return;
    }
    if (request.method != "GET" && request.method != "HEAD")
    {
        response = makeErrorResponse(405);
        response.setHeader("Allow", "GET, HEAD");
        return;
    }
    std::string_view page =
        std::string_view(request.path).substr(std::min(request.path.size(), kStatusPrefix.size()));
    if (page == "health")
    {
        std::string problem = findHealthProblem();
        if (!problem.empty())
            writeServerLog(LogKind::Error, {region.name, request.path, ""},
                           "health check failed: " + problem);
        response =
            problem.empty() ? plainText(200, "ok\n") : plainText(503, "unavailable: " + problem + "\n");
    }
    else if (page == "metrics")
        response =
            plainText(200, MetricsRegistry::instance().render(), "text/plain; version=0.0.4; charset=utf-8");
    else
        response = makeErrorResponse(404);
}

} // namespace kiv
