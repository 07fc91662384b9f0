// The host's answers to every server selector, typed; abi/ServerSlots decodes the slots.
#include "services/HostCallbacks.h"

#include "ServiceCodes.h"
#include "abi/DatabaseSlots.h"
#include "abi/ServerSlots.h"
#include "common/SafePaths.h"
#include "common/Text.h"
#include "http/HttpMessage.h"
#include "logging/Log.h"
#include "services/ModuleHost.h"
#include "services/RequestContext.h"

#include <string>

namespace fs = std::filesystem;

namespace kiv
{

namespace
{

// The index-th value of name in list, or nullptr.
const std::string* nthValue(const NameValueList& list, std::string_view name, uint32_t index, bool ignoreCase)
{
    for (const auto& [key, value] : list)
        if (ignoreCase ? equalsIgnoringCase(key, name) : key == name)
        {
            if (index == 0)
                return &value;
            --index;
        }
    return nullptr;
}

uint32_t found(const std::string* value, std::string& out)
{
    if (!value)
        return kKivResult_NotFound;
    out = *value;
    return kKivResult_Success;
}

uint32_t entryOf(const NameValueList& list, uint32_t index, std::string& name, std::string& value)
{
    if (index >= list.size())
        return kKivResult_NotFound;
    name = list[index].first;
    value = list[index].second;
    return kKivResult_Success;
}

bool isHeaderToken(std::string_view text)
{
    if (text.empty())
        return false;
    for (char c : text)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
              c == '_'))
            return false;
    return true;
}

LogKind logKindOf(uint32_t code)
{
    switch (code)
    {
    case kKivLog_Warning:
        return LogKind::Warning;
    case kKivLog_Error:
        return LogKind::Error;
    case kKivLog_Failure:
        return LogKind::Failure;
    default:
        return LogKind::Note;
    }
}

std::string parentFolderOf(const std::string& urlPath)
{
    size_t slash = urlPath.rfind('/');
    return slash == std::string::npos ? "/" : urlPath.substr(0, slash + 1);
}

std::string hostWithoutPort(const std::string& host)
{
    if (!host.empty() && host[0] == '[')
        return host.substr(0, host.find(']') + 1);
    return host.substr(0, host.find(':'));
}

// A refused service request is logged with the page and tag that made it, then answered.
uint32_t refuse(const RequestContext& request, uint32_t code, const std::string& why)
{
    writeServerLog(LogKind::Warning, {request.region.region.name, request.urlPath, request.currentTag.name},
                   "refused: " + why + " (" + fourCharacterCode(code) + ")");
    return code;
}

// One module call's view of the host: what the module itself registered, and, during a page
// request, the request's arguments, variables, response and region.
class ModuleServices : public abi::ServerRequests
{
public:
    explicit ModuleServices(ModuleCall& call) : myCall(call), myModule(call.module) {}

    uint32_t text(uint32_t selector, std::string& out) override
    {
        switch (selector)
        {
        case kKivServer_GetModulePath:
            out = myModule.path.string();
            return kKivResult_Success;
        case kKivServer_GetModuleParentFolderPath:
            out = myModule.path.parent_path().string();
            return kKivResult_Success;
        default:
            break;
        }
        if (!myCall.request)
            return db::result::kNoRequest;
        RequestContext& request = *myCall.request;
        const RegionConfig& region = request.region.region;
        switch (selector)
        {
        case kKivServer_GetTag:
        case kKivServer_GetTagBody:
            if (!request.inTag)
                return kKivResult_NotFound;
            out = selector == kKivServer_GetTag ? request.currentTag.name : request.currentTag.body;
            return kKivResult_Success;
        case kKivServer_GetActionName:
            return request.actionName.empty() ? uint32_t(kKivResult_NotFound)
                                              : found(&request.actionName, out);
        case kKivServer_GetAdminDomainName:
        case kKivServer_GetVirtualHost:
            out = hostWithoutPort(request.request.headerOr("Host"));
            if (selector == kKivServer_GetAdminDomainName && !region.hostNames.empty())
                out = region.hostNames.front();
            if (out.empty())
                out = request.server.listeners.front().address;
            return kKivResult_Success;
        case kKivServer_GetAdminRegionPath:
            out = region.name;
            return kKivResult_Success;
        case kKivServer_GetVirtualRootPath:
            out = region.siteRoot.string();
            return kKivResult_Success;
        case kKivServer_GetURLPath:
            out = request.urlPath;
            return kKivResult_Success;
        case kKivServer_GetURLParentFolderPath:
            out = parentFolderOf(request.urlPath);
            return kKivResult_Success;
        default:
            return kKivResult_UnknownFunction;
        }
    }

