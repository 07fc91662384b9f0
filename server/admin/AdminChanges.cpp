// Latest changes per database, read from the end of the region's audit log.
#include "admin/AdminChanges.h"

#include "AuditEntry.h"

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
    if (entry.action == db::AuditAction::AllRecordsDeleted || entry.action == db::AuditAction::Imported)
        what += " (" + std::to_string(entry.count) + " records" +
                (entry.file.empty() ? "" : " from " + entry.file) + ")";
    return "<tr><td>" + htmlEncode(entry.time) + "</td><td>" + htmlEncode(what) + "</td><td>" +
           htmlEncode(who) + "</td><td>" + htmlEncode(entry.page) + "</td><td>" +
           htmlEncode(describeValues(entry.before)) + "</td><td>" + htmlEncode(describeValues(entry.after)) +
           "</td></tr>\n";
}

} // namespace

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
