// Request routing, access control and page rendering for a region.
#include "site/SiteHandler.h"

#include "common/SafePaths.h"
#include "common/Utf8.h"
#include "http/Forms.h"
#include "http/StaticFiles.h"
#include "logging/Log.h"
#include "pages/PageRenderer.h"
#include "services/RequestContext.h"
#include "services/TagDispatcher.h"
#include "site/BuiltinAssets.h"

#include <algorithm>
#include <fstream>
#include <sodium.h>
#include <sstream>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kiv
{

namespace
{

constexpr size_t kMaxPageBytes = 16 * 1024 * 1024;

bool hasParentSegment(std::string_view path)
{
    size_t start = 0;
    while (start <= path.size())
    {
        size_t end = path.find('/', start);
        if (end == std::string_view::npos)
            end = path.size();
        if (path.substr(start, end - start) == "..")
            return true;
        start = end + 1;
    }
    return false;
}

// "//manage/./x" reaches the same file as "/manage/x", so the access rules must see one
// spelling: empty and "." segments are dropped before protected prefixes are compared.
std::string normalizedUrlPath(std::string_view path)
{
    std::string normal;
    bool folder = false;
    size_t start = 1;
    while (start <= path.size())
    {
        size_t end = std::min(path.find('/', start), path.size());
        std::string_view segment = path.substr(start, end - start);
        folder = segment.empty() || segment == ".";
        if (!folder)
            normal.append("/").append(segment);
        start = end + 1;
    }
    if (normal.empty() || folder)
        normal += '/';
    return normal;
}

// A decoded path as it goes back into a Location header: every segment percent-encoded.
std::string encodedUrlPath(std::string_view path)
{
    std::string encoded;
    size_t start = 1;
    while (start <= path.size())
    {
        size_t end = std::min(path.find('/', start), path.size());
        encoded += '/';
        encoded += percentEncode(path.substr(start, end - start));
        start = end + 1;
    }
    return encoded;
}

bool hasHiddenSegment(std::string_view path)
{
    return path.find("/.") != std::string_view::npos;
}

bool isPageFile(const RegionConfig& region, const fs::path& file)
{
    std::string extension = toLower(file.extension().string());
    for (const auto& pageExtension : region.pageExtensions)
        if (equalsIgnoringCase(extension, pageExtension))
            return true;
    return false;
}

bool readFile(const fs::path& file, std::string& text)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream content;
    content << in.rdbuf();
    text = content.str();
    return text.size() <= kMaxPageBytes;
}

// Decodes the request's form into the context; answers 400 (and logs it) when the form is
// malformed or has more fields than the server accepts.
bool takePostArguments(RequestContext& context, HttpResponse& response)
{
    auto arguments = parsePostArguments(context.request);
    if (arguments)
    {
        context.postArguments = std::move(*arguments);
        return true;
    }
    writeServerLog(LogKind::Warning, {context.region.region.name, context.request.path, ""},
                   "refused a form that is malformed or has more than " + std::to_string(kMaxFormFields) +
                       " fields from " + context.request.remoteAddress);
    response = makeErrorResponse(400, "The form data is malformed or has too many fields.");
    return false;
}

// A file as the file system knows it, whatever path reached it: links, doubled slashes and
// another case on a file system that ignores case all lead to the same device and inode.
struct FileIdentity
{
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileIdentity& other) const
    {
        return device == other.device && inode == other.inode;
    }
};

