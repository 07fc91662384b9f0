// The embedded store's maintenance: integrity checks, online backups and restores, all through
// SQLite itself (PRAGMA integrity_check and the online backup API), never by copying files a
// writer may be changing.
#include "embedded/EmbeddedStore.h"

#include "NameRules.h"
#include "ServiceCodes.h"

#include <algorithm>
#include <unistd.h>

namespace kiv::db
{

namespace
{

// One sqlite3_backup from a whole source database to a destination, in a single step: the
// source is read in one read transaction, so the copy is the database as one moment saw it.
void copyDatabase(SqliteConnection& destination, SqliteConnection& source)
{
    struct Finisher
    {
        void operator()(sqlite3_backup* backup) const { sqlite3_backup_finish(backup); }
    };
    std::unique_ptr<sqlite3_backup, Finisher> backup(
        sqlite3_backup_init(destination.get(), "main", source.get(), "main"));
    if (!backup)
        throw SqliteError(sqlite3_extended_errcode(destination.get()), sqlite3_errmsg(destination.get()));
    const int step = sqlite3_backup_step(backup.get(), -1);
    if (step != SQLITE_DONE)
        throw SqliteError(step, sqlite3_errstr(step));
    const int finish = sqlite3_backup_finish(backup.release());
    if (finish != SQLITE_OK)
        throw SqliteError(finish, sqlite3_errmsg(destination.get()));
}

int64_t schemaVersion(SqliteConnection& connection)
{
    auto version = connection.prepare("PRAGMA schema_version");
    version.step();
    return version.columnInteger(0);
}

// Every problem of one database file: SQLite's integrity check (the collations its indexes use
// are the store's, so it runs on a store connection), and every field's column present.
std::vector<std::string> findProblems(const std::filesystem::path& file, const StoreOptions& options)
{
    std::vector<std::string> problems;
    try
    {
        StoreConnection connection(file, options);
        auto integrity = connection.sql().prepare("PRAGMA integrity_check");
        while (integrity.step())
            if (integrity.columnText(0) != "ok")
                problems.emplace_back(integrity.columnText(0));
        std::vector<std::string> columns;
        auto table = connection.sql().prepare("SELECT name FROM pragma_table_info('kiv_records')");
        while (table.step())
            columns.emplace_back(table.columnText(0));
        auto fields = connection.sql().prepare("SELECT name, column_name FROM kiv_fields ORDER BY position");
        while (fields.step())
            if (std::find(columns.begin(), columns.end(), fields.columnText(1)) == columns.end())
                problems.push_back("the field " + std::string(fields.columnText(0)) + " has no column " +
                                   std::string(fields.columnText(1)));
    }
    catch (const SqliteError& error)
    {
        problems.emplace_back(error.what());
    }
    return problems;
}

bool isSameFile(const std::filesystem::path& a, const std::filesystem::path& b)
{
    std::error_code error;
    return std::filesystem::equivalent(a, b, error);
}

} // namespace

uint32_t DatabaseCatalogue::check(const std::string& name, std::vector<std::string>& problems,
                                  std::string& message)
{
    std::string stored;
    if (const uint32_t code = findExisting(name, stored, message); code != kKivResult_Success)
        return code;
    problems = findProblems(fileOf(stored), myOptions);
    return kKivResult_Success;
}

uint32_t DatabaseCatalogue::backup(const std::string& name, const std::filesystem::path& folder,
                                   std::string& message)
{
    std::string stored;
    if (const uint32_t code = findExisting(name, stored, message); code != kKivResult_Success)
        return code;
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const auto target = folder / fileOf(stored).filename();
    if (isSameFile(target, fileOf(stored)))
    {
        message = "The backup folder is the data folder itself.";
        return result::kFileError;
    }
    // A shared open: pages go on reading and writing; a restore or a field change waits.
    auto lock = DatabaseLock::acquire(lockFileOf(stored), DatabaseLock::Mode::Shared, myOptions.lockWait);
    if (!lock)
    {
        message = "The database \"" + stored + "\" is in use by someone who needs it for exclusive use.";
        return result::kLocked;
    }
    // A failed backup never leaves half a file, nor destroys an earlier backup of that name.
    return writeFileWhole(
        target, "backup",
        [&](const std::filesystem::path& hidden)
        {
            StoreConnection source(fileOf(stored), myOptions);
            SqliteConnection copy(hidden.string(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
            copyDatabase(copy, source.sql());
            // One self-contained file, whatever the live database's journal.
            copy.execute("PRAGMA journal_mode=DELETE");
        },
        result::kFileError, "The backup could not be written", message);
}

uint32_t DatabaseCatalogue::restore(const std::string& name, const std::filesystem::path& folder,
                                    std::string& message)
{
    if (message = checkDatabaseName(name); !message.empty())
        return result::kInvalidName;
    DatabaseCatalogue backups(folder, myOptions);
    const auto saved = backups.resolve(name);
    if (!saved)
    {
        message = "No backup of \"" + name + "\" in " + folder.string() + ".";
        return result::kDatabaseNotFound;
    }
    const auto source = backups.fileOf(*saved);
    if (const auto problems = findProblems(source, myOptions); !problems.empty())
    {
        message = "The backup " + source.string() + " fails its check: " + problems.front();
        return result::kStorageError;
    }
    auto stored = resolve(name);
    if (!stored)
    {
        if (const uint32_t code = create(*saved, message); code != kKivResult_Success)
            return code;
        stored = resolve(*saved);
    }
    if (isSameFile(source, fileOf(*stored)))
    {
        message = "The backup is the database itself.";
        return result::kFileError;
    }
    auto lock = DatabaseLock::acquire(lockFileOf(*stored), DatabaseLock::Mode::Exclusive, myOptions.lockWait);
    if (!lock)
    {
        message = "The database \"" + *stored +
                  "\" is in use; a restore needs it to itself. Try again when "
                  "no page has it open.";
        return result::kLocked;
    }
    try
    {
        StoreConnection from(source, myOptions);
        StoreConnection to(fileOf(*stored), myOptions);
        const int64_t version = std::max(schemaVersion(to.sql()), schemaVersion(from.sql()));
        copyDatabase(to.sql(), from.sql());
        to.sql().execute("PRAGMA journal_mode=WAL");
        // Connections that workers keep reload their field list when the schema version differs
        // from the one they saw; the copy's own version could equal it.
        to.sql().execute("PRAGMA schema_version=" + std::to_string(version + 1));
        return kKivResult_Success;
    }
    catch (const SqliteError& failure)
    {
        return resultOfSqliteError(failure, message);
    }
}

} // namespace kiv::db