    uint32_t take(uint32_t selector, std::string_view text, uint32_t word) override
    {
        static const std::pair<uint32_t, std::string ModuleRecord::*> kDescriptions[] = {
            {kKivServer_RegisterModuleName, &ModuleRecord::name},
            {kKivServer_RegisterModuleVersion, &ModuleRecord::version},
            {kKivServer_RegisterModuleAuthor, &ModuleRecord::author},
            {kKivServer_RegisterModuleDeveloperID, &ModuleRecord::developerID},
            {kKivServer_RegisterVersionTrackerURL, &ModuleRecord::versionTrackerURL}};
        for (const auto& [described, member] : kDescriptions)
            if (selector == described)
            {
                myModule.*member = text;
                return kKivResult_Success;
            }
        switch (selector)
        {
        case kKivServer_RegisterForTag:
            if (text.empty())
                return kKivResult_InvalidValue;
            myModule.registerTag(std::string(text), word);
            return kKivResult_Success;
        case kKivServer_UnregisterForTag:
            return myModule.unregisterTag(std::string(text)) ? uint32_t(kKivResult_Success)
                                                             : uint32_t(kKivResult_NotFound);
        case kKivServer_UnregisterForAction:
            return myModule.unregisterAction(std::string(text)) ? uint32_t(kKivResult_Success)
                                                                : uint32_t(kKivResult_NotFound);
        case kKivServer_WriteToLog:
            writeToLog(logKindOf(word), text);
            return kKivResult_Success;
        default:
            break;
        }
        if (!myCall.request)
            return db::result::kNoRequest;
        RequestContext& request = *myCall.request;
        switch (selector)
        {
        case kKivServer_SetHTTPResponseURI:
            if (text.empty() || !isSafeHeaderValue(text))
                return refuse(request, kKivResult_InvalidValue,
                              "a redirection address that is empty or has control characters");
            request.response.location = std::string(text);
            return kKivResult_Success;
        case kKivServer_RemovePreference:
            return request.region.preferences.remove(myModule.displayName(), text)
                       ? uint32_t(kKivResult_Success)
                       : uint32_t(kKivResult_UnknownError);
        default:
            return kKivResult_UnknownFunction;
        }
    }

    uint32_t write(std::string_view bytes) override
    {
        myCall.output.append(bytes);
        return kKivResult_Success;
    }

    uint32_t transform(uint32_t selector, std::string_view input, std::string& out) override
    {
        switch (selector)
        {
        case kKivServer_NormalizeString:
            out = normalizeText(input);
            return kKivResult_Success;
        case kKivServer_RegisterForAction:
            // The identifier of an action is its name; the buffer already holds it.
            if (input.empty())
                return kKivResult_InvalidValue;
            myModule.registerAction(std::string(input));
            out = input;
            return kKivResult_Success;
        default:
            break;
        }
        if (!myCall.request)
            return db::result::kNoRequest;
        return pathOf(*myCall.request, selector, std::string(input), out);
    }

    uint32_t lookup(uint32_t selector, std::string_view name, uint32_t index, std::string& out) override
    {
        if (!myCall.request)
            return db::result::kNoRequest;
        RequestContext& request = *myCall.request;
        switch (selector)
        {
        case kKivServer_GetTagParameter:
            if (!request.inTag)
                return kKivResult_NotFound;
            return found(nthValue(request.currentTag.parameters, name, index, true), out);
        case kKivServer_GetPathArgument:
            return found(nthValue(request.pathArguments, name, index, false), out);
        case kKivServer_GetPostArgument:
            return found(nthValue(request.postArguments, name, index, false), out);
        case kKivServer_GetCGIEnvironmentVariable:
            return found(nthValue(request.cgiVariables(), name, 0, true), out);
        case kKivServer_GetPageVariable:
            return found(request.pageVariable(name), out);
        case kKivServer_GetCookie:
            return found(nthValue(request.cookies, name, 0, false), out);
        case kKivServer_GetPreference:
        {
            const auto value = request.region.preferences.get(myModule.displayName(), name);
            return found(value ? &*value : nullptr, out);
        }
        default:
            return kKivResult_UnknownFunction;
        }
    }