std::optional<FileIdentity> identityOf(const fs::path& path)
{
    struct stat status;
    if (::stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return FileIdentity{status.st_dev, status.st_ino};
}

// A URL path below a protected prefix, compared without regard to case: on a file system that
// ignores case "/MANAGE/" is the same folder.
bool matchesProtectedPrefix(const RegionConfig& region, std::string_view path)
{
    for (const auto& prefix : region.protectedPaths)
    {
        if (startsWithIgnoringCase(path, prefix))
            return true;
        if (prefix.size() > 1 && prefix.back() == '/' &&
            equalsIgnoringCase(path, std::string_view(prefix).substr(0, prefix.size() - 1)))
            return true;
    }
    return false;
}

// Whether a resolved file of the site is a protected file or lies in a protected folder, by
// identity: the file and each folder above it up to the site root are compared with what the
// protected prefixes name.
bool liesInProtectedArea(const RegionConfig& region, const fs::path& file)
{
    std::vector<FileIdentity> areas;
    for (const auto& prefix : region.protectedPaths)
        if (auto area = resolveUrlPath(region.siteRoot, prefix))
            if (auto identity = identityOf(*area))
                areas.push_back(*identity);
    if (areas.empty())
        return false;
    std::error_code error;
    const fs::path root = fs::canonical(region.siteRoot, error);
    for (fs::path current = file;; current = current.parent_path())
    {
        if (auto identity = identityOf(current))
            if (std::find(areas.begin(), areas.end(), *identity) != areas.end())
                return true;
        if ((!error && current == root) || current == current.parent_path())
            return false;
    }
}

// The region's policy with framing refused: a login area is never shown inside another page.
std::string withFramingRefused(std::string_view policy)
{
    std::string result;
    size_t start = 0;
    while (start < policy.size())
    {
        size_t end = std::min(policy.find(';', start), policy.size());
        std::string_view directive = trim(policy.substr(start, end - start));
        std::string_view name = directive.substr(0, directive.find(' '));
        if (!directive.empty() && !equalsIgnoringCase(name, "frame-ancestors"))
            result.append(directive).append("; ");
        start = end + 1;
    }
    return result + "frame-ancestors 'none'";
}

} // namespace

bool decodeBasicCredentials(std::string_view header, std::string& user, std::string& password)
{
    std::string_view value = trim(header);
    if (!startsWithIgnoringCase(value, "Basic "))
        return false;
    std::string_view encoded = trim(value.substr(6));
    if (encoded.empty() || encoded.size() > 4096)
        return false;
    std::string decoded(encoded.size(), '\0');
    size_t length = 0;
    if (sodium_base642bin(reinterpret_cast<unsigned char*>(decoded.data()), decoded.size(), encoded.data(),
                          encoded.size(), nullptr, &length, nullptr, sodium_base64_VARIANT_ORIGINAL) != 0)
        return false;
    decoded.resize(length);
    size_t colon = decoded.find(':');
    if (colon == std::string::npos)
        return false;
    user = decoded.substr(0, colon);
    password = decoded.substr(colon + 1);
    return true;
}

bool isSameOrigin(const HttpRequest& request)
{
    std::string host = toLower(trim(request.headerOr("Host")));
    if (host.empty())
        return false;
    // Behind a proxy that ends TLS the browser's origin is https:// while this server sees
    // plain HTTP; the host and port are what tell another site apart.
    auto isThisSite = [&](std::string_view address, bool pathAllowed)
    {
        for (std::string_view scheme : {"http://", "https://"})
        {
            std::string expected = std::string(scheme) + host;
            if (address == expected || (pathAllowed && address.rfind(expected + "/", 0) == 0))
                return true;
        }
        return false;
    };
    if (const std::string* origin = request.header("Origin"))
        return isThisSite(toLower(trim(*origin)), false);
    if (const std::string* referer = request.header("Referer"))
        return isThisSite(toLower(trim(*referer)), true);
    return false;
}

SiteHandler::SiteHandler(const ServerConfig& config, RegionStates& regions, ModuleHost& host)
    : myConfig(config), myRegions(regions), myHost(host), myAdminPage(host), myStatusPages(config, host)
{
}

bool SiteHandler::isAdminPath(const std::string& path) const
{
    const std::string& admin = myConfig.adminPath;
    return path.rfind(admin, 0) == 0 || path == admin.substr(0, admin.size() - 1);
}

bool SiteHandler::isProtected(const RegionConfig& region, const std::string& path) const
{
    if (matchesProtectedPrefix(region, path))
        return true;
    auto file = resolveUrlPath(region.siteRoot, path);
    return file && liesInProtectedArea(region, *file);
}

bool SiteHandler::needsLogin(const RegionConfig& region, const std::string& path) const
{
    return isAdminPath(path) || isProtected(region, path);
}

