// The overview sections of the administration page and its backup button.
#include "admin/AdminOverview.h"

#include "Backups.h"
#include "logging/Log.h"

#include <algorithm>
#include <fcntl.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace kiv
{

namespace
{

constexpr size_t kErrorLinesShown = 50;
constexpr size_t kBackupsShown = 50;

// The size and last change of an embedded database: its file and its write-ahead log, which
// holds the latest commits until they are copied into the file.
struct DiskUse
{
    uintmax_t bytes = 0;
    std::time_t modified = 0;
};

DiskUse diskUseOf(const fs::path& dataFolder, const std::string& name)
{
    DiskUse use;
    for (const char* suffix : {".kivdb", ".kivdb-wal"})
    {
        struct stat info;
        if (::stat((dataFolder / (name + suffix)).c_str(), &info) == 0 && S_ISREG(info.st_mode))
        {
            use.bytes += static_cast<uintmax_t>(info.st_size);
            use.modified = std::max(use.modified, info.st_mtim.tv_sec);
        }
    }
    return use;
}

bool isErrorLine(std::string_view line)
{
    // "2026-11-25T00:15:00.000Z [error] pid 12: ..." as the server log writes it.
    // A message that quotes "[error]" is not one.
    constexpr size_t kStampLength = 24;
    if (line.size() < kStampLength || line[4] != '-' || line[10] != 'T' || line[kStampLength - 1] != 'Z')
        return false;
    const std::string_view kind = line.substr(kStampLength);
    return kind.rfind(" [error] ", 0) == 0 || kind.rfind(" [failure] ", 0) == 0;
}

struct BackupFolder
{
    std::string name;
    std::time_t made = 0;
    std::vector<std::string> databases;
};

// The backup folders, newest first: each folder with the databases ("<name>.kivdb") it holds.
std::vector<BackupFolder> listBackups(const fs::path& folder)
{
    std::vector<BackupFolder> backups;
    for (const FolderEntry& entry : listFolderEntries(folder, EntryKind::Folder, 1000))
    {
        BackupFolder backup{entry.name, entry.modified, {}};
        for (const FolderEntry& file : listFolderEntries(folder / entry.name, EntryKind::File, 10000))
            if (fs::path(file.name).extension() == ".kivdb")
                backup.databases.push_back(fs::path(file.name).stem().string());
        backups.push_back(std::move(backup));
    }
    std::sort(backups.begin(), backups.end(),
              [](const auto& a, const auto& b)
              { return a.made != b.made ? a.made > b.made : a.name > b.name; });
    return backups;
}

// A new folder for a backup, named by the time ("2026-11-25T001500Z", then "-2", "-3" ... when
// several are made in one second); empty when none can be made.
fs::path makeBackupFolder(const fs::path& backups)
{
    std::error_code error;
    fs::create_directories(backups, error);
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H%M%SZ", &utc);
    for (int attempt = 1; attempt <= 100; ++attempt)
    {
        fs::path folder = backups / (stamp + (attempt == 1 ? std::string() : "-" + std::to_string(attempt)));
        if (fs::create_directory(folder, error))
            return folder;
        if (error)
            return {};
    }
    return {};
}

} // namespace

std::vector<std::string> readLastErrorLines(const fs::path& log, size_t count, size_t maxBytes)
{
    std::vector<std::string> lines;
    FileDescriptor file(::open(log.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (!file.isOpen() || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return lines;
    const off_t size = info.st_size;
    const off_t start = size > static_cast<off_t>(maxBytes) ? size - static_cast<off_t>(maxBytes) : 0;
    // Pieces of 64 KiB from the end; a line cut by a piece's start waits for the piece before.
    constexpr off_t kPiece = 64 * 1024;
    std::string carried;
    for (off_t end = size; end > start && lines.size() < count;)
    {
        const off_t begin = std::max(start, end - kPiece);
        std::string piece(static_cast<size_t>(end - begin), '\0');
        if (::pread(file.get(), piece.data(), piece.size(), begin) != static_cast<ssize_t>(piece.size()))
            break;
        piece += carried;
        size_t lineEnd = piece.size();
        size_t newline;
        while (lines.size() < count && lineEnd > 0 &&
               (newline = piece.rfind('\n', lineEnd - 1)) != std::string::npos)
        {
            std::string_view line(piece.data() + newline + 1, lineEnd - newline - 1);
            if (isErrorLine(line))
                lines.emplace_back(line);
            lineEnd = newline;
        }
        carried = piece.substr(0, lineEnd);
        end = begin;
        if (end == 0 && lines.size() < count && isErrorLine(carried)) // the file's first line
            lines.push_back(carried);
    }
    std::reverse(lines.begin(), lines.end());
    return lines;
}

std::string renderDatabaseOverview(RequestContext& request)
{
    db::DatabaseService& service = request.databaseService();
    std::vector<std::string> names;
    std::string html = "<section class=\"databases\">\n<h2>Databases</h2>\n";
    if (service.listDatabases(names) != 0)
        return html + "<p>The databases cannot be listed: " + htmlEncode(service.lastFailure().line) +
               "</p>\n</section>\n";
    if (names.empty())
        return html + "<p>The region has no databases yet.</p>\n</section>\n";
    html += listingTableHead({"Database", "Records", "Size", "Changed", "Fields"});
    for (const auto& name : names)
    {
        html += "<tr>" + listingCell("Database", htmlEncode(name));
        db::DatabaseHandle handle = 0;
        if (service.openDatabase(name, db::OpenMode::Shared, db::OpenIntent::MustExist, "", handle) != 0)
        {
            html += "<td colspan=\"4\">" + htmlEncode(service.lastFailure().line) + "</td></tr>\n";
            continue;
        }
        db::Database& database = *service.database(handle);
        uint32_t records = 0;
        const bool counted = database.recordCount(records) == 0;
        std::string fields;
        for (size_t i = 0; i < database.fieldCount(); ++i)
            fields += (i ? ", " : "") + database.fieldAt(i)->name;
        service.closeDatabase(handle);
        const DiskUse use = diskUseOf(request.region.region.dataFolder, name);
        html += listingCell("Records", counted ? std::to_string(records) : std::string("?")) +
                listingCell("Size", formatByteCount(use.bytes)) +
                listingCell("Changed", formatAdminTime(use.modified)) +
                listingCell("Fields", htmlEncode(fields)) + "</tr>\n";
    }
    return html + "</table>\n</section>\n";
}

std::string renderServerErrors(RequestContext& request)
{
    std::string html = "<section class=\"errors\">\n<h2>Latest errors</h2>\n";
    const fs::path& log = request.server.serverLog;
    if (log.empty())
        return html + "<p>The server log goes to standard error; give <code>server_log</code> a file to see "
                      "its errors here.</p>\n</section>\n";
    const std::vector<std::string> lines = readLastErrorLines(log, kErrorLinesShown);
    if (lines.empty())
        return html + "<p>No errors in the end of " + htmlEncode(log.string()) + ".</p>\n</section>\n";
    html += "<p>The last " + std::to_string(lines.size()) + " errors of " + htmlEncode(log.string()) +
            ", newest last:</p>\n<pre class=\"log\">";
    for (const auto& line : lines)
        html += htmlEncode(line) + "\n";
    return html + "</pre>\n</section>\n";
}

std::string renderBackups(RequestContext& request)
{
    const fs::path folder = backupsFolderOf(request.region.region);
    std::string html = "<section class=\"backups\">\n<h2>Backups</h2>\n<p>In <code>" +
                       htmlEncode(folder.string()) +
                       "</code>: each folder is a data folder that <code>kiv-server db restore</code> "
                       "takes back.</p>\n";
    const std::vector<BackupFolder> backups = listBackups(folder);
    if (backups.empty())
        html += "<p>No backups yet.</p>\n";
    else
    {
        html += listingTableHead({"Backup", "Made", "Databases"});
        for (size_t i = 0; i < backups.size() && i < kBackupsShown; ++i)
        {
            std::string databases;
            for (const auto& name : backups[i].databases)
                databases += (databases.empty() ? "" : ", ") + name;
            html += "<tr>" + listingCell("Backup", htmlEncode(backups[i].name)) +
                    listingCell("Made", formatAdminTime(backups[i].made)) +
                    listingCell("Databases", htmlEncode(databases.empty() ? "-" : databases)) + "</tr>\n";
        }
        html += "</table>\n";
    }
    return html + "<form method=\"post\" action=\"" + htmlEncode(request.server.adminPath) + "\">\n" +
           adminActionField("backup") +
           "<p><input type=\"submit\" value=\"Back up every database now\"></p>\n</form>\n</section>\n";
}

AdminNotice makeBackup(RequestContext& request)
{
    const RegionConfig& region = request.region.region;
    LogContext where{region.name, request.request.path, ""};
    const fs::path folder = makeBackupFolder(backupsFolderOf(region));
    if (folder.empty())
    {
        writeServerLog(LogKind::Error, where,
                       "cannot make a backup folder in " + backupsFolderOf(region).string());
        return adminRefusal(500, "No backup made: a folder cannot be made in " +
                                     backupsFolderOf(region).string() + ".");
    }
    db::DatabaseService& service = request.databaseService();
    size_t copied = 0;
    std::string failed;
    const uint32_t code = db::backupDatabases(
        service, {}, folder, [&](const std::string&) { ++copied; }, failed);
    if (code != 0)
    {
        // Half a backup would pass for a whole one in the list.
        std::error_code error;
        fs::remove_all(folder, error);
        const std::string why =
            (failed.empty() ? "the databases cannot be listed" : failed) + ": " + service.lastFailure().line;
        writeServerLog(LogKind::Error, where, "backup by " + request.request.user + " failed: " + why);
        return adminRefusal(500, "No backup made: " + why);
    }
    writeServerLog(LogKind::Note, where,
                   "backup of " + std::to_string(copied) + " databases to " + folder.string() + " by " +
                       request.request.user);
    return adminSuccess("Backed up " + std::to_string(copied) + " databases to " + folder.string() + ".");
}

} // namespace kiv
