// The host side of every server selector, with its argument shape and the size protocol.
#include "services/HostCallbacks.h"

#include "DatabaseSession.h"
#include "common/SafePaths.h"
#include "common/Text.h"
#include "http/HttpMessage.h"
#include "logging/Log.h"
#include "services/ModuleHost.h"
#include "services/RequestContext.h"

#include <cstring>
#include <string>

namespace fs = std::filesystem;

namespace kiv
{

namespace
{

uint32_t readWord(void* address)
{
    return address ? *static_cast<uint32_t*>(address) : 0;
}

// 'In' shape: a zero-terminated copy and the address of (length + 1).
std::string_view readInput(void* text, void* lengthPlusOne)
{
    if (!text)
        return {};
    uint32_t size = readWord(lengthPlusOne);
    const char* characters = static_cast<const char*>(text);
    if (!lengthPlusOne)
        return std::string_view(characters);
    return std::string_view(characters, ::strnlen(characters, size));
}

uint32_t writeScalar(void* address, uint32_t value)
{
    if (!address)
        return kKivResult_UnknownError;
    *static_cast<uint32_t*>(address) = value;
    return kKivResult_Success;
}

// 'PairOut' shape: both buffers take part in the size protocol together.
uint32_t writePair(void* nameBuffer, void* nameCapacity, void* valueBuffer, void* valueCapacity,
                   std::string_view name, std::string_view value)
{
    if (!nameBuffer || !nameCapacity || !valueBuffer || !valueCapacity)
        return kKivResult_UnknownError;
    uint32_t& nameRoom = *static_cast<uint32_t*>(nameCapacity);
    uint32_t& valueRoom = *static_cast<uint32_t*>(valueCapacity);
    if (name.size() > nameRoom || value.size() > valueRoom)
    {
        nameRoom = static_cast<uint32_t>(name.size());
        valueRoom = static_cast<uint32_t>(value.size());
        return kKivResult_BufferTooSmall;
    }
    writeOutput(nameBuffer, nameCapacity, name);
    writeOutput(valueBuffer, valueCapacity, value);
    return kKivResult_Success;
}

// The index-th value of name in list (exact names), or nullptr.
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

uint32_t writeFound(void* buffer, void* capacity, const std::string* value)
{
    return value ? writeOutput(buffer, capacity, *value) : kHostResult_NotFound;
}

uint32_t writeListEntry(const NameValueList& list, void* a3, void* a4, void* a5, void* a6, void* a7)
{
    uint32_t index = readWord(a7);
    if (!a7 || index >= list.size())
        return kHostResult_NotFound;
    return writePair(a3, a4, a5, a6, list[index].first, list[index].second);
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

// Selectors that only concern the module itself (registration, its own path, the log).
bool answerModuleSelector(ModuleCall& call, uint32_t selector, void* a3, void* a4, void* a7, uint32_t& result)
{
    ModuleRecord& module = call.module;
    auto text = [&] { return std::string(readInput(a3, a4)); };
    result = kKivResult_Success;
    switch (selector)
    {
    case kKivServer_GetModulePath:
        result = writeOutput(a3, a4, module.path.string());
        return true;
    case kKivServer_GetModuleParentFolderPath:
        result = writeOutput(a3, a4, module.path.parent_path().string());
        return true;
    case kKivServer_RegisterModuleName:
        module.name = text();
        return true;
    case kKivServer_RegisterModuleVersion:
        module.version = text();
        return true;
    case kKivServer_RegisterModuleAuthor:
        module.author = text();
        return true;
    case kKivServer_RegisterModuleDeveloperID:
        module.developerID = text();
        return true;
    case kKivServer_RegisterVersionTrackerURL:
        module.versionTrackerURL = text();
        return true;
    case kKivServer_RegisterForTag:
        if (text().empty())
            result = kHostResult_InvalidValue;
        else
            module.registerTag(text(), readWord(a7));
        return true;
    case kKivServer_UnregisterForTag:
        result = module.unregisterTag(text()) ? 0u : static_cast<uint32_t>(kHostResult_NotFound);
        return true;
    case kKivServer_RegisterForAction:
        // The identifier of an action is its name; the buffer already holds it.
        if (text().empty())
            result = kHostResult_InvalidValue;
        else
        {
            module.registerAction(text());
            result = writeOutput(a3, a4, text());
        }
        return true;
    case kKivServer_UnregisterForAction:
        result = module.unregisterAction(text()) ? 0u : static_cast<uint32_t>(kHostResult_NotFound);
        return true;
    case kKivServer_NormalizeString:
        result = writeOutput(a3, a4, normalizeText(text()));
        return true;
    case kKivServer_WriteToServer:
        // Written without the terminating zero: a4 holds the exact length.
        if (!a3 || !a4)
            result = kKivResult_UnknownError;
        else
            call.output.append(static_cast<const char*>(a3), readWord(a4));
        return true;
    case kKivServer_WriteToLog:
    {
        RequestContext* request = call.request;
        std::string region = request ? request->region.region.name : std::string();
        std::string page = request ? request->urlPath : std::string();
        std::string tag = request && request->inTag ? request->currentTag.name : std::string();
        writeServerLog(logKindOf(readWord(a7)), {region, page, tag}, module.displayName() + ": " + text());
        return true;
    }
    default:
        return false;
    }
}

uint32_t answerTagSelector(RequestContext& request, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                           void* a7)
{
    if (!request.inTag)
        return kHostResult_NotFound;
    const TagInvocation& tag = request.currentTag;
    switch (selector)
    {
    case kKivServer_GetTag:
        return writeOutput(a3, a4, tag.name);
    case kKivServer_GetTagParameter:
        return writeFound(a5, a6, nthValue(tag.parameters, readInput(a3, a4), readWord(a7), true));
    case kKivServer_GetTagParameterByIndex:
        return writeListEntry(tag.parameters, a3, a4, a5, a6, a7);
    case kKivServer_GetTagParameterCount:
        return writeScalar(a7, static_cast<uint32_t>(tag.parameters.size()));
    case kKivServer_GetTagBody:
        return writeOutput(a3, a4, tag.body);
    default:
        return kKivResult_UnknownFunction;
    }
}

uint32_t answerPathSelector(RequestContext& request, uint32_t selector, void* a3, void* a4)
{
    const RegionConfig& region = request.region.region;
    std::string input(readInput(a3, a4));
    switch (selector)
    {
    case kKivServer_GetRegionDataFolderPath:
    {
        auto path = resolveFileInFolder(region.dataFolder, input.empty() ? std::string_view(".") : input);
        return path ? writeOutput(a3, a4, path->string())
                    : refuse(request, kHostResult_NotAuthorized,
                             "a data folder path outside the data folder: " + input);
    }
    case kKivServer_MapURLToPhysicalPath:
    {
        std::string urlPath =
            !input.empty() && input[0] == '/' ? input : parentFolderOf(request.urlPath) + input;
        std::string decoded;
        if (!percentDecode(urlPath, false, decoded))
            return kHostResult_InvalidValue;
        auto path = resolveUrlPath(region.siteRoot, decoded);
        return path ? writeOutput(a3, a4, path->string())
                    : refuse(request, kHostResult_NotAuthorized, "a URL path outside the site: " + input);
    }
    case kKivServer_VerifyRegionContainsFile:
    {
        auto path = resolveFileInFolder(region.dataFolder, trim(input));
        return path ? writeOutput(a3, a4, path->string())
                    : refuse(request, kHostResult_NotAuthorized,
                             "a file path outside the data folder: " + input);
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
            return refuse(request, kHostResult_InvalidValue, "an HTTP status that is not a number");
        status = status * 10 + (c - '0');
    }
    if (status < 200 || status > 599)
        return refuse(request, kHostResult_InvalidValue, "HTTP status " + std::to_string(status));
    if (!isSafeHeaderValue(message))
        return refuse(request, kHostResult_InvalidValue, "a status message with control characters");
    request.response.status = status;
    request.response.statusMessage = std::string(message);
    return kKivResult_Success;
}

uint32_t setResponseHeader(RequestContext& request, const std::string& name, std::string_view value)
{
    // Framing headers belong to the server; a module must not be able to split the response.
    static const std::string_view reserved[] = {"Content-Length", "Transfer-Encoding", "Connection", "Date",
                                                "Server"};
    if (!isHeaderToken(name) || !isSafeHeaderValue(value))
        return refuse(request, kHostResult_InvalidValue,
                      "response header '" + name + "' with a bad name or control characters in its value");
    for (auto word : reserved)
        if (equalsIgnoringCase(name, word))
            return refuse(request, kHostResult_NotAuthorized,
                          "response header '" + name + "' is the server's");
    request.response.headers.emplace_back(name, value);
    return kKivResult_Success;
}

uint32_t setResponseLocation(RequestContext& request, std::string_view location)
{
    if (location.empty() || !isSafeHeaderValue(location))
        return refuse(request, kHostResult_InvalidValue,
                      "a redirection address that is empty or has control characters");
    request.response.location = std::string(location);
    return kKivResult_Success;
}

uint32_t answerResponseSelector(RequestContext& request, uint32_t selector, void* a3, void* a4, void* a5,
                                void* a6)
{
    switch (selector)
    {
    case kKivServer_SetHTTPResponseStatus:
        return setResponseStatus(request, readInput(a3, a4), readInput(a5, a6));
    case kKivServer_SetHTTPResponseHeader:
        return setResponseHeader(request, std::string(readInput(a3, a4)), readInput(a5, a6));
    case kKivServer_SetHTTPResponseURI:
        return setResponseLocation(request, readInput(a3, a4));
    default:
        return kKivResult_UnknownFunction;
    }
}

uint32_t answerRequestSelector(ModuleCall& call, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                               void* a7)
{
    RequestContext& request = *call.request;
    const RegionConfig& region = request.region.region;
    PreferenceStore& preferences = request.region.preferences;
    std::string moduleName = call.module.displayName();
    switch (selector)
    {
    case kKivServer_SetErrorInformation:
        call.error = {true, std::string(readInput(a3, a4)), std::string(readInput(a5, a6))};
        return kKivResult_Success;
    case kKivServer_GetPageID:
        return writeScalar(a7, request.pageID);
    case kKivServer_GetTag:
    case kKivServer_GetTagParameter:
    case kKivServer_GetTagParameterByIndex:
    case kKivServer_GetTagParameterCount:
    case kKivServer_GetTagBody:
        return answerTagSelector(request, selector, a3, a4, a5, a6, a7);
    case kKivServer_GetActionName:
        return request.actionName.empty() ? kHostResult_NotFound : writeOutput(a3, a4, request.actionName);
    case kKivServer_GetPathArgument:
        return writeFound(a5, a6, nthValue(request.pathArguments, readInput(a3, a4), readWord(a7), false));
    case kKivServer_GetPathArgumentByIndex:
        return writeListEntry(request.pathArguments, a3, a4, a5, a6, a7);
    case kKivServer_GetPathArgumentCount:
        return writeScalar(a7, static_cast<uint32_t>(request.pathArguments.size()));
    case kKivServer_GetPostArgument:
        return writeFound(a5, a6, nthValue(request.postArguments, readInput(a3, a4), readWord(a7), false));
    case kKivServer_GetPostArgumentByIndex:
        return writeListEntry(request.postArguments, a3, a4, a5, a6, a7);
    case kKivServer_GetPostArgumentCount:
        return writeScalar(a7, static_cast<uint32_t>(request.postArguments.size()));
    case kKivServer_GetCGIEnvironmentVariable:
        return writeFound(a5, a6, nthValue(request.cgiVariables(), readInput(a3, a4), 0, true));
    case kKivServer_SetPageVariable:
    {
        std::string_view name = readInput(a3, a4);
        if (name.empty())
            return kHostResult_InvalidValue;
        request.setPageVariable(name, readInput(a5, a6));
        return kKivResult_Success;
    }
    case kKivServer_GetPageVariable:
        return writeFound(a5, a6, request.pageVariable(readInput(a3, a4)));
    case kKivServer_GetPageVariableByIndex:
        return writeListEntry(request.pageVariables, a3, a4, a5, a6, a7);
    case kKivServer_GetPageVariableCount:
        return writeScalar(a7, static_cast<uint32_t>(request.pageVariables.size()));
    case kKivServer_GetCookie:
        return writeFound(a5, a6, nthValue(request.cookies, readInput(a3, a4), 0, false));
    case kKivServer_SetHTTPResponseStatus:
    case kKivServer_SetHTTPResponseHeader:
    case kKivServer_SetHTTPResponseURI:
        return answerResponseSelector(request, selector, a3, a4, a5, a6);
    case kKivServer_GetAdminDomainName:
    case kKivServer_GetVirtualHost:
    {
        std::string host = hostWithoutPort(request.request.headerOr("Host"));
        if (selector == kKivServer_GetAdminDomainName && !region.hostNames.empty())
            host = region.hostNames.front();
        return writeOutput(a3, a4, host.empty() ? request.server.listeners.front().address : host);
    }
    case kKivServer_GetAdminRegionPath:
        return writeOutput(a3, a4, region.name);
    case kKivServer_GetVirtualRootPath:
        return writeOutput(a3, a4, region.siteRoot.string());
    case kKivServer_GetURLPath:
        return writeOutput(a3, a4, request.urlPath);
    case kKivServer_GetURLParentFolderPath:
        return writeOutput(a3, a4, parentFolderOf(request.urlPath));
    case kKivServer_GetRegionDataFolderPath:
    case kKivServer_MapURLToPhysicalPath:
    case kKivServer_VerifyRegionContainsFile:
        return answerPathSelector(request, selector, a3, a4);
    case kKivServer_GetDefaultLanguage:
        return writeScalar(a7, region.language);
    case kKivServer_ValidateServerLogin:
    case kKivServer_ValidateDomainLogin:
        return request.region.users.verify(readInput(a3, a4), readInput(a5, a6))
                   ? 0u
                   : static_cast<uint32_t>(kHostResult_NotAuthorized);
    case kKivServer_SetPreference:
    {
        std::string_view key = readInput(a3, a4);
        if (key.empty())
            return kHostResult_InvalidValue;
        return preferences.set(moduleName, key, readInput(a5, a6)) ? kKivResult_Success
                                                                   : kKivResult_UnknownError;
    }
    case kKivServer_GetPreference:
    {
        auto value = preferences.get(moduleName, readInput(a3, a4));
        return value ? writeOutput(a5, a6, *value) : kHostResult_NotFound;
    }
    case kKivServer_RemovePreference:
        return preferences.remove(moduleName, readInput(a3, a4)) ? kKivResult_Success
                                                                 : kKivResult_UnknownError;
    default:
        return kKivResult_UnknownFunction;
    }
}

} // namespace

uint32_t writeOutput(void* buffer, void* capacity, std::string_view value)
{
    if (!capacity || (!buffer && !value.empty()))
        return kKivResult_UnknownError;
    uint32_t& room = *static_cast<uint32_t*>(capacity);
    if (value.size() > room)
    {
        room = static_cast<uint32_t>(value.size());
        return kKivResult_BufferTooSmall;
    }
    if (!value.empty())
        std::memcpy(buffer, value.data(), value.size());
    if (buffer && value.size() < room)
        static_cast<char*>(buffer)[value.size()] = '\0';
    room = static_cast<uint32_t>(value.size());
    return kKivResult_Success;
}

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
    ModuleCall& call = *static_cast<ModuleCall*>(connection);
    uint32_t result = 0;
    if (answerModuleSelector(call, selector, a3, a4, a7, result))
        return result;
    if (!call.request)
    {
        // Outside a page request only the error information is meaningful (kept for the log).
        if (selector == kKivServer_SetErrorInformation)
        {
            call.error = {true, std::string(readInput(a3, a4)), std::string(readInput(a5, a6))};
            return kKivResult_Success;
        }
        return kHostResult_NoRequest;
    }
    return answerRequestSelector(call, selector, a3, a4, a5, a6, a7);
}

namespace
{

// The service's text for a code it just answered, asked the way a module asks ('MDEI').
std::string databaseFailureText(db::DatabaseSession& session, uint32_t code)
{
    std::string text(256, '\0');
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        uint32_t capacity = static_cast<uint32_t>(text.size());
        uint32_t answer =
            session.handle(kKivDB_GetErrorInfo, &code, text.data(), &capacity, nullptr, nullptr, nullptr);
        if (answer == kKivResult_Success)
        {
            text.resize(capacity);
            return text;
        }
        if (answer != kKivResult_BufferTooSmall)
            break;
        text.assign(capacity, '\0');
    }
    return {};
}

bool isFailure(uint32_t code)
{
    return code != kKivResult_Success && code != kKivResult_BufferTooSmall &&
           code != kKivResult_BeginningOfFile && code != kKivResult_EndOfFile;
}

} // namespace

uint32_t databaseSupportFunction(void* connection, uint32_t selector, void* a3, void* a4, void* a5, void* a6,
                                 void* a7, void* a8)
{
    if (!connection)
        return kKivResult_UnknownError;
    ModuleCall& call = *static_cast<ModuleCall*>(connection);
    if (!call.request)
        return kHostResult_NoRequest;
    db::DatabaseSession& session = call.request->databaseSession();
    uint32_t code = session.handle(selector, a3, a4, a5, a6, a7, a8);
    if (isFailure(code) && selector != kKivDB_GetErrorInfo)
    {
        std::string text = databaseFailureText(session, code);
        call.databaseFailure = text.empty() ? "result " + fourCharacterCode(code)
                                            : text + " (result " + fourCharacterCode(code) + ")";
    }
    return code;
}

} // namespace kiv