std::optional<LoginAttempt> SiteHandler::loginAttempt(const HttpRequest& request)
{
    const RegionConfig& regionConfig = selectRegion(myConfig, request.headerOr("Host"));
    const std::string& path = request.path;
    // handle() refuses such paths before it looks at any login.
    if (path.empty() || path[0] != '/' || hasParentSegment(path) || path.find('\\') != std::string::npos)
        return std::nullopt;
    std::string user, password;
    const std::string* authorization = request.header("Authorization");
    if (!authorization || !decodeBasicCredentials(*authorization, user, password))
        return std::nullopt;
    const std::string normalPath = normalizedUrlPath(path);
    if (!needsLogin(regionConfig, normalPath) && !StatusPages::isStatusPath(normalPath))
        return std::nullopt;
    UserDirectory& users = myRegions.stateOf(regionConfig).users;
    LoginAttempt attempt;
    attempt.user = user;
    attempt.throttleKey = regionConfig.name + "/" + user;
    attempt.region = regionConfig.name;
    attempt.isRemembered = [&users, user, password] { return users.isRemembered(user, password); };
    attempt.verify = [&users, user, password] { return users.verify(user, password); };
    return attempt;
}

void SiteHandler::handle(HttpRequest& request, HttpResponse& response)
{
    const RegionConfig& regionConfig = selectRegion(myConfig, request.headerOr("Host"));
    RegionState& region = myRegions.stateOf(regionConfig);
    request.region = regionConfig.name;
    NameValueList securityHeaders = {{"X-Content-Type-Options", "nosniff"},
                                     {"Referrer-Policy", "same-origin"}};
    std::string contentPolicy = regionConfig.policy.contentSecurityPolicy;

    auto finish = [&]
    {
        for (const auto& [name, value] : securityHeaders)
            response.setHeader(name, value);
        if (!contentPolicy.empty())
            response.setHeader("Content-Security-Policy", contentPolicy);
    };

    if (request.method != "GET" && request.method != "HEAD" && request.method != "POST")
    {
        response = makeErrorResponse(405);
        response.setHeader("Allow", "GET, HEAD, POST");
        return finish();
    }
    const std::string& path = request.path;
    if (path.empty() || path[0] != '/' || hasParentSegment(path) || path.find('\\') != std::string::npos)
    {
        writeServerLog(LogKind::Warning, {regionConfig.name, path, ""},
                       "refused a path that leaves the site from " + request.remoteAddress);
        response = makeErrorResponse(400, "The path is not allowed.");
        return finish();
    }
    request.path = normalizedUrlPath(path);
    if (serveBuiltinAsset(request, response)) // the same in every region, without a login
        return finish();
    if (StatusPages::isStatusPath(request.path))
    {
        myStatusPages.handle(request, regionConfig, response);
        return finish();
    }

    bool admin = isAdminPath(path);
    if (needsLogin(regionConfig, path))
    {
        securityHeaders.emplace_back("X-Frame-Options", "DENY");
        contentPolicy = withFramingRefused(contentPolicy);
        securityHeaders.emplace_back("Cache-Control", "no-store");
        // The connection layer sets the user once it has checked the password.
        if (request.user.empty())
        {
            response = makeErrorResponse(401, "This area needs a login.");
            response.setHeader("WWW-Authenticate", "Basic realm=\"kiv-server " + regionConfig.name + "\"");
            return finish();
        }
        if (request.method == "POST" && !isSameOrigin(request))
        {
            writeServerLog(LogKind::Warning, {regionConfig.name, path, ""},
                           "refused a cross-origin form post from " + request.remoteAddress);
            response = makeErrorResponse(403, "Form posts to this area must come from this site.");
            return finish();
        }
    }

    if (admin)
        serveAdminPage(region, request, response);
    else
        serveResource(region, request, response);
    finish();
}

void SiteHandler::serveAdminPage(RegionState& region, HttpRequest& request, HttpResponse& response)
{
    if (request.path + "/" == myConfig.adminPath)
    {
        response.status = 301;
        response.setHeader("Location", myConfig.adminPath);
        return;
    }
    RequestContext context(myConfig, region, request);
    if (!takePostArguments(context, response))
        return;
    myAdminPage.handle(context, response);
    myHost.finishRequest(context);
}

