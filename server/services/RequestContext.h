// Everything the host's services know about the page request being rendered: the region,
// the request's arguments, the page variables that tags share, the tag being processed,
// and what modules asked of the response. One exists per page request; the server and
// database callbacks reach it through the connection handle of the module call.
#pragma once

#include "common/Text.h"
#include "config/ServerConfig.h"
#include "http/HttpMessage.h"
#include "pages/PageRenderer.h"
#include "region/RegionState.h"
#include "DatabaseService.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace kiv::abi
{
class DatabaseSlots;
}

namespace kiv
{

// What modules asked of the HTTP response ('MHRS', 'MSRH', 'MHRU').
struct ResponseSettings
{
    std::optional<int> status;
    std::string statusMessage;
    NameValueList headers;
    std::string location;
};

class RequestContext
{
public:
    RequestContext(const ServerConfig& server, RegionState& region, const HttpRequest& request);
    ~RequestContext();
    RequestContext(const RequestContext&) = delete;
    RequestContext& operator=(const RequestContext&) = delete;

    const ServerConfig& server;
    RegionState& region;
    const HttpRequest& request;

    NameValueList pathArguments;
    NameValueList postArguments;
    NameValueList cookies;
    NameValueList pageVariables; // unique names, in the order first set
    std::string urlPath;         // of the page: "/people/index.html"
    std::filesystem::path physicalPath;
    uint32_t pageID = 0;
    std::string actionName;

    TagInvocation currentTag;
    bool inTag = false;
    // Set for public pages when the region refuses markup in visitors' values; a refused
    // tag does not run, and the page is answered with 400 instead.
    bool guardMarkup = false;
    bool refusedMarkup = false;
    ResponseSettings response;

    void setPageVariable(std::string_view name, std::string_view value);
    const std::string* pageVariable(std::string_view name) const;

    // The CGI/1.1 variables of the request (SCRIPT_NAME, QUERY_STRING, HTTP_*, ...).
    const NameValueList& cgiVariables();

    // The database service of this request, made on first use for the region's data and
    // exports folders, and the slot adapter through which the module's database callback
    // reaches it. The dispatcher sets the intent of the module's opens for each tag.
    db::DatabaseService& databaseService();
    abi::DatabaseSlots& databaseSlots();
    db::OpenIntent openIntent = db::OpenIntent::MustExist;
    // The service's last failure, when there is a service and it failed; cleared by the
    // dispatcher before each tag.
    const db::ServiceFailure* databaseFailure() const;
    void clearDatabaseFailure();
    // Ends the database service (closing what the request left open).
    void closeDatabaseService();

private:
    std::unique_ptr<db::DatabaseService> myDatabase;
    std::unique_ptr<abi::DatabaseSlots> myDatabaseSlots;
    std::optional<NameValueList> myCgiVariables;
};

// A fresh page identifier for each page request of this process (never 0).
uint32_t nextPageID();

} // namespace kiv
