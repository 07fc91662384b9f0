// Administration page.
#include "admin/AdminPage.h"

#include "admin/AdminFiles.h"
#include "admin/AdminOverview.h"
#include "common/Utf8.h"
#include "admin/AdminChanges.h"
#include "logging/Log.h"

namespace kiv
{

namespace
{

constexpr std::string_view kModuleField = "kivAdminModule";

// The page's sections below the modules, in order, and the actions their forms post.
constexpr AdminSectionRenderer kSections[] = {renderDatabaseOverview, renderRecentChanges,
                                              renderRecycleBin,       renderExportFiles,
                                              renderBackups,          renderServerErrors};
constexpr std::pair<std::string_view, AdminAction> kActions[] = {
    {"upload", uploadExportFile}, {"backup", makeBackup}, {"restore", restoreFromTrash}};

std::string row(std::string_view label, std::string_view value)
{
    return "<tr><th>" + std::string(label) + "</th><td>" + htmlEncode(value.empty() ? "-" : value) +
           "</td></tr>\n";
}

// The numbers the modules' preference forms ask for, with the range each may take. A module
// stores the text it is sent and reads it as a number later, so "1e9" would become 1 and
// 4294967297 would wrap around: such a form is refused before the module sees it. The
// Database Module's form allows five digits for its result limit.
struct NumericPreference
{
    std::string_view control;
    std::string_view label;
    uint32_t minimum;
    uint32_t maximum;
};
constexpr NumericPreference kNumericPreferences[] = {{"maxResults", "The search result limit", 1, 99999}};

// Why the posted preferences cannot be stored; empty when they can. An empty value is left to
// the module, which takes its default.
std::string findPreferenceProblem(const NameValueList& form)
{
    for (const auto& preference : kNumericPreferences)
    {
        const std::string* value = findValue(form, preference.control);
        if (!value || value->empty())
            continue;
        bool digits = value->size() <= 10 && value->find_first_not_of("0123456789") == std::string::npos;
        uint64_t number = digits ? std::stoull(*value) : 0;
        if (!digits || number < preference.minimum || number > preference.maximum)
            return std::string(preference.label) + " must be a whole number from " +
                   std::to_string(preference.minimum) + " to " + std::to_string(preference.maximum) +
                   ", not \"" + value->substr(0, 40) + "\".";
    }
    return {};
}

} // namespace

std::string AdminPage::renderModule(size_t index, ModuleRecord& module, RequestContext& request)
{
    std::string html =
        "<section class=\"module\">\n<h2>" + htmlEncode(module.displayName()) + "</h2>\n<table>\n";
    html += row("Version", module.version);
    html += row("Author", module.author);
    html += row("Developer ID", module.developerID);
    html += row("Version tracker", module.versionTrackerURL);
    html += row("Library", module.path.string());
    html += "</table>\n<h3>Tags</h3>\n<table>\n<tr><th>Tag</th><th>Flags</th><th>Meaning</th></tr>\n";
    for (const auto& tag : module.tags)
        html += "<tr><td>&lt;" + htmlEncode(tag.name) + "&gt;</td><td>" + std::to_string(tag.flags) +
                "</td><td>" + htmlEncode(describeTagFlags(tag.flags)) + "</td></tr>\n";
    html += "</table>\n";
    if (!module.actions.empty())
    {
        html += "<h3>Actions</h3>\n<ul>\n";
        for (const auto& action : module.actions)
            html += "<li>" + htmlEncode(action) + "</li>\n";
        html += "</ul>\n";
    }
    ModuleCallResult preferences = myHost.call(module, kKivRequest_GetPreferences, &request);
    html += "<h3>Preferences for region " + htmlEncode(request.region.region.name) + "</h3>\n";
    html += "<form method=\"post\" action=\"" + htmlEncode(request.server.adminPath) + "\">\n";
    html += "<input type=\"hidden\" name=\"" + std::string(kModuleField) + "\" value=\"" +
            std::to_string(index) + "\">\n";
    html += preferences.output;
    html += "\n<p><input type=\"submit\" value=\"Save preferences\"></p>\n</form>\n</section>\n";
    return html;
}

AdminNotice AdminPage::savePreferences(RequestContext& request)
{
    auto& modules = myHost.registry().modules();
    const std::string* chosen = findValue(request.postArguments, kModuleField);
    size_t index = modules.size();
    if (chosen && !chosen->empty() && chosen->size() < 6 &&
        chosen->find_first_not_of("0123456789") == std::string::npos)
        index = std::stoul(*chosen);
    if (index >= modules.size())
        return adminRefusal(400, "The form names no loaded module.");
    ModuleRecord& module = *modules[index];
    const RegionConfig& region = request.region.region;
    const std::string user = request.request.user.empty() ? std::string("-") : request.request.user;
    if (std::string problem = findPreferenceProblem(request.postArguments); !problem.empty())
    {
        writeServerLog(LogKind::Warning, {region.name, request.urlPath, ""},
                       "preferences of " + module.displayName() + " from " + user + " refused: " + problem);
        return adminRefusal(400, "Not saved: " + problem);
    }
    ModuleCallResult result = myHost.call(module, kKivRequest_SetPreferences, &request);
    writeServerLog(result.code == 0 ? LogKind::Note : LogKind::Warning, {region.name, request.urlPath, ""},
                   "preferences of " + module.displayName() + " saved by " + user +
                       (result.code == 0 ? "" : " (module answered " + fourCharacterCode(result.code) + ")"));
    return adminSuccess("Preferences of " + module.displayName() + " saved.");
}

void AdminPage::handle(RequestContext& request, HttpResponse& response)
{
    // What follows the administration page's own path: a file to download, or nothing.
    const std::string_view below =
        std::string_view(request.request.path)
            .substr(std::min(request.request.path.size(), request.server.adminPath.size()));
    if (!below.empty())
    {
        if (below.rfind(kAdminFilesPath, 0) == 0 && request.request.method != "POST")
            downloadExportFile(request, below.substr(kAdminFilesPath.size()), response);
        else
            response = makeErrorResponse(404);
        return;
    }
    AdminNotice notice;
    if (request.request.method == "POST")
    {
        const std::string* action = findValue(request.postArguments, kAdminActionField);
        notice = {400, ""};
        if (!action)
            notice = savePreferences(request);
        for (const auto& [name, run] : kActions)
            if (action && *action == name)
                notice = run(request);
        if (notice.html.empty())
            notice = adminRefusal(400, "The form asks for nothing this page does.");
    }

    auto& modules = myHost.registry().modules();
    const RegionConfig& region = request.region.region;
    std::string html = "<!DOCTYPE html>\n<html><head><meta charset=\"" + region.pageCharset +
                       "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                       "<title>kiv-server administration</title>\n"
                       "<link rel=\"stylesheet\" href=\"/kiv-assets/admin.css\"></head><body>\n"
                       "<h1>kiv-server administration</h1>\n<p>Region <strong>" +
                       htmlEncode(region.name) + "</strong>, site " + htmlEncode(region.siteRoot.string()) +
                       "</p>\n" + notice.html;
    if (modules.empty())
        html += "<p>No modules are loaded.</p>\n";
    for (size_t i = 0; i < modules.size(); ++i)
        html += renderModule(i, *modules[i], request);
    for (const AdminSectionRenderer section : kSections)
        html += section(request);
    html += "</body></html>\n";
    if (region.servesUtf8())
        convertLatin1ToUtf8(html);
    response.status = notice.status;
    response.body = std::move(html);
    response.setHeader("Content-Type", "text/html; charset=" + region.pageCharset);
}

} // namespace kiv