void SiteHandler::serveResource(RegionState& region, HttpRequest& request, HttpResponse& response)
{
    const RegionConfig& config = region.region;
    const std::string& path = request.path;
    if (hasHiddenSegment(path))
    {
        response = makeErrorResponse(404);
        return;
    }
    auto file = resolveUrlPath(config.siteRoot, path);
    std::error_code error;
    if (!file)
    {
        writeServerLog(LogKind::Warning, {config.name, path, ""},
                       "refused a path that resolves outside the site");
        response = makeErrorResponse(404);
        return;
    }
    if (fs::is_directory(*file, error))
    {
        if (path.back() != '/')
        {
            // Built from the normalised path: the raw target could start with "//", which a
            // browser would read as another host.
            response.status = 301;
            response.setHeader("Location",
                               encodedUrlPath(path) + "/" +
                                   (request.queryString.empty() ? "" : "?" + request.queryString));
            return;
        }
        for (const auto& index : config.indexFiles)
        {
            if (fs::is_regular_file(*file / index, error))
            {
                *file /= index;
                break;
            }
        }
        if (fs::is_directory(*file, error))
        {
            if (!config.policy.directoryListing || request.method == "POST")
            {
                response = makeErrorResponse(request.method == "POST" ? 405 : 403);
                return;
            }
            response.body = renderDirectoryListing(*file, path);
            response.setHeader("Content-Type", "text/html; charset=ISO-8859-1");
            return;
        }
    }
    if (!fs::is_regular_file(*file, error))
    {
        response = makeErrorResponse(404);
        return;
    }
    if (isPageFile(config, *file))
    {
        renderPageFile(region, *file, request, response);
        return;
    }
    if (request.method == "POST")
    {
        response = makeErrorResponse(405);
        response.setHeader("Allow", "GET, HEAD");
        return;
    }
    serveStaticFile(*file, request, response);
}

void SiteHandler::renderPageFile(RegionState& region, const fs::path& file, HttpRequest& request,
                                 HttpResponse& response)
{
    const RegionConfig& config = region.region;
    std::string text;
    if (!readFile(file, text))
    {
        writeServerLog(LogKind::Error, {config.name, request.path, ""}, "cannot read page " + file.string());
        response = makeErrorResponse(500, "The page cannot be read.");
        return;
    }
    RequestContext context(myConfig, region, request);
    if (!takePostArguments(context, response))
        return;
    context.physicalPath = file;
    context.protectedArea = matchesProtectedPrefix(config, request.path) || liesInProtectedArea(config, file);
    context.guardMarkup = config.policy.refuseMarkup && !context.protectedArea;
    TagDispatcher dispatcher(myHost, context);
    response.body = renderPage(text, dispatcher);
    myHost.finishRequest(context);
    if (context.refusedMarkup)
    {
        response = makeErrorResponse(400, "This page does not accept the characters < and > in what is "
                                          "sent to it. Remove them and try again.");
        return;
    }
    if (context.writeRetryAfterSeconds != 0)
    {
        response = makeErrorResponse(429, "This address has sent too many changes in a short time. Wait a "
                                          "moment and try again.");
        response.setHeader("Retry-After", std::to_string(context.writeRetryAfterSeconds));
        return;
    }

    response.status = 200;
    if (config.servesUtf8())
        convertLatin1ToUtf8(response.body);
    response.setHeader("Content-Type", "text/html; charset=" + config.pageCharset);
    response.setHeader("Cache-Control", "no-cache");
    applyModuleResponse(context.response, response);
}

void SiteHandler::applyModuleResponse(const ResponseSettings& settings, HttpResponse& response)
{
    if (settings.status)
        response.status = *settings.status;
    for (const auto& [name, value] : settings.headers)
        response.addHeader(name, value);
    if (!settings.location.empty())
    {
        if (response.status < 300 || response.status > 399)
            response.status = 302;
        response.setHeader("Location", settings.location);
    }
}

} // namespace kiv
