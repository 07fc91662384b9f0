// Administration page.
#include "admin/AdminPage.h"

#include "admin/AdminChanges.h"
#include "DatabaseService.h"
#include "logging/Log.h"

namespace kiv
{

namespace
{

constexpr std::string_view kModuleField = "kivAdminModule";

std::string row(std::string_view label, std::string_view value)
{
    return "<tr><th>" + std::string(label) + "</th><td>" + htmlEncode(value.empty() ? "-" : value) +
           "</td></tr>\n";
}

// The region's own databases, read through the typed database service: their fields and
// records, so an administrator sees what the pages work on without opening the editor.
std::string renderDatabases(RequestContext& request)
{
    db::DatabaseService& service = request.databaseService();
    std::vector<std::string> names;
    std::string html = "<section class=\"databases\">\n<h2>Databases</h2>\n";
    if (service.listDatabases(names) != 0)
        return html + "<p>The databases cannot be listed: " + htmlEncode(service.lastFailure().line) +
               "</p>\n</section>\n";
    if (names.empty())
        return html + "<p>The region has no databases yet.</p>\n</section>\n";
    html += "<table>\n<tr><th>Database</th><th>Records</th><th>Fields</th></tr>\n";
    for (const auto& name : names)
    {
        db::DatabaseHandle handle = 0;
        if (service.openDatabase(name, db::OpenMode::Shared, db::OpenIntent::MustExist, "", handle) != 0)
        {
            html += row(name, service.lastFailure().line);
            continue;
        }
        db::Database& database = *service.database(handle);
        uint32_t records = 0;
        database.recordCount(records);
        std::string fields;
        for (size_t i = 0; i < database.fieldCount(); ++i)
            fields += (i ? ", " : "") + database.fieldAt(i)->name;
        html += "<tr><td>" + htmlEncode(name) + "</td><td>" + std::to_string(records) + "</td><td>" +
                htmlEncode(fields) + "</td></tr>\n";
        service.closeDatabase(handle);
    }
    return html + "</table>\n</section>\n";
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

void AdminPage::handle(RequestContext& request, HttpResponse& response)
{
    auto& modules = myHost.registry().modules();
    std::string notice;
    int status = 200;
    const bool restorePosted = request.request.method == "POST" && handleRestorePost(request, notice, status);
    if (request.request.method == "POST" && !restorePosted)
    {
        const std::string* chosen = findValue(request.postArguments, kModuleField);
        size_t index = modules.size();
        if (chosen && !chosen->empty() && chosen->size() < 6 &&
            chosen->find_first_not_of("0123456789") == std::string::npos)
            index = std::stoul(*chosen);
        if (index >= modules.size())
        {
            response = makeErrorResponse(400, "The form names no loaded module.");
            return;
        }
        ModuleRecord& module = *modules[index];
        const RegionConfig& region = request.region.region;
        const std::string user = request.request.user.empty() ? std::string("-") : request.request.user;
        if (std::string problem = findPreferenceProblem(request.postArguments); !problem.empty())
        {
            writeServerLog(LogKind::Warning, {region.name, request.urlPath, ""},
                           "preferences of " + module.displayName() + " from " + user +
                               " refused: " + problem);
            notice = "<p class=\"refused\">Not saved: " + htmlEncode(problem) + "</p>\n";
            status = 400;
        }
        else
        {
            ModuleCallResult result = myHost.call(module, kKivRequest_SetPreferences, &request);
            writeServerLog(
                result.code == 0 ? LogKind::Note : LogKind::Warning, {region.name, request.urlPath, ""},
                "preferences of " + module.displayName() + " saved by " + user +
                    (result.code == 0 ? "" : " (module answered " + fourCharacterCode(result.code) + ")"));
            notice =
                "<p class=\"notice\">Preferences of " + htmlEncode(module.displayName()) + " saved.</p>\n";
        }
    }

    std::string html =
        "<!DOCTYPE html>\n<html><head><meta charset=\"ISO-8859-1\"><title>kiv-server administration</title>\n"
        "<link rel=\"stylesheet\" href=\"/kiv-assets/admin.css\"></head><body>\n"
        "<h1>kiv-server administration</h1>\n<p>Region <strong>" +
        htmlEncode(request.region.region.name) + "</strong>, site " +
        htmlEncode(request.region.region.siteRoot.string()) + "</p>\n" + notice;
    if (modules.empty())
        html += "<p>No modules are loaded.</p>\n";
    for (size_t i = 0; i < modules.size(); ++i)
        html += renderModule(i, *modules[i], request);
    html += renderDatabases(request);
    html += renderRecentChanges(request);
    html += renderRecycleBin(request);
    html += "</body></html>\n";
    response.status = status;
    response.body = std::move(html);
    response.setHeader("Content-Type", "text/html; charset=ISO-8859-1");
}

} // namespace kiv