    uint32_t takePair(uint32_t selector, std::string_view first, std::string_view second) override
    {
        if (selector == kKivServer_SetErrorInformation)
        {
            // Outside a page request it is kept for the log.
            myCall.error = {true, std::string(first), std::string(second)};
            return kKivResult_Success;
        }
        if (!myCall.request)
            return db::result::kNoRequest;
        RequestContext& request = *myCall.request;
        switch (selector)
        {
        case kKivServer_SetPageVariable:
            if (first.empty())
                return kKivResult_InvalidValue;
            request.setPageVariable(first, second);
            return kKivResult_Success;
        case kKivServer_SetHTTPResponseStatus:
            return setResponseStatus(request, first, second);
        case kKivServer_SetHTTPResponseHeader:
            return setResponseHeader(request, std::string(first), second);
        case kKivServer_ValidateServerLogin:
        case kKivServer_ValidateDomainLogin:
            return request.region.users.verify(first, second) ? uint32_t(kKivResult_Success)
                                                              : uint32_t(kKivResult_NotAuthorized);
        case kKivServer_SetPreference:
            if (first.empty())
                return kKivResult_InvalidValue;
            return request.region.preferences.set(myModule.displayName(), first, second)
                       ? uint32_t(kKivResult_Success)
                       : uint32_t(kKivResult_UnknownError);
        default:
            return kKivResult_UnknownFunction;
        }
    }

    uint32_t entry(uint32_t selector, uint32_t index, std::string& name, std::string& value) override
    {
        if (!myCall.request)
            return db::result::kNoRequest;
        RequestContext& request = *myCall.request;
        switch (selector)
        {
        case kKivServer_GetTagParameterByIndex:
            if (!request.inTag)
                return kKivResult_NotFound;
            return entryOf(request.currentTag.parameters, index, name, value);
        case kKivServer_GetPathArgumentByIndex:
            return entryOf(request.pathArguments, index, name, value);
        case kKivServer_GetPostArgumentByIndex:
            return entryOf(request.postArguments, index, name, value);
        case kKivServer_GetPageVariableByIndex:
            return entryOf(request.pageVariables, index, name, value);
        default:
            return kKivResult_UnknownFunction;
        }
    }

    uint32_t scalar(uint32_t selector, uint32_t& out) override
    {
        if (!myCall.request)
            return db::result::kNoRequest;
        RequestContext& request = *myCall.request;
        switch (selector)
        {
        case kKivServer_GetPageID:
            out = request.pageID;
            return kKivResult_Success;
        case kKivServer_GetTagParameterCount:
            if (!request.inTag)
                return kKivResult_NotFound;
            out = uint32_t(request.currentTag.parameters.size());
            return kKivResult_Success;
        case kKivServer_GetPathArgumentCount:
            out = uint32_t(request.pathArguments.size());
            return kKivResult_Success;
        case kKivServer_GetPostArgumentCount:
            out = uint32_t(request.postArguments.size());
            return kKivResult_Success;
        case kKivServer_GetPageVariableCount:
            out = uint32_t(request.pageVariables.size());
            return kKivResult_Success;
        case kKivServer_GetDefaultLanguage:
            out = request.region.region.language;
            return kKivResult_Success;
        default:
            return kKivResult_UnknownFunction;
        }
    }

private:
    void writeToLog(LogKind kind, std::string_view text)
    {
        RequestContext* request = myCall.request;
        const bool inTag = request && request->inTag;
        // A tag's failure is logged once, by the dispatcher, with its hint, code and the
        // database service's reason; the module's own copy of the headline would be a second.
        if (inTag && myCall.error.isSet && (kind == LogKind::Error || kind == LogKind::Failure) &&
            text == myCall.error.headline)
            return;
        writeServerLog(kind,
                       {request ? request->region.region.name : std::string(),
                        request ? request->urlPath : std::string(),
                        inTag ? request->currentTag.name : std::string()},
                       myModule.displayName() + ": " + std::string(text));
    }

