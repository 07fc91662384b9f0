// Administration page.
#include "admin/AdminPage.h"

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
    if (request.request.method == "POST")
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
        ModuleCallResult result = myHost.call(module, kKivRequest_SetPreferences, &request);
        const RegionConfig& region = request.region.region;
        writeServerLog(
            result.code == 0 ? LogKind::Note : LogKind::Warning, {region.name, request.urlPath, ""},
            "preferences of " + module.displayName() + " saved by " +
                (request.request.user.empty() ? std::string("-") : request.request.user) +
                (result.code == 0 ? "" : " (module answered " + fourCharacterCode(result.code) + ")"));
        notice = "<p class=\"notice\">Preferences of " + htmlEncode(module.displayName()) + " saved.</p>\n";
    }

    std::string html =
        "<!DOCTYPE html>\n<html><head><meta charset=\"ISO-8859-1\"><title>kiv-server administration</title>\n"
        "<style>body{font-family:sans-serif;margin:2em;max-width:60em}th{text-align:left;padding-right:1em}"
        "section.module{border-top:1px solid #999;margin-top:1.5em}.notice{background:#e7f6e7;padding:0.5em}"
        "</style></head><body>\n<h1>kiv-server administration</h1>\n<p>Region <strong>" +
        htmlEncode(request.region.region.name) + "</strong>, site " +
        htmlEncode(request.region.region.siteRoot.string()) + "</p>\n" + notice;
    if (modules.empty())
        html += "<p>No modules are loaded.</p>\n";
    for (size_t i = 0; i < modules.size(); ++i)
        html += renderModule(i, *modules[i], request);
    html += renderDatabases(request);
    html += "</body></html>\n";
    response.status = 200;
    response.body = std::move(html);
    response.setHeader("Content-Type", "text/html; charset=ISO-8859-1");
}

} // namespace kiv
