// /kiv-status/health and /kiv-status/metrics, in every region: whether this worker can serve
// (for load balancers and systemd watchers), and the server's numbers in the Prometheus text
// format. Both tell an outsider more than a visitor needs, so by default they answer clients
// on this machine that did not come through a proxy, and logged-in users (status_access).
#pragma once

#include "config/ServerConfig.h"
#include "http/HttpMessage.h"
#include "services/ModuleHost.h"

#include <string_view>

namespace kiv
{

class StatusPages
{
public:
    StatusPages(const ServerConfig& config, ModuleHost& host);

    static bool isStatusPath(std::string_view path);
    // Whether the request may see the pages without a login.
    bool isOpenTo(const HttpRequest& request) const;
    // Answers a request for a status path; request.user is set when a login was accepted.
    void handle(const HttpRequest& request, const RegionConfig& region, HttpResponse& response);

private:
    std::string findHealthProblem();

    const ServerConfig& myConfig;
    ModuleHost& myHost;
};

// A client on this machine (127.0.0.0/8, ::1) whose request names no other client in
// Forwarded, X-Forwarded-For or X-Real-IP: a proxy on the same machine adds those.
bool isLocalClient(const HttpRequest& request);

} // namespace kiv