    uint32_t pathOf(RequestContext& request, uint32_t selector, const std::string& input, std::string& out)
    {
        const RegionConfig& region = request.region.region;
        switch (selector)
        {
        case kKivServer_GetRegionDataFolderPath:
        {
            auto path = resolveFileInFolder(region.dataFolder, input.empty() ? std::string_view(".") : input);
            if (!path)
                return refuse(request, kKivResult_NotAuthorized,
                              "a data folder path outside the data folder: " + input);
            out = path->string();
            return kKivResult_Success;
        }
        case kKivServer_MapURLToPhysicalPath:
        {
            std::string urlPath =
                !input.empty() && input[0] == '/' ? input : parentFolderOf(request.urlPath) + input;
            std::string decoded;
            if (!percentDecode(urlPath, false, decoded))
                return kKivResult_InvalidValue;
            auto path = resolveUrlPath(region.siteRoot, decoded);
            if (!path)
                return refuse(request, kKivResult_NotAuthorized, "a URL path outside the site: " + input);
            out = path->string();
            return kKivResult_Success;
        }
        case kKivServer_VerifyRegionContainsFile:
        {
            // Export and import files: inside the region's exports folder, never the server's own.
            fs::path file;
            std::string why;
            const uint32_t code = request.databaseService().files().resolve(input, file, why);
            if (code != kKivResult_Success)
                return refuse(request, code, why);
            out = file.string();
            return kKivResult_Success;
        }
        default:
            return kKivResult_UnknownFunction;
        }
    }

    uint32_t setResponseStatus(RequestContext& request, std::string_view statusText, std::string_view message)
    {
        int status = 0;
        for (char c : trim(statusText))
        {
            if (c < '0' || c > '9' || status > 999)
                return refuse(request, kKivResult_InvalidValue, "an HTTP status that is not a number");
            status = status * 10 + (c - '0');
        }
        if (status < 200 || status > 599)
            return refuse(request, kKivResult_InvalidValue, "HTTP status " + std::to_string(status));
        if (!isSafeHeaderValue(message))
            return refuse(request, kKivResult_InvalidValue, "a status message with control characters");
        request.response.status = status;
        request.response.statusMessage = std::string(message);
        return kKivResult_Success;
    }

    uint32_t setResponseHeader(RequestContext& request, const std::string& name, std::string_view value)
    {
        // Framing headers belong to the server; a module must not be able to split the response.
        static const std::string_view reserved[] = {"Content-Length", "Transfer-Encoding", "Connection",
                                                    "Date", "Server"};
        if (!isHeaderToken(name) || !isSafeHeaderValue(value))
            return refuse(request, kKivResult_InvalidValue,
                          "response header '" + name +
                              "' with a bad name or control characters in its value");
        for (auto word : reserved)
            if (equalsIgnoringCase(name, word))
                return refuse(request, kKivResult_NotAuthorized,
                              "response header '" + name + "' is the server's");
        request.response.headers.emplace_back(name, value);
        return kKivResult_Success;
    }

    ModuleCall& myCall;
    ModuleRecord& myModule;
};

} // namespace

std::string normalizeText(std::string_view text)
{
    std::string normalized;
    bool pendingSpace = false;
    for (char c : trim(text, " \t\r\n\f\v"))
    {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v')
            pendingSpace = true;
        else
        {
            if (pendingSpace)
                normalized += ' ';
            pendingSpace = false;
            normalized += c;
        }
    }
    return normalized;
}

uint32_t serverSupportFunction(void* connection, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                               void* a7)
{
    if (!connection)
        return kKivResult_UnknownError;
    ModuleServices services(*static_cast<ModuleCall*>(connection));
    return abi::answerServerCall(services, selector, a3, a4, a5, a6, a7);
}

uint32_t databaseSupportFunction(void* connection, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                                 void* a7, void* a8)
{
    if (!connection)
        return kKivResult_UnknownError;
    ModuleCall& call = *static_cast<ModuleCall*>(connection);
    if (!call.request)
        return db::result::kNoRequest;
    return call.request->databaseSlots().call(selector, a3, a4, a5, a6, a7, a8);
}

} // namespace kiv
