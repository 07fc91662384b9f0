// Latest changes per database, read from the end of the region's audit log.
#include "admin/AdminChanges.h"

#include "AuditEntry.h"
#include "logging/Log.h"

#include <fstream>
#include <map>

namespace kiv
{

namespace
{

// The page reads only the end of a log that may have grown for months.
constexpr std::streamoff kTailBytes = 512 * 1024;
constexpr size_t kChangesPerDatabase = 5;

std::vector<db::AuditEntry> readTail(const std::filesystem::path& file)
{
    std::vector<db::AuditEntry> entries;
    std::ifstream log(file, std::ios::binary | std::ios::ate);
    if (!log)
        return entries;
    const std::streamoff size = log.tellg();
    log.seekg(size > kTailBytes ? size - kTailBytes : 0);
    std::string line;
    if (size > kTailBytes)
        std::getline(log, line); // most likely the end of a line cut in two
    while (std::getline(log, line))
        if (auto entry = db::parseAuditEntry(line))
            entries.push_back(std::move(*entry));
    return entries;
}

std::string describeValues(const db::AuditValues& values)
{
    std::string text;
    for (const auto& [field, value] : values)
        text += (text.empty() ? "" : ", ") + field + " = " + value;
    return text;
}

std::string changeRow(const db::AuditEntry& entry)
{
    std::string who = entry.user + (entry.address.empty() ? "" : " (" + entry.address + ")");
    std::string what = std::string(db::actionName(entry.action));
    if (!entry.record.empty())
        what += " #" + entry.record;
    if (!entry.field.empty())
        what += " " + entry.field;
    if (entry.action == db::AuditAction::AllRecordsDeleted || entry.action == db::AuditAction::Imported ||
        entry.action == db::AuditAction::Restored)
        what += " (" + std::to_string(entry.count) + " records" +
                (entry.file.empty() ? "" : " from " + entry.file) + ")";
    return "<tr><td>" + htmlEncode(entry.time) + "</td><td>" + htmlEncode(what) + "</td><td>" +
           htmlEncode(who) + "</td><td>" + htmlEncode(entry.page) + "</td><td>" +
           htmlEncode(describeValues(entry.before)) + "</td><td>" + htmlEncode(describeValues(entry.after)) +
           "</td></tr>\n";
}

constexpr std::string_view kRestoreField = "kivAdminRestore";

std::string restoreButton(const std::string& adminPath, const std::string& value, const std::string& label)
{
    return "<form method=\"post\" action=\"" + htmlEncode(adminPath) + "\">" + adminActionField("restore") +
           "<button name=\"" + std::string(kRestoreField) + "\" value=\"" + htmlEncode(value) + "\">" +
           htmlEncode(label) + "</button></form>";
}

} // namespace

std::string renderRecycleBin(RequestContext& request)
{
    db::DatabaseService& service = request.databaseService();
    std::vector<db::TrashEntry> entries;
    std::string html = "<section class=\"trash\">\n<h2>Recycle bin</h2>\n";
    if (service.listTrash(entries) != 0)
        return html + "<p>" + htmlEncode(service.lastFailure().line) + "</p>\n</section>\n";
    if (entries.empty())
        return html + "<p>Nothing was deleted lately.</p>\n</section>\n";
    html += "<table>\n<tr><th>Database</th><th>Deleted (UTC)</th><th>By</th><th>What</th><th></th></tr>\n";
    const std::string& admin = request.server.adminPath;
    for (const auto& entry : entries)
    {
        std::string what = std::to_string(entry.records) + " records";
        std::string buttons;
        if (!entry.field.empty())
        {
            what = "the field " + entry.field + " (" + std::to_string(entry.records) + " values)";
            buttons =
                restoreButton(admin, "deletion\t" + entry.database + "\t" + std::to_string(entry.deletion),
                              "Restore the field");
        }
        else if (!entry.file.empty())
        {
            what = "the database (" + what + ")";
            buttons = restoreButton(admin, "file\t" + entry.file, "Restore the database");
        }
        else
        {
            const std::string deletion =
                "deletion\t" + entry.database + "\t" + std::to_string(entry.deletion);
            buttons = restoreButton(admin, deletion, "Restore all " + std::to_string(entry.records));
            for (const auto& id : entry.recordIDs)
                buttons += restoreButton(admin, deletion + "\t" + id, "Restore #" + id);
        }
        html += "<tr><td>" + htmlEncode(entry.database) + "</td><td>" + htmlEncode(entry.deletedAt) +
                "</td><td>" + htmlEncode(entry.deletedBy) + "</td><td>" + htmlEncode(what) + "</td><td>" +
                buttons + "</td></tr>\n";
    }
    return html + "</table>\n</section>\n";
}

AdminNotice restoreFromTrash(RequestContext& request)
{
    const std::string* value = findValue(request.postArguments, kRestoreField);
    if (!value)
        return adminRefusal(400, "Not restored: the form names nothing in the recycle bin.");
    // "file<TAB>name", or "deletion<TAB>database<TAB>number[<TAB>record ID]".
    std::vector<std::string> parts;
    for (size_t start = 0; start <= value->size();)
    {
        const size_t tab = std::min(value->find('\t', start), value->size());
        parts.push_back(value->substr(start, tab - start));
        start = tab + 1;
    }
    db::TrashRestore which;
    if (parts.size() == 2 && parts[0] == "file")
        which.file = parts[1];
    else if ((parts.size() == 3 || parts.size() == 4) && parts[0] == "deletion" && !parts[2].empty() &&
             parts[2].size() < 19 && parts[2].find_first_not_of("0123456789") == std::string::npos)
    {
        which.database = parts[1];
        which.deletion = std::stoll(parts[2]);
        which.recordID = parts.size() == 4 ? parts[3] : "";
    }
    else
        return adminRefusal(400, "Not restored: the form names nothing in the recycle bin.");
    db::DatabaseService& service = request.databaseService();
    uint64_t restored = 0;
    const uint32_t code = service.restoreTrash(which, restored);
    const std::string what = which.file.empty() ? std::to_string(restored) + " records into " + which.database
                                                : "the database of " + which.file;
    writeServerLog(
        code == 0 ? LogKind::Note : LogKind::Warning, {request.region.region.name, request.urlPath, ""},
        (code == 0 ? "restored " + what : "restore refused: " + service.lastFailure().line) + " (by " +
            (request.request.user.empty() ? std::string("-") : request.request.user) + ")");
    if (code != 0)
        return adminRefusal(400, "Not restored: " + service.lastFailure().line);
    return adminSuccess("Restored " + what + ".");
}

std::string renderRecentChanges(RequestContext& request)
{
    const auto entries = readTail(auditLogOf(request.server, request.region.region));
    std::string html = "<section class=\"changes\">\n<h2>Latest changes</h2>\n";
    if (entries.empty())
        return html + "<p>The audit log holds no changes yet.</p>\n</section>\n";
    // Newest first, a few per database.
    std::map<std::string, std::vector<const db::AuditEntry*>> byDatabase;
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
        if (auto& latest = byDatabase[entry->database]; latest.size() < kChangesPerDatabase)
            latest.push_back(&*entry);
    for (const auto& [database, latest] : byDatabase)
    {
        html += "<h3>" + htmlEncode(database) +
                "</h3>\n<table>\n<tr><th>Time (UTC)</th><th>Change</th><th>User</th><th>Page</th>"
                "<th>Before</th><th>After</th></tr>\n";
        for (const auto* entry : latest)
            html += changeRow(*entry);
        html += "</table>\n";
    }
    return html + "</section>\n";
}

} // namespace kiv
