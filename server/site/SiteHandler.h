// Turns one HTTP request into a response for the region it addresses: access control
// (protected paths and the administration page need a login, their form posts must come
// from the same origin; a file in a protected folder is protected whatever URL reaches it),
// path confinement, pages rendered with their module tags, static files, and folder indexes.
// Every response carries the security headers and the region's Content-Security-Policy. The
// connection layer asks first which login a request carries and checks it on its own threads.
#pragma once

#include "admin/AdminPage.h"
#include "config/ServerConfig.h"
#include "http/HttpMessage.h"
#include "http/RequestHandler.h"
#include "region/RegionState.h"
#include "services/ModuleHost.h"
#include "site/StatusPages.h"

namespace kiv
{

class SiteHandler : public RequestHandler
{
public:
    SiteHandler(const ServerConfig& config, RegionStates& regions, ModuleHost& host);

    std::optional<LoginAttempt> loginAttempt(const HttpRequest& request) override;
    void handle(HttpRequest& request, HttpResponse& response) override;

    // Renders a page file of a region without access control (for `kiv-server render`).
    void renderPageFile(RegionState& region, const std::filesystem::path& file, HttpRequest& request,
                        HttpResponse& response);

private:
    // A URL below a protected prefix, or one whose file lies in a protected folder.
    bool isProtected(const RegionConfig& region, const std::string& path) const;
    bool isAdminPath(const std::string& path) const;
    bool needsLogin(const RegionConfig& region, const std::string& path) const;
    void serveAdminPage(RegionState& region, HttpRequest& request, HttpResponse& response);
    void serveResource(RegionState& region, HttpRequest& request, HttpResponse& response);
    void applyModuleResponse(const struct ResponseSettings& settings, HttpResponse& response);

    const ServerConfig& myConfig;
    RegionStates& myRegions;
    ModuleHost& myHost;
    AdminPage myAdminPage;
    StatusPages myStatusPages;
};

// Whether a form post comes from a page of this server: its Origin (or, without one, its
// Referer) must name the host and port of the Host header, over http or https.
bool isSameOrigin(const HttpRequest& request);

// The user and password of a Basic Authorization header; false when there is none.
bool decodeBasicCredentials(std::string_view header, std::string& user, std::string& password);

} // namespace kiv
